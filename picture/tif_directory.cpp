#include "picture/tif_directory.h"

#include <algorithm>
#include <unordered_set>

#include "extra/reason.h"
#include "picture/pixels.h"
#include "picture/tif_kinds.h"

constinit thread_local TIF_HEADER TIF_Header{};
constinit thread_local BYTES_BUFFER TIF_File{};
constinit thread_local size_t TIF_Position{};
constinit thread_local uint32_t TIF_Page{}, TIF_PageCount{};

bool TIF_ByFormat()
{
    return TIF_Header.Rules == PICTURE_RULES_FORMAT;
}

uint8_t TIF_GetByte()
{
    return Bytes_GetByte(TIF_File, TIF_Position);
}

uint16_t TIF_GetWord()
{
    return static_cast<uint16_t>(TIF_Header.ByteOrder == 'M'
                                     ? Bytes_GetBig(TIF_File, TIF_Position, 2)
                                     : Bytes_GetLittle(TIF_File, TIF_Position, 2));
}

uint32_t TIF_GetDWord()
{
    return TIF_Header.ByteOrder == 'M' ? Bytes_GetBig(TIF_File, TIF_Position, 4)
                                       : Bytes_GetLittle(TIF_File, TIF_Position, 4);
}

static uint64_t GetQWord()
{
    const uint64_t first = TIF_GetDWord(), second = TIF_GetDWord();
    return TIF_Header.ByteOrder == 'M' ? first << 32 | second : second << 32 | first;
}

static bool IsBig()
{
    return TIF_ByFormat() && TIF_Header.Magic == TIF_Big;
}

// A count or an offset: 4 bytes, in BigTIFF 8.
static uint64_t GetOffset()
{
    return IsBig() ? GetQWord() : TIF_GetDWord();
}

// Bytes of a value, by type; 0 for types that the rules do not support.
static size_t TypeSize(uint16_t type)
{
    constexpr std::array<uint8_t, 19> sizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4,
                                               8, 4, 8, 4, 0, 0, 8, 8, 8};
    constexpr size_t framework = 6;
    return type < (TIF_ByFormat() ? sizes.size() : framework) ? sizes[type] : 0;
}

static TIF_ENTRY ReadEntry()
{
    TIF_ENTRY e{};
    e.Tag = TIF_GetWord();
    e.Type = TIF_GetWord();
    e.Count = GetOffset();
    const size_t size = TypeSize(e.Type), room = IsBig() ? 8 : 4;
    e.ByteSize = size != 0 && e.Count <= UINT64_MAX / size ? e.Count * size : 0;
    e.Position = TIF_Position;
    e.Value = GetOffset();
    if (e.ByteSize > room)
        e.Position = static_cast<size_t>(e.Value);
    return e;
}

// Moves to the directory at an offset and returns its number of entries.
static uint64_t BeginDirectory(uint64_t offset)
{
    TIF_Position = static_cast<size_t>(offset);
    return IsBig() ? GetQWord() : TIF_GetWord();
}

// Follows the chain of directories and returns the offset of the selected page, 0 without such a
// page. Counts the pages; a cyclic chain ends at the first repetition.
static uint64_t FindPage(uint64_t offset)
{
    const uint32_t wanted = TIF_ByFormat() ? TIF_Page : 0;
    uint64_t found = 0;
    std::unordered_set<uint64_t> seen;
    TIF_PageCount = 0;
    while (offset != 0 && offset < TIF_File.size() && TIF_PageCount < TIF_MaxPages &&
           seen.insert(offset).second) {
        if (TIF_PageCount++ == wanted)
            found = offset;
        const uint64_t count = BeginDirectory(offset), size = IsBig() ? 20 : 12;
        if (count > TIF_File.size() / size)
            break;
        TIF_Position += static_cast<size_t>(count * size);
        offset = GetOffset();
    }
    return found;
}

static void ReadDirectories()
{
    TIF_HEADER &h = TIF_Header;
    TIF_Position = 0;
    h.ByteOrder = TIF_GetByte();
    TIF_Position++;  // the byte-order letter is repeated
    h.Magic = TIF_GetWord();
    if (IsBig())
        TIF_Position += 4;  // offset size, 8, and a 0
    const uint64_t first = GetOffset(), page = FindPage(first);
    h.NextDirectory = TIF_ByFormat() ? page : first;
    while (h.NextDirectory != 0 && h.DirectoryCount < h.Directories.size()) {
        TIF_IFD &directory = h.Directories[h.DirectoryCount++];
        const uint64_t count = BeginDirectory(h.NextDirectory);
        for (uint64_t i = 0; i < count && TIF_Position < TIF_File.size(); i++)
            directory.Entries.push_back(ReadEntry());
        directory.Next = h.NextDirectory = GetOffset();
    }
}

const TIF_ENTRY *TIF_Find(TIF_TAG tag)
{
    const auto &entries = TIF_Header.Directories[0].Entries;
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [tag](const TIF_ENTRY &e) { return e.Tag == tag; });
    return found != entries.end() ? &*found : nullptr;
}

uint64_t TIF_GetValue(const TIF_ENTRY *entry, size_t i)
{
    if (!entry || i >= entry->Count || entry->ByteSize == 0)
        return 0;
    TIF_Position = entry->Position + i * TypeSize(entry->Type);
    switch (entry->Type) {
    case 3:
    case 8:
        return TIF_GetWord();
    case 4:
    case 9:
    case 13:
        return TIF_GetDWord();
    case 16:
    case 17:
    case 18:
        return GetQWord();
    default:
        return TIF_GetByte();
    }
}

double TIF_GetFraction(const TIF_ENTRY *entry, size_t i)
{
    TIF_Position = entry->Position + i * 8;
    const double above = TIF_GetDWord();
    return above / TIF_GetDWord();
}

uint16_t TIF_GetTag(TIF_TAG tag, uint16_t missing)
{
    const TIF_ENTRY *entry = TIF_Find(tag);
    const uint64_t value = entry ? TIF_GetValue(entry, 0) : missing;
    return value <= 0xFFFF ? static_cast<uint16_t>(value) : uint16_t{0};
}

// Framework: if the first two values agree and the third is not 0 they are taken, else 8.
static uint16_t FrameworkBits(const TIF_ENTRY *entry)
{
    if (!entry || entry->ByteSize < 5)
        return TIF_GetTag(TIF_BitsPerSample, 0);
    auto &list = TIF_Header.SampleBits;
    TIF_Position = entry->Position;
    for (uint16_t &sample : list)
        sample = TIF_GetWord();
    return list[0] == list[1] && list[2] != 0 ? list[0] : uint16_t{8};
}

// Format: the samples' values must be equal; 0 if they are not. Further values are ignored.
static uint16_t FormatBits(const TIF_ENTRY *entry)
{
    const uint16_t bits = TIF_GetTag(TIF_BitsPerSample, 1);
    const uint64_t samples = std::min<uint64_t>(TIF_GetTag(TIF_SamplesPerPixel, 1), TIF_MaxSamples);
    auto &list = TIF_Header.SampleBits;
    for (size_t i = 0; entry && i < std::min(entry->Count, samples); i++) {
        const uint64_t value = TIF_GetValue(entry, i);
        if (i < list.size())
            list[i] = static_cast<uint16_t>(value);
        if (value != bits) {
            Reason_Set("samples of different sizes");
            return 0;
        }
    }
    return bits;
}

static void ReadDocumentName()
{
    const TIF_ENTRY *entry = TIF_Find(TIF_DocumentName);
    auto &name = TIF_Header.DocumentName;
    for (size_t i = 0; entry && i < std::min<uint64_t>(entry->Count, name.size() - 1); i++)
        name[i] = static_cast<char>(TIF_GetValue(entry, i));
}

static uint16_t ColourSamples()
{
    const TIF_COLOURS *colours = TIF_FindColours(TIF_Header.Photometric);
    return colours ? colours->Samples : uint16_t{1};
}

// Framework: files without a photometric interpretation are RGB.
static uint16_t FrameworkSamples()
{
    return TIF_GetTag(TIF_Photometric, TIF_RGB) != TIF_RGB ? 1 : 3;
}

// Framework: the kind of the sample after the colours is as stated, plain alpha if nothing is
// stated.
static uint16_t FrameworkAlpha()
{
    return TIF_Header.Photometric != TIF_Palette ? TIF_GetTag(TIF_ExtraSamples, 2) : uint16_t{0};
}

// Format: it is always alpha, even if declared unspecified, as in other decoders.
static uint16_t FormatAlpha()
{
    return TIF_GetTag(TIF_ExtraSamples, 2) == 1 ? 1 : 2;
}

// Samples and photometric interpretation, with defaults for files without these tags.
static void ReadSamples()
{
    TIF_HEADER &h = TIF_Header;
    const TIF_ENTRY *bits = TIF_Find(TIF_BitsPerSample);
    const bool list = bits && bits->Count >= 3 && bits->Count <= TIF_MaxSamples;
    const auto samples = static_cast<uint16_t>(list             ? bits->Count
                                               : TIF_ByFormat() ? 1
                                                                : FrameworkSamples());
    h.Samples = TIF_GetTag(TIF_SamplesPerPixel, samples);
    const TIF_PACKING *packing = TIF_FindPacking(h.Compression);
    const bool fax = TIF_ByFormat() && packing && packing->Fax;
    h.Photometric = TIF_GetTag(TIF_Photometric, h.Samples >= 3 ? TIF_RGB
                                                : fax          ? TIF_WhiteIs0
                                                               : TIF_BlackIs0);
    if (h.Samples > ColourSamples())
        h.Alpha = TIF_ByFormat() ? FormatAlpha() : FrameworkAlpha();
}

// Strips are treated as tiles as wide as the picture.
static void ReadTiles()
{
    TIF_HEADER &h = TIF_Header;
    h.Tiled = TIF_Find(TIF_TileWidth) != nullptr;
    const TIF_ENTRY *strips = TIF_Find(TIF_StripOffsets);
    if (h.Tiled) {
        h.TileWidth = TIF_GetTag(TIF_TileWidth, 0);
        h.RowsPerStrip = TIF_GetTag(TIF_TileLength, 0);
        if (const TIF_ENTRY *tiles = TIF_Find(TIF_TileOffsets))
            strips = tiles;
    } else {
        const uint64_t rows = TIF_GetValue(strips ? TIF_Find(TIF_RowsPerStrip) : nullptr, 0);
        h.TileWidth = h.Width;
        h.RowsPerStrip = rows != 0 && rows < h.Height ? static_cast<uint32_t>(rows) : h.Height;
    }
    h.DataPosition = strips ? static_cast<uint32_t>(TIF_GetValue(strips, 0)) : TIF_HeaderSize;
}

void TIF_ReadHeader()
{
    TIF_HEADER &h = TIF_Header;
    h = {};
    h.Rules = Picture_Rules;
    ReadDirectories();
    h.Width = TIF_GetTag(TIF_ImageWidth, 0);
    h.Height = TIF_GetTag(TIF_ImageLength, 0);
    h.OutputSize = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    const TIF_ENTRY *entry = TIF_Find(TIF_BitsPerSample);
    const uint16_t bits = TIF_ByFormat() ? FormatBits(entry) : FrameworkBits(entry);
    h.BitsPerSample = bits <= 0xFF ? static_cast<uint8_t>(bits) : uint8_t{0};
    h.Compression = TIF_GetTag(TIF_Compression, TIF_Plain);
    ReadDocumentName();
    ReadSamples();
    h.Planar = TIF_GetTag(TIF_PlanarConfiguration, 1) == 2 && h.Samples > 1;
    h.Predictor = TIF_GetTag(TIF_Predictor, 1);
    h.FillOrder = TIF_GetTag(TIF_FillOrder, 1);
    h.Orientation = TIF_GetTag(TIF_Orientation, 1);
    h.FaxOptions = TIF_GetTag(TIF_T4Options, 0);
    h.Subsampling = {1, 1};
    if (h.Photometric == TIF_YCbCr && h.Compression != TIF_JPEG) {
        const TIF_ENTRY *subsampling = TIF_Find(TIF_YCbCrSubsampling);
        for (size_t i = 0; i < 2; i++)
            h.Subsampling[i] =
                subsampling ? static_cast<uint8_t>(TIF_GetValue(subsampling, i)) : uint8_t{2};
    }
    ReadTiles();
}

size_t TIF_CountValues(const TIF_ENTRY &entry)
{
    const size_t there = Bytes_GetSpan(TIF_File, entry.Position, entry.ByteSize).size();
    const size_t size = TypeSize(entry.Type);
    return size == 0 ? 0 : there / size;
}
