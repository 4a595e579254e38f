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

// Whether `holds` is true for all pixels.
template <typename Holds>
static bool All(const VIEWER_PIXELS &pixels, const Holds &holds)
{
    for (size_t y = 0; y < pixels.Height; y++)
        for (size_t x = 0; x < pixels.Width; x++)
            if (!holds(Row(pixels, y) + 4 * x))
                return false;
    return true;
}

static bool IsOpaque(const uint8_t *pixel)
{
    return pixel[3] == 255;
}

static bool IsGrey(const uint8_t *pixel)
{
    return pixel[0] == pixel[1] && pixel[1] == pixel[2];
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

constexpr uint8_t PNG_Filters = 5;
using PNG_ROWS = std::array<std::vector<uint8_t>, PNG_Filters>;  // filter byte and row, by filter

}  // namespace

static std::string Deflate(PNG_STREAM &stream, std::span<uint8_t> bytes, int flush)
{
    stream.Z.next_in = bytes.data();
    stream.Z.avail_in = static_cast<uInt>(bytes.size());
    int status = Z_OK;
    do {
        if (stream.Z.avail_out == 0) {
            const std::string reason =
                stream.Z.next_out ? PutChunk(stream.File, "IDAT", stream.Out) : "";
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

// Paeth filter, ISO/IEC 15948, 9.4: the one of left, above and upper left that is nearest to left +
// above - upper left.
static uint8_t Paeth(int a, int b, int c)
{
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    return static_cast<uint8_t>(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

// Filters a row in all ways and returns the one whose bytes, taken as signed, have the least sum.
static std::vector<uint8_t> &Filter(std::span<const uint8_t> row, std::span<const uint8_t> above,
                                    size_t step, PNG_ROWS &rows)
{
    for (uint8_t f = 0; f < PNG_Filters; f++) {
        rows[f].resize(row.size() + 1);
        rows[f][0] = f;
    }
    std::array<uint64_t, PNG_Filters> sums{};
    for (size_t i = 0; i < row.size(); i++) {
        const uint8_t a = i < step ? uint8_t{0} : row[i - step], b = above[i],
                      c = i < step ? uint8_t{0} : above[i - step];
        const std::array<uint8_t, PNG_Filters> guesses = {
            0, a, b, static_cast<uint8_t>((a + b) / 2), Paeth(a, b, c)};
        for (size_t f = 0; f < PNG_Filters; f++) {
            const auto byte = static_cast<uint8_t>(row[i] - guesses[f]);
            rows[f][i + 1] = byte;
            sums[f] += static_cast<uint64_t>(std::abs(static_cast<int8_t>(byte)));
        }
    }
    return rows[static_cast<size_t>(std::ranges::min_element(sums) - sums.begin())];
}

std::string Encode_PNG(const VIEWER_PIXELS &pixels, FILE *file)
{
    const bool grey = All(pixels, IsGrey), opaque = All(pixels, IsOpaque);
    const size_t colours = grey ? 1 : 3, step = colours + (opaque ? 0 : 1);
    constexpr std::array<uint8_t, 8> signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> head;
    PutNumber(head, pixels.Width, 4, true);
    PutNumber(head, pixels.Height, 4, true);
    const auto type = static_cast<uint8_t>((grey ? 0 : 2) | (opaque ? 0 : 4));
    head.insert(head.end(), {8, type, 0, 0, 0});
    std::string reason = Put(file, signature);
    if (reason.empty())
        reason = PutChunk(file, "IHDR", head);

    PNG_STREAM stream(file);
    if (deflateInit(&stream.Z, 6) != Z_OK)
        return "out of memory";
    PNG_ROWS rows;
    std::vector<uint8_t> row(step * pixels.Width), above(row.size());
    for (size_t y = 0; y < pixels.Height && reason.empty(); y++) {
        const uint8_t *from = Row(pixels, y);
        for (size_t x = 0; x < pixels.Width; x++, from += 4) {
            std::memcpy(row.data() + x * step, from, colours);
            if (!opaque)
                row[x * step + colours] = from[3];
        }
        reason = Deflate(stream, Filter(row, above, step, rows), Z_NO_FLUSH);
        std::swap(row, above);
    }
    if (reason.empty())
        reason = Deflate(stream, {}, Z_FINISH);
    return reason.empty() ? PutChunk(file, "IEND", {}) : reason;
}

std::string Encode_BMP(const VIEWER_PIXELS &pixels, FILE *file)
{
    constexpr uint32_t fileHeader = 14, version3 = 40, version4 = 108, bitFields = 3;
    const bool opaque = All(pixels, IsOpaque);
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
