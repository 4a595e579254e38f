// Any bytes as a stream: inflated in one go and piece by piece, which must give the same.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "fuzz/fuzz.h"
#include "picture/inflate.h"

// The stream through a window, as a decoder of rows does it.
static std::vector<uint8_t> Pieces(std::span<const uint8_t> stream, size_t most)
{
    std::vector<uint8_t> window(Inflate_History + 2000 + Inflate_Margin), all;
    size_t position = 0;
    Inflate_Begin(stream);
    while (Inflate_State == INFLATE_MORE && all.size() < most) {
        const size_t end = Inflate_More(window, position);
        all.insert(all.end(), window.begin() + static_cast<ptrdiff_t>(position),
                   window.begin() + static_cast<ptrdiff_t>(end));
        position = std::min(end, Inflate_History);
        std::copy(window.begin() + static_cast<ptrdiff_t>(end - position),
                  window.begin() + static_cast<ptrdiff_t>(end), window.begin());
    }
    all.resize(std::min(all.size(), most));
    return all;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::span stream(data, size);
    std::vector<uint8_t> out(size_t{1} << 17);
    out.resize(Inflate_All(stream, out).Size);
    if (out != Pieces(stream, size_t{1} << 17))
        std::abort();
    return 0;
}
