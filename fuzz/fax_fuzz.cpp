// Any bytes as facsimile data; the first two choose scheme and width.
#include <cstdlib>
#include <vector>

#include "picture/fax.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const size_t width = 1 + data[1] * size_t{data[1]}, rowBytes = (width + 7) / 8;
    std::vector<uint8_t> out(rowBytes * 64);
    const FAX_RESULT result =
        FAX_Expand({data + 2, size - 2}, static_cast<FAX_SCHEME>(data[0] % 5), width, out);
    if (result.Rows > 64)
        std::abort();
    return 0;
}
