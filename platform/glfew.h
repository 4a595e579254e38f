// The window and the GPU: one window with an OpenGL 3.3 core context (GLFW, GLEW), its events as
// the input globals of platform/state.h, textures from picture files, and drawable vertex objects.
// Every record has its own program and buffer names, but records with equal shader texts or equal
// vertex data share one GL object. Main thread only.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "extra/transform.h"
#include "platform/state.h"

constexpr uint8_t GLFEW_Vec3 = 1;      // position and three more floats: 6 floats per vertex
constexpr uint8_t GLFEW_Textured = 2;  // position and texture coordinate: 5 floats per vertex

/// The one copy of a text, kept until the process ends. Equal texts give equal pointers.
const char *GLFEW_KeepText(std::string_view text);

/// A text of at most Size - 1 characters; a longer one is cut. The game has 24,576 records with the
/// same texts, so a record only refers to them.
template <size_t Size>
class GLFEW_TEXT
{
public:
    GLFEW_TEXT &operator=(std::string_view text)
    {
        kept = GLFEW_KeepText(text.substr(0, Size - 1));
        return *this;
    }
    const char *data() const
    {
        return kept ? kept : "";
    }
    bool empty() const
    {
        return !*data();
    }

private:
    const char *kept;  // null in a record of zeros
};

/// One drawable object, owned by the caller. GLFEW_CreateVertex copies the vertex data, which must
/// live until then.
struct GLFEW_VERTEX {
    uint8_t Kind;   // GLFEW_Vec3, GLFEW_Textured; any other value has no buffer
    int32_t Count;  // vertices
    uint32_t Buffer;
    const float *Vec3Vertices;
    const float *TexturedVertices;
    uint32_t VertexShader;
    GLFEW_TEXT<256> VertexShaderFile;     // "": VertexShaderSource is used as it is
    GLFEW_TEXT<1024> VertexShaderSource;  // GLSL
    uint32_t FragmentShader;
    GLFEW_TEXT<256> FragmentShaderFile;
    GLFEW_TEXT<1024> FragmentShaderSource;
    uint32_t Program;
    int32_t MVPLocation;  // of the uniform "MVP"
    uint32_t PositionAttribute, Vec3Attribute, TextureAttribute;
    int32_t SamplerLocation;  // of the uniform "textureSampler1", textured only
    std::array<uint8_t, 28> Reserved;
    EXTRA_MATRIX Model, View, Projection;
    EXTRA_MATRIX MVP;  // used for drawing; the caller composes it
    EXTRA_VECTOR Eye, Centre, Up;
    uint32_t Texture;
};

/// The one vertex-array object of the program.
extern uint32_t GLFEW_VertexArrayID;

/// Samples per pixel of the next window; 4 by default.
extern int32_t GLFEW_Samples;

/// Opens the window of System_ScreenWidth x System_ScreenHeight and its context (swap interval 1;
/// window class: the title's first word in lower case) and sets the clear colour. Returns 1, or 0
/// after one line on standard error with the reason; then nothing else here may be called but
/// GLFEW_Destroy.
int32_t GLFEW_Init();

/// Window callbacks. Key repeats and buttons beyond the third have no effect. A button press
/// belongs to the last cursor position before it: until the next GLFEW_SwapBuffers the cursor
/// globals stay, even if the cursor moves.
void GLFEW_KeyBoard(GLFWwindow *window, int key, int scancode, int action, int mods);
void GLFEW_Mouse(GLFWwindow *window, int button, int action, int mods);
void GLFEW_MouseMotion(GLFWwindow *window, double x, double y);
void GLFEW_Wheel(GLFWwindow *window, double x, double y);
void GLFEW_Screen(GLFWwindow *window, int width, int height);

/// From now on clip space covers only the middle of the window: these shares of its width and
/// height, 1 for all. Geometry outside clip space is drawn up to the window's edge. The records'
/// MVPs do not change.
void GLFEW_SetShares(float width, float height);

/// Letter-boxes to 16:9: reduces the height and gives the number of free rows above.
void GLFEW_SetupWideScreen(int32_t *width, int32_t *height, int32_t *top);

/// Sets projection and view of a record. On purpose, the aspect is the longer window side divided
/// by the shorter in integers (1024 x 768 gives 1). GLFEW_LookAt negates x, y and z of the record's
/// Eye.
void GLFEW_ChangePerspective(GLFEW_VERTEX &record, float fovDegrees, float near, float far);
void GLFEW_ChangeOrtho(GLFEW_VERTEX &record, float size);
void GLFEW_LookAt(GLFEW_VERTEX &record);

/// Texture of a picture file, repeating and with mipmaps; 0 if the picture does not load. `hint`
/// and `rawPlanes` as for Picture_Load. Where the sides are powers of two a mipmap's pixel is the
/// average of four, rounded up after each direction; else the driver computes them.
uint32_t GLFEW_LoadTexture(const char *path, uint16_t hint, uint16_t rawPlanes);

/// Texture of width x height RGBA pixels, clamped at its edges, magnified smoothly or with sharp
/// pixels. `stride`: pixels from row to row; 0: width. `reduced`: with mipmaps, for drawing below
/// full size.
uint32_t GLFEW_MakeTexture(const uint8_t *pixels, uint32_t width, uint32_t height,
                           uint32_t stride = 0, bool reduced = true);
void GLFEW_SmoothTexture(uint32_t texture, bool smooth);
void GLFEW_DestroyTexture(uint32_t texture);

/// GLFEW_DrawAside calls `draw` with a new texture of the window's size as the target in place of
/// the window. GLFEW_CopyToWindow copies such a texture over the whole window, which is cheaper
/// than drawing again. The window must have one sample per pixel and still the size of the texture.
uint32_t GLFEW_DrawAside(const std::function<void()> &draw);
void GLFEW_CopyToWindow(uint32_t texture);

/// Whether a frame must be drawn: the application's picture has changed (now or while the window
/// was iconified), or the window has lost its picture (resized, uncovered). An application that
/// does not ask draws every frame.
bool GLFEW_MustDraw(bool changed);

/// GLFEW_Clear clears colours and depths; GLFEW_BlendByAlpha turns on alpha blending from now on.
void GLFEW_Clear();
void GLFEW_BlendByAlpha();

/// Calls `key` (GLFW's codes) and `character` (Unicode) for each event, repeats included, in
/// addition to the input globals, which keep only the latest press.
void GLFEW_WhenTyped(void (*key)(int32_t code), void (*character)(uint32_t code));

/// Makes the window full-screen, or restores its former place and size.
void GLFEW_SetFullScreen(bool full);

/// Framebuffer pixels per window unit; and the content scale that the display asks for.
float GLFEW_PixelsPerUnit();
float GLFEW_ContentScale();

/// Sets the window's title.
void GLFEW_SetTitle(const char *title);

/// Sets the window's minimum size in window units; shows a busy pointer while input is ignored.
void GLFEW_SetMinSize(int32_t width, int32_t height);
void GLFEW_SetBusy(bool busy);

/// Sets the window's icon from a picture file; no effect if the picture does not load.
void GLFEW_SetIcon(const char *path);

/// Creates buffer and program. If a shader file cannot be read its source is unchanged; shader
/// errors are not reported.
void GLFEW_CreateVertex(GLFEW_VERTEX &record);

/// Three calls, in this order, draw one object: they set program and MVP, set the texture, and draw
/// all vertices as primitives of `mode` (4: triangles).
void GLFEW_Set3DWorld(const GLFEW_VERTEX &record);
void GLFEW_SetTexture(const GLFEW_VERTEX &record);
void GLFEW_DrawVertex(const GLFEW_VERTEX &record, uint32_t mode);

/// Draws a record once for each of `count` MVPs, ignoring its own, in one draw call; the result
/// equals the three calls for each. The MVPs are those loaded last, starting at `first`.
void GLFEW_LoadInstances(std::span<const EXTRA_MATRIX> mvps);
void GLFEW_DrawInstances(const GLFEW_VERTEX &record, size_t first, size_t count, uint32_t mode);

/// Number of draw calls so far, for benchmarks.
extern uint64_t GLFEW_DrawCalls;

/// Releases buffer and program; each is deleted with its last user. Shaders and textures stay. Safe
/// to call twice.
void GLFEW_DestroyVertex(GLFEW_VERTEX &record);

/// GLFEW_HideWindow hides the window; GLFEW_AnswerEvents delivers events while nothing is drawn. No
/// effect without a window.
void GLFEW_HideWindow();
void GLFEW_AnswerEvents();

/// Calls `end` when the connection to the display breaks: for X on the thread that noticed, for
/// Wayland in GLFEW_SwapBuffers or GLFEW_AnswerEvents. It must end the process without calling
/// anything here.
void GLFEW_WhenDisplayIsLost(void (*end)());

/// Ends a frame and delivers the window's events. What was drawn since the last call is shown, at
/// most at the display's rate even if the driver does not wait for it. If nothing was drawn, the
/// call waits for an event or one refresh period, less after input.
void GLFEW_SwapBuffers();

/// Closes window and window system.
void GLFEW_Destroy();
