// Any file through the tags, the frame search and the decoder.
#include <array>
#include <cstdio>

#include "audio/mp3.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = FuzzFile(data, size);
    MP3_SetSoundNumber(0);
    MP3_Load(path.c_str());
    FILE *file = std::fopen(path.c_str(), "rb");
    static std::array<uint8_t, 65536> buffer;
    for (uint32_t length = buffer.size(); file && length != 0;) {
        // Buffers of other sizes too, for files smaller than a whole one get these.
        length = static_cast<uint32_t>(size % 3 == 0 ? size % buffer.size() : buffer.size());
        MP3_Decoding(file, buffer.data(), &length, 0);
    }
    if (file)
        std::fclose(file);
    MP3_Destroy();
    return 0;
}
