// A GIF with all its frames, in both modes of composition.
#include "fuzz/fuzz.h"
#include "picture/gif.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Picture_MaxBytes = size_t{1} << 16;
    const std::string path = FuzzFile(data, size);
    for (uint16_t mode = 0; mode < 2; mode++) {
        GIF_Load(path.c_str());
        GIF_HEADER header;
        GIF_GetHeader(&header);
        uint8_t *pixels = GIF_Decoding(mode);
        GIF_UnLoad();
        GIF_FreeFrames(pixels);
    }
    return 0;
}
