// Any bytes as a TGA file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/tga.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        TGA_Load(FuzzFile(data, size).c_str());
        std::free(TGA_Decoding());
        TGA_GetHeader();
        TGA_UnLoad();
    }
    return 0;
}
