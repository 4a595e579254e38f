#include "audio/voc.h"
#include "fuzz/sound_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr SOUND_MODULE module = {VOC_Load, VOC_Decoding, VOC_Destroy, VOC_SetSoundNumber};
    const auto start = [] { return VOC_GetHeader(0)->DataStart; };
    FuzzSound(module, start, data, size);
    return 0;
}
