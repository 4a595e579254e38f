// The application shell: creates the one window, runs the frame loop, hands out parameters, sizes
// and input. All of it belongs to the main thread.
#pragma once

#include <cstdint>

#include "platform/state.h"

/// The application's own procedures, supplied by the program that links the shell: Paint draws a
/// frame, then Scene reads the input and advances the application.
void Paint();
void Scene();

/// Stores size, title and background colour, looks up the user, empties the byte heaps and opens
/// the window. Position and the two texts are accepted and ignored. Returns what GLFEW_Init
/// returns: 1, or 0 after one line on standard error.
int32_t CreateApplication(int32_t x, int32_t y, int32_t width, int32_t height, const char *title,
                          const char *reserved1, const char *reserved2, uint8_t red, uint8_t green,
                          uint8_t blue, uint8_t alpha);

/// Fills System_PW and System_HOME.
void BASE_Init();

/// Paints and shows one frame before ExecuteApplication, for a set-up whose end may be slow.
void ShowApplication();

/// Takes the window's current size, then repeats Paint, Scene, buffer swap and events until the
/// window is asked to close or Velmorandis_CloseApplication is called with a nonzero flag; both are
/// checked only after a whole frame.
void ExecuteApplication();

/// Closes the window and frees all byte heaps.
void DestroyApplication();

void Velmorandis_RePaint(int32_t flag);
void Velmorandis_CloseApplication(int32_t flag);
void Velmorandis_SetParamCount(int32_t n);
/// Copies the first System_ParamCount texts into the slots: 16 of them, 127 bytes each at most.
void Velmorandis_SetParamStr(const char *const *argv);
void Velmorandis_SetArgc(int32_t n);
void Velmorandis_SetArgv(char **argv);

int32_t Velmorandis_ParamCount();
/// Slot `i` modulo 256; callers stay below 16.
char *Velmorandis_ParamStr(int32_t i);
int32_t Velmorandis_ScreenWidth();
int32_t Velmorandis_ScreenHeight();
int32_t Velmorandis_MouseX();
int32_t Velmorandis_MouseY();
int32_t Velmorandis_LeftMouseButton();
int32_t Velmorandis_MiddleMouseButton();
int32_t Velmorandis_RightMouseButton();
int32_t Velmorandis_ApplicationType();
int32_t System_GetScreenWidth();
int32_t System_GetScreenHeight();
int32_t System_GetMouseX();
int32_t System_GetMouseY();
SYSTEM_JOYSTICK *System_GetJoystick();

/// The latest event of each kind, reported once: 0 until the next. Events are not queued, on
/// purpose.
int32_t System_KeyDown();
int32_t System_KeyUp();
int32_t System_KeyDownCode();
int32_t System_MouseDown();
int32_t System_MouseUp();

/// Wheel steps since the last call.
int32_t System_MouseWheel();
