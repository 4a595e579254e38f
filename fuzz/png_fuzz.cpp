// Any file through the PNG decoder.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/png.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Picture_MaxBytes = size_t{1} << 16;
    PNG_Load(FuzzFile(data, size).c_str());
    std::free(PNG_Decoding());
    PNG_UnLoad();
    return 0;
}
