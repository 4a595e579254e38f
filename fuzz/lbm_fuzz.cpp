// Any bytes as an LBM file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/lbm.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        LBM_Load(open.Path);
        std::free(LBM_Decoding());
        LBM_HEADER header;
        LBM_GetHeader(&header);
        LBM_UnLoad();
    }
    return 0;
}
