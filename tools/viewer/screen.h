// Drawing in the window, in framebuffer pixels from its top left: textures, and lines of text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

/// A parallelogram: its top left corner, and the vectors to its top right and bottom left ones.
struct SCREEN_PLACE {
    float X, Y;
    float AcrossX, AcrossY;
    float DownX, DownY;
};

/// A part of a texture, from 0 to 1 in each direction.
struct SCREEN_PART {
    float Left = 0, Top = 0, Width = 1, Height = 1;
};

/// What shows through transparent parts: a checkerboard, or what was drawn before.
enum SCREEN_GROUND : uint8_t { SCREEN_CHECKERED, SCREEN_DRAWN };

/// Lines of text as a texture, kept as long as the text stays the same.
struct SCREEN_LABEL {
    std::string Text;
    uint32_t Texture = 0;
    float Width = 0, Height = 0;
};

/// Call once a window exists.
void Screen_Open();

float Screen_Width();
float Screen_Height();
/// The letters' magnification, a whole number.
float Screen_LetterScale();
/// Number of letters that fit side by side into the window.
uint32_t Screen_Columns();
float Screen_MouseX();
float Screen_MouseY();

void Screen_Draw(uint32_t texture, const SCREEN_PLACE &place, SCREEN_GROUND ground,
                 const SCREEN_PART &part = {});

/// Sets a label's lines, in ISO/IEC 8859-2, and draws it. Lines too long for the window get smaller
/// letters.
void Screen_SetLabel(SCREEN_LABEL &label, std::span<const std::string> lines);
void Screen_DrawLabel(const SCREEN_LABEL &label, float x, float y);
void Screen_DropLabel(SCREEN_LABEL &label);
