#include "audio/iff.h"
#include "fuzz/sound_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr SOUND_MODULE module = {IFF_Load, IFF_Decoding, IFF_Destroy, IFF_SetSoundNumber};
    const auto start = [] { return IFF_GetHeader(0)->DataStart; };
    FuzzSound(module, start, data, size);
    return 0;
}
