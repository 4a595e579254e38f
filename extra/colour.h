// Converts one colour at a time between RGB and YCbCr (ITU-T T.871), 8 bits each. Results are
// truncated toward zero and wrap at 8 bits instead of being clamped to 0..255, on purpose. Results
// are per thread.
#pragma once

#include <cstdint>

/// Results of the last Extra_RGBtoYCbCr.
extern constinit thread_local uint8_t Extra_Yluma, Extra_ChromaBlue, Extra_ChromaRed;
/// Results of the last Extra_YCbCrtoRGB.
extern constinit thread_local uint8_t Extra_Red, Extra_Green, Extra_Blue;

/// Sets Extra_Yluma, Extra_ChromaBlue and Extra_ChromaRed.
void Extra_RGBtoYCbCr(uint8_t r, uint8_t g, uint8_t b);

/// Sets Extra_Red, Extra_Green and Extra_Blue.
void Extra_YCbCrtoRGB(uint8_t y, uint8_t cb, uint8_t cr);

uint8_t Extra_GetYluma();
uint8_t Extra_GetChromaBlue();
uint8_t Extra_GetChromaRed();
