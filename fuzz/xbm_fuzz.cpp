// Any bytes as an XBM file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/xbm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        XBM_Load(open.Path);
        std::free(XBM_Decoding());
        XBM_HEADER header;
        XBM_GetHeader(&header);
        XBM_UnLoad();
    }
    return 0;
}
