// Any file through the PNG decoder, under both sets of rules.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/png.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        PNG_Load(open.Path);
        std::free(PNG_Decoding());
        PNG_UnLoad();
    }
    return 0;
}
