// Any file through detection, its decoder and the release; and as raw planes of either depth.
#include "fuzz/fuzz.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = FuzzFile(data, size);
    const auto load = [&path](uint16_t rawPlanes) {
        Picture_UnLoad(Picture_Load(path.c_str(), 8, rawPlanes));
    };
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        load(0);
        load(6);
        load(8);
    }
    return 0;
}
