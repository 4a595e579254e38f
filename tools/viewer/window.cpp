#include "tools/viewer/window.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <span>

#include "platform/application.h"
#include "platform/glfew.h"
#include "tools/common/text.h"
#include "tools/viewer/sheet.h"

// Lines of text as they are laid over the picture.
struct OVERLAY {
    uint32_t Texture;
    float Width, Height;
};

// What the window shows. Offsets count from the window's middle, in its units.
static struct {
    std::vector<std::string> Paths;  // empty: only the image in File
    size_t At;
    VIEWER_FILE File;
    std::optional<uint32_t> Wanted;  // frame that every file is to show
    uint32_t Frame;                  // of a GIF or a sprite file
    bool Still;                      // a GIF does not play
    double Start;                    // of a GIF's round, seconds
    uint32_t Picture, Thumbnail;     // textures
    OVERLAY Help, Caption;
    std::string CaptionText;  // as it was drawn
    bool ShowThumbnail, ShowHelp, HideCaption;
    float Zoom;  // 0: fitted
    float X, Y;
    bool Dragging;
    int32_t DragX, DragY;
} view;

// The unit square: laid over a checkerboard, and over whatever is there.
static GLFEW_VERTEX board, overlay;

static double Now()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

static uint32_t TextureOf(const VIEWER_IMAGE &image)
{
    return GLFEW_MakeTexture(image.Pixels.data(), image.Width, image.Height);
}

// The size of the picture that is shown, and how large it is shown.
static const VIEWER_IMAGE &Shown()
{
    return view.ShowThumbnail ? view.File.Thumbnail : view.File.Picture;
}

static float FittingZoom()
{
    const VIEWER_IMAGE &image = Shown();
    const float across = static_cast<float>(System_ScreenWidth) / static_cast<float>(image.Width);
    const float down = static_cast<float>(System_ScreenHeight) / static_cast<float>(image.Height);
    const float zoom = std::min(across, down);
    return zoom < 1 ? zoom : std::floor(zoom);  // whole pixels stay whole
}

static float CurrentZoom()
{
    return view.Zoom == 0 ? FittingZoom() : view.Zoom;
}

static void SetTitle()
{
    const std::string facts = view.Paths.empty() ? "" : " - " + view.File.Facts;
    GLFEW_SetTitle(Text_Harmless(view.File.Path + facts).c_str());
}

// What the caption says beside the name: the title's facts, and what changes while one looks.
static std::string FactsNow()
{
    const auto of = [](size_t n, size_t count) {
        return std::to_string(n + 1) + " of " + std::to_string(count);
    };
    std::string facts = view.File.Facts;
    if (view.Paths.size() > 1)
        facts += ", " + of(view.At, view.Paths.size());
    if (view.File.Frames > 1)
        facts += ", frame " + of(view.Frame, view.File.Frames);
    if (view.ShowThumbnail)
        facts += ", thumbnail " + Viewer_Size(view.File.Thumbnail);
    if (const long percent = std::lround(CurrentZoom() * 100); percent != 100)
        facts += ", zoom " + std::to_string(percent) + " %";
    return facts;
}

static void ShowPicture()
{
    GLFEW_DestroyTexture(view.Picture);
    view.Picture = TextureOf(view.File.Picture);
}

static void Fit()
{
    view.Zoom = view.X = view.Y = 0;
}

static void ShowFrame(uint32_t frame)
{
    view.Frame = frame;
    view.File.Picture = Viewer_Screen(frame);
    ShowPicture();
}

static void ShowFile()
{
    view.ShowThumbnail = false;
    Fit();
    view.Frame = 0;
    view.Still = view.Wanted.has_value();
    view.Start = Now();
    GLFEW_DestroyTexture(view.Thumbnail);
    view.Thumbnail = 0;
    if (!view.File.Thumbnail.Pixels.empty())
        view.Thumbnail = TextureOf(view.File.Thumbnail);
    if (const uint32_t frame = view.Wanted.value_or(0); frame != 0)
        ShowFrame(frame);
    else
        ShowPicture();
    SetTitle();
}

// Goes on or back (1 or -1) to a file that can be shown; those that cannot are taken out. False
// without any.
static bool Step(int by)
{
    while (!view.Paths.empty()) {
        const size_t count = view.Paths.size();
        view.At = (view.At + count + static_cast<size_t>(by)) % count;
        view.File = Viewer_Open(view.Paths[view.At], GLFEW_MaxTextureSide());
        if (view.File.Reason.empty() && view.Wanted.value_or(0) >= view.File.Frames)
            view.File.Reason = Viewer_FrameReason(view.File.Frames);
        if (view.File.Reason.empty()) {
            ShowFile();
            return true;
        }
        std::fprintf(stderr, "tessview: %s: %s\n", Text_Harmless(view.File.Path).c_str(),
                     Text_Harmless(view.File.Reason).c_str());
        view.Paths.erase(view.Paths.begin() + static_cast<ptrdiff_t>(view.At));
        by = std::min(by, 0);  // in its place is the next one now
    }
    return false;
}

static OVERLAY OverlayOf(std::span<const std::string> lines)
{
    const VIEWER_IMAGE image = Viewer_Lines(lines);
    return {TextureOf(image), static_cast<float>(image.Width), static_cast<float>(image.Height)};
}

static OVERLAY MakeHelp()
{
    // clang-format off
    const std::array<std::string, 9> lines = {
        "left, right, space  another picture",
        "page up, page down  another frame",
        "+ - wheel           closer, farther",
        "0                   fitted",
        "drag                moves the picture",
        "t                   thumbnail",
        "c                   caption",
        "h                   this help",
        "escape              ends",
    };
    // clang-format on
    return OverlayOf(lines);
}

// Writes the caption anew when it says something else, or has another width to say it in.
static void MakeCaption()
{
    const size_t slash = view.File.Path.rfind('/') + 1;  // 0 without one
    const uint32_t width = static_cast<uint32_t>(std::max(System_ScreenWidth, 0));
    const uint32_t room =
        (std::max(width, 2 * Viewer_LinesMargin) - 2 * Viewer_LinesMargin) / Viewer_LetterWidth;
    const std::string text = Viewer_Caption(std::string_view(view.File.Path).substr(slash),
                                            FactsNow(), std::min(room, 255u));
    if (text == view.CaptionText)
        return;
    GLFEW_DestroyTexture(view.Caption.Texture);
    view.Caption = OverlayOf({&text, 1});
    view.CaptionText = text;
}

static GLFEW_VERTEX MakeQuad(const char *fragment)
{
    // Two triangles; rows of pixels go down.
    static constexpr std::array<float, 30> corners = {0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1, 1, 0, 1, 1,
                                                      0, 0, 0, 0, 0, 1, 1, 0, 1, 1, 0, 1, 0, 0, 1};
    GLFEW_VERTEX quad{};
    quad.Kind = GLFEW_Textured;
    quad.Count = 6;
    quad.TexturedVertices = corners.data();
    std::strcpy(quad.VertexShaderSource.data(),
                "#version 330 core\nlayout(location = 0) in vec3 p;\n"
                "layout(location = 1) in vec2 t;\nout vec2 uv;\nuniform mat4 MVP;\n"
                "void main() { gl_Position = MVP * vec4(p, 1); uv = t; }\n");
    std::strcpy(quad.FragmentShaderSource.data(), fragment);
    GLFEW_CreateVertex(quad);
    return quad;
}

static void MakeQuads()
{
    board = MakeQuad("#version 330 core\nin vec2 uv;\nout vec4 color;\n"
                     "uniform sampler2D textureSampler1;\n"
                     "void main() {\n"
                     "  vec4 c = texture(textureSampler1, uv);\n"
                     "  vec2 square = floor(gl_FragCoord.xy / 8);\n"
                     "  float grey = mod(square.x + square.y, 2) < 0.5 ? 1.0 : 0.8;\n"
                     "  color = vec4(mix(vec3(grey), c.rgb, c.a), 1);\n"
                     "}\n");
    overlay = MakeQuad("#version 330 core\nin vec2 uv;\nout vec4 color;\n"
                       "uniform sampler2D textureSampler1;\n"
                       "void main() { color = texture(textureSampler1, uv); }\n");
}

// Draws a texture over a rectangle of the window, its left top at (x, y).
static void Draw(GLFEW_VERTEX &quad, uint32_t texture, float x, float y, float width, float height)
{
    const auto screenWidth = static_cast<float>(std::max(System_ScreenWidth, 1));
    const auto screenHeight = static_cast<float>(std::max(System_ScreenHeight, 1));
    quad.Texture = texture;
    quad.MVP = {};
    quad.MVP[0] = 2 * width / screenWidth;  // column by column
    quad.MVP[5] = -2 * height / screenHeight;
    quad.MVP[10] = quad.MVP[15] = 1;
    quad.MVP[12] = 2 * x / screenWidth - 1;
    quad.MVP[13] = 1 - 2 * y / screenHeight;
    GLFEW_Set3DWorld(quad);
    GLFEW_SetTexture(quad);
    GLFEW_DrawVertex(quad, 4);
}

static void DrawOverlay(const OVERLAY &o, float x, float y)
{
    Draw(overlay, o.Texture, x, y, o.Width, o.Height);
}

void Paint()
{
    GLFEW_Clear();
    const VIEWER_IMAGE &image = Shown();
    const float zoom = CurrentZoom();
    const float width = std::max(std::round(static_cast<float>(image.Width) * zoom), 1.0F);
    const float height = std::max(std::round(static_cast<float>(image.Height) * zoom), 1.0F);
    const float x = std::floor((static_cast<float>(System_ScreenWidth) - width) / 2 + view.X);
    const float y = std::floor((static_cast<float>(System_ScreenHeight) - height) / 2 + view.Y);
    Draw(board, view.ShowThumbnail ? view.Thumbnail : view.Picture, x, y, width, height);
    if (!view.HideCaption && !view.Paths.empty()) {
        MakeCaption();
        DrawOverlay(view.Caption, 0, static_cast<float>(System_ScreenHeight) - view.Caption.Height);
    }
    if (view.ShowHelp)
        DrawOverlay(view.Help, 20, 20);
}

// Moves a GIF on to the frame whose time it is.
static void Play()
{
    const std::vector<double> &ends = view.File.Ends;
    if (ends.size() < 2 || view.Still)
        return;
    const double time = std::fmod(Now() - view.Start, ends.back());
    uint32_t frame = 0;
    while (frame + 1 < ends.size() && time >= ends[frame])
        frame++;
    if (frame != view.Frame)
        ShowFrame(frame);
}

// Goes to another frame, of a GIF that stands still from now on or of a sprite file.
static void Leaf(int by)
{
    const uint32_t count = view.File.Frames;
    if (count < 2)
        return;
    view.Still = true;
    ShowFrame((view.Frame + count + static_cast<uint32_t>(by)) % count);
}

// Keeps what lies at (x, y) there, which counts from the window's middle.
static void ZoomBy(float factor, float x, float y)
{
    const float fitting = FittingZoom(), before = CurrentZoom();
    view.Zoom =
        std::clamp(before * factor, std::min(1.0F / 64, fitting), std::max(64.0F, 16 * fitting));
    view.X = x + (view.X - x) * view.Zoom / before;
    view.Y = y + (view.Y - y) * view.Zoom / before;
}

static void Wheel()
{
    const int32_t steps = System_MouseWheel();
    if (steps != 0)
        ZoomBy(std::pow(1.25F, static_cast<float>(steps)),
               static_cast<float>(System_GetMouseX()) - static_cast<float>(System_ScreenWidth) / 2,
               static_cast<float>(System_GetMouseY()) -
                   static_cast<float>(System_ScreenHeight) / 2);
}

static void Drag()
{
    const int32_t x = System_GetMouseX(), y = System_GetMouseY();
    if (System_MouseDown() == 1) {
        view.Dragging = true;
        view.DragX = x;
        view.DragY = y;
    }
    if (view.Dragging) {
        // Left of the window and above it the mouse counts down from 65,535.
        view.X += static_cast<int16_t>(x - view.DragX);
        view.Y += static_cast<int16_t>(y - view.DragY);
        view.DragX = x;
        view.DragY = y;
    }
    if (System_MouseUp() == 1)
        view.Dragging = false;
}

// Goes to another file; when none can be shown any more there is nothing to stay for.
static void Turn(int by)
{
    if (!view.Paths.empty() && !Step(by))
        Velmorandis_CloseApplication(1);
}

static void Press(int32_t key)
{
    // As GLFW numbers keys: letters and signs by their ASCII codes of a US keyboard.
    constexpr int32_t escape = 256, right = 262, left = 263, pageUp = 266, pageDown = 267,
                      zeroPad = 320, minusPad = 333, plusPad = 334;
    switch (key) {
    case escape:
        Velmorandis_CloseApplication(1);
        break;
    case right:
    case ' ':
        Turn(1);
        break;
    case left:
        Turn(-1);
        break;
    case pageDown:
        Leaf(1);
        break;
    case pageUp:
        Leaf(-1);
        break;
    case '=':
    case plusPad:
        ZoomBy(1.25F, 0, 0);
        break;
    case '-':
    case minusPad:
        ZoomBy(0.8F, 0, 0);
        break;
    case '0':
    case zeroPad:
        Fit();
        break;
    case 'T':
        view.ShowThumbnail = !view.ShowThumbnail && view.Thumbnail != 0;
        Fit();  // what was in the window's middle may lie beyond the thumbnail
        break;
    case 'C':
        view.HideCaption = !view.HideCaption;
        break;
    case 'H':
        view.ShowHelp = !view.ShowHelp;
        break;
    }
}

void Scene()
{
    Press(System_KeyDown());
    Wheel();
    Drag();
    Play();
}

void Timer() {}

static bool OpenWindow()
{
    if (!CreateApplication(0, 0, 1024, 768, "tessview", "", "", 48, 48, 52, 255))
        return false;
    GLFEW_BlendByAlpha();
    MakeQuads();
    view.Help = MakeHelp();
    return true;
}

int Viewer_ShowFiles(const std::vector<std::string> &paths, std::optional<uint32_t> frame)
{
    if (!OpenWindow())
        return 1;
    view.Wanted = frame;
    view.Paths = paths;
    if (Step(0))
        ExecuteApplication();
    DestroyApplication();
    Viewer_Close();
    return view.Paths.size() == paths.size() ? 0 : 1;
}

int Viewer_ShowImage(const VIEWER_IMAGE &image, const std::string &title)
{
    if (!OpenWindow())
        return 1;
    view.File.Path = title;
    view.File.Picture = image;
    ShowFile();
    ExecuteApplication();
    DestroyApplication();
    return 0;
}
