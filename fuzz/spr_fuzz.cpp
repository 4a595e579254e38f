// Any bytes as a sprite file, with all its images.
#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/spr.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    SPR_Load(open.Path);
    uint8_t *pixels = SPR_Decoding();
    SPR_HEADER header;
    SPR_GetHeader(&header);
    SPR_UnLoad();
    SPR_FreeImages(pixels);
    return 0;
}
