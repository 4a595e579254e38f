#include "tools/viewer/window.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <set>
#include <span>
#include <utility>

#include "platform/application.h"
#include "platform/glfew.h"
#include "tools/common/text.h"
#include "tools/viewer/ahead.h"
#include "tools/viewer/canvas.h"
#include "tools/viewer/grid.h"
#include "tools/viewer/report.h"
#include "tools/viewer/screen.h"
#include "tools/viewer/sheet.h"
#include "tools/viewer/shown.h"

namespace
{

// A zoom that follows the window's size, or a fixed one.
enum FIT : uint8_t { FIT_WHOLE, FIT_WIDTH, FIT_NONE };

// Keys without a character, as GLFW numbers them.
enum KEY : int32_t {
    KEY_Escape = 256,
    KEY_Enter,
    KEY_Tab,
    KEY_Backspace,
    KEY_Right = 262,
    KEY_Left,
    KEY_Down,
    KEY_Up,
    KEY_PageUp,
    KEY_PageDown,
    KEY_Home,
    KEY_End,
    KEY_F11 = 300,
    KEY_PadEnter = 335,
};

constexpr int32_t KEY_Character = 1 << 24;  // plus a Unicode character

// The position of a picture in the window.
struct LOOK {
    uint64_t Serial;            // 0: it changes
    float X, Y, Width, Height;  // as turned
    CANVAS_TURN Turn;
    bool Smooth;
    float ScreenWidth, ScreenHeight;
    bool operator==(const LOOK &) const = default;
};

// A whole window drawn in advance.
struct STILL {
    LOOK Look;
    uint32_t Texture;
};

// What the window shows. Offsets are from its centre, in framebuffer pixels.
struct VIEW {
    std::vector<FILES_ENTRY> Files;  // empty: only a character sheet
    size_t At;
    uint32_t Page;  // requested page of a TIFF
    bool Backwards;
    bool Waiting;  // for Files[At]
    bool Failed;   // a named file had no picture
    WINDOW_OPTIONS Options;
    std::set<std::string> Reported;  // as incomplete, so far

    std::shared_ptr<const VIEWER_FILE> File;
    VIEWER_IMAGE Sheet;
    CANVAS_PICTURE Picture;     // on the screen
    std::vector<STILL> Stills;  // of the current picture, the next and the previous one
    GIF_CANVAS Composed;
    uint32_t Frame;
    uint32_t Round;                      // of a GIF, from 0
    bool Still;                          // a GIF does not play
    double FrameEnd, SlideEnd, HelpEnd;  // seconds, as returned by Now()

    CANVAS_TURN Turn;
    FIT Fit;
    float Zoom, X, Y;
    bool Smooth, ShowThumbnail, ShowHelp, ShowDetails, HideCaption, FullScreen, Grid;
    bool Dragging, Dragged;
    float DragX, DragY;
    double Clicked;

    bool Changed;
    bool Painted, Swapped;  // in this turn of the shell's loop, and in the one before
    bool MustAsk;           // request what may be shown next
    std::deque<int32_t> Typed;
    SCREEN_LABEL Help, Caption, Details;
};

}  // namespace

static VIEW view;

static double Now()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

const std::vector<std::pair<std::string, std::string>> &Window_Keys()
{
    static const std::vector<std::pair<std::string, std::string>> keys = {
        {"right space n, left bksp p", "next picture, previous one"},
        {"home, end", "first picture, last picture"},
        {"page down ., page up ,", "next frame or page, previous"},
        {"a", "play or pause an animation"},
        {"+ up, - down, wheel", "zoom in, zoom out"},
        {"0, 1, w", "fit the window, 1:1, fit its width"},
        {"drag", "move the picture"},
        {"r, R, m", "turn right, turn left, mirror"},
        {"i", "enlarge sharply, smoothly"},
        {"t", "the file's own thumbnail"},
        {"d, c", "details, caption"},
        {"tab, enter", "contact sheet, open from it"},
        {"s", "slideshow"},
        {"f F11, double click", "full screen"},
        {"? h", "this help"},
        {"q escape", "quit"},
    };
    return keys;
}

// Width and height after turning.
static std::pair<float, float> Size(const VIEWER_PIXELS &p, const CANVAS_TURN &turn)
{
    const std::pair size = {static_cast<float>(p.Width), static_cast<float>(p.Height)};
    return turn[0] != 0 ? size : std::pair{size.second, size.first};
}

static std::pair<float, float> Size()
{
    return Size(view.Picture.Sizes[0], view.Turn);
}

static float FittingZoom(FIT fit, std::pair<float, float> size)
{
    const auto [width, height] = size;
    const float across = Screen_Width() / width;
    const float zoom = fit == FIT_WIDTH ? across : std::min(across, Screen_Height() / height);
    return zoom < 1 || fit == FIT_WIDTH ? zoom : std::floor(zoom);  // keep whole pixels whole
}

static float CurrentZoom()
{
    return view.Fit == FIT_NONE ? view.Zoom : FittingZoom(view.Fit, Size());
}

// How far below the window's centre a picture's centre starts: a page is seen from its top.
static float FittingY(FIT fit, std::pair<float, float> size)
{
    const float height = size.second * FittingZoom(fit, size);
    return fit == FIT_WIDTH ? std::max((height - Screen_Height()) / 2, 0.0F) : 0;
}

static void SetFit(FIT fit)
{
    view.Fit = fit;
    view.X = 0;
    view.Y = FittingY(fit, Size());
    view.Changed = true;
}

// The fit that a picture starts with.
static FIT FirstFit()
{
    return view.Fit == FIT_NONE ? FIT_WHOLE : view.Fit;
}

static CANVAS_PICTURE OnCanvas(const VIEWER_FILE &file)
{
    CANVAS_PICTURE picture = {file.Serial, {Viewer_Pixels(file)}};
    for (const VIEWER_IMAGE &half : file.Halves)
        picture.Sizes.push_back(Viewer_Pixels(half));
    return picture;
}

static void SetPicture(CANVAS_PICTURE picture)
{
    Canvas_Forget(0);
    view.Picture = std::move(picture);
    view.Changed = true;
}

static LOOK LookOf(const CANVAS_PICTURE &picture, const CANVAS_TURN &turn, float zoom, float x,
                   float y)
{
    const auto [fullWidth, fullHeight] = Size(picture.Sizes[0], turn);
    const float width = std::max(std::round(fullWidth * zoom), 1.0F);
    const float height = std::max(std::round(fullHeight * zoom), 1.0F);
    return {picture.Serial,
            std::floor((Screen_Width() - width) / 2 + x),
            std::floor((Screen_Height() - height) / 2 + y),
            width,
            height,
            turn,
            view.Smooth,
            Screen_Width(),
            Screen_Height()};
}

static LOOK LookNow()
{
    return LookOf(view.Picture, view.Turn, CurrentZoom(), view.X, view.Y);
}

static void Draw(const CANVAS_PICTURE &picture, const LOOK &look)
{
    GLFEW_Clear();
    Canvas_Draw(picture, look.X, look.Y, look.Width, look.Height, look.Turn, look.Smooth);
}

static AHEAD_KEY KeyOf(size_t at, uint32_t page)
{
    return {view.Files[at].Path, VIEWER_HALVED, page};
}

// The page that a file starts with.
static uint32_t FirstPage()
{
    return view.Options.Frame.value_or(0);
}

// What is shown next is decoded first, then what may be shown after that.
static void Ask()
{
    const size_t count = view.Files.size(), after = (view.At + 1) % count,
                 before = (view.At + count - 1) % count;
    std::vector<AHEAD_KEY> keys = {KeyOf(view.At, view.Page)};
    if (view.File && view.File->Format == PICTURE_TIFF && view.File->Frames > 1)
        keys.push_back(KeyOf(view.At, (view.Page + 1) % view.File->Frames));
    keys.push_back(KeyOf(view.Backwards ? before : after, FirstPage()));
    keys.push_back(KeyOf(view.Backwards ? after : before, FirstPage()));
    Ahead_Want(std::move(keys));
    view.MustAsk = false;
}

static void GoTo(size_t at, bool backwards, uint32_t page)
{
    view.At = at;
    view.Page = page;
    view.Backwards = backwards;
    view.Waiting = view.MustAsk = true;
    view.Changed = true;
}

static void Step(bool backwards)
{
    const size_t count = view.Files.size();
    if (count > 1)
        GoTo((view.At + (backwards ? count - 1 : 1)) % count, backwards, FirstPage());
}

static double FrameSeconds()
{
    const std::vector<double> &ends = view.File->Ends;
    return ends[view.Frame] - (view.Frame == 0 ? 0 : ends[view.Frame - 1]);
}

// Draws a frame of a GIF or a sprite file.
static void ShowFrame(uint32_t n)
{
    const VIEWER_PIXELS pixels = Viewer_Frame(*view.File, n, view.Composed);
    if (!pixels.Pixels) {
        Report(view.File->Path, Picture_Reason());
        view.Still = true;
        return;
    }
    view.Frame = n;
    SetPicture({0, {pixels}});
}

static std::string NameOf(const std::string &path)
{
    return path == "-" ? "standard input" : path;
}

static void ShowFile(std::shared_ptr<const VIEWER_FILE> file)
{
    const bool samePlace = view.File && view.File->Path == file->Path;  // another page of it
    std::swap(view.File, file);
    view.Waiting = false;
    view.ShowThumbnail = false;
    SetPicture(OnCanvas(*view.File));
    if (!samePlace) {
        view.Turn = Canvas_TurnOf(view.File->Orientation);
        SetFit(FirstFit());
    }
    view.Composed = {};
    view.Frame = view.Round = 0;
    view.Still = view.Options.Frame.has_value();
    if (view.File->Format != PICTURE_TIFF && view.Options.Frame.value_or(0) != 0)
        ShowFrame(*view.Options.Frame);
    if (view.File->Ends.size() > 1)
        view.FrameEnd = Now() + FrameSeconds();
    view.SlideEnd = Now() + view.Options.Slideshow;
    GLFEW_SetTitle(
        Text_Harmless(NameOf(view.File->Path) + " - " + Viewer_Facts(*view.File)).c_str());
    if (!view.File->Reason.empty() && view.Reported.insert(view.File->Path).second)
        Report(view.File->Path, view.File->Reason);
    view.MustAsk = true;
}

// Drops a file without a picture and continues in the same direction.
static void LeaveOut(const std::string &reason)
{
    if (view.Files[view.At].Named) {
        Report(view.Files[view.At].Path, reason);
        view.Failed = true;
    }
    view.Files.erase(view.Files.begin() + static_cast<ptrdiff_t>(view.At));
    const size_t count = view.Files.size();
    if (count == 0) {
        Velmorandis_CloseApplication(1);
        view.Waiting = view.MustAsk = false;
        return;
    }
    GoTo((view.At + (view.Backwards ? count - 1 : 0)) % count, view.Backwards, FirstPage());
}

// Takes over what has been decoded. On a software display a short wait is better than a frame that
// shows nothing new.
static void Poll()
{
    while (view.Waiting) {
        auto file = Ahead_Find(KeyOf(view.At, view.Page));
        if (!file)
            return;
        if (!file->Record)
            LeaveOut(file->Reason);
        else if (view.Options.Frame.value_or(0) >= file->Frames)
            LeaveOut(Viewer_FrameReason(file->Frames));
        else
            ShowFile(std::move(file));
    }
}

static bool HasStill(const LOOK &look)
{
    return std::ranges::find(view.Stills, look, &STILL::Look) != view.Stills.end();
}

// Frees all stills except these.
static void KeepStills(std::span<const LOOK> looks)
{
    std::erase_if(view.Stills, [&](const STILL &still) {
        const bool kept = std::ranges::find(looks, still.Look) != looks.end();
        if (!kept)
            GLFEW_DestroyTexture(still.Texture);
        return !kept;
    });
}

// In idle time, what may be shown next becomes textures, one at a time, and then a still, so that
// showing it costs only a copy.
static void PrepareNext()
{
    if (view.Waiting || !view.File)
        return;
    const size_t count = view.Files.size();
    const size_t after = (view.At + 1) % count, before = (view.At + count - 1) % count;
    std::vector<uint64_t> serials = {view.Picture.Serial, view.File->Serial};
    std::vector<LOOK> looks = {LookNow()};
    for (const size_t at : {view.Backwards ? before : after, view.Backwards ? after : before}) {
        const auto file = at == view.At ? nullptr : Ahead_Find(KeyOf(at, FirstPage()));
        if (!file || !file->Record)
            continue;
        const CANVAS_PICTURE picture = OnCanvas(*file);
        const CANVAS_TURN turn = Canvas_TurnOf(file->Orientation);
        const auto size = Size(picture.Sizes[0], turn);
        const float zoom = FittingZoom(FirstFit(), size);
        if (Canvas_Prepare(picture, static_cast<float>(file->Width) * zoom))
            return;
        const LOOK look = LookOf(picture, turn, zoom, 0, FittingY(FirstFit(), size));
        if (!HasStill(look)) {
            view.Stills.push_back({look, GLFEW_DrawAside([&] { Draw(picture, look); })});
            return;
        }
        serials.push_back(file->Serial);
        looks.push_back(look);
    }
    Canvas_Keep(serials);
    KeepStills(looks);
}

// Goes to another frame or page and stops the animation.
static void Leaf(int by)
{
    if (!view.File || view.File->Frames < 2 || view.Waiting)
        return;
    const uint32_t count = view.File->Frames;
    const bool pages = view.File->Format == PICTURE_TIFF;
    const uint32_t from = pages ? view.Page : view.Frame;
    const uint32_t to = (from + count + static_cast<uint32_t>(by)) % count;
    if (pages) {
        GoTo(view.At, view.Backwards, to);
        return;
    }
    view.Still = true;
    if (view.ShowThumbnail)
        view.ShowThumbnail = false;
    ShowFrame(to);
}

// Advances a GIF to the frame that is due.
static void Play()
{
    if (!view.File || view.File->Ends.size() < 2 || view.Still || Now() < view.FrameEnd)
        return;
    const bool last = view.Frame + 1 == view.File->Frames;
    if (last && view.File->Rounds != 0 && view.Round + 1 >= view.File->Rounds) {
        view.Still = true;
        return;
    }
    view.Round += last ? 1 : 0;
    ShowFrame(last ? 0 : view.Frame + 1);
    constexpr double tooLate = 0.5;  // frames missed by more than this are not caught up
    view.FrameEnd = (Now() - view.FrameEnd > tooLate ? Now() : view.FrameEnd) + FrameSeconds();
}

static void Pause()
{
    if (!view.File || view.File->Ends.size() < 2)
        return;
    view.Still = !view.Still;
    view.Round = 0;
    view.FrameEnd = Now() + FrameSeconds();
    view.Changed = true;
}

// Keeps what lies at (x, y), from the window's centre, in place.
static void ZoomBy(float factor, float x, float y)
{
    const float fitting = FittingZoom(FIT_WHOLE, Size()), before = CurrentZoom();
    view.Zoom =
        std::clamp(before * factor, std::min(1.0F / 64, fitting), std::max(64.0F, 16 * fitting));
    view.Fit = FIT_NONE;
    view.X = x + (view.X - x) * view.Zoom / before;
    view.Y = y + (view.Y - y) * view.Zoom / before;
    view.Changed = true;
}

static void Turn(const CANVAS_TURN &by)
{
    view.Turn = Canvas_After(view.Turn, by);
    SetFit(view.Fit == FIT_NONE ? FIT_WHOLE : view.Fit);
}

static void FullScreen()
{
    view.FullScreen = !view.FullScreen;
    GLFEW_SetFullScreen(view.FullScreen);
    view.Changed = true;
}

static void ToggleThumbnail()
{
    if (!view.File || view.File->Thumbnail.Width == 0)
        return;
    view.ShowThumbnail = !view.ShowThumbnail;
    SetPicture(view.ShowThumbnail ? CANVAS_PICTURE{0, {Viewer_Pixels(view.File->Thumbnail)}}
                                  : OnCanvas(*view.File));
    SetFit(FIT_WHOLE);  // the window's centre may lie outside the thumbnail
}

static void ToggleSlideshow()
{
    constexpr double usual = 5;
    view.Options.Slideshow = view.Options.Slideshow > 0 ? 0 : usual;
    view.SlideEnd = Now() + view.Options.Slideshow;
    view.Changed = true;
}

static void EnterGrid()
{
    if (view.Files.empty())
        return;
    view.Grid = true;
    Grid_Marked = view.At;
    Grid_Show(view.Files);
    view.Changed = true;
}

static void LeaveGrid(size_t at)
{
    view.Grid = false;
    Grid_Leave();
    GoTo(at, false, at == view.At ? view.Page : FirstPage());
}

static constexpr int32_t Typed(char c)
{
    return KEY_Character | c;
}

static void Escape()
{
    Velmorandis_CloseApplication(1);
}

// Keys that mean the same everywhere. False for others.
static bool PressAnywhere(int32_t key)
{
    switch (key) {
    case KEY_Escape:
    case Typed('q'):
        Escape();
        break;
    case KEY_F11:
    case Typed('f'):
        FullScreen();
        break;
    case Typed('?'):
    case Typed('h'):
        view.ShowHelp = !view.ShowHelp;
        view.HelpEnd = 0;
        break;
    default:
        return false;
    }
    view.Changed = true;
    return true;
}

static bool PressInGrid(int32_t key)
{
    const auto move = [](int columns, int rows, int pages) {
        Grid_Move(view.Files, columns, rows, pages);
    };
    const auto all = static_cast<int>(std::min<size_t>(view.Files.size(), 1 << 24));
    switch (key) {
    case KEY_Right:
        move(1, 0, 0);
        break;
    case KEY_Left:
        move(-1, 0, 0);
        break;
    case KEY_Down:
        move(0, 1, 0);
        break;
    case KEY_Up:
        move(0, -1, 0);
        break;
    case KEY_PageDown:
        move(0, 0, 1);
        break;
    case KEY_PageUp:
        move(0, 0, -1);
        break;
    case KEY_Home:
        move(-all, 0, 0);
        break;
    case KEY_End:
        move(all, 0, 0);
        break;
    case KEY_Enter:
    case KEY_PadEnter:
    case Typed(' '):
        LeaveGrid(Grid_Marked);
        break;
    case KEY_Tab:
        LeaveGrid(view.At);
        break;
    default:
        return false;
    }
    return true;
}

// Keys that need a picture on the screen.
static bool PressOnPicture(int32_t key)
{
    switch (key) {
    case Typed('+'):
    case Typed('='):
    case KEY_Up:
        ZoomBy(1.25F, 0, 0);
        break;
    case Typed('-'):
    case KEY_Down:
        ZoomBy(0.8F, 0, 0);
        break;
    case Typed('0'):
        SetFit(FIT_WHOLE);
        break;
    case Typed('1'):
        ZoomBy(1 / CurrentZoom(), 0, 0);
        break;
    case Typed('w'):
        SetFit(FIT_WIDTH);
        break;
    case Typed('r'):
        Turn(Canvas_Right);
        break;
    case Typed('R'):
        Turn(Canvas_Left);
        break;
    case Typed('m'):
        Turn(Canvas_Mirror);
        break;
    case Typed('i'):
        view.Smooth = !view.Smooth;
        break;
    case Typed('t'):
        ToggleThumbnail();
        break;
    case Typed('a'):
        Pause();
        break;
    case KEY_PageDown:
    case Typed('.'):
        Leaf(1);
        break;
    case KEY_PageUp:
    case Typed(','):
        Leaf(-1);
        break;
    default:
        return false;
    }
    view.Changed = true;
    return true;
}

static bool Press(int32_t key)
{
    if (PressAnywhere(key))
        return true;
    if (view.Grid)
        return PressInGrid(key);
    if ((view.File || view.Files.empty()) && PressOnPicture(key))
        return true;
    if (view.Files.empty())
        return false;
    switch (key) {
    case KEY_Right:
    case Typed(' '):
    case Typed('n'):
        Step(false);
        break;
    case KEY_Left:
    case KEY_Backspace:
    case Typed('p'):
        Step(true);
        break;
    case KEY_Home:
        GoTo(0, false, FirstPage());
        break;
    case KEY_End:
        GoTo(view.Files.size() - 1, true, FirstPage());
        break;
    case KEY_Tab:
        EnterGrid();
        break;
    case Typed('d'):
        view.ShowDetails = !view.ShowDetails;
        break;
    case Typed('c'):
        view.HideCaption = !view.HideCaption;
        break;
    case Typed('s'):
        ToggleSlideshow();
        break;
    default:
        return false;
    }
    view.Changed = true;
    return true;
}

// A key without a meaning briefly shows the help.
static void Type()
{
    constexpr double moment = 2;
    while (!view.Typed.empty()) {
        const int32_t key = view.Typed.front();
        view.Typed.pop_front();
        if (!Press(key) && key >= KEY_Character && !view.ShowHelp) {
            view.HelpEnd = Now() + moment;
            view.Changed = true;
        }
    }
    if (view.HelpEnd != 0 && Now() >= view.HelpEnd) {
        view.HelpEnd = 0;
        view.Changed = true;
    }
}

static void Wheel()
{
    const int32_t steps = System_MouseWheel();
    if (steps == 0)
        return;
    if (view.Grid)
        Grid_Wheel(view.Files, steps);
    else if (view.File || view.Files.empty())
        ZoomBy(std::pow(1.25F, static_cast<float>(steps)), Screen_MouseX() - Screen_Width() / 2,
               Screen_MouseY() - Screen_Height() / 2);
    view.Changed = true;
}

static void Click()
{
    constexpr double twice = 0.4;  // seconds
    const bool again = Now() - view.Clicked < twice;
    view.Clicked = again ? 0 : Now();
    if (view.Grid) {
        if (const auto at = Grid_At(view.Files, Screen_MouseX(), Screen_MouseY()))
            LeaveGrid(*at);
    } else if (again) {
        FullScreen();
    }
}

static void Drag()
{
    const float x = Screen_MouseX(), y = Screen_MouseY();
    if (System_MouseDown() == 1) {
        view.Dragging = true;
        view.Dragged = false;
        view.DragX = x;
        view.DragY = y;
    }
    if (view.Dragging && !view.Grid && (x != view.DragX || y != view.DragY)) {
        view.X += x - view.DragX;
        view.Y += y - view.DragY;
        view.Zoom = CurrentZoom();
        view.Fit = FIT_NONE;
        view.DragX = x;
        view.DragY = y;
        view.Dragged = view.Changed = true;
    }
    if (System_MouseUp() == 1 && view.Dragging) {
        view.Dragging = false;
        if (!view.Dragged)
            Click();
    }
}

static void Slide()
{
    if (view.Options.Slideshow > 0 && view.File && !view.Grid && !view.Waiting &&
        Now() >= view.SlideEnd)
        Step(false);
}

void Scene()
{
    Type();
    Wheel();
    Drag();
    if (view.Files.empty())
        return;
    if (view.Grid) {
        view.Changed |= Grid_HasChanged();
        return;
    }
    Poll();
    // What is ready is shown before its neighbours are decoded.
    if (view.MustAsk && (view.Waiting || view.Swapped))
        Ask();
    if (!view.ShowThumbnail)
        Play();
    Slide();
    if (!view.Changed && !view.Painted)
        PrepareNext();
}

void Timer() {}

// The caption after the name: the title's facts, and what changes meanwhile.
static std::string FactsNow()
{
    const auto of = [](size_t n, size_t count) {
        return std::to_string(n + 1) + " of " + std::to_string(count);
    };
    std::string facts = Viewer_Facts(*view.File);
    if (view.Files.size() > 1)
        facts += ", " + of(view.At, view.Files.size());
    if (view.File->Frames > 1)
        facts += view.File->Format == PICTURE_TIFF ? ", page " + of(view.Page, view.File->Frames)
                                                   : ", frame " + of(view.Frame, view.File->Frames);
    if (view.File->Ends.size() > 1 && view.Still)
        facts += ", paused";
    if (view.ShowThumbnail)
        facts +=
            ", thumbnail " + Viewer_Size(view.File->Thumbnail.Width, view.File->Thumbnail.Height);
    if (const long percent = std::lround(CurrentZoom() * 100); percent != 100)
        facts += ", zoom " + std::to_string(percent) + " %";
    if (view.Smooth)
        facts += ", smooth";
    if (view.Options.Slideshow > 0)
        facts += ", slideshow";
    return facts;
}

static void PaintCaption()
{
    const std::string path = NameOf(view.Files[view.At].Path);
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string text = Sheet_Caption(name, view.Waiting ? "loading ..." : FactsNow(),
                                           std::min(Screen_Columns(), 255u));
    Screen_SetLabel(view.Caption, {&text, 1});
    Screen_DrawLabel(view.Caption, 0, Screen_Height() - view.Caption.Height);
}

static void PaintDetails()
{
    constexpr size_t maxLines = 24, maxLetters = 90;
    std::vector<std::string> lines = {view.File->Path, Viewer_Facts(*view.File)};
    for (const auto *facts : {&view.File->Camera, &view.File->Texts})
        for (const VIEWER_FACT &fact : *facts)
            lines.push_back(fact.Name + ": " + fact.Text);
    if (!view.File->Reason.empty())
        lines.push_back("incomplete: " + view.File->Reason);
    lines.resize(std::min(lines.size(), maxLines));
    for (std::string &line : lines)
        line = Sheet_Cut(Sheet_Latin2(line), std::min<size_t>(maxLetters, Screen_Columns()));
    Screen_SetLabel(view.Details, lines);
    Screen_DrawLabel(view.Details, 0, 0);
}

static void PaintHelp()
{
    std::vector<std::string> lines;
    for (const auto &[keys, what] : Window_Keys()) {
        std::string &line = lines.emplace_back(keys);
        line.resize(std::max<size_t>(keys.size() + 1, 28), ' ');
        line += what;
    }
    Screen_SetLabel(view.Help, lines);
    Screen_DrawLabel(view.Help, std::max(std::floor((Screen_Width() - view.Help.Width) / 2), 0.0F),
                     std::max(std::floor((Screen_Height() - view.Help.Height) / 2), 0.0F));
}

static void PaintPicture()
{
    const LOOK look = LookNow();
    const auto still = std::ranges::find(view.Stills, look, &STILL::Look);
    if (look.Serial != 0 && still != view.Stills.end())
        GLFEW_CopyToWindow(still->Texture);
    else
        Draw(view.Picture, look);
}

void Paint()
{
    view.Swapped = std::exchange(view.Painted, false);
    if (!GLFEW_MustDraw(view.Changed))
        return;
    view.Changed = false;
    view.Painted = true;
    if (view.Grid) {
        GLFEW_Clear();
        Grid_Paint(view.Files);
    } else if (view.File || view.Files.empty()) {
        PaintPicture();
        if (!view.HideCaption && !view.Files.empty())
            PaintCaption();
        if (view.ShowDetails && !view.Files.empty())
            PaintDetails();
    } else {
        GLFEW_Clear();
    }
    if (view.ShowHelp || view.HelpEnd != 0)
        PaintHelp();
}

static bool Open(const char *title)
{
    std::signal(SIGPIPE, SIG_IGN);  // a display that goes away is noticed below
    view = {};
    view.Turn = Canvas_TurnOf(1);
    GLFEW_Samples = 0;  // nothing has slanted edges
    if (!CreateApplication(0, 0, 1024, 768, title, "", "", 48, 48, 52, 255))
        return false;
    GLFEW_WhenDisplayIsLost([] {
        std::fputs("tessview: the display is gone\n", stderr);
        std::_Exit(1);  // other threads may be decoding
    });
    Screen_Open();
    GLFEW_WhenTyped(
        [](int32_t key) { view.Typed.push_back(key < ' ' || key > 255 ? key : 0); },
        [](uint32_t c) { view.Typed.push_back(KEY_Character | static_cast<int32_t>(c)); });
    return true;
}

int Window_ShowFiles(std::vector<FILES_ENTRY> files, size_t at, const WINDOW_OPTIONS &options)
{
    if (files.empty()) {
        Report("nothing to show", "the folders hold no pictures");
        return 1;
    }
    if (!Open("tessview"))
        return 1;
    view.Options = options;
    view.Files = std::move(files);
    Ahead_Start();
    if (options.FullScreen)
        FullScreen();
    GoTo(at, false, FirstPage());
    if (options.Grid)
        EnterGrid();
    ExecuteApplication();
    Grid_Leave();
    Canvas_Keep({});
    KeepStills({});
    GLFEW_HideWindow();
    view.File.reset();
    Ahead_Stop();
    DestroyApplication();
    return view.Failed || view.Files.empty() ? 1 : 0;
}

int Window_ShowSheet(uint8_t set)
{
    if (!Open("tessview"))
        return 1;
    view.Sheet = Sheet_Glyphs(set);
    GLFEW_SetTitle(("character set " + std::to_string(set)).c_str());
    SetPicture({0, {Viewer_Pixels(view.Sheet)}});
    ExecuteApplication();
    DestroyApplication();
    return 0;
}
