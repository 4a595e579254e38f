// Any bytes as a PCX file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/pcx.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        PCX_Load(open.Path);
        std::free(PCX_Decoding());
        PCX_HEADER header;
        PCX_GetHeader(&header);
        PCX_UnLoad();
    }
    return 0;
}
