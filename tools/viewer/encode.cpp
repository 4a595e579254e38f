#include "tools/viewer/encode.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include <zlib.h>

#include "extra/lanes.h"
#include "tools/common/write.h"

static std::string Put(FILE *file, std::span<const uint8_t> bytes)
{
    errno = 0;
    if (std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size())
        return "";
    return Write_Reason(errno != 0 ? errno : EIO);
}

static const uint8_t *Row(const VIEWER_PIXELS &pixels, size_t y)
{
    return pixels.Pixels + y * pixels.Stride * 4;
}

namespace
{

struct KINDS {
    bool Grey = true, Opaque = true;
};

}  // namespace

// Which of both hold for all pixels of a row.
EXTRA_LANES static KINDS KindsOf(const uint8_t *row, size_t pixels)
{
    uint8_t coloured = 0, alpha = 255;
    for (size_t x = 0; x < pixels; x++) {
        const uint8_t *pixel = row + 4 * x;
        coloured |= static_cast<uint8_t>((pixel[0] ^ pixel[1]) | (pixel[1] ^ pixel[2]));
        alpha &= pixel[3];
    }
    return {coloured == 0, alpha == 255};
}

static KINDS KindsOf(const VIEWER_PIXELS &pixels)
{
    KINDS all;
    for (size_t y = 0; y < pixels.Height && (all.Grey || all.Opaque); y++) {
        const KINDS row = KindsOf(Row(pixels, y), pixels.Width);
        all = {all.Grey && row.Grey, all.Opaque && row.Opaque};
    }
    return all;
}

std::string Encode_PAM(const VIEWER_PIXELS &pixels, FILE *file)
{
    std::fprintf(file, "P7\nWIDTH %u\nHEIGHT %u\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                 pixels.Width, pixels.Height);
    std::string reason;
    for (size_t y = 0; y < pixels.Height && reason.empty(); y++)
        reason = Put(file, {Row(pixels, y), size_t{pixels.Width} * 4});
    return reason;
}

static void PutNumber(std::vector<uint8_t> &out, uint32_t number, int bytes, bool big)
{
    for (int i = 0; i < bytes; i++)
        out.push_back(static_cast<uint8_t>(number >> (8 * (big ? bytes - 1 - i : i))));
}

// A chunk of PNG; `type` has four letters.
static std::string PutChunk(FILE *file, const char *type, std::span<const uint8_t> data)
{
    std::vector<uint8_t> chunk;
    PutNumber(chunk, static_cast<uint32_t>(data.size()), 4, true);
    chunk.insert(chunk.end(), type, type + 4);
    chunk.insert(chunk.end(), data.begin(), data.end());
    const uLong check = crc32(0, chunk.data() + 4, static_cast<uInt>(chunk.size() - 4));
    PutNumber(chunk, static_cast<uint32_t>(check), 4, true);
    return Put(file, chunk);
}

namespace
{

// Deflates into IDAT chunks.
struct PNG_STREAM {
    FILE *File;
    z_stream Z{};
    std::vector<uint8_t> Out = std::vector<uint8_t>(1 << 16);

    explicit PNG_STREAM(FILE *file) : File(file) {}
    ~PNG_STREAM()
    {
        deflateEnd(&Z);
    }
    PNG_STREAM(const PNG_STREAM &) = delete;
    PNG_STREAM &operator=(const PNG_STREAM &) = delete;
};

}  // namespace

static std::string Deflate(PNG_STREAM &stream, std::span<uint8_t> bytes, int flush)
{
    stream.Z.next_in = bytes.data();
    stream.Z.avail_in = static_cast<uInt>(bytes.size());
    int status = Z_OK;
    do {
        if (stream.Z.avail_out == 0) {
            std::string reason = stream.Z.next_out ? PutChunk(stream.File, "IDAT", stream.Out) : "";
            if (!reason.empty())
                return reason;
            stream.Z.next_out = stream.Out.data();
            stream.Z.avail_out = static_cast<uInt>(stream.Out.size());
        }
        status = deflate(&stream.Z, flush);
    } while (stream.Z.avail_in != 0 || (flush == Z_FINISH && status == Z_OK));
    if (flush != Z_FINISH)
        return "";
    return PutChunk(stream.File, "IDAT",
                    std::span(stream.Out).first(stream.Out.size() - stream.Z.avail_out));
}

namespace
{

// A row's filter byte and filtered bytes; how far these are from 0, taken as signed.
struct PNG_ROW {
    std::vector<uint8_t> Bytes;
    uint64_t Sum = 0;
};

constexpr uint8_t PNG_Filters = 5, PNG_Up = 2;
constexpr size_t PNG_MaxStep = 4;

}  // namespace

// Filters a row into `out`, ISO/IEC 15948, 9.2: each byte less what `guess` makes of those to the
// left, above and to the upper left. `row` and `above` follow PNG_MaxStep zeros. Returns the sum of
// the distances from 0.
template <typename Guess>
[[gnu::always_inline]] static inline uint32_t FilterBy(const uint8_t *row, const uint8_t *above,
                                                       size_t size, size_t step, uint8_t *out,
                                                       const Guess &guess)
{
    const uint8_t *const left = row - step, *const upperLeft = above - step;
    uint32_t sum = 0;
    for (size_t i = 0; i < size; i++) {
        const int16_t a = left[i], b = above[i], c = upperLeft[i];
        const auto byte = static_cast<uint8_t>(row[i] - guess(a, b, c));
        const auto opposite = static_cast<uint8_t>(-byte);
        out[i] = byte;
        sum += std::min(byte, opposite);
    }
    return sum;
}

EXTRA_LANES static uint32_t Filter(uint8_t filter, const uint8_t *row, const uint8_t *above,
                                   size_t size, size_t step, uint8_t *out)
{
    switch (filter) {
    case 1:
        return FilterBy(row, above, size, step, out, [](int16_t a, int16_t, int16_t) { return a; });
    case PNG_Up:
        return FilterBy(row, above, size, step, out, [](int16_t, int16_t b, int16_t) { return b; });
    case 3:
        return FilterBy(row, above, size, step, out, [](int16_t a, int16_t b, int16_t) {
            return static_cast<int16_t>((a + b) >> 1);
        });
    case 4:  // Paeth: the one of the three that is nearest to left + above - upper left
        return FilterBy(row, above, size, step, out, [](int16_t a, int16_t b, int16_t c) {
            const auto ac = static_cast<int16_t>(a - c), bc = static_cast<int16_t>(b - c);
            const auto sum = static_cast<int16_t>(ac + bc);
            const auto pa = static_cast<int16_t>(bc < 0 ? -bc : bc),
                       pb = static_cast<int16_t>(ac < 0 ? -ac : ac),
                       pc = static_cast<int16_t>(sum < 0 ? -sum : sum);
            const int16_t other = pb <= pc ? b : c;
            const int16_t nearer = pa < pb ? pa : pb;
            return pa <= pb && nearer <= pc ? a : other;
        });
    default:
        return FilterBy(row, above, size, step, out,
                        [](int16_t, int16_t, int16_t) { return int16_t{0}; });
    }
}

// Copies the pixels of a row without their alpha, or their grey with or without it.
static void Pack(const uint8_t *from, size_t pixels, size_t step, uint8_t *to)
{
    switch (step) {
    case 1:
        for (size_t x = 0; x < pixels; x++)
            to[x] = from[4 * x];
        break;
    case 2:
        for (size_t x = 0; x < pixels; x++) {
            to[2 * x] = from[4 * x];
            to[2 * x + 1] = from[4 * x + 3];
        }
        break;
    case 3:
        for (size_t x = 0; x < pixels; x++)
            std::memcpy(to + 3 * x, from + 4 * x, 3);
        break;
    default:
        std::memcpy(to, from, pixels * 4);
    }
}

std::string Encode_PNG(const VIEWER_PIXELS &pixels, FILE *file)
{
    constexpr uint64_t large = 40'000'000;  // pixels
    const KINDS kinds = KindsOf(pixels);
    const size_t step = (kinds.Grey ? 1u : 3u) + (kinds.Opaque ? 0u : 1u);
    constexpr std::array<uint8_t, 8> signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> head;
    PutNumber(head, pixels.Width, 4, true);
    PutNumber(head, pixels.Height, 4, true);
    const auto type = static_cast<uint8_t>((kinds.Grey ? 0 : 2) | (kinds.Opaque ? 0 : 4));
    head.insert(head.end(), {8, type, 0, 0, 0});
    std::string reason = Put(file, signature);
    if (reason.empty())
        reason = PutChunk(file, "IHDR", head);

    PNG_STREAM stream(file);
    // A large picture is compressed less, about twice as fast.
    if (deflateInit(&stream.Z, uint64_t{pixels.Width} * pixels.Height > large ? 3 : 6) != Z_OK)
        return "out of memory";
    const size_t size = step * pixels.Width;
    std::array<PNG_ROW, PNG_Filters> filtered;
    std::vector<uint8_t> row(PNG_MaxStep + size), above(row.size()), same(size + 1);
    same[0] = PNG_Up;
    for (uint8_t f = 0; f < PNG_Filters; f++) {
        filtered[f].Bytes.resize(size + 1);
        filtered[f].Bytes[0] = f;
    }
    for (size_t y = 0; y < pixels.Height && reason.empty(); y++) {
        const uint8_t *from = Row(pixels, y);
        if (y > 0 && std::memcmp(from, Row(pixels, y - 1), size_t{pixels.Width} * 4) == 0) {
            reason = Deflate(stream, same, Z_NO_FLUSH);
            continue;
        }
        Pack(from, pixels.Width, step, row.data() + PNG_MaxStep);
        for (PNG_ROW &f : filtered)
            f.Sum = Filter(f.Bytes[0], row.data() + PNG_MaxStep, above.data() + PNG_MaxStep, size,
                           step, f.Bytes.data() + 1);
        reason = Deflate(stream, std::ranges::min_element(filtered, {}, &PNG_ROW::Sum)->Bytes,
                         Z_NO_FLUSH);
        std::swap(row, above);
    }
    if (reason.empty())
        reason = Deflate(stream, {}, Z_FINISH);
    return reason.empty() ? PutChunk(file, "IEND", {}) : reason;
}

std::string Encode_BMP(const VIEWER_PIXELS &pixels, FILE *file)
{
    constexpr uint32_t fileHeader = 14, version3 = 40, version4 = 108, bitFields = 3;
    const bool opaque = KindsOf(pixels).Opaque;
    const uint32_t bytes = opaque ? 3 : 4, header = opaque ? version3 : version4;
    const size_t stride = (size_t{pixels.Width} * bytes + 3) / 4 * 4;
    const uint64_t size = fileHeader + header + uint64_t{stride} * pixels.Height;
    if (size > UINT32_MAX)
        return "it is too large for .bmp";

    std::vector<uint8_t> head = {'B', 'M'};
    const auto number = [&](uint64_t value, int count = 4) {
        PutNumber(head, static_cast<uint32_t>(value), count, false);
    };
    number(size);
    number(0);
    number(fileHeader + header);
    number(header);
    number(pixels.Width);
    number(pixels.Height);
    number(1, 2);
    number(bytes * 8, 2);
    number(opaque ? 0 : bitFields);
    number(size - fileHeader - header);
    for (int i = 0; i < 4; i++)  // resolution and number of colours: not stated
        number(0);
    if (!opaque) {
        for (const uint32_t mask : {0xFF0000u, 0xFF00u, 0xFFu, 0xFF000000u})
            number(mask);
        head.insert(head.end(), {'B', 'G', 'R', 's'});  // sRGB, read as a little-endian number
        head.resize(fileHeader + version4);
    }
    std::string reason = Put(file, head);
    std::vector<uint8_t> row(stride);
    for (size_t y = pixels.Height; y > 0 && reason.empty(); y--) {
        const uint8_t *from = Row(pixels, y - 1);
        for (size_t x = 0; x < pixels.Width; x++, from += 4) {
            uint8_t *to = row.data() + x * bytes;
            to[0] = from[2];
            to[1] = from[1];
            to[2] = from[0];
            if (!opaque)
                to[3] = from[3];
        }
        reason = Put(file, row);
    }
    return reason;
}
