// Any bytes as DEFLATE blocks: zlib. What zlib rejects may be accepted here (a code that lacks
// lengths, a distance of more than 32 KiB), but all output before that is the same.
#include <algorithm>
#include <cstring>
#include <vector>

#include <zlib.h>

#include "fuzz/peers/peer.h"
#include "picture/inflate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr size_t most = size_t{1} << 17;
    static std::vector<uint8_t> ours(most), theirs(most);
    std::vector<uint8_t> stream = {0x78, 0x9C};
    stream.insert(stream.end(), data, data + size);
    const INFLATE_RESULT result = Inflate_All(stream, ours);

    z_stream z = {};
    inflateInit2(&z, -15);
    z.next_in = const_cast<uint8_t *>(data);
    z.avail_in = static_cast<uInt>(size);
    z.next_out = theirs.data();
    z.avail_out = most;
    const int status = inflate(&z, Z_FINISH);
    inflateEnd(&z);
    if (status == Z_STREAM_END && (!result.Ended || result.Size != z.total_out))
        Differ("the length", 0, static_cast<long>(result.Size), static_cast<long>(z.total_out));
    const size_t both = std::min<size_t>(result.Size, z.total_out);
    if (std::memcmp(ours.data(), theirs.data(), both) != 0)
        Differ("a byte");
    if (status == Z_BUF_ERROR && result.Size != z.total_out)
        Differ("the length of what is cut", 0, static_cast<long>(result.Size),
               static_cast<long>(z.total_out));
    return 0;
}
