#include "extra/colour.h"

constinit thread_local uint8_t Extra_Yluma = 0, Extra_ChromaBlue = 0, Extra_ChromaRed = 0;
constinit thread_local uint8_t Extra_Red = 0, Extra_Green = 0, Extra_Blue = 0;

static uint8_t ToByte(double value)
{
    return static_cast<uint8_t>(static_cast<int>(value));
}

// The order of the terms matters: white's red chroma must round to just below 128.
void Extra_RGBtoYCbCr(uint8_t r, uint8_t g, uint8_t b)
{
    Extra_Yluma = ToByte(0.299 * r + 0.587 * g + 0.114 * b);
    Extra_ChromaBlue = ToByte(-0.168736 * r + 128 - 0.331264 * g + 0.5 * b);
    Extra_ChromaRed = ToByte(0.5 * r + 128 - 0.418688 * g - 0.081312 * b);
}

void Extra_YCbCrtoRGB(uint8_t y, uint8_t cb, uint8_t cr)
{
    Extra_Red = ToByte(y + 1.402 * (cr - 128));
    Extra_Green = ToByte(y - 0.34414 * (cb - 128) - 0.71414 * (cr - 128));
    Extra_Blue = ToByte(y + 1.772 * (cb - 128));
}

uint8_t Extra_GetYluma()
{
    return Extra_Yluma;
}

uint8_t Extra_GetChromaBlue()
{
    return Extra_ChromaBlue;
}

uint8_t Extra_GetChromaRed()
{
    return Extra_ChromaRed;
}
