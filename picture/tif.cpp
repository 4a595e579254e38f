#include "picture/tif.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "extra/reason.h"
#include "picture/pixels.h"
#include "picture/tif_colour.h"
#include "picture/tif_kinds.h"
#include "picture/tif_packing.h"

// How many times the file's size its overlapping strips may add up to. The limit is lower for JPEG
// streams, which cost more; their shared tables count, too, unless smaller than 2 KiB.
constexpr uint64_t TIF_MaxOverlap = 8, TIF_MaxOverlapOfJPEG = 2;
constexpr size_t TIF_FreeTables = 2048;

static const TIF_PACKING *Packing()
{
    return TIF_FindPacking(TIF_Header.Compression);
}

namespace
{

// The picture as a grid of strips or tiles, each with one plane or one per sample.
struct TIF_GRID {
    size_t Across, Down, Planes;
    size_t Step;       // bytes or words from a pixel to the next within a plane
    size_t LineCount;  // pixel rows in a row of data units
    size_t LineBytes;  // of a row of data units
    size_t UnitBytes;  // 0: a data unit is one pixel

    TIF_GRID()
    {
        const TIF_HEADER &h = TIF_Header;
        Across = (h.Width + size_t{h.TileWidth} - 1) / h.TileWidth;
        Down = (h.Height + size_t{h.RowsPerStrip} - 1) / h.RowsPerStrip;
        Planes = h.Planar ? h.Samples : 1;
        Step = h.Planar ? 1 : h.Samples;
        const size_t across = h.Subsampling[0];
        LineCount = h.Subsampling[1];
        UnitBytes = across * LineCount > 1 ? across * LineCount + 2 : 0;
        LineBytes = UnitBytes != 0 ? (h.TileWidth + across - 1) / across * UnitBytes
                                   : (h.TileWidth * Step * h.BitsPerSample + 7) / 8;
    }

    size_t RowsOf(size_t chunk) const  // in the picture
    {
        const TIF_HEADER &h = TIF_Header;
        return std::min<size_t>(h.RowsPerStrip, h.Height - chunk / Across * h.RowsPerStrip);
    }

    size_t BytesOf(size_t chunk) const
    {
        return (RowsOf(chunk) + LineCount - 1) / LineCount * LineBytes;
    }
};

}  // namespace

namespace
{

// Positions and sizes of the strips or tiles.
struct TIF_STRIPS {
    const TIF_ENTRY *Offsets = FindOf(TIF_StripOffsets, TIF_TileOffsets);
    const TIF_ENTRY *ByteCounts = FindOf(TIF_StripByteCounts, TIF_TileByteCounts);
    const TIF_ENTRY *Tables = TIF_Find(TIF_JPEGTables);
    const TIF_GRID Grid{};
    size_t Count = std::min(Offsets          ? TIF_CountValues(*Offsets)
                            : TIF_ByFormat() ? 0
                                             : 1,
                            Grid.Planes *Grid.Across *Grid.Down);

    // Some tiled files use the tags of strips.
    static const TIF_ENTRY *FindOf(TIF_TAG strips, TIF_TAG tiles)
    {
        const TIF_ENTRY *entry = TIF_Header.Tiled ? TIF_Find(tiles) : nullptr;
        return entry ? entry : TIF_Find(strips);
    }

    // The stored bytes of a strip, at most as many as can be of use.
    std::span<const uint8_t> operator()(size_t index) const
    {
        if (index >= Count)
            return {};
        const size_t whole = Grid.BytesOf(index % (Grid.Across * Grid.Down));
        const bool plain = TIF_Header.Compression == TIF_Plain;
        const bool free = Packing()->Fax || TIF_Header.Compression == TIF_JPEG;
        const size_t most = plain ? whole : free ? SIZE_MAX : 2 * whole + 1024;
        size_t count = ByteCounts ? TIF_GetValue(ByteCounts, index) : SIZE_MAX;
        const size_t offset = Offsets ? TIF_GetValue(Offsets, index) : TIF_HeaderSize;
        if (count == 0 && TIF_ByFormat() && offset != 0)
            count = SIZE_MAX;
        return Bytes_GetSpan(TIF_File, offset, std::min(count, most));
    }

    // Number of strips or tiles, counted from the first, that have all planes.
    size_t CountWhole() const
    {
        const size_t others = (Grid.Planes - 1) * Grid.Across * Grid.Down;
        return Count > others ? Count - others : 0;
    }

    std::span<const uint8_t> SharedTables() const
    {
        return Tables ? Bytes_GetSpan(TIF_File, Tables->Position, Tables->ByteSize)
                      : std::span<const uint8_t>();
    }
};

}  // namespace

// Returns `holds`; sets the reason if it is false.
template <typename... Values>
static bool Demand(bool holds, const char *reason, Values... values)
{
    if (holds)
        return true;
    if constexpr (sizeof...(values) == 0)
        Reason_Set("%s", reason);
    else
        Reason_Set(reason, values...);
    return false;
}

// Whether the header describes a supported picture; sets the reason if not.
static bool IsSupported()
{
    const TIF_HEADER &h = TIF_Header;
    const TIF_PACKING *packing = Packing();
    const TIF_COLOURS *colours = TIF_FindColours(h.Photometric);
    const bool format = TIF_ByFormat();
    if (!packing)
        return Demand(false, "compression %u", h.Compression);
    if (packing->Ratio == 0 || (!format && !packing->Framework))
        return Demand(false, "%s compression", packing->Name);
    if (!colours)
        return Demand(false, "photometric interpretation %u", h.Photometric);
    if (colours->Samples == 0 || (!format && !colours->Framework))
        return Demand(false, "%s colours", colours->Name);
    if (packing->Predictor && h.Predictor != 1 && h.Predictor != 2)
        return Demand(false, "predictor %u", h.Predictor);
    if (h.Samples < colours->Samples || h.Samples > TIF_MaxSamples)
        return Demand(false, "%u samples a pixel", h.Samples);
    if (!format)
        return Demand(h.BitsPerSample == 8, "%u bits a sample", h.BitsPerSample) &&
               Demand(!h.Tiled, "tiles");
    const bool differences = packing->Predictor && h.Predictor == 2;
    const bool whole = h.BitsPerSample == 8 || h.BitsPerSample == 16;
    const bool bytes = h.BitsPerSample == 8;
    const auto isFactor = [](uint8_t n) { return n == 1 || n == 2 || n == 4; };
    const bool subsampled = h.Subsampling != std::array<uint8_t, 2>{1, 1};
    return Demand(h.Magic == TIF_Small || h.Magic == TIF_Big, "magic number %u", h.Magic) &&
           Demand(TIF_GetTag(TIF_SampleFormat, 1) != 3, "floating point") &&
           Demand(h.BitsPerSample >= 1 && h.BitsPerSample <= 16, "%u bits a sample",
                  h.BitsPerSample) &&
           Demand(h.Photometric != TIF_Palette || h.BitsPerSample <= 8,
                  "%u bits a sample of a palette", h.BitsPerSample) &&
           Demand(!differences || whole, "differences of %u bits", h.BitsPerSample) &&
           Demand(!packing->Fax || (h.BitsPerSample == 1 && (h.Samples == 1 || h.Planar)),
                  "%s compression of more than a bit a pixel", packing->Name) &&
           Demand(h.Compression != TIF_JPEG || bytes, "JPEG of %u bits", h.BitsPerSample) &&
           Demand(isFactor(h.Subsampling[0]) && isFactor(h.Subsampling[1]),
                  "chroma subsampling of %u by %u", h.Subsampling[0], h.Subsampling[1]) &&
           Demand(!subsampled || (bytes && !h.Planar && h.Samples == 3),
                  "subsampled chroma that is planar or of %u bits", h.BitsPerSample) &&
           Demand(h.TileWidth != 0 && h.RowsPerStrip != 0, "tiles of no size");
}

// Memory for expanding a strip or tile with all its planes. JPEG streams need samples, pixels and
// coefficients.
static uint64_t ChunkMemory(const TIF_GRID &grid)
{
    constexpr uint64_t ofJPEG = 4;
    const uint64_t bytes = grid.BytesOf(0) * grid.Planes;
    return TIF_Header.Compression == TIF_Plain  ? 0
           : TIF_Header.Compression == TIF_JPEG ? bytes * ofJPEG
                                                : bytes;
}

static bool IsPossible()
{
    const TIF_HEADER &h = TIF_Header;
    if (h.DirectoryCount == 0 && TIF_ByFormat() && TIF_PageCount > 0)
        return Demand(false, "page %u of %u", TIF_Page + 1, TIF_PageCount);
    if (h.Width == 0 || h.Height == 0)
        return Demand(false, "a side of 0 pixels, or more than 65535");
    if (!IsSupported())
        return false;
    const TIF_STRIPS strips;
    const size_t tables = strips.SharedTables().size();
    uint64_t stored = 0, used = 0;
    for (size_t index = 0; index < strips.Count; index++) {
        const size_t size = strips(index).size();
        stored += size;
        used += size + (size != 0 && tables > TIF_FreeTables ? tables : 0);
    }
    const uint64_t file = TIF_File.size();
    const uint64_t held = std::min(stored, file) * Packing()->Ratio;
    const uint64_t columns = strips.Grid.Across * h.TileWidth;  // including those outside
    const uint64_t pixels = held * 8 / (uint64_t{h.Samples} * h.BitsPerSample) * h.Width / columns;
    const uint64_t overlap = h.Compression == TIF_JPEG ? TIF_MaxOverlapOfJPEG : TIF_MaxOverlap;
    const uint64_t chunk = ChunkMemory(strips.Grid);
    return Demand(stored != 0, "no pixels stored") &&
           Demand(used <= overlap * file, "strips that overlap") &&
           Demand(strips.Grid.BytesOf(0) * strips.Grid.Planes <= Picture_MaxBytes,
                  "strips of more than %zu MiB", Picture_MaxBytes >> 20) &&
           Picture_Believes({h.Width, h.Height, pixels, file, chunk});
}

void TIF_Load(const char *path)
{
    const bool loaded = Reason_Guard([path] {
        TIF_File = Bytes_LoadFile(path);
        TIF_ReadHeader();
        return !TIF_File.empty() && IsPossible();
    });
    if (!loaded)
        TIF_File = BYTES_BUFFER();
}

// Framework: colours that a palette lacks are black. Format: an incomplete palette is ignored, and
// the picture is grey.
static const TIF_ENTRY *FindPalette(size_t colours)
{
    const TIF_ENTRY *map = TIF_Header.Photometric == TIF_Palette ? TIF_Find(TIF_ColorMap) : nullptr;
    return map && (map->Count >= 3 * colours || !TIF_ByFormat()) ? map : nullptr;
}

// The colours of the samples of grey and palette pictures. Palettes have 16 bits a component; if
// all high bytes are 0, the writer used 8 bits.
static void ReadPalette(TIF_PAINT &paint)
{
    const TIF_HEADER &h = TIF_Header;
    const size_t count = size_t{1} << std::min<size_t>(h.BitsPerSample, 8);
    const TIF_ENTRY *map = FindPalette(count);
    bool wide = false;
    for (size_t i = 0; map && i < 3 * count && !wide; i++)
        wide = TIF_GetValue(map, i) > 0xFF;
    paint.Palette.resize(256);
    for (size_t i = 0; i < paint.Palette.size(); i++) {
        const auto grey = static_cast<uint8_t>(h.Photometric == TIF_WhiteIs0 ? 255 - i : i);
        paint.Palette[i] = {grey, grey, grey, 255};
        for (size_t c = 0; map && c < 3; c++)
            paint.Palette[i][c] =
                static_cast<uint8_t>(TIF_GetValue(map, c * count + i % count) >> (wide ? 8 : 0));
    }
}

static TIF_YCBCR ReadYCbCr()
{
    TIF_YCBCR ycbcr;
    const TIF_ENTRY *luma = TIF_Find(TIF_YCbCrCoefficients),
                    *range = TIF_Find(TIF_ReferenceBlackWhite);
    if (luma && luma->ByteSize == 24)
        for (size_t i = 0; i < 3; i++)
            ycbcr.Luma[i] = TIF_GetFraction(luma, i);
    if (range && range->ByteSize == 48)
        for (size_t i = 0; i < 6; i++)
            ycbcr.Reference[i] = TIF_GetFraction(range, i);
    const auto isFinite = [](double value) { return std::isfinite(value); };
    const auto &ref = ycbcr.Reference;
    if (!std::ranges::all_of(ycbcr.Luma, isFinite) || ycbcr.Luma[1] == 0)
        ycbcr.Luma = TIF_YCBCR().Luma;
    if (!std::ranges::all_of(ref, isFinite) || ref[0] == ref[1] || ref[2] == ref[3] ||
        ref[4] == ref[5])
        ycbcr.Reference = TIF_YCBCR().Reference;
    return ycbcr;
}

// Framework: associated alpha is divided out. Format: colours stay as stored.
static bool DividesAlpha()
{
    return TIF_Header.Alpha == 1 && !TIF_ByFormat();
}

// Whether the expanded bytes are RGBA pixels already, except for associated alpha.
static bool AreBytesPixels()
{
    const TIF_HEADER &h = TIF_Header;
    return h.Photometric == TIF_RGB && h.Samples == 4 && h.Alpha != 0 && h.BitsPerSample == 8 &&
           !h.Planar && !h.Tiled && h.Compression != TIF_JPEG;
}

using TIF_PLANES = std::vector<std::span<const uint8_t>>;

// Paints `count` pixels from the `left` bytes at `at` in every plane.
static void PaintPixels(TIF_PAINT &paint, const TIF_GRID &grid, const TIF_PLANES &planes, size_t y,
                        size_t at, size_t left, size_t count, uint8_t *out)
{
    const TIF_HEADER &h = TIF_Header;
    TIF_ROW row{{}, grid.UnitBytes != 0 ? 3 : grid.Step};
    const size_t used = std::min<size_t>(h.Samples, row.Samples.size());
    for (size_t p = 0; p < std::min(planes.size(), used); p++) {
        const auto bytes = planes[p].subspan(at, left);
        const uint8_t *first = grid.UnitBytes != 0
                                   ? TIF_UnpackUnits(paint, bytes, y % grid.LineCount, count)
                                   : TIF_Unpack(paint, p, bytes, count * grid.Step);
        for (size_t c = p; c < (h.Planar ? p + 1 : used); c++)
            row.Samples[c] = first + (c - p);
    }
    TIF_PaintRow(paint, row, count, out);
    if (DividesAlpha())
        TIF_DivideByAlpha(count, out);
}

// Paints one strip or tile, from all its planes, into `columns` of each row of the picture. Pixels
// that some plane lacks are transparent. Returns whether the strip or tile is complete.
static bool PaintChunk(TIF_PAINT &paint, const TIF_GRID &grid, const TIF_PLANES &planes,
                       size_t rows, size_t columns, uint8_t *out)
{
    const TIF_HEADER &h = TIF_Header;
    size_t size = SIZE_MAX, least = columns, y = 0;
    for (const auto &plane : planes)
        size = std::min(size, plane.size());
    if (columns == h.Width && h.TileWidth == h.Width && h.BitsPerSample == 8 &&
        grid.UnitBytes == 0) {
        y = std::min(rows, size / grid.LineBytes);  // rows are contiguous in both
        if (y != 0)
            PaintPixels(paint, grid, planes, 0, 0, y * grid.LineBytes, y * columns, out);
    }
    for (out += y * h.Width * 4; y < rows; y++, out += size_t{h.Width} * 4) {
        const size_t at = std::min(y / grid.LineCount * grid.LineBytes, size);
        const size_t left = std::min(size - at, grid.LineBytes);
        const size_t there = grid.UnitBytes != 0 ? left / grid.UnitBytes * h.Subsampling[0]
                                                 : left * 8 / h.BitsPerSample / grid.Step;
        const size_t count = std::min(columns, there);
        least = std::min(least, count);
        if (count != 0)
            PaintPixels(paint, grid, planes, y, at, left, count, out);
        std::memset(out + 4 * count, 0, 4 * (columns - count));
    }
    return least == columns;
}

static uint8_t *Decode()
{
    const TIF_HEADER &h = TIF_Header;
    if (TIF_File.empty())
        return nullptr;
    PICTURE_PIXELS pixels(h.Tiled ? Picture_NewPixels(h.Width, h.Height)
                                  : Picture_NewUnsetPixels(h.Width, h.Height));
    if (!pixels)
        return nullptr;
    const TIF_STRIPS strips;
    const TIF_GRID &grid = strips.Grid;
    const auto paint = std::make_unique<TIF_PAINT>();
    ReadPalette(*paint);
    const bool converted = h.Compression == TIF_JPEG && h.Photometric == TIF_YCbCr && !h.Planar;
    TIF_InitPaint(*paint, converted ? uint16_t{TIF_RGB} : h.Photometric, ReadYCbCr());
    std::vector<TIF_BUFFERS> buffers(grid.Planes);
    TIF_PLANES planes(grid.Planes);
    const size_t count = grid.Across * grid.Down, whole = strips.CountWhole();
    size_t missing = count - whole;
    for (size_t chunk = 0; chunk < whole; chunk++) {
        const size_t x = chunk % grid.Across * h.TileWidth;
        const size_t y = chunk / grid.Across * h.RowsPerStrip, rows = grid.RowsOf(chunk);
        const size_t columns = std::min<size_t>(h.TileWidth, h.Width - x);
        uint8_t *out = pixels.get() + (y * h.Width + x) * 4;
        const auto room = AreBytesPixels() ? std::span(out, rows * h.Width * 4) : std::span(out, 0);
        for (size_t p = 0; p < grid.Planes; p++)
            planes[p] = TIF_Expand(strips(p * count + chunk), strips.SharedTables(),
                                   grid.BytesOf(chunk), h.TileWidth, grid.Step, buffers[p], room);
        missing += !PaintChunk(*paint, grid, planes, rows, columns, out);
    }
    if (!h.Tiled) {
        const size_t rows = std::min<size_t>(whole * h.RowsPerStrip, h.Height);
        std::memset(pixels.get() + rows * h.Width * 4, 0, (h.Height - rows) * h.Width * 4);
    }
    if (missing != 0)
        Reason_Set("%zu of %zu %s are cut short or missing", missing, count,
                   h.Tiled ? "tiles" : "strips");
    return pixels.release();
}

uint8_t *TIF_Decoding()
{
    return Reason_Guard(Decode);
}

void TIF_UnLoad()
{
    TIF_File = BYTES_BUFFER();
}

TIF_HEADER *TIF_GetHeader(TIF_HEADER *out)
{
    *out = TIF_Header;
    return out;
}
