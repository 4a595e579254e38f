#include "platform/application.h"

#include <cstring>
#include <utility>

#include <pwd.h>
#include <unistd.h>

#include <GLFW/glfw3.h>

#include "extra/heap.h"
#include "picture/graphics.h"
#include "platform/glfew.h"

int32_t CreateApplication(int32_t, int32_t, int32_t width, int32_t height, const char *title,
                          const char *, const char *, uint8_t red, uint8_t green, uint8_t blue,
                          uint8_t alpha)
{
    System_ScreenWidth = width;
    System_ScreenHeight = height;
    System_WindowTitle = title;
    System_BGred = red;
    System_BGgreen = green;
    System_BGblue = blue;
    System_BGalpha = alpha;
    BASE_Init();
    Extra_InitHeap();
    return GLFEW_Init();
}

void BASE_Init()
{
    System_PW = getpwuid(getuid());
    System_HOME = System_PW ? System_PW->pw_dir : "";
}

// Before the first picture: the window system may have changed the size before the callbacks were
// installed, and asks for a new window's picture, which afterwards would cause a second one.
static void PrepareWindow()
{
    GLFEW_AnswerEvents();
    int width, height;
    glfwGetWindowSize(System_Window, &width, &height);
    if (width != System_ScreenWidth || height != System_ScreenHeight)
        GLFEW_Screen(System_Window, width, height);
}

void ShowApplication()
{
    PrepareWindow();
    Paint();
    GLFEW_SwapBuffers();
}

void ExecuteApplication()
{
    PrepareWindow();
    System_RePaint = 1;
    do {
        Paint();
        Scene();
        GLFEW_SwapBuffers();
    } while (!glfwWindowShouldClose(System_Window) && System_CloseApplication == 0);
}

void DestroyApplication()
{
    GLFEW_Destroy();
    Graphics_Destroy();
    for (int n = 0; n < 256; n++)
        Extra_DestroyHeap(static_cast<uint8_t>(n));
}

void Velmorandis_RePaint(int32_t flag)
{
    System_RePaint = flag;
}

void Velmorandis_CloseApplication(int32_t flag)
{
    System_CloseApplication = flag;
}

void Velmorandis_SetParamCount(int32_t n)
{
    System_ParamCount = n;
}

void Velmorandis_SetParamStr(const char *const *argv)
{
    for (int32_t i = 0; i < System_ParamCount && i < static_cast<int32_t>(System_ParamSlots); i++) {
        char *slot = Velmorandis_ParamStr(i);
        const size_t length = strnlen(argv[i], System_ParamLength - 1);
        std::memcpy(slot, argv[i], length);
        slot[length] = 0;
    }
}

void Velmorandis_SetArgc(int32_t n)
{
    System_argc = n;
}

void Velmorandis_SetArgv(char **argv)
{
    System_argv = argv;
}

int32_t Velmorandis_ParamCount()
{
    return System_ParamCount;
}

char *Velmorandis_ParamStr(int32_t i)
{
    return System_ParamStr.data() + static_cast<size_t>(i & 0xFF) * System_ParamLength;
}

int32_t System_GetScreenWidth()
{
    return System_ScreenWidth;
}

int32_t System_GetScreenHeight()
{
    return System_ScreenHeight;
}

int32_t System_GetMouseX()
{
    return System_MouseX;
}

int32_t System_GetMouseY()
{
    return System_MouseY;
}

int32_t Velmorandis_ScreenWidth()
{
    return System_GetScreenWidth();
}

int32_t Velmorandis_ScreenHeight()
{
    return System_GetScreenHeight();
}

int32_t Velmorandis_MouseX()
{
    return System_GetMouseX();
}

int32_t Velmorandis_MouseY()
{
    return System_GetMouseY();
}

int32_t Velmorandis_LeftMouseButton()
{
    return System_LeftMouseButton;
}

int32_t Velmorandis_MiddleMouseButton()
{
    return System_MiddleMouseButton;
}

int32_t Velmorandis_RightMouseButton()
{
    return System_RightMouseButton;
}

int32_t Velmorandis_ApplicationType()
{
    return System_ApplicationType;
}

SYSTEM_JOYSTICK *System_GetJoystick()
{
    return &System_Joystick;
}

int32_t System_KeyDown()
{
    return std::exchange(System_KD, 0);
}

int32_t System_KeyUp()
{
    return std::exchange(System_KU, 0);
}

int32_t System_KeyDownCode()
{
    return std::exchange(System_KD_Code, 0);
}

int32_t System_MouseDown()
{
    return std::exchange(System_MD, 0);
}

int32_t System_MouseUp()
{
    return std::exchange(System_MU, 0);
}

int32_t System_MouseWheel()
{
    return std::exchange(System_Wheel, 0);
}
