#include "platform/glfew.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <poll.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <GL/glew.h>
#include <GLFW/glfw3.h>

#include "picture/picture.h"
#include "platform/system.h"

uint32_t GLFEW_VertexArrayID;

namespace
{
// GL objects shared by several records, found by their contents. There are only a few.
struct BUFFER {
    uint32_t Name, Users;
    std::string Bytes;
};
struct PROGRAM {
    uint32_t Name, Users;
    uint32_t VertexShader, FragmentShader;
    const char *VertexSource, *FragmentSource;  // kept texts
    int32_t MVPLocation, SamplerLocation;
    uint32_t Instanced;  // variant with an MVP per instance; 0: none
    bool TriedInstanced;
};

// State bound in the context, to skip redundant calls.
struct GL_STATE {
    uint32_t Program, Texture, Buffer;
    uint8_t Kind;  // of the vertices that the attributes describe; 0: none
};

// Frame pacing. Times as glfwGetTime gives them, in seconds.
struct PACE {
    bool Stale;         // the window does not show the application's current picture
    bool Drawn;         // something has been drawn since the last swap
    bool Iconified;     // the window is invisible
    double Period;      // refresh period of the fastest display
    double Shown;       // when the last picture was due on the display
    double EagerUntil;  // until then the next picture is likely: wait in short steps
};

// Cursor motion after a button press, held back until the next frame.
struct LATER_MOTION {
    bool Held;   // a button was pressed in this frame: the globals keep its place
    bool Moved;  // to X, Y after the press
    uint16_t X, Y;
};

struct BUSY_POINTER {
    bool Busy;
    GLFWcursor *Cursor;  // glfwTerminate frees it
};
}  // namespace

static std::vector<PROGRAM> programs;
static std::vector<BUFFER> buffers;
static uint32_t asideFrame;                  // target of GLFEW_DrawAside; 0 until needed
static uint32_t instanceBuffer;              // of MVPs; 0 until needed
static std::vector<EXTRA_MATRIX> instances;  // in the order loaded
uint64_t GLFEW_DrawCalls;
int32_t GLFEW_Samples = 4;
static GL_STATE current;
static PACE pace;
static LATER_MOTION later;
static BUSY_POINTER pointer;

static std::string windowError;  // GLFW's last error

static void KeepError(int, const char *description)
{
    windowError = description;
}

static int32_t Fail(const std::string &reason)
{
    std::fprintf(stderr, "No window: %s\n", reason.c_str());
    glfwTerminate();
    System_Window = nullptr;
    return 0;
}

// Shares of the window's sides that clip space covers.
static float shareX = 1, shareY = 1;

// The viewport counts framebuffer pixels, which differ from window units on some displays.
static void MeasureFramebuffer()
{
    int width, height;
    glfwGetFramebufferSize(System_Window, &width, &height);
    glViewport(0, 0, width, height);
    pace.Stale = true;
}

static void MeasureRefresh()
{
    int count = 0, fastest = 0;
    GLFWmonitor **monitors = glfwGetMonitors(&count);
    for (int i = 0; i < count; i++)
        if (const GLFWvidmode *mode = glfwGetVideoMode(monitors[i]))
            fastest = std::max(fastest, mode->refreshRate);
    pace.Period = 1.0 / (fastest > 0 ? fastest : 60);  // virtual displays report 0
}

// Reads the current cursor position: when the window moves under the cursor no event comes.
static void AskCursor()
{
    double x, y;
    glfwGetCursorPos(System_Window, &x, &y);
    GLFEW_MouseMotion(System_Window, x, y);
}

// Marks the picture stale whenever the window may have lost it by being covered. A few systems
// report that only by a focus event.
static void WatchWindow()
{
    glfwSetWindowRefreshCallback(System_Window, [](GLFWwindow *) { pace.Stale = true; });
    glfwSetWindowFocusCallback(System_Window, [](GLFWwindow *, int) { pace.Stale = true; });
    glfwSetWindowIconifyCallback(System_Window, [](GLFWwindow *, int iconified) {
        pace.Iconified = iconified == GLFW_TRUE;
        pace.Stale = true;
    });
    glfwSetWindowPosCallback(System_Window, [](GLFWwindow *, int, int) { AskCursor(); });
    glfwSetMonitorCallback([](GLFWmonitor *, int) { MeasureRefresh(); });
    pace = {};
    MeasureRefresh();
}

// Desktop menu entries match windows by class: the title's first word in lower case.
static void NameClass()
{
    std::string name = System_WindowTitle;
    name.resize(std::min(name.find(' '), name.size()));
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    glfwWindowHintString(GLFW_X11_CLASS_NAME, name.c_str());
    glfwWindowHintString(GLFW_X11_INSTANCE_NAME, name.c_str());
#ifdef GLFW_WAYLAND_APP_ID
    glfwWindowHintString(GLFW_WAYLAND_APP_ID, name.c_str());
#endif
}

// A software driver allocates and frees several megabytes per frame. Returning them to the system
// and faulting them in again took as long as drawing.
static void KeepFreedMemory()
{
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 4 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
#endif
}

int32_t GLFEW_Init()
{
    KeepFreedMemory();
    glfwSetErrorCallback(KeepError);
    if (!glfwInit())
        return Fail(windowError);
    glfwWindowHint(GLFW_SAMPLES, GLFEW_Samples);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 3);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
    glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    NameClass();
    System_Window = glfwCreateWindow(System_ScreenWidth, System_ScreenHeight, System_WindowTitle,
                                     nullptr, nullptr);
    if (!System_Window)
        return Fail(windowError);
    glfwMakeContextCurrent(System_Window);
    glewExperimental = GL_TRUE;
    const GLenum loaded = glewInit();
    // Without GLX (Wayland) GLEW reports this error after it has loaded every function used here.
    if (loaded != GLEW_OK && loaded != GLEW_ERROR_NO_GLX_DISPLAY)
        return Fail(reinterpret_cast<const char *>(glewGetErrorString(loaded)));
    glfwSetKeyCallback(System_Window, GLFEW_KeyBoard);
    glfwSetMouseButtonCallback(System_Window, GLFEW_Mouse);
    glfwSetCursorPosCallback(System_Window, GLFEW_MouseMotion);
    glfwSetScrollCallback(System_Window, GLFEW_Wheel);
    glfwSetWindowSizeCallback(System_Window, GLFEW_Screen);
    // A display's scale can change without the window's size.
    glfwSetFramebufferSizeCallback(System_Window,
                                   [](GLFWwindow *, int, int) { MeasureFramebuffer(); });
    glfwSwapInterval(1);
    WatchWindow();
    later = {};
    pointer = {};
    AskCursor();
    glGenVertexArrays(1, &GLFEW_VertexArrayID);
    glBindVertexArray(GLFEW_VertexArrayID);
    current = {};
    MeasureFramebuffer();
    const auto channel = [](uint8_t v) { return static_cast<float>(v) / 255; };
    glClearColor(channel(System_BGred), channel(System_BGgreen), channel(System_BGblue),
                 channel(System_BGalpha));
    return 1;
}

// The application's reaction to input may appear only a few ticks later.
static void ExpectPicture()
{
    pace.EagerUntil = glfwGetTime() + 0.03;
}

static void (*whenKey)(int32_t code);

void GLFEW_WhenTyped(void (*key)(int32_t code), void (*character)(uint32_t code))
{
    static void (*whenCharacter)(uint32_t);
    whenKey = key;
    whenCharacter = character;
    glfwSetCharCallback(System_Window, [](GLFWwindow *, unsigned code) {
        whenCharacter(code);
        ExpectPicture();
    });
}

void GLFEW_SetFullScreen(bool full)
{
    static std::array<int, 4> before;  // left, top, width, height
    GLFWmonitor *monitor = glfwGetPrimaryMonitor();
    const GLFWvidmode *mode = monitor ? glfwGetVideoMode(monitor) : nullptr;
    if (full && mode) {
        glfwGetWindowPos(System_Window, &before[0], &before[1]);
        glfwGetWindowSize(System_Window, &before[2], &before[3]);
        glfwSetWindowMonitor(System_Window, monitor, 0, 0, mode->width, mode->height,
                             mode->refreshRate);
    } else if (!full && glfwGetWindowMonitor(System_Window)) {
        glfwSetWindowMonitor(System_Window, nullptr, before[0], before[1], before[2], before[3],
                             GLFW_DONT_CARE);
    }
}

float GLFEW_PixelsPerUnit()
{
    int width, height;
    glfwGetFramebufferSize(System_Window, &width, &height);
    return System_ScreenWidth > 0 && width > 0
               ? static_cast<float>(width) / static_cast<float>(System_ScreenWidth)
               : 1;
}

float GLFEW_ContentScale()
{
    float across = 1, down = 1;
    glfwGetWindowContentScale(System_Window, &across, &down);
    return across > 0 ? across : 1;
}

void GLFEW_KeyBoard(GLFWwindow *, int key, int scancode, int action, int)
{
    if (whenKey && action != GLFW_RELEASE)
        whenKey(key);
    if (action == GLFW_PRESS)
        System_KD = key;
    else if (action == GLFW_RELEASE)
        System_KU = key;
    else
        return;
    System_KD_Code = scancode;
    ExpectPicture();
}

static void CatchUpMotion()
{
    if (later.Moved) {
        System_MouseX = later.X;
        System_MouseY = later.Y;
    }
    later = {};
}

void GLFEW_Mouse(GLFWwindow *, int button, int action, int)
{
    constexpr std::array<int32_t, 3> codes = {1, 3, 2};  // left, right, middle
    if (button >= 0 && button < static_cast<int>(codes.size())) {
        const int32_t code = codes[static_cast<size_t>(button)];
        if (action == GLFW_PRESS) {
            System_MD = code;
            CatchUpMotion();
            later.Held = true;
        } else if (action == GLFW_RELEASE) {
            System_MU = code;
        }
    }
    ExpectPicture();
}

void GLFEW_MouseMotion(GLFWwindow *, double x, double y)
{
    later.Moved = true;
    later.X = static_cast<uint16_t>(static_cast<int32_t>(x));
    later.Y = static_cast<uint16_t>(static_cast<int32_t>(y));
    if (!later.Held)
        CatchUpMotion();
}

void GLFEW_Wheel(GLFWwindow *, double, double y)
{
    System_Wheel += y > 0 ? 1 : y < 0 ? -1 : 0;
}

void GLFEW_Screen(GLFWwindow *, int width, int height)
{
    System_ScreenWidth = width;
    System_ScreenHeight = height;
    MeasureFramebuffer();
    AskCursor();
}

void GLFEW_SetShares(float width, float height)
{
    shareX = width;
    shareY = height;
}

// Rows 0 and 1 of the matrix produce x and y.
static EXTRA_MATRIX Scaled(EXTRA_MATRIX mvp)
{
    for (size_t c = 0; c < 4; c++) {
        mvp[c] *= shareX;
        mvp[4 + c] *= shareY;
    }
    return mvp;
}

void GLFEW_SetupWideScreen(int32_t *width, int32_t *height, int32_t *top)
{
    const auto wide = static_cast<int32_t>(static_cast<float>(*width) / 16 * 9);
    *top = (*height - wide) / 2;
    *height = wide;
}

// Longer side divided by shorter in integers. 1 for a window without area.
static float WholeAspect()
{
    const int32_t longer = std::max(System_ScreenWidth, System_ScreenHeight);
    const int32_t shorter = std::min(System_ScreenWidth, System_ScreenHeight);
    const int32_t whole = shorter > 0 ? longer / shorter : 1;
    return static_cast<float>(whole);
}

void GLFEW_ChangePerspective(GLFEW_VERTEX &record, float fovDegrees, float near, float far)
{
    Extra_Perspective(record.Projection, fovDegrees, WholeAspect(), near, far);
}

void GLFEW_ChangeOrtho(GLFEW_VERTEX &record, float size)
{
    const float wide = size * WholeAspect();
    if (System_ScreenWidth >= System_ScreenHeight)
        Extra_Ortho(record.Projection, -wide, wide, -size, size, -size, size);
    else
        Extra_Ortho(record.Projection, -size, size, -wide, wide, -size, size);
}

void GLFEW_LookAt(GLFEW_VERTEX &record)
{
    Extra_LookAt(record.View, record.Eye, record.Centre, record.Up);
}

static uint32_t NewTexture()
{
    uint32_t texture;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    current.Texture = texture;
    return texture;
}

// A level of the bound texture; `stride` in pixels.
static void LoadLevel(GLint level, const uint8_t *pixels, size_t width, size_t height,
                      size_t stride)
{
    glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(stride));
    glTexImage2D(GL_TEXTURE_2D, level, GL_RGBA, static_cast<GLsizei>(width),
                 static_cast<GLsizei>(height), 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
}

// A picture of half the size, to a side of 1; the other sides are even.
static std::vector<uint8_t> Halved(const uint8_t *pixels, size_t width, size_t height,
                                   size_t stride)
{
    const auto mean = [](int a, int b) { return (a + b + 1) / 2; };
    const size_t right = width > 1 ? 4 : 0, below = height > 1 ? stride * 4 : 0;
    const size_t across = std::max(width / 2, size_t{1}), down = std::max(height / 2, size_t{1});
    std::vector<uint8_t> half(across * down * 4);
    uint8_t *out = half.data();
    for (size_t y = 0; y < down; y++)
        for (size_t x = 0; x < across; x++) {
            const uint8_t *in = pixels + 2 * (y * stride + x) * 4;
            for (size_t c = 0; c < 4; c++, in++)
                *out++ = static_cast<uint8_t>(
                    mean(mean(in[0], in[right]), mean(in[below], in[below + right])));
        }
    return half;
}

// The levels below the first. Software drivers compile shaders before they compute the first such
// level, which took a sixth of the game's start. The values are the same as theirs.
static void MakeMipmaps(const Picture &picture)
{
    size_t width = picture.Width, height = picture.Height;
    if (!std::has_single_bit(width) || !std::has_single_bit(height)) {
        glGenerateMipmap(GL_TEXTURE_2D);
        return;
    }
    std::vector<uint8_t> pixels;
    for (GLint level = 1; width > 1 || height > 1; level++) {
        pixels = level == 1 ? Halved(picture.Pixels, width, height, picture.BufferWidth)
                            : Halved(pixels.data(), width, height, width);
        width = std::max(width / 2, size_t{1});
        height = std::max(height / 2, size_t{1});
        LoadLevel(level, pixels.data(), width, height, width);
    }
}

uint32_t GLFEW_LoadTexture(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    const Picture picture = Picture_Load(path, hint, rawPlanes);
    uint32_t texture = 0;
    if (picture.Pixels) {
        texture = NewTexture();
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
        LoadLevel(0, picture.Pixels, picture.Width, picture.Height, picture.BufferWidth);
        MakeMipmaps(picture);
    }
    Picture_UnLoad(picture);
    return texture;
}

uint32_t GLFEW_MakeTexture(const uint8_t *pixels, uint32_t width, uint32_t height, uint32_t stride,
                           bool reduced)
{
    const uint32_t texture = NewTexture();
    glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(stride));
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, static_cast<GLsizei>(width),
                 static_cast<GLsizei>(height), 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER,
                    reduced ? GL_LINEAR_MIPMAP_LINEAR : GL_NEAREST);
    if (reduced)
        glGenerateMipmap(GL_TEXTURE_2D);
    return texture;
}

void GLFEW_SmoothTexture(uint32_t texture, bool smooth)
{
    glBindTexture(GL_TEXTURE_2D, texture);
    current.Texture = texture;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, smooth ? GL_LINEAR : GL_NEAREST);
}

void GLFEW_DestroyTexture(uint32_t texture)
{
    glDeleteTextures(1, &texture);
    if (current.Texture == texture)
        current.Texture = 0;
}

uint32_t GLFEW_DrawAside(const std::function<void()> &draw)
{
    const bool drawn = pace.Drawn;
    int width, height;
    glfwGetFramebufferSize(System_Window, &width, &height);
    const uint32_t texture = NewTexture();
    // The byte order of most windows, so that a copy needs no conversion.
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV,
                 nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
    if (asideFrame == 0)
        glGenFramebuffers(1, &asideFrame);
    glBindFramebuffer(GL_FRAMEBUFFER, asideFrame);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    draw();
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    GLFEW_CopyToWindow(texture);  // the driver's first-copy set-up happens here
    glFlush();
    pace.Drawn = drawn;
    return texture;
}

void GLFEW_CopyToWindow(uint32_t texture)
{
    int width, height;
    glfwGetFramebufferSize(System_Window, &width, &height);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, asideFrame);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    pace.Drawn = true;
}

bool GLFEW_MustDraw(bool changed)
{
    pace.Stale = pace.Stale || changed;
    return pace.Stale && !pace.Iconified;
}

void GLFEW_Clear()
{
    // Shaders that write no alpha leave it undefined, so alpha writes stay off outside the clear.
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
    pace.Drawn = true;
}

void GLFEW_BlendByAlpha()
{
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
}

void GLFEW_SetTitle(const char *title)
{
    glfwSetWindowTitle(System_Window, title);
}

void GLFEW_SetIcon(const char *path)
{
    const Picture picture = Picture_Load(path, 0, 0);
    if (picture.Pixels && picture.BufferWidth == picture.Width) {
        const GLFWimage image = {picture.Width, picture.Height, picture.Pixels};
        glfwSetWindowIcon(System_Window, 1, &image);
    }
    Picture_UnLoad(picture);
}

void GLFEW_SetMinSize(int32_t width, int32_t height)
{
    glfwSetWindowSizeLimits(System_Window, width, height, GLFW_DONT_CARE, GLFW_DONT_CARE);
}

// An hourglass: '#' black, '.' white, else transparent.
static GLFWcursor *MakeBusyCursor()
{
    constexpr std::string_view rows[] = {
        "################", "#..............#", "################", " #............# ",
        " #............# ", " #.##########.# ", "  #..######..#  ", "   #..####..#   ",
        "    #..##..#    ", "     #.##.#     ", "     #....#     ", "    #..##..#    ",
        "   #...##...#   ", "  #....##....#  ", " #....####....# ", " #..########..# ",
        " #.##########.# ", "################", "#..............#", "################",
    };
    constexpr int width = 16, height = std::size(rows);
    std::vector<uint8_t> pixels;
    for (const std::string_view row : rows)
        for (const char c : row) {
            const uint8_t grey = c == '.' ? 255 : 0;
            pixels.insert(pixels.end(), {grey, grey, grey, uint8_t(c == ' ' ? 0 : 255)});
        }
    const GLFWimage image = {width, height, pixels.data()};
    return glfwCreateCursor(&image, width / 2, height / 2);
}

void GLFEW_SetBusy(bool busy)
{
    if (!System_Window || std::exchange(pointer.Busy, busy) == busy)
        return;
    if (!pointer.Cursor)
        pointer.Cursor = MakeBusyCursor();
    glfwSetCursor(System_Window, busy ? pointer.Cursor : nullptr);
}

const char *GLFEW_KeepText(std::string_view text)
{
    static std::set<std::string, std::less<>> texts;
    const auto kept = texts.find(text);
    return (kept != texts.end() ? kept : texts.emplace(text).first)->c_str();
}

static uint32_t CompileShader(GLenum type, const char *source)
{
    const uint32_t shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    return shader;
}

static uint32_t FloatsPerVertex(uint8_t kind)
{
    return kind == GLFEW_Vec3 ? 6 : kind == GLFEW_Textured ? 5 : 0;
}

// The record's vertex data as bytes; empty for kinds without a buffer.
static std::string_view VertexBytes(const GLFEW_VERTEX &record)
{
    const float *data = record.Kind == GLFEW_Vec3 ? record.Vec3Vertices : record.TexturedVertices;
    const size_t floats =
        FloatsPerVertex(record.Kind) * static_cast<size_t>(std::max(record.Count, 0));
    return {reinterpret_cast<const char *>(data), floats * sizeof(float)};
}

static void AcquireBuffer(GLFEW_VERTEX &record)
{
    const std::string_view bytes = VertexBytes(record);
    auto shared = std::ranges::find(buffers, bytes, &BUFFER::Bytes);
    if (shared == buffers.end()) {
        shared = buffers.insert(shared, {0, 0, std::string(bytes)});
        glGenBuffers(1, &shared->Name);
        glBindBuffer(GL_ARRAY_BUFFER, shared->Name);
        current.Buffer = current.Kind = 0;
        glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(bytes.size()), bytes.data(),
                     GL_STATIC_DRAW);
    }
    shared->Users++;
    record.Buffer = shared->Name;
}

static uint32_t LinkProgram(uint32_t vertexShader, uint32_t fragmentShader)
{
    const uint32_t program = glCreateProgram();
    glAttachShader(program, vertexShader);
    glAttachShader(program, fragmentShader);
    glLinkProgram(program);
    return program;
}

static PROGRAM MakeProgram(const char *vertex, const char *fragment)
{
    PROGRAM program{};
    program.VertexSource = vertex;
    program.FragmentSource = fragment;
    program.VertexShader = CompileShader(GL_VERTEX_SHADER, vertex);
    program.FragmentShader = CompileShader(GL_FRAGMENT_SHADER, fragment);
    program.Name = LinkProgram(program.VertexShader, program.FragmentShader);
    program.MVPLocation = glGetUniformLocation(program.Name, "MVP");
    program.SamplerLocation = glGetUniformLocation(program.Name, "textureSampler1");
    return program;
}

static void AcquireProgram(GLFEW_VERTEX &record)
{
    // Kept texts are equal where their pointers are.
    const char *vertex = record.VertexShaderSource.data();
    const char *fragment = record.FragmentShaderSource.data();
    auto shared = std::ranges::find_if(programs, [=](const PROGRAM &program) {
        return program.VertexSource == vertex && program.FragmentSource == fragment;
    });
    if (shared == programs.end())
        shared = programs.insert(shared, MakeProgram(vertex, fragment));
    shared->Users++;
    record.VertexShader = shared->VertexShader;
    record.FragmentShader = shared->FragmentShader;
    record.Program = shared->Name;
    record.MVPLocation = shared->MVPLocation;
    if (record.Kind == GLFEW_Textured)
        record.SamplerLocation = shared->SamplerLocation;
}

// The instanced variant of a program: the same vertex shader with MVP as a per-instance attribute
// instead of a uniform. 0 if the shader declares its MVP in another way.
static uint32_t InstancedProgram(uint32_t name)
{
    const auto program = std::ranges::find(programs, name, &PROGRAM::Name);
    if (program == programs.end())
        return 0;
    if (!std::exchange(program->TriedInstanced, true)) {
        constexpr std::string_view single = "uniform mat4 MVP;";
        std::string source = program->VertexSource;
        const size_t at = source.find(single);
        if (at == std::string::npos)
            return 0;
        source.replace(at, single.size(), "layout(location = 2) in mat4 MVP;");
        const uint32_t shader = CompileShader(GL_VERTEX_SHADER, source.c_str());
        program->Instanced = LinkProgram(shader, program->FragmentShader);
        glDeleteShader(shader);  // freed with its program
        GLint linked;
        glGetProgramiv(program->Instanced, GL_LINK_STATUS, &linked);
        if (!linked) {
            glDeleteProgram(program->Instanced);
            program->Instanced = 0;
        }
    }
    return program->Instanced;
}

static void LoadSource(const GLFEW_TEXT<256> &file, GLFEW_TEXT<1024> &source)
{
    if (file.empty())
        return;
    std::array<char, 1024> text{};
    std::string_view(source.data()).copy(text.data(), text.size() - 1);
    System_LoadTextFile(file.data(), text);
    source = text.data();
}

void GLFEW_CreateVertex(GLFEW_VERTEX &record)
{
    LoadSource(record.FragmentShaderFile, record.FragmentShaderSource);
    LoadSource(record.VertexShaderFile, record.VertexShaderSource);
    if (FloatsPerVertex(record.Kind) != 0)
        AcquireBuffer(record);
    AcquireProgram(record);
    record.PositionAttribute = 0;
    if (record.Kind == GLFEW_Vec3)
        record.Vec3Attribute = 1;
    else if (record.Kind == GLFEW_Textured)
        record.TextureAttribute = 1;
}

static void UseProgram(uint32_t program)
{
    if (current.Program != program)
        glUseProgram(program);
    current.Program = program;
}

void GLFEW_Set3DWorld(const GLFEW_VERTEX &record)
{
    UseProgram(record.Program);
    glUniformMatrix4fv(record.MVPLocation, 1, GL_FALSE, Scaled(record.MVP).data());
}

// Only texture unit 0 is used, the default of a new program's sampler.
void GLFEW_SetTexture(const GLFEW_VERTEX &record)
{
    if (current.Texture != record.Texture)
        glBindTexture(GL_TEXTURE_2D, record.Texture);
    current.Texture = record.Texture;
}

static void PointAttributes(uint8_t kind)
{
    const auto stride = static_cast<GLsizei>(FloatsPerVertex(kind) * sizeof(float));
    if (stride == 0) {
        glDisableVertexAttribArray(0);
        glDisableVertexAttribArray(1);
        return;
    }
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, nullptr);
    glEnableVertexAttribArray(1);
    glVertexAttribPointer(1, kind == GLFEW_Vec3 ? 3 : 2, GL_FLOAT, GL_FALSE, stride,
                          reinterpret_cast<const void *>(3 * sizeof(float)));
}

static void PointVertices(const GLFEW_VERTEX &record)
{
    const uint8_t kind = FloatsPerVertex(record.Kind) != 0 ? record.Kind : uint8_t{0};
    if (current.Buffer == record.Buffer && current.Kind == kind)
        return;
    glBindBuffer(GL_ARRAY_BUFFER, record.Buffer);
    PointAttributes(kind);
    current.Buffer = record.Buffer;
    current.Kind = kind;
}

void GLFEW_DrawVertex(const GLFEW_VERTEX &record, uint32_t mode)
{
    PointVertices(record);
    glDrawArrays(mode, 0, record.Count);
    GLFEW_DrawCalls++;
    pace.Drawn = true;
}

// A matrix attribute takes one location per column.
constexpr GLuint GLFEW_MatrixAttribute = 2, GLFEW_MatrixColumns = 4;

static void PointInstances(size_t first)
{
    glBindBuffer(GL_ARRAY_BUFFER, instanceBuffer);
    for (GLuint i = 0; i < GLFEW_MatrixColumns; i++)
        glVertexAttribPointer(
            GLFEW_MatrixAttribute + i, 4, GL_FLOAT, GL_FALSE, sizeof(EXTRA_MATRIX),
            reinterpret_cast<const void *>(first * sizeof(EXTRA_MATRIX) + i * 4 * sizeof(float)));
    glBindBuffer(GL_ARRAY_BUFFER, current.Buffer);
}

static void SwitchInstances(bool on)
{
    for (GLuint i = GLFEW_MatrixAttribute; i < GLFEW_MatrixAttribute + GLFEW_MatrixColumns; i++) {
        if (on)
            glEnableVertexAttribArray(i);
        else
            glDisableVertexAttribArray(i);
        glVertexAttribDivisor(i, 1);
    }
}

void GLFEW_LoadInstances(std::span<const EXTRA_MATRIX> mvps)
{
    instances.assign(mvps.begin(), mvps.end());
    static std::vector<EXTRA_MATRIX> scaled;
    scaled.resize(mvps.size());
    std::ranges::transform(mvps, scaled.begin(), Scaled);
    if (instanceBuffer == 0)
        glGenBuffers(1, &instanceBuffer);
    glBindBuffer(GL_ARRAY_BUFFER, instanceBuffer);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(mvps.size_bytes()), scaled.data(),
                 GL_STREAM_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, current.Buffer);
}

void GLFEW_DrawInstances(const GLFEW_VERTEX &record, size_t first, size_t count, uint32_t mode)
{
    const uint32_t program = InstancedProgram(record.Program);
    if (program == 0) {
        GLFEW_VERTEX single = record;
        for (size_t i = first; i < first + count; i++) {
            single.MVP = instances[i];
            GLFEW_Set3DWorld(single);
            GLFEW_SetTexture(single);
            GLFEW_DrawVertex(single, mode);
        }
        return;
    }
    UseProgram(program);
    GLFEW_SetTexture(record);
    PointVertices(record);
    SwitchInstances(true);
    PointInstances(first);
    glDrawArraysInstanced(mode, 0, record.Count, static_cast<GLsizei>(count));
    SwitchInstances(false);
    GLFEW_DrawCalls++;
    pace.Drawn = true;
}

// Removes one user of an object. If it was the last, removes the object from the table and returns
// it.
template <typename Object>
static std::optional<Object> Release(std::vector<Object> &table, uint32_t name)
{
    const auto object = std::ranges::find(table, name, &Object::Name);
    if (object == table.end() || --object->Users > 0)
        return std::nullopt;
    std::optional<Object> last = std::move(*object);
    table.erase(object);
    return last;
}

void GLFEW_DestroyVertex(GLFEW_VERTEX &record)
{
    if (Release(buffers, record.Buffer)) {
        glDeleteBuffers(1, &record.Buffer);
        current.Buffer = current.Kind = 0;
    }
    if (const auto program = Release(programs, record.Program)) {
        glDeleteProgram(program->Name);
        glDeleteProgram(program->Instanced);  // 0 is ignored
        current.Program = 0;
    }
    record.Buffer = record.Program = 0;
}

void GLFEW_HideWindow()
{
    if (System_Window)
        glfwHideWindow(System_Window);
}

static void (*whenDisplayIsLost)();
static int waylandSocket = -1;

// GLFW reports a broken Wayland connection only as a request to close the window.
static void LookAfterDisplay()
{
    pollfd socket = {waylandSocket, 0, 0};
    if (waylandSocket >= 0 && poll(&socket, 1, 0) > 0)  // hung up
        whenDisplayIsLost();
}

void GLFEW_AnswerEvents()
{
    if (!System_Window)
        return;
    glfwPollEvents();
    LookAfterDisplay();
}

// Xlib handles both kinds of error by printing two lines and calling exit(); its handlers are
// replaced.
static void WatchX11(void *library)
{
    using HANDLER = int (*)(void *display, void *event);
    const HANDLER handler = [](void *, void *) {
        whenDisplayIsLost();
        return 0;
    };
    for (const char *name : {"XSetIOErrorHandler", "XSetErrorHandler"})
        if (void *set = dlsym(library, name))
            reinterpret_cast<HANDLER (*)(HANDLER)>(set)(handler);
}

static void WatchWayland(void *library)
{
    void *getDisplay = dlsym(RTLD_DEFAULT, "glfwGetWaylandDisplay");
    void *getSocket = dlsym(library, "wl_display_get_fd");
    void *display = getDisplay ? reinterpret_cast<void *(*)()>(getDisplay)() : nullptr;
    if (display && getSocket)
        waylandSocket = reinterpret_cast<int (*)(void *)>(getSocket)(display);
}

// All functions are looked up by name, since GLFW may be built for one window system only.
void GLFEW_WhenDisplayIsLost(void (*end)())
{
    whenDisplayIsLost = end;
    if (void *x11 = dlopen("libX11.so.6", RTLD_LAZY | RTLD_NOLOAD))
        WatchX11(x11);
    if (void *wayland = dlopen("libwayland-client.so.0", RTLD_LAZY | RTLD_NOLOAD))
        WatchWayland(wayland);
}

// Limits the rate to the display's when the swap did not wait for it. Events are delivered
// meanwhile.
static void WaitForRefresh()
{
    double now = glfwGetTime();
    if (now - pace.Shown > 0.9 * pace.Period) {
        pace.Shown = now;
        return;
    }
    pace.Shown += pace.Period;
    while (now < pace.Shown) {
        glfwWaitEventsTimeout(pace.Shown - now);
        now = glfwGetTime();
    }
}

void GLFEW_SwapBuffers()
{
    constexpr double eagerly = 0.001, unseen = 0.1;
    CatchUpMotion();
    if (pace.Drawn) {
        glfwSwapBuffers(System_Window);
        pace.Drawn = pace.Stale = false;
        WaitForRefresh();
        glfwPollEvents();
    } else {
        const bool eager = glfwGetTime() < pace.EagerUntil;
        glfwWaitEventsTimeout(eager ? eagerly : pace.Iconified ? unseen : pace.Period);
    }
    LookAfterDisplay();
}

void GLFEW_Destroy()
{
    if (System_Window) {
        glDeleteVertexArrays(1, &GLFEW_VertexArrayID);
        glDeleteBuffers(1, &instanceBuffer);
        glDeleteFramebuffers(1, &asideFrame);
        instanceBuffer = asideFrame = 0;
        glfwDestroyWindow(System_Window);
        System_Window = nullptr;
    }
    waylandSocket = -1;
    glfwTerminate();
}
