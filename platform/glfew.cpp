#include "platform/glfew.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include <dlfcn.h>

#include <GL/glew.h>
#include <GLFW/glfw3.h>

#include "picture/picture.h"
#include "platform/system.h"

uint32_t GLFEW_VertexArrayID;

// A GL object that several records share: found by what it was made of.
struct SHARED {
    uint32_t Name;
    uint32_t Users;
    uint32_t VertexShader, FragmentShader;  // programs
};
using SHARED_TABLE = std::unordered_map<std::string, SHARED>;
static SHARED_TABLE sharedPrograms, sharedBuffers;

// What the context has been told, so that it is not told again.
struct GL_STATE {
    uint32_t Program, Texture, Buffer;
    uint8_t Kind;  // of the vertices that the attributes point to; 0: none
};
static GL_STATE current;

static std::string windowError;  // what GLFW said last

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

// The viewport counts framebuffer pixels, which differ from window units on some displays.
static int framebufferWidth, framebufferHeight;

static void MeasureFramebuffer()
{
    glfwGetFramebufferSize(System_Window, &framebufferWidth, &framebufferHeight);
    GLFEW_SetViewport(1, 1);
}

int32_t GLFEW_Init()
{
    glfwSetErrorCallback(KeepError);
    if (!glfwInit())
        return Fail(windowError);
    glfwWindowHint(GLFW_SAMPLES, 4);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 3);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
    glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    System_Window = glfwCreateWindow(System_ScreenWidth, System_ScreenHeight, System_WindowTitle,
                                     nullptr, nullptr);
    if (!System_Window)
        return Fail(windowError);
    glfwMakeContextCurrent(System_Window);
    glewExperimental = GL_TRUE;
    const GLenum loaded = glewInit();
    // Without GLX (Wayland) the loader says so after it has loaded all that is used here.
    if (loaded != GLEW_OK && loaded != GLEW_ERROR_NO_GLX_DISPLAY)
        return Fail(reinterpret_cast<const char *>(glewGetErrorString(loaded)));
    glfwSetKeyCallback(System_Window, GLFEW_KeyBoard);
    glfwSetMouseButtonCallback(System_Window, GLFEW_Mouse);
    glfwSetCursorPosCallback(System_Window, GLFEW_MouseMotion);
    glfwSetScrollCallback(System_Window, GLFEW_Wheel);
    glfwSetWindowSizeCallback(System_Window, GLFEW_Screen);
    // A display's scale may change without the window's size.
    glfwSetFramebufferSizeCallback(System_Window,
                                   [](GLFWwindow *, int, int) { MeasureFramebuffer(); });
    glfwSwapInterval(1);
    glGenVertexArrays(1, &GLFEW_VertexArrayID);
    glBindVertexArray(GLFEW_VertexArrayID);
    current = {};
    MeasureFramebuffer();
    const auto channel = [](uint8_t v) { return static_cast<float>(v) / 255; };
    glClearColor(channel(System_BGred), channel(System_BGgreen), channel(System_BGblue),
                 channel(System_BGalpha));
    return 1;
}

void GLFEW_KeyBoard(GLFWwindow *, int key, int scancode, int action, int)
{
    if (action == GLFW_PRESS)
        System_KD = key;
    else if (action == GLFW_RELEASE)
        System_KU = key;
    else
        return;
    System_KD_Code = scancode;
}

void GLFEW_Mouse(GLFWwindow *window, int button, int action, int)
{
    constexpr std::array<int32_t, 3> codes = {1, 3, 2};  // left, right, middle
    if (button >= 0 && button < static_cast<int>(codes.size())) {
        const int32_t code = codes[static_cast<size_t>(button)];
        if (action == GLFW_PRESS)
            System_MD = code;
        else if (action == GLFW_RELEASE)
            System_MU = code;
    }
    double x, y;
    glfwGetCursorPos(window, &x, &y);
    GLFEW_MouseMotion(window, x, y);
}

void GLFEW_MouseMotion(GLFWwindow *, double x, double y)
{
    System_MouseX = static_cast<uint16_t>(static_cast<int32_t>(x));
    System_MouseY = static_cast<uint16_t>(static_cast<int32_t>(y));
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
}

void GLFEW_SetViewport(float widthShare, float heightShare)
{
    const auto part = [](int whole, float share) {
        return static_cast<int>(std::lround(static_cast<float>(whole) * share));
    };
    const int width = part(framebufferWidth, widthShare);
    const int height = part(framebufferHeight, heightShare);
    glViewport((framebufferWidth - width) / 2, (framebufferHeight - height) / 2, width, height);
}

void GLFEW_SetupWideScreen(int32_t *width, int32_t *height, int32_t *top)
{
    const auto wide = static_cast<int32_t>(static_cast<float>(*width) / 16 * 9);
    *top = (*height - wide) / 2;
    *height = wide;
}

// Longer side by shorter side in whole numbers. A window shrunk to nothing has no aspect; 1 will
// do.
static float WholeAspect()
{
    const int32_t longer = std::max(System_ScreenWidth, System_ScreenHeight);
    const int32_t shorter = std::min(System_ScreenWidth, System_ScreenHeight);
    return shorter > 0 ? static_cast<float>(longer / shorter) : 1;
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

uint32_t GLFEW_LoadTexture(const char *path, uint16_t hint, uint16_t rawPlanes)
{
    const Picture picture = Picture_Load(path, hint, rawPlanes);
    uint32_t texture = 0;
    if (picture.Pixels) {
        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        current.Texture = texture;
        glPixelStorei(GL_UNPACK_ROW_LENGTH, picture.BufferWidth);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, picture.Width, picture.Height, 0, GL_RGBA,
                     GL_UNSIGNED_BYTE, picture.Pixels);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
        glGenerateMipmap(GL_TEXTURE_2D);
    }
    Picture_UnLoad(picture);
    return texture;
}

uint32_t GLFEW_MakeTexture(const uint8_t *pixels, uint32_t width, uint32_t height)
{
    uint32_t texture;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    current.Texture = texture;
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, static_cast<GLsizei>(width),
                 static_cast<GLsizei>(height), 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glGenerateMipmap(GL_TEXTURE_2D);
    return texture;
}

void GLFEW_DestroyTexture(uint32_t texture)
{
    glDeleteTextures(1, &texture);
    if (current.Texture == texture)
        current.Texture = 0;
}

uint32_t GLFEW_MaxTextureSide()
{
    int side = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &side);
    return static_cast<uint32_t>(std::max(side, 0));
}

void GLFEW_Clear()
{
    glClear(GL_COLOR_BUFFER_BIT);
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

void GLFEW_HideWindow()
{
    if (System_Window)
        glfwHideWindow(System_Window);
}

void GLFEW_AnswerEvents()
{
    if (System_Window)
        glfwPollEvents();
}

static void (*whenDisplayIsLost)();

// Xlib's answer to both kinds of error is two lines and exit(); its own handlers are put in their
// place by name, since GLFW may have been built without X11.
void GLFEW_WhenDisplayIsLost(void (*end)())
{
    using HANDLER = int (*)(void *display, void *event);
    whenDisplayIsLost = end;
    void *library = dlopen("libX11.so.6", RTLD_LAZY | RTLD_NOLOAD);
    if (!library)
        return;
    const HANDLER handler = [](void *, void *) {
        whenDisplayIsLost();
        return 0;
    };
    for (const char *name : {"XSetIOErrorHandler", "XSetErrorHandler"})
        if (void *set = dlsym(library, name))
            reinterpret_cast<HANDLER (*)(HANDLER)>(set)(handler);
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

static uint32_t CompileShader(GLenum type, const char *source)
{
    const uint32_t shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    return shader;
}

static uint32_t FloatsPerVertex(uint8_t kind)
{
    return kind == GLFEW_VEC3 ? 6 : kind == GLFEW_TEXTURED ? 5 : 0;
}

// The record's vertex data as bytes; empty for kinds without a buffer.
static std::string_view VertexBytes(const GLFEW_VERTEX &record)
{
    const float *data = record.Kind == GLFEW_VEC3 ? record.Vec3Vertices : record.TexturedVertices;
    const size_t floats =
        FloatsPerVertex(record.Kind) * static_cast<size_t>(std::max(record.Count, 0));
    return {reinterpret_cast<const char *>(data), floats * sizeof(float)};
}

static void AcquireBuffer(GLFEW_VERTEX &record)
{
    const std::string_view bytes = VertexBytes(record);
    SHARED &shared = sharedBuffers[std::string(bytes)];
    if (shared.Users++ == 0) {
        glGenBuffers(1, &shared.Name);
        glBindBuffer(GL_ARRAY_BUFFER, shared.Name);
        glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(bytes.size()), bytes.data(),
                     GL_STATIC_DRAW);
    }
    record.Buffer = shared.Name;
}

static void AcquireProgram(GLFEW_VERTEX &record)
{
    const char *vertex = record.VertexShaderSource.data();
    const char *fragment = record.FragmentShaderSource.data();
    SHARED &shared = sharedPrograms[std::string(vertex) + '\0' + fragment];
    if (shared.Users++ == 0) {
        shared.VertexShader = CompileShader(GL_VERTEX_SHADER, vertex);
        shared.FragmentShader = CompileShader(GL_FRAGMENT_SHADER, fragment);
        shared.Name = glCreateProgram();
        glAttachShader(shared.Name, shared.VertexShader);
        glAttachShader(shared.Name, shared.FragmentShader);
        glLinkProgram(shared.Name);
    }
    record.VertexShader = shared.VertexShader;
    record.FragmentShader = shared.FragmentShader;
    record.Program = shared.Name;
}

void GLFEW_CreateVertex(GLFEW_VERTEX &record)
{
    if (record.FragmentShaderFile[0])
        System_LoadTextFile(record.FragmentShaderFile.data(), record.FragmentShaderSource);
    if (record.VertexShaderFile[0])
        System_LoadTextFile(record.VertexShaderFile.data(), record.VertexShaderSource);
    if (FloatsPerVertex(record.Kind) != 0)
        AcquireBuffer(record);
    AcquireProgram(record);

    record.MVPLocation = glGetUniformLocation(record.Program, "MVP");
    record.PositionAttribute = 0;
    if (record.Kind == GLFEW_VEC3) {
        record.Vec3Attribute = 1;
    } else if (record.Kind == GLFEW_TEXTURED) {
        record.TextureAttribute = 1;
        record.SamplerLocation = glGetUniformLocation(record.Program, "textureSampler1");
    }
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
    glUniformMatrix4fv(record.MVPLocation, 1, GL_FALSE, record.MVP.data());
}

// Unit 0 is the only one in use, and what a new program's sampler reads.
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
    glVertexAttribPointer(1, kind == GLFEW_VEC3 ? 3 : 2, GL_FLOAT, GL_FALSE, stride,
                          reinterpret_cast<const void *>(3 * sizeof(float)));
}

void GLFEW_DrawVertex(const GLFEW_VERTEX &record, uint32_t mode)
{
    const uint8_t kind = FloatsPerVertex(record.Kind) != 0 ? record.Kind : uint8_t{0};
    if (current.Buffer != record.Buffer || current.Kind != kind) {
        glBindBuffer(GL_ARRAY_BUFFER, record.Buffer);
        PointAttributes(kind);
        current.Buffer = record.Buffer;
        current.Kind = kind;
    }
    glDrawArrays(mode, 0, record.Count);
}

// Lets go of one use of a name; true when it was the last.
static bool Release(SHARED_TABLE &table, uint32_t name)
{
    const auto entry = std::find_if(table.begin(), table.end(),
                                    [name](const auto &e) { return e.second.Name == name; });
    if (entry == table.end() || --entry->second.Users > 0)
        return false;
    table.erase(entry);
    return true;
}

void GLFEW_DestroyVertex(GLFEW_VERTEX &record)
{
    if (Release(sharedBuffers, record.Buffer)) {
        glDeleteBuffers(1, &record.Buffer);
        current.Buffer = current.Kind = 0;
    }
    if (Release(sharedPrograms, record.Program)) {
        glDeleteProgram(record.Program);
        current.Program = 0;
    }
    record.Buffer = record.Program = 0;
}

void GLFEW_SwapBuffers()
{
    glfwSwapBuffers(System_Window);
    glfwPollEvents();
}

void GLFEW_Destroy()
{
    if (System_Window) {
        glDeleteVertexArrays(1, &GLFEW_VertexArrayID);
        glfwDestroyWindow(System_Window);
        System_Window = nullptr;
    }
    glfwTerminate();
}
