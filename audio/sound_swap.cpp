#include "audio/sound_file.h"
#include "extra/lanes.h"

EXTRA_LANES static void Swap(std::span<uint8_t> samples)
{
    Sound_SwapAll16(samples);
}

void Sound_SwapWide16(std::span<uint8_t> samples)
{
    Swap(samples);
}
