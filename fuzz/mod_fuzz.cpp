// Any file as a module: its length, and its start in several formats, twice over.
#include <vector>

#include "audio/mod.h"
#include "fuzz/fuzz.h"

static void Render(uint8_t channels, uint8_t bits, uint32_t rate, uint32_t bytes)
{
    MOD_HEADER &header = *MOD_GetHeader(0);
    header.Channels = channels;
    header.BitsPerSample = bits;
    header.SamplingRate = rate;
    header.SongPosition = header.Row = 0;
    std::vector<uint8_t> buffer(bytes);
    for (int i = 0; i < 2; i++) {
        uint32_t length = bytes;
        MOD_Decoding(buffer.data(), &length, 0);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MOD_SetSoundNumber(0);
    MOD_Load(FuzzFile(data, size).c_str());
    if (MOD_GetHeader(0)) {
        Render(2, 16, 2000, 1024);
        Render(1, 8, 100, 499);  // many rows
        Render(3, 24, 300, 497);
        Render(2, 32, 4000000000, 256);
    }
    MOD_Destroy();
    return 0;
}
