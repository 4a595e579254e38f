#include "picture/tif_packing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "extra/reason.h"
#include "picture/bits.h"
#include "picture/fax.h"
#include "picture/inflate.h"
#include "picture/jpg.h"
#include "picture/packbits.h"
#include "picture/pixels.h"
#include "picture/tif_directory.h"
#include "picture/tif_kinds.h"

// LZW codes (TIFF 6.0, section 13).
constexpr uint32_t LZW_Clear = 256, LZW_End = 257, LZW_First = 258, LZW_MaxCodes = 4096;
// A strip's buffer has the alphabet in front, one byte of each value for the codes that are single
// bytes, and a margin at the end for the longest string and for copies in chunks.
constexpr size_t LZW_Alphabet = 256, LZW_Chunk = 16, LZW_Margin = LZW_MaxCodes + LZW_Chunk;

// A string: its start in the buffer, and its length from bit 32 on.
static uint64_t MakeString(size_t start, size_t length)
{
    return start | uint64_t{length} << 32;
}

// Expands LZW into `buffer`, between the alphabet and the margin; returns the bytes written there.
//
// Each code but the first adds a string to the dictionary: the previous code's string plus the
// first byte of its own. The output already holds exactly these bytes one after the other, so a
// string is only a place and a length in the output, one more than the previous code's. That last
// byte is deferred: `begun` is entered in the dictionary when the next code is read, before that
// code's string is written. If the next code is the new string itself, its last byte is still
// missing, and it equals the string's own first byte.
//
// Old-style codes fill bytes from the lowest bit and become wider when they must; the others fill
// bytes from the highest bit and become wider one code early.
template <bool OldStyle>
static size_t ExpandLZW(std::span<const uint8_t> in, std::span<uint8_t> buffer)
{
    std::array<uint64_t, LZW_MaxCodes + 1> strings;  // and one entry that is never read
    for (size_t i = 0; i < LZW_Alphabet; i++) {
        buffer[i] = static_cast<uint8_t>(i);
        strings[i] = MakeString(i, 1);
    }
    const size_t end = buffer.size() - LZW_Margin, last = in.size() * 8;
    uint8_t *const base = buffer.data();
    size_t position = LZW_Alphabet, bit = 0;
    // The first code has no previous one; the string that it adds goes to the place of LZW_End,
    // which is never read.
    constexpr uint32_t first = LZW_First - 1, grown = 1u << 9, early = OldStyle ? 0 : 1;
    uint32_t next = first, width = 9, widest = grown - early;
    uint64_t begun = 0;
    while (position < end && bit + width <= last) {
        const auto code = OldStyle
                              ? static_cast<uint32_t>(Bits_PeekLow(in, bit) & ((1u << width) - 1))
                              : static_cast<uint32_t>(Bits_PeekHigh(in, bit) >> (64 - width));
        bit += width;
        if (code == LZW_End)
            break;
        if (code == LZW_Clear) {
            next = first;
            width = 9;
            widest = grown - early;
            continue;
        }
        const bool added = next < LZW_MaxCodes;
        strings[next] = begun;
        next += added;
        if (next == widest) {
            width += width < 12;
            widest = (1u << width) - early;
        }
        if (code >= next)
            break;
        const size_t start = strings[code] & 0xFFFFFFFF, length = strings[code] >> 32;
        uint8_t *to = base + position;
        size_t i = 0;
        do {                                       // may write up to a chunk past the string
            std::array<uint8_t, LZW_Chunk> chunk;  // source and destination may overlap
            std::memcpy(chunk.data(), base + start + i, LZW_Chunk);
            std::memcpy(to + i, chunk.data(), LZW_Chunk);
            i += LZW_Chunk;
        } while (i < length);
        if (code == next - 1 && added)
            to[length - 1] = *to;  // the new string ends with its own first byte
        begun = MakeString(position, length + 1);
        position += length;
    }
    return std::min(position, end) - LZW_Alphabet;
}

// Old-style LZW streams begin with a clear code stored lowest bit first. The framework's rules do
// not support them.
static bool IsOldStyleLZW(std::span<const uint8_t> in)
{
    return TIF_Header.Rules == PICTURE_RULES_FORMAT && in.size() > 1 && in[0] == 0 &&
           in[1] % 2 != 0;
}

// Undoes the predictor: each byte is the difference from the byte Step before it.
template <size_t Step>
static void AddNeighbours(std::span<uint8_t> row)
{
    std::array<uint8_t, Step> sums{};
    for (size_t i = 0; i + Step <= row.size(); i += Step)
        for (size_t k = 0; k < Step; k++)
            row[i + k] = sums[k] = static_cast<uint8_t>(sums[k] + row[i + k]);
}

// The same for 16-bit words in the file's byte order.
static void AddNeighbourWords(std::span<uint8_t> row, size_t step)
{
    const size_t high = TIF_Header.ByteOrder == 'M' ? 0 : 1, low = 1 - high;
    for (size_t i = 2 * step; i + 1 < row.size(); i += 2) {
        const size_t before = i - 2 * step;
        const int sum =
            (row[before + high] + row[i + high]) * 256 + row[before + low] + row[i + low];
        row[i + high] = static_cast<uint8_t>(sum >> 8);
        row[i + low] = static_cast<uint8_t>(sum);
    }
}

static void UndoPredictor(std::span<uint8_t> strip, size_t rowBytes, size_t step)
{
    for (size_t at = 0; at < strip.size(); at += rowBytes) {
        const auto row = strip.subspan(at, std::min(rowBytes, strip.size() - at));
        if (TIF_Header.BitsPerSample == 16) {
            AddNeighbourWords(row, step);
            continue;
        }
        switch (step) {
        case 1:
            AddNeighbours<1>(row);
            break;
        case 3:
            AddNeighbours<3>(row);
            break;
        case 4:
            AddNeighbours<4>(row);
            break;
        default:
            for (size_t i = step; i < row.size(); i++)
                row[i] = static_cast<uint8_t>(row[i] + row[i - step]);
        }
    }
}

static FAX_SCHEME FaxScheme()
{
    const TIF_HEADER &h = TIF_Header;
    switch (h.Compression) {
    case TIF_Huffman:
        return FAX_Bytes;
    case TIF_HuffmanWords:
        return FAX_Words;
    case TIF_Group4:
        return FAX_Group4;
    default:
        return h.FaxOptions % 2 != 0 ? FAX_Group3TwoD : FAX_Group3;
    }
}

// The stream's samples; YCbCr becomes RGB. If the stream has another width or number of samples
// than the strip, only what they share is used.
static std::span<const uint8_t> ExpandJPEG(std::span<const uint8_t> stored,
                                           std::span<const uint8_t> tables, size_t size,
                                           size_t width, size_t step, TIF_BUFFERS &buffers)
{
    if (stored.empty())
        return {};
    constexpr uint64_t free = 1 << 16;  // pixels that every stream may have
    const uint64_t pixels = uint64_t{TIF_Header.TileWidth} * TIF_Header.RowsPerStrip;
    JPG_STREAM jpeg = JPG_DecodeStream(tables, stored, TIF_Header.Photometric == TIF_YCbCr,
                                       std::max(pixels, free));
    if (jpeg.Samples.empty())
        return {};
    buffers.Expanded = std::move(jpeg.Samples);
    if (jpeg.Width == width && jpeg.Components == step)
        return std::span(buffers.Expanded).first(std::min(size, buffers.Expanded.size()));
    const size_t rows = std::min<size_t>(jpeg.Height, size / (width * step));
    BYTES_BUFFER &out = buffers.Mirrored;
    out.assign(rows * width * step, 0);
    for (size_t y = 0; y < rows; y++)
        for (size_t x = 0; x < std::min<size_t>(jpeg.Width, width); x++)
            std::copy_n(buffers.Expanded.begin() +
                            static_cast<ptrdiff_t>((y * jpeg.Width + x) * jpeg.Components),
                        std::min<size_t>(jpeg.Components, step),
                        out.begin() + static_cast<ptrdiff_t>((y * width + x) * step));
    return out;
}

std::span<const uint8_t> TIF_Expand(std::span<const uint8_t> stored,
                                    std::span<const uint8_t> tables, size_t size, size_t width,
                                    size_t step, TIF_BUFFERS &buffers, std::span<uint8_t> out)
{
    const TIF_HEADER &h = TIF_Header;
    if (h.Compression == TIF_JPEG)
        return ExpandJPEG(stored, tables, size, width, step, buffers);
    if (h.FillOrder == 2) {
        buffers.Mirrored.resize(stored.size());
        std::transform(stored.begin(), stored.end(), buffers.Mirrored.begin(),
                       [](uint8_t byte) { return Bits_Mirror[byte]; });
        stored = buffers.Mirrored;
    }
    if (h.Compression == TIF_Plain || stored.empty())
        return stored.first(std::min(stored.size(), size));
    if (out.size() < size || h.Compression == TIF_LZW) {
        buffers.Expanded.resize(LZW_Alphabet + size + LZW_Margin);
        out = std::span(buffers.Expanded).subspan(LZW_Alphabet, size);
    } else {
        out = out.first(size);
    }
    switch (h.Compression) {
    case TIF_PackBits:
        return out.first(PackBits_Expand(stored, out));
    case TIF_LZW:
        out = out.first(IsOldStyleLZW(stored) ? ExpandLZW<true>(stored, buffers.Expanded)
                                              : ExpandLZW<false>(stored, buffers.Expanded));
        break;
    case TIF_Deflate:
    case TIF_OldDeflate:
        out = out.first(Inflate_All(stored, out).Size);
        break;
    default: {
        const FAX_RESULT fax = FAX_Expand(stored, FaxScheme(), width, out);
        const size_t rowBytes = (width + 7) / 8, rows = size / rowBytes;
        if (fax.Damaged || fax.Rows < rows)
            Reason_Set("%s data %s, %zu of %zu rows", TIF_FindPacking(h.Compression)->Name,
                       fax.Damaged ? "damaged" : "cut", fax.Rows, rows);
        std::fill(out.begin() + static_cast<ptrdiff_t>(fax.Rows * rowBytes), out.end(), uint8_t{0});
        return out;  // missing rows are white
    }
    }
    if (h.Predictor == 2)
        UndoPredictor(out, (width * step * h.BitsPerSample + 7) / 8, step);
    return out;
}
