// Any file through the JPEG decoder, its thumbnail too.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/jpg.h"
#include "picture/jpg_scan.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static JPG_HEADER header;
    static JPG_EXIF exif;
    Picture_MaxBytes = size_t{1} << 20;
    JPG_Load(FuzzFile(data, size).c_str());
    std::free(JPG_Decoding());
    std::free(JPG_GetThumbnail());
    JPG_UnLoad();
    JPG_GetHeader(&header);
    JPG_GetExif(&exif);
    return 0;
}
