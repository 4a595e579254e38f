#include "platform/state.h"

int32_t System_ScreenWidth, System_ScreenHeight, System_ScreenLeft, System_ScreenTop;
const char *System_WindowTitle;
uint8_t System_BGred, System_BGgreen, System_BGblue, System_BGalpha;
GLFWwindow *System_Window;
int32_t System_RePaint;
std::atomic<int32_t> System_CloseApplication;

int32_t System_ParamCount;
std::array<char, System_ParamSlots * System_ParamLength> System_ParamStr;
int32_t System_argc;
char **System_argv;

passwd *System_PW;
const char *System_HOME;

int32_t System_KD, System_KU, System_KD_Code, System_MD, System_MU;
int32_t System_Wheel;
uint16_t System_MouseX, System_MouseY;

int32_t System_LeftMouseButton, System_MiddleMouseButton, System_RightMouseButton;
int32_t System_ApplicationType;
SYSTEM_JOYSTICK System_Joystick;
int32_t System_JoystickNUM;
uint32_t System_RGBA, System_ARGB;
