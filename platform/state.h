// State shared by the whole application: window, colours, parameters and the latest input events.
// Plain globals, zero at the start, used only on the main thread.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

struct GLFWwindow;
struct passwd;

constexpr size_t System_ParamSlots = 16, System_ParamLength = 128;

/// Size of the window in its own units (not framebuffer pixels); the position is reserved.
extern int32_t System_ScreenWidth, System_ScreenHeight, System_ScreenLeft, System_ScreenTop;
extern const char *System_WindowTitle;
/// Background colour, 0..255 per channel.
extern uint8_t System_BGred, System_BGgreen, System_BGblue, System_BGalpha;
extern GLFWwindow *System_Window;
/// Requests: to repaint; to end the frame loop (may be set by a signal handler).
extern int32_t System_RePaint;
extern std::atomic<int32_t> System_CloseApplication;

/// Parameters: NUL-terminated copies, slot i at byte i * 128, and the original argument vector.
extern int32_t System_ParamCount;
extern std::array<char, System_ParamSlots * System_ParamLength> System_ParamStr;
extern int32_t System_argc;
extern char **System_argv;

/// The user's record and home directory; null and "" for a user without a record.
extern passwd *System_PW;
extern const char *System_HOME;

/// Latest key press and release (GLFW's codes), scan code of either, and latest mouse button press
/// and release (1 left, 2 middle, 3 right). 0: no event pending.
extern int32_t System_KD, System_KU, System_KD_Code, System_MD, System_MU;
/// Wheel steps since the last read, positive away from the user.
extern int32_t System_Wheel;
/// Cursor in window units, truncated to integers.
extern uint16_t System_MouseX, System_MouseY;

/// Read by accessors; reserved for back ends that set them.
extern int32_t System_LeftMouseButton, System_MiddleMouseButton, System_RightMouseButton;
extern int32_t System_ApplicationType;
struct SYSTEM_JOYSTICK {
    std::array<int32_t, 16> Axis, Button;
};
extern SYSTEM_JOYSTICK System_Joystick;
extern int32_t System_JoystickNUM;
extern uint32_t System_RGBA, System_ARGB;
