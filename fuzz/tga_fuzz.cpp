// Any bytes as a TGA file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/tga.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        TGA_Load(open.Path);
        std::free(TGA_Decoding());
        TGA_GetHeader();
        TGA_UnLoad();
    }
    return 0;
}
