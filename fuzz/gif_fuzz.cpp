// A GIF with all its frames, in both modes of the framework's rules and composed by the format's.
#include <algorithm>
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/gif.h"
#include "picture/picture.h"

static void Load(const char *path, uint16_t mode)
{
    GIF_Load(path);
    GIF_HEADER header;
    GIF_GetHeader(&header);
    uint8_t *pixels = GIF_Decoding(mode);
    GIF_UnLoad();
    if (pixels && Picture_Rules == PICTURE_RULES_FORMAT) {
        const GIF_PICTURE &gif = GIF_PictureOf(pixels);
        const size_t last = std::min<size_t>(gif.Frames.size(), 20) - 1;
        GIF_CANVAS running, jumping;
        for (size_t n = 0; n <= last; n++)
            GIF_Compose(gif, n, running);
        GIF_Compose(gif, last, jumping);
        if (running.Screen != jumping.Screen)
            std::abort();
    }
    GIF_FreeFrames(pixels);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    Picture_MaxBytes = size % 16 == 0 ? 1 << 24 : 1 << 19;  // large ones take long
    Picture_Rules = PICTURE_RULES_FRAMEWORK;
    Load(open.Path, 0);
    Load(open.Path, 1);
    Picture_Rules = PICTURE_RULES_FORMAT;
    Load(open.Path, 0);
    return 0;
}
