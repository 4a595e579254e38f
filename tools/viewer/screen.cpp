#include "tools/viewer/screen.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "platform/application.h"
#include "platform/glfew.h"
#include "tools/viewer/sheet.h"

static std::array<GLFEW_VERTEX, 2> quads;  // the unit square, by SCREEN_GROUND

static GLFEW_VERTEX MakeQuad(const char *fragment)
{
    // Two triangles; rows of pixels go downwards.
    static constexpr std::array<float, 30> corners = {0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1, 1, 0, 1, 1,
                                                      0, 0, 0, 0, 0, 1, 1, 0, 1, 1, 0, 1, 0, 0, 1};
    GLFEW_VERTEX quad{};
    quad.Kind = GLFEW_Textured;
    quad.Count = 6;
    quad.TexturedVertices = corners.data();
    // The square has no depth, so the matrix's third column is free to hold the texture's part.
    quad.VertexShaderSource = "#version 330 core\nlayout(location = 0) in vec3 p;\n"
                              "layout(location = 1) in vec2 t;\nout vec2 uv;\nuniform mat4 MVP;\n"
                              "void main() { gl_Position = MVP * vec4(p, 1);\n"
                              "uv = MVP[2].xy + t * MVP[2].zw; }\n";
    quad.FragmentShaderSource = fragment;
    GLFEW_CreateVertex(quad);
    return quad;
}

void Screen_Open()
{
    GLFEW_BlendByAlpha();
    quads[SCREEN_CHECKERED] =
        MakeQuad("#version 330 core\nin vec2 uv;\nout vec4 color;\n"
                 "uniform sampler2D textureSampler1;\n"
                 "void main() {\n"
                 "  vec4 c = texture(textureSampler1, uv);\n"
                 "  vec2 square = floor(gl_FragCoord.xy / 8);\n"
                 "  float grey = mod(square.x + square.y, 2) < 0.5 ? 1.0 : 0.8;\n"
                 "  color = vec4(mix(vec3(grey), c.rgb, c.a), 1);\n"
                 "}\n");
    quads[SCREEN_DRAWN] = MakeQuad("#version 330 core\nin vec2 uv;\nout vec4 color;\n"
                                   "uniform sampler2D textureSampler1;\n"
                                   "void main() { color = texture(textureSampler1, uv); }\n");
}

float Screen_Width()
{
    return std::max(static_cast<float>(System_ScreenWidth) * GLFEW_PixelsPerUnit(), 1.0F);
}

float Screen_Height()
{
    return std::max(static_cast<float>(System_ScreenHeight) * GLFEW_PixelsPerUnit(), 1.0F);
}

float Screen_LetterScale()
{
    return std::max(std::round(GLFEW_ContentScale()), 1.0F);
}

uint32_t Screen_Columns()
{
    const auto width = static_cast<uint32_t>(Screen_Width() / Screen_LetterScale());
    return (std::max(width, 2 * Sheet_Margin) - 2 * Sheet_Margin) / Sheet_LetterWidth;
}

// Left of the window and above it the mouse position counts down from 65,535.
float Screen_MouseX()
{
    return static_cast<int16_t>(System_GetMouseX()) * GLFEW_PixelsPerUnit();
}

float Screen_MouseY()
{
    return static_cast<int16_t>(System_GetMouseY()) * GLFEW_PixelsPerUnit();
}

void Screen_Draw(uint32_t texture, const SCREEN_PLACE &place, SCREEN_GROUND ground,
                 const SCREEN_PART &part)
{
    const float width = Screen_Width(), height = Screen_Height();
    GLFEW_VERTEX &quad = quads[ground];
    quad.Texture = texture;
    quad.MVP = {};  // column by column
    quad.MVP[0] = 2 * place.AcrossX / width;
    quad.MVP[1] = -2 * place.AcrossY / height;
    quad.MVP[4] = 2 * place.DownX / width;
    quad.MVP[5] = -2 * place.DownY / height;
    quad.MVP[8] = part.Left;
    quad.MVP[9] = part.Top;
    quad.MVP[10] = part.Width;
    quad.MVP[11] = part.Height;
    quad.MVP[12] = 2 * place.X / width - 1;
    quad.MVP[13] = 1 - 2 * place.Y / height;
    quad.MVP[15] = 1;
    GLFEW_Set3DWorld(quad);
    GLFEW_SetTexture(quad);
    GLFEW_DrawVertex(quad, 4);
}

void Screen_SetLabel(SCREEN_LABEL &label, std::span<const std::string> lines)
{
    std::string text = std::to_string(Screen_LetterScale()) + " " + std::to_string(Screen_Width());
    for (const std::string &line : lines)
        text += "\n" + line;
    if (label.Text == text)
        return;
    Screen_DropLabel(label);
    const VIEWER_IMAGE image = Sheet_Lines(lines);
    label.Text = text;
    label.Texture = GLFEW_MakeTexture(image.Pixels.data(), image.Width, image.Height, 0, false);
    const auto width = static_cast<float>(image.Width), height = static_cast<float>(image.Height);
    const float most = std::max(std::floor(Screen_Width() / width), 1.0F);
    label.Width = width * std::min(Screen_LetterScale(), most);
    label.Height = height * std::min(Screen_LetterScale(), most);
}

void Screen_DrawLabel(const SCREEN_LABEL &label, float x, float y)
{
    Screen_Draw(label.Texture, {x, y, label.Width, 0, 0, label.Height}, SCREEN_DRAWN);
}

void Screen_DropLabel(SCREEN_LABEL &label)
{
    if (label.Texture != 0)
        GLFEW_DestroyTexture(label.Texture);
    label = {};
}
