// Any bytes as an XBM file.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/xbm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        XBM_Load(FuzzFile(data, size).c_str());
        std::free(XBM_Decoding());
        XBM_HEADER header;
        XBM_GetHeader(&header);
        XBM_UnLoad();
    }
    return 0;
}
