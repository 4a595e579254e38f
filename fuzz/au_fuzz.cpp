#include "audio/au.h"
#include "fuzz/sound_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr SOUND_MODULE module = {AU_Load, AU_Decoding, AU_Destroy, AU_SetSoundNumber};
    const auto start = [] { return AU_GetHeader(0)->DataStart; };
    FuzzSound(module, start, data, size);
    return 0;
}
