// Any file as a module: its length, then its start rendered in several formats, twice, from the
// beginning and after a seek. The first byte chooses the rules and the interpolation.
#include <vector>

#include "audio/mod.h"
#include "fuzz/fuzz.h"

static void Render(uint8_t channels, uint8_t bits, uint32_t rate, uint32_t bytes)
{
    MOD_HEADER &header = *MOD_GetHeader(0);
    header.Channels = channels;
    header.BitsPerSample = bits;
    header.SamplingRate = rate;
    std::vector<uint8_t> buffer(bytes);
    for (const uint64_t frame : {uint64_t{0}, uint64_t{rate} * 3}) {
        MOD_StartOver(header);
        const uint64_t at = frame != 0 ? MOD_Seek(header, nullptr, frame) : 0;
        for (int i = 0; i < 2; i++) {
            uint32_t length = bytes;
            MOD_Decoding(buffer.data(), &length, 0);
        }
        if (const auto view = MOD_GetView(header, at); view && view->Frame > at)
            __builtin_trap();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    Audio_Rules = data[0] >> 7;
    MOD_Interpolation = data[0] & 3;
    MOD_Separation = data[0] & 127;
    MOD_SetSoundNumber(0);
    const BYTES_OPEN open({data + 1, size - 1});
    MOD_Load(open.Path);
    if (MOD_GetHeader(0)) {
        Render(2, 16, 2000, 1024);
        Render(1, 8, 100, 499);  // many rows
        Render(3, 24, 300, 497);
        MOD_GetHeader(0)->SamplingRate = 0;
        MOD_Seek(*MOD_GetHeader(0), nullptr, 5);
        Render(2, 32, 40000, 256);
    }
    MOD_Destroy();
    return 0;
}
