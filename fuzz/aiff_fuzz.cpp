#include "audio/aiff.h"
#include "fuzz/sound_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr SOUND_MODULE module = {AIFF_Load, AIFF_Decoding, AIFF_Destroy, AIFF_SetSoundNumber};
    const auto start = [] { return AIFF_GetHeader(0)->DataStart; };
    FuzzSound(module, start, data, size);
    return 0;
}
