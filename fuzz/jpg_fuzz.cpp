// Any file through the JPEG decoder under both sets of rules, with its thumbnail; then as a stream
// within another file, which takes its tables from the first bytes.
#include <algorithm>
#include <cstdlib>
#include <span>
#include <vector>

#include "fuzz/fuzz.h"
#include "picture/jpg.h"
#include "picture/picture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<uint8_t> bytes(data, data + size);
    if (size % 4 == 1)
        bytes.resize(size + (1 << 14));  // from this size on coefficients are decoded in pairs
    const BYTES_OPEN open(bytes);
    Picture_MaxBytes = size % 16 == 0 ? 1 << 24 : 1 << 20;  // large ones take long
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        Picture_Rules = rules;
        JPG_Load(open.Path);
        std::free(JPG_Decoding());
        std::free(JPG_GetThumbnail());
        JPG_UnLoad();
    }
    const std::span<const uint8_t> file(data, size);
    const size_t tables = size == 0 ? 0 : std::min<size_t>(data[size - 1] * size_t{4}, size);
    const JPG_STREAM stream =
        JPG_DecodeStream(file.first(tables), file, size % 2 == 0, size_t{1} << 20);
    if (stream.Samples.size() != size_t{stream.Width} * stream.Height * stream.Components)
        std::abort();
    return 0;
}
