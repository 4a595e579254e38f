// Any bytes as a BMP file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/bmp.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        BMP_Load(open.Path);
        std::free(BMP_Decoding());
        BMP_HEADER header;
        BMP_GetHeader(&header);
        BMP_UnLoad();
    }
    return 0;
}
