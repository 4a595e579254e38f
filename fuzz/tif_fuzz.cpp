// Any bytes as a TIFF file, under both sets of rules.
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"
#include "picture/tif.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const BYTES_OPEN open({data, size});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        TIF_PageCount = 1;
        for (TIF_Page = 0; TIF_Page < TIF_PageCount && TIF_Page < 3; TIF_Page++) {
            TIF_Load(open.Path);
            std::free(TIF_Decoding());
            TIF_HEADER header;
            TIF_GetHeader(&header);
            TIF_UnLoad();
        }
    }
    return 0;
}
