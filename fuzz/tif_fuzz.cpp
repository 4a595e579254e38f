// Any bytes as a file of the TIF decoder.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/tif.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Picture_MaxBytes = size_t{1} << 20;
    TIF_Load(FuzzFile(data, size).c_str());
    std::free(TIF_Decoding());
    TIF_HEADER header;
    TIF_GetHeader(&header);
    TIF_UnLoad();
    return 0;
}
