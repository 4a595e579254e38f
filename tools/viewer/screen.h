// Drawing in the window, in framebuffer pixels from its left top: textures, and lines of text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

/// A parallelogram: its left top corner, and the ways to its right and its lower one.
struct SCREEN_PLACE {
    float X, Y;
    float AcrossX, AcrossY;
    float DownX, DownY;
};

/// The part of a texture, from 0 to 1 each way.
struct SCREEN_PART {
    float Left = 0, Top = 0, Width = 1, Height = 1;
};

/// What lies below transparent parts: a checkerboard, or what has been drawn.
enum SCREEN_GROUND : uint8_t { SCREEN_CHECKERED, SCREEN_DRAWN };

/// Lines of text as a texture, for as long as their text stays the same.
struct SCREEN_LABEL {
    std::string Text;
    uint32_t Texture = 0;
    float Width = 0, Height = 0;
};

/// To be called once there is a window.
void Screen_Open();

float Screen_Width();
float Screen_Height();
/// By how much letters are enlarged: a whole number.
float Screen_LetterScale();
/// Letters that fit side by side into the window.
uint32_t Screen_Columns();
float Screen_MouseX();
float Screen_MouseY();

void Screen_Draw(uint32_t texture, const SCREEN_PLACE &place, SCREEN_GROUND ground,
                 const SCREEN_PART &part = {});

/// Sets a label's lines, which are in ISO/IEC 8859-2, and draws it. Lines too long for the window
/// have smaller letters.
void Screen_SetLabel(SCREEN_LABEL &label, std::span<const std::string> lines);
void Screen_DrawLabel(const SCREEN_LABEL &label, float x, float y);
void Screen_DropLabel(SCREEN_LABEL &label);
