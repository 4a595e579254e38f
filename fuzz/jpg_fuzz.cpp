// Any file through the JPEG decoder, with its thumbnail.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/jpg.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Picture_MaxBytes = size_t{1} << 16;
    JPG_Load(FuzzFile(data, size).c_str());
    std::free(JPG_Decoding());
    std::free(JPG_GetThumbnail());
    JPG_UnLoad();
    return 0;
}
