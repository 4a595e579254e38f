// What tessview --info prints about any file, as text and as JSON.
#include <cstdio>
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "fuzz/text_check.h"
#include "picture/picture.h"
#include "tools/viewer/info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Picture_Rules = PICTURE_RULES_FORMAT;
    Picture_MaxBytes = 1 << 20;  // large ones take long
    const std::string path = FuzzFile(data, size);
    for (const bool json : {false, true}) {
        char *text = nullptr;
        size_t length = 0;
        FILE *out = open_memstream(&text, &length);
        Info_Print({path}, json, out);
        std::fclose(out);
        CheckText({text, length}, json);
        std::free(text);
    }
    return 0;
}
