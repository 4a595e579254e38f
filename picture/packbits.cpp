#include "picture/packbits.h"

#include <algorithm>
#include <cstring>

#include "extra/bytes.h"

size_t PackBits_Expand(std::span<const uint8_t> packed, std::span<uint8_t> out)
{
    constexpr size_t chunk = 16, safe = 128 + chunk;  // chunks may write past a run's end
    size_t position = 0, written = 0;
    while (position < packed.size() && written < out.size()) {
        const uint8_t control = Bytes_GetByte(packed, position);
        const size_t room = out.size() - written;
        uint8_t *to = out.data() + written;
        if (control < 128) {
            const auto bytes = Bytes_GetSpan(packed, position, std::min(control + size_t{1}, room));
            if (room >= safe && packed.size() - position >= safe)
                for (size_t i = 0; i < bytes.size(); i += chunk)
                    std::memcpy(to + i, bytes.data() + i, chunk);
            else
                std::copy(bytes.begin(), bytes.end(), to);
            position += control + size_t{1};
            written += bytes.size();
        } else if (control > 128) {
            const size_t count = std::min(size_t{257} - control, room);
            const uint8_t value = Bytes_GetByte(packed, position);
            if (room >= safe)
                for (size_t i = 0; i < count; i += chunk)
                    std::memset(to + i, value, chunk);
            else
                std::memset(to, value, count);
            written += count;
        }
    }
    return written;
}
