// One colour at a time between RGB and YCbCr (ITU-T T.871), 8 bits each. Results are truncated
// towards zero and wrap at 8 bits instead of being cut to 0..255, on purpose.
#pragma once

#include <cstdint>

/// What Extra_RGBtoYCbCr found last.
extern uint8_t Extra_Yluma, Extra_ChromaBlue, Extra_ChromaRed;
/// What Extra_YCbCrtoRGB found last.
extern uint8_t Extra_Red, Extra_Green, Extra_Blue;

/// Sets Extra_Yluma, Extra_ChromaBlue and Extra_ChromaRed.
void Extra_RGBtoYCbCr(uint8_t r, uint8_t g, uint8_t b);

/// Sets Extra_Red, Extra_Green and Extra_Blue.
void Extra_YCbCrtoRGB(uint8_t y, uint8_t cb, uint8_t cr);

uint8_t Extra_GetYluma();
uint8_t Extra_GetChromaBlue();
uint8_t Extra_GetChromaRed();
