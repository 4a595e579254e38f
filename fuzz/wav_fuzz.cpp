#include "audio/wav.h"
#include "fuzz/sound_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr SOUND_MODULE module = {WAV_Load, WAV_Decoding, WAV_Destroy, WAV_SetSoundNumber};
    const auto start = [] { return WAV_GetHeader(0)->DataStart; };
    FuzzSound(module, start, data, size);
    return 0;
}
