// The window and the GPU: one window with an OpenGL 3.3 core context (GLFW, GLEW), its events as
// the input globals of platform/state.h, textures from picture files, and drawable vertex objects.
// A record asks for a program and a buffer of its own; equal shader texts and equal vertex data
// share one behind the records' names. Main thread only.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "extra/transform.h"
#include "platform/state.h"

constexpr uint8_t GLFEW_Vec3 = 1;      // position and three more floats: 6 floats a vertex
constexpr uint8_t GLFEW_Textured = 2;  // position and texture coordinate: 5 floats a vertex

/// One drawable piece, the caller's. The vertex data are copied by GLFEW_CreateVertex and must live
/// until then.
struct GLFEW_VERTEX {
    uint8_t Kind;   // GLFEW_Vec3, GLFEW_Textured; another has no buffer
    int32_t Count;  // vertices
    uint32_t Buffer;
    const float *Vec3Vertices;
    const float *TexturedVertices;
    uint32_t VertexShader;
    std::array<char, 256> VertexShaderFile;     // "": the source as it stands
    std::array<char, 1024> VertexShaderSource;  // GLSL
    uint32_t FragmentShader;
    std::array<char, 256> FragmentShaderFile;
    std::array<char, 1024> FragmentShaderSource;
    uint32_t Program;
    int32_t MVPLocation;  // of uniform "MVP"
    uint32_t PositionAttribute, Vec3Attribute, TextureAttribute;
    int32_t SamplerLocation;  // of uniform "textureSampler1", textured only
    std::array<uint8_t, 28> Reserved;
    EXTRA_MATRIX Model, View, Projection;
    EXTRA_MATRIX MVP;  // what is drawn with; the caller composes it
    EXTRA_VECTOR Eye, Centre, Up;
    uint32_t Texture;
};

/// The vertex-array object that the whole program shares.
extern uint32_t GLFEW_VertexArrayID;

/// Samples a pixel of the window that is opened next; 4 unless set.
extern int32_t GLFEW_Samples;

/// Opens the window of System_ScreenWidth x System_ScreenHeight and its context (swap interval 1;
/// class: the title's first word in small letters) and sets the clear colour. Gives 1, or 0 after
/// one line on standard error that says why; then nothing else here may be called but
/// GLFEW_Destroy.
int32_t GLFEW_Init();

/// Window callbacks. A repeat changes nothing, nor does a button beyond the third. The press of a
/// button counts where the cursor's last motion before it led: from then to the next
/// GLFEW_SwapBuffers the cursor's globals stay, whatever moves.
void GLFEW_KeyBoard(GLFWwindow *window, int key, int scancode, int action, int mods);
void GLFEW_Mouse(GLFWwindow *window, int button, int action, int mods);
void GLFEW_MouseMotion(GLFWwindow *window, double x, double y);
void GLFEW_Wheel(GLFWwindow *window, double x, double y);
void GLFEW_Screen(GLFWwindow *window, int width, int height);

/// Draws clip space into the middle of the window from now on: these shares of its width and
/// height, 1 for all. What leaves clip space reaches the window's edge. The records' MVPs stay as
/// they are.
void GLFEW_SetShares(float width, float height);

/// Letter-boxes to 16:9: cuts the height and gives the rows left free above.
void GLFEW_SetupWideScreen(int32_t *width, int32_t *height, int32_t *top);

/// Projection and view of a record. The aspect is the longer window side divided by the shorter in
/// integers (1024 x 768 gives 1), on purpose. GLFEW_LookAt negates x, y and z of the record's Eye.
void GLFEW_ChangePerspective(GLFEW_VERTEX &record, float fovDegrees, float near, float far);
void GLFEW_ChangeOrtho(GLFEW_VERTEX &record, float size);
void GLFEW_LookAt(GLFEW_VERTEX &record);

/// Texture of a picture file, repeating and with mipmaps; 0 when the picture does not load. Hint
/// and rawPlanes are Picture_Load's.
uint32_t GLFEW_LoadTexture(const char *path, uint16_t hint, uint16_t rawPlanes);

/// Texture of width x height RGBA pixels, clamped at its edges, and magnified as squares, or
/// smoothly. `stride` pixels from row to row; 0: width. `reduced`: with mipmaps, to be seen
/// smaller than it is.
uint32_t GLFEW_MakeTexture(const uint8_t *pixels, uint32_t width, uint32_t height,
                           uint32_t stride = 0, bool reduced = true);
void GLFEW_SmoothTexture(uint32_t texture, bool smooth);
void GLFEW_DestroyTexture(uint32_t texture);

/// Has `draw` draw into a new texture of the window's size in place of the window; and copies such
/// a texture over all of the window, which is cheaper than drawing it again. The window must have
/// one sample a pixel and the size that it had then.
uint32_t GLFEW_DrawAside(const std::function<void()> &draw);
void GLFEW_CopyToWindow(uint32_t texture);

/// Whether a frame is to be drawn: what the application shows has changed, now or while nothing
/// of the window could be seen, or the window has lost its picture (a new size, uncovered). An
/// application that does not ask draws every frame.
bool GLFEW_MustDraw(bool changed);

/// Clears colours and depths. / Turns on alpha blending for all later draws.
void GLFEW_Clear();
void GLFEW_BlendByAlpha();

/// Has keys (GLFW's codes) and characters (Unicode) handed on as they come, repeats too, beside the
/// input globals, which keep only the latest press.
void GLFEW_WhenTyped(void (*key)(int32_t code), void (*character)(uint32_t code));

/// Fills the display with the window, or brings it back to where it was.
void GLFEW_SetFullScreen(bool full);

/// Framebuffer pixels for each of the window's units; and how much larger than usual the display
/// wants things drawn.
float GLFEW_PixelsPerUnit();
float GLFEW_ContentScale();

/// Names the window.
void GLFEW_SetTitle(const char *title);

/// The window's smallest size, in its units; shows that input is not taken, by the pointer.
void GLFEW_SetMinSize(int32_t width, int32_t height);
void GLFEW_SetBusy(bool busy);

/// Shows the picture of a file as the window's icon; a picture that does not load changes nothing.
void GLFEW_SetIcon(const char *path);

/// Makes buffer and program. A shader file that cannot be read leaves the source as it was; shader
/// errors are not reported.
void GLFEW_CreateVertex(GLFEW_VERTEX &record);

/// One object is drawn by these three, in this order: program and MVP; texture; all vertices as
/// primitives of `mode` (4: triangles).
void GLFEW_Set3DWorld(const GLFEW_VERTEX &record);
void GLFEW_SetTexture(const GLFEW_VERTEX &record);
void GLFEW_DrawVertex(const GLFEW_VERTEX &record, uint32_t mode);

/// Draws a record once for each of `count` MVPs, the record's own aside, in one draw call: the same
/// picture as the three calls for each. The MVPs are those that were loaded last, from `first` on.
void GLFEW_LoadInstances(std::span<const EXTRA_MATRIX> mvps);
void GLFEW_DrawInstances(const GLFEW_VERTEX &record, size_t first, size_t count, uint32_t mode);

/// Draw calls so far, for benchmarks.
extern uint64_t GLFEW_DrawCalls;

/// Releases buffer and program; each is deleted with its last user. Shaders and textures stay. Safe
/// to call twice.
void GLFEW_DestroyVertex(GLFEW_VERTEX &record);

/// Takes the window off the screen; delivers the events of a window that shows nothing more.
/// Without a window they do nothing.
void GLFEW_HideWindow();
void GLFEW_AnswerEvents();

/// Has `end` called when the connection to the display breaks: of an X display on the thread that
/// found out, of a Wayland display by GLFEW_SwapBuffers or GLFEW_AnswerEvents. It must end the
/// process without calling anything here.
void GLFEW_WhenDisplayIsLost(void (*end)());

/// Ends a frame and delivers the window's events. What has been drawn since the last call is shown,
/// at the display's rate at most, whether or not the driver waits for the display. When nothing
/// was drawn, the call waits for an event or the time of a refresh, less after input.
void GLFEW_SwapBuffers();

/// Closes window and window system.
void GLFEW_Destroy();
