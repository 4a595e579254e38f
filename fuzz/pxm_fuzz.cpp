// Any bytes as a PNM file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/pxm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        PXM_Load(open.Path);
        std::free(PXM_Decoding());
        PXM_GetHeader();
        PXM_UnLoad();
    }
    return 0;
}
