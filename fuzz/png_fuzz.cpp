// Any file through the PNG decoder, under both sets of rules.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/png.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = FuzzFile(data, size);
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        PNG_Load(path.c_str());
        std::free(PNG_Decoding());
        PNG_UnLoad();
    }
    return 0;
}
