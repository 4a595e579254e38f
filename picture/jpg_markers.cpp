#include "picture/jpg_markers.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "picture/pixels.h"

constinit thread_local JPG_HEADER JPG_Header{};
constinit thread_local JPG_DECODER JPG_Decoder{};
constinit thread_local JPG_EXIF JPG_Exif{};
constinit thread_local BYTES_BUFFER JPG_File{};
constinit thread_local size_t JPG_Position{};

const std::array<const char *, 6> JPG_Modes = {
    "UNKNOWN",
    "Baseline DCT",
    "Progressive DCT [1stDC]",
    "Progressive DCT [DCrefine]",
    "Progressive DCT [1stAC]",
    "Progressive DCT [ACrefine]",
};

// ITU-T T.81, figure A.6, walked diagonal by diagonal.
static constexpr std::array<uint8_t, 64> MakeZigZag()
{
    std::array<uint8_t, 64> order{};
    size_t count = 0;
    for (int diagonal = 0; diagonal < 15; diagonal++)
        for (int i = 0; i <= diagonal; i++) {
            const int row = diagonal % 2 == 0 ? diagonal - i : i, column = diagonal - row;
            if (row < 8 && column < 8)
                order[count++] = static_cast<uint8_t>(8 * row + column);
        }
    return order;
}

static constexpr std::array<uint8_t, 64> Inverse(const std::array<uint8_t, 64> &order)
{
    std::array<uint8_t, 64> inverse{};
    for (size_t i = 0; i < order.size(); i++)
        inverse[order[i]] = static_cast<uint8_t>(i);
    return inverse;
}

static constexpr std::array<uint8_t, 64> JPG_ZigZagOrder = MakeZigZag();
const std::array<uint8_t, 64> JPG_ZigZag = JPG_ZigZagOrder, JPG_ZigZag2 = Inverse(JPG_ZigZagOrder);
static_assert(JPG_ZigZagOrder[1] == 1 && JPG_ZigZagOrder[2] == 8 && JPG_ZigZagOrder[35] == 56 &&
              JPG_ZigZagOrder[63] == 63);

const std::array<float, 8> JPG_ScaleFactor = {1.0F, 1.387039845F, 1.306562965F, 1.175875602F,
                                              1.0F, 0.785694958F, 0.541196100F, 0.275899379F};

// Trace names of the markers from 0xC0 on whose segments are skipped.
static constexpr std::array<const char *, 64> JPG_Markers = {
    "SOF0",     "SOF1",   "SOF2",   "SOF3",   "DHT",    "SOF5",   "SOF6",   "SOF7",
    "JPG",      "SOF9",   "SOF10",  "SOF11",  "DAC",    "SOF13",  "SOF14",  "SOF15",
    "RST0",     "RST1",   "RST2",   "RST3",   "RST4",   "RST5",   "RST6",   "RST7",
    "SOI",      "EOI",    "SOS",    "DQT",    "DNL",    "DRI",    "DHP",    "EXP",
    "APP0",     "APP1",   "APP2",   "APP3",   "APP4",   "APP5",   "APP6",   "APP7",
    "APP8",     "APP9",   "APP10",  "APP11",  "APP12",  "APP13",  "APP14",  "APP15",
    "JPG6_0",   "JPG6_1", "JPG6_2", "JPG6_3", "JPG6_4", "JPG6_5", "JPG6_6", "JPG7_SOF48",
    "JPG8_LSE", "JPG9",   "JPG10",  "JPG11",  "JPG12",  "JPG13",  "COM",    "STUFF"};
static_assert(JPG_Markers[0xF8 - 0xC0][4] == '_' && JPG_Markers[0xEE - 0xC0][4] == '4');

uint8_t JPG_GetByte()
{
    return Bytes_GetByte(JPG_File, JPG_Position);
}

uint16_t JPG_GetWord()
{
    return static_cast<uint16_t>(Bytes_GetBig(JPG_File, JPG_Position, 2));
}

static uint32_t GetExif(int count)
{
    const uint32_t big = Bytes_GetBig(JPG_File, JPG_Position, count);
    JPG_Position -= static_cast<size_t>(count);
    const uint32_t little = Bytes_GetLittle(JPG_File, JPG_Position, count);
    return JPG_Exif.ByteOrder == 'M' ? big : JPG_Exif.ByteOrder == 'I' ? little : 0;
}

uint16_t JPG_GetExifWord()
{
    return static_cast<uint16_t>(GetExif(2));
}

uint32_t JPG_GetExifDWord()
{
    return GetExif(4);
}

// Copies `count` bytes of the file to a text, truncated to fit, with a NUL.
static void CopyText(size_t from, size_t count, std::span<char> text)
{
    const std::span<const uint8_t> bytes =
        Bytes_GetSpan(JPG_File, from, std::min(count, text.size() - 1));
    std::fill(text.begin(), text.end(), '\0');
    std::copy(bytes.begin(), bytes.end(), text.begin());
}

// Three rationals: degrees, minutes and seconds.
static float ReadDegrees(size_t position)
{
    JPG_Position = position;
    float degrees = 0;
    for (const float unit : {1.0F, 60.0F, 3600.0F}) {
        const auto numerator = static_cast<float>(JPG_GetExifDWord());
        const auto denominator = static_cast<float>(JPG_GetExifDWord());
        if (denominator != 0)
            degrees += numerator / denominator / unit;
    }
    return degrees;
}

// Format: the first byte of the field. Framework: the highest byte of its value, which is the
// fourth one in little-endian files.
static char Letter(const JPG_EXIF_ENTRY &entry)
{
    const bool first = JPG_ByFormat() && JPG_Exif.ByteOrder == 'I';
    return static_cast<char>(entry.Value >> (first ? 0 : 24));
}

// Whether a text is in the entry's own field. Format: when it fits. Framework: only a maker's name
// whose offset lies far into the file.
static bool IsInField(const JPG_EXIF_ENTRY &entry)
{
    if (JPG_ByFormat())
        return entry.Count <= 4;
    return entry.Tag == 271 && size_t{JPG_Exif.Base} + entry.Value > 8092;
}

// `field` is the file position of the entry's value.
static void CopyExifText(const JPG_EXIF_ENTRY &entry, size_t field, std::span<char> text)
{
    if (IsInField(entry))
        CopyText(field, JPG_ByFormat() ? entry.Count : 4, text);
    else
        CopyText(size_t{JPG_Exif.Base} + entry.Value, entry.Count, text);
}

// Evaluates an entry by its tag; `field` is the file position of its value.
static void ReadEntry(const JPG_EXIF_ENTRY &entry, size_t field)
{
    JPG_EXIF &exif = JPG_Exif;
    const size_t target = size_t{exif.Base} + entry.Value;
    switch (entry.Tag) {
    case 1:
        exif.LatitudeReference = Letter(entry);
        break;
    case 2:
        exif.Latitude = ReadDegrees(target);
        break;
    case 3:
        exif.LongitudeReference = Letter(entry);
        break;
    case 4:
        exif.Longitude = ReadDegrees(target);
        break;
    case 259:
        // Read by type: a short is in the first bytes of the field.
        JPG_Position = field;
        exif.ThumbCompression =
            static_cast<uint8_t>(entry.Type == 3 ? JPG_GetExifWord() : JPG_GetExifDWord());
        break;
    case 270:
        CopyExifText(entry, field, exif.Description);
        break;
    case 271:
        CopyExifText(entry, field, exif.Make);
        break;
    case 272:
        CopyExifText(entry, field, exif.Model);
        break;
    case 513:
        exif.ThumbOffset = static_cast<uint32_t>(target);
        break;
    case 514:
        exif.ThumbLength = entry.Value;
        break;
    case 34665:  // Exif IFD
    case 34853:  // GPS IFD
        if (exif.IFDNumber >= exif.IFDs.size())
            break;
        exif.IFDNumber++;
        JPG_Position = target;
        JPG_LoadExif();
        break;
    }
}

// Maximum of Exif entries per file: four times those of one full segment.
constexpr uint32_t JPG_MaxEntries = 4 * 16 * 256;

// Each IFD takes one of 16 slots, so cyclic chains end.
void JPG_LoadExif()
{
    constexpr std::array<uint8_t, 13> typeSizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};
    JPG_EXIF &exif = JPG_Exif;
    while (exif.IFDNumber < exif.IFDs.size()) {
        JPG_IFD &ifd = exif.IFDs[exif.IFDNumber];
        ifd.Count = JPG_GetExifWord();
        for (size_t i = 0; i < std::min<size_t>(ifd.Count, 255); i++) {
            if (JPG_Decoder.IFDEntries++ >= JPG_MaxEntries)
                return;
            JPG_EXIF_ENTRY entry;
            entry.Tag = JPG_GetExifWord();
            entry.Type = JPG_GetExifWord();
            entry.Count = JPG_GetExifDWord();
            entry.Size = entry.Type < typeSizes.size() ? entry.Count * typeSizes[entry.Type] : 0;
            entry.Value = JPG_GetExifDWord();
            if (i < ifd.Entries.size())
                ifd.Entries[i] = entry;
            const size_t next = JPG_Position;
            ReadEntry(entry, next - 4);
            JPG_Position = next;
        }
        ifd.Next = JPG_GetExifDWord();
        if (ifd.Next == 0)
            return;
        JPG_Position = size_t{exif.Base} + ifd.Next;
        exif.IFDNumber++;
    }
}

static uint32_t RoundUp(uint32_t value, uint32_t unit)
{
    return unit == 0 ? 0 : (value + unit - 1) / unit * unit;
}

// The sampling factors of an MCU. Framework: the first component's. Format: the greatest of all
// (T.81, A.1.1).
static void FindFactors()
{
    const JPG_HEADER &h = JPG_Header;
    JPG_DECODER &d = JPG_Decoder;
    const size_t count = JPG_ByFormat() ? std::min<size_t>(h.ComponentCount, 4) : 1;
    d.H = d.V = 0;
    for (size_t i = 0; i < count; i++) {
        d.H = std::max<uint8_t>(d.H, h.Components[i].Sampling >> 4);
        d.V = std::max<uint8_t>(d.V, h.Components[i].Sampling & 15);
    }
}

static void MakeGeometry()
{
    JPG_HEADER &h = JPG_Header;
    JPG_DECODER &d = JPG_Decoder;
    FindFactors();
    const uint32_t across = 8u * d.H, down = 8u * d.V;  // pixels of an MCU
    d.PaddedWidth = RoundUp(h.Width, across);
    d.PaddedHeight = RoundUp(h.Height, down);
    d.McusAcross = across == 0 ? 0 : d.PaddedWidth / across;
    d.McusDown = down == 0 ? 0 : d.PaddedHeight / down;
    h.OutputSize = static_cast<uint32_t>(uint64_t{d.PaddedWidth} * d.PaddedHeight * 4);
}

static void ReadFrame(bool progressive)
{
    JPG_HEADER &h = JPG_Header;
    h.Precision = JPG_GetByte();
    h.Height = JPG_GetWord();
    h.Width = JPG_GetWord();
    h.ComponentCount = JPG_GetByte();
    for (size_t i = 0; i < std::min<size_t>(h.ComponentCount, h.Components.size()); i++) {
        h.Components[i].Id = JPG_GetByte();
        h.Components[i].Sampling = JPG_GetByte();
        h.Components[i].Quantisation = JPG_GetByte();
    }
    JPG_Decoder.Progressive = progressive;
    MakeGeometry();
}

// Assigns the canonical codes: ITU-T T.81, C.2.
static void MakeCodes(JPG_HUFFMAN &table)
{
    uint32_t code = 0;
    for (size_t n = 0; n < 16; n++) {
        const uint32_t count = table.Counts[n];
        table.First[n] = count == 0 ? uint16_t{65535} : static_cast<uint16_t>(code);
        code += count;
        table.Last[n] = count == 0 ? uint16_t{0} : static_cast<uint16_t>(code - 1);
        code *= 2;
    }
}

static void ReadHuffmanTable()
{
    JPG_HUFFMAN table{};
    const uint8_t header = JPG_GetByte();
    table.Defined = 1;
    table.Number = header & 15;
    table.Class = header & 0x10;
    for (uint8_t &count : table.Counts) {
        count = JPG_GetByte();
        table.Total = static_cast<uint16_t>(table.Total + count);
    }
    for (size_t i = 0; i < table.Total; i++) {
        const uint8_t symbol = JPG_GetByte();
        if (i < table.Symbols.size())
            table.Symbols[i] = symbol;
    }
    MakeCodes(table);
    if (table.Number < 4)
        (table.Class ? JPG_Header.AC : JPG_Header.DC)[table.Number] = table;
}

namespace
{

// ITU-T T.81, K.3.3: the typical tables of luminance and chrominance. They are prefix codes that
// leave out the code of all ones.
struct JPG_TYPICAL {
    std::array<uint8_t, 16> Counts;
    std::array<uint8_t, 162> Symbols;

    constexpr bool IsWhole(size_t symbols) const
    {
        uint32_t codes = 0, total = 0;
        for (size_t n = 0; n < 16; n++) {
            codes = 2 * codes + Counts[n];
            total += Counts[n];
        }
        for (size_t i = 0; i < symbols; i++)
            for (size_t k = i + 1; k < symbols; k++)
                if (Symbols[i] == Symbols[k])
                    return false;
        return total == symbols && codes < 1u << 16;
    }
};

}  // namespace

static constexpr std::array<JPG_TYPICAL, 2> JPG_TypicalDC = {{
    {{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
    {{0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
}};
static constexpr std::array<JPG_TYPICAL, 2> JPG_TypicalAC = {{
    {{0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 125},
     {0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61,
      0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xA1, 0x08, 0x23, 0x42, 0xB1, 0xC1, 0x15, 0x52,
      0xD1, 0xF0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0A, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x25,
      0x26, 0x27, 0x28, 0x29, 0x2A, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44, 0x45,
      0x46, 0x47, 0x48, 0x49, 0x4A, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63, 0x64,
      0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x83,
      0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99,
      0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6,
      0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xD2, 0xD3,
      0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8,
      0xE9, 0xEA, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA}},
    {{0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 119},
     {0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61,
      0x71, 0x13, 0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xA1, 0xB1, 0xC1, 0x09, 0x23, 0x33,
      0x52, 0xF0, 0x15, 0x62, 0x72, 0xD1, 0x0A, 0x16, 0x24, 0x34, 0xE1, 0x25, 0xF1, 0x17, 0x18,
      0x19, 0x1A, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44,
      0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63,
      0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A,
      0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97,
      0x98, 0x99, 0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2, 0xB3, 0xB4,
      0xB5, 0xB6, 0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA,
      0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7,
      0xE8, 0xE9, 0xEA, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA}},
}};
static_assert(JPG_TypicalDC[0].IsWhole(12) && JPG_TypicalDC[1].IsWhole(12));
static_assert(JPG_TypicalAC[0].IsWhole(162) && JPG_TypicalAC[1].IsWhole(162));

static void SetTypicalTable(const JPG_TYPICAL &typical, JPG_HUFFMAN &table)
{
    table.Counts = typical.Counts;
    std::copy(typical.Symbols.begin(), typical.Symbols.end(), table.Symbols.begin());
    MakeCodes(table);
}

void JPG_SetTypicalTables()
{
    for (size_t i = 0; i < 2; i++) {
        SetTypicalTable(JPG_TypicalDC[i], JPG_Header.DC[i]);
        SetTypicalTable(JPG_TypicalAC[i], JPG_Header.AC[i]);
    }
}

static void ReadQuantisationTable()
{
    JPG_QUANTISATION table{};
    const uint8_t header = JPG_GetByte();
    table.Defined = 1;
    table.Number = header & 15;
    table.Precision = header & 0xF0;
    for (size_t i = 0; i < 64; i++) {
        if (table.Precision != 0) {
            table.Wide[i] = JPG_GetWord();
            continue;
        }
        const size_t natural = JPG_ZigZagOrder[i];
        table.Values[natural] = static_cast<float>(JPG_GetByte()) * JPG_ScaleFactor[natural / 8] *
                                JPG_ScaleFactor[natural % 8];
    }
    if (table.Number < 4)
        JPG_Header.Quantisation[table.Number] = table;
}

// In a sequential frame the scan parameters can have only one value, but some encoders write
// others. The format's rules ignore what is written.
static bool IsSequentialWhatever()
{
    return JPG_ByFormat() && !JPG_Decoder.Progressive;
}

static void ReadScanHeader()
{
    JPG_HEADER &h = JPG_Header;
    h.ScanComponentCount = JPG_GetByte();
    for (size_t i = 0; i < h.ScanComponentCount; i++) {
        const JPG_SCAN_COMPONENT component = {JPG_GetByte(), JPG_GetByte()};
        if (i < h.ScanComponents.size())
            h.ScanComponents[i] = component;
    }
    h.Ss = JPG_GetByte();
    h.Se = JPG_GetByte();
    h.AhAl = JPG_GetByte();
    h.Ah = h.AhAl >> 4;
    h.Al = h.AhAl & 15;
    h.ScanMode = 0;
    if ((h.Ss == 0 && h.Se == 63 && h.AhAl == 0) || IsSequentialWhatever())
        h.ScanMode = 1;
    else if (h.Ss == 0 && h.Se == 0)
        h.ScanMode = h.Ah ? 3 : 2;
    else if (h.Ss != 0 && h.Se != 0)
        h.ScanMode = h.Ah ? 5 : 4;
}

// Copies an APP segment's identifier and advances past its NUL.
static void ReadIdentifier(size_t end)
{
    const size_t start = JPG_Position;
    while (JPG_Position < end && JPG_GetByte() != 0) {
    }
    const size_t next = std::max(JPG_Position, start + 1);
    CopyText(start, next - 1 - start, JPG_Header.Identifier);
}

// Position of the thumbnail's bytes. Framework: fixed at 20, correct only if the segment is the
// file's first.
static size_t ThumbnailPosition()
{
    return JPG_ByFormat() ? JPG_Position : 20;
}

// Where the walk resumes after a thumbnail. Format: after its segment. Framework: at the offset
// width x height, which is meaningless, on purpose.
static size_t PositionAfterThumbnail(size_t pixels, size_t end)
{
    return JPG_ByFormat() ? end : pixels;
}

static void ReadThumbnail(uint8_t width, uint8_t height, size_t end)
{
    JPG_HEADER &h = JPG_Header;
    h.Thumbnail = Picture_NewPixels(width, height);
    if (!h.Thumbnail)
        return;
    h.ThumbWidth = width;
    h.ThumbHeight = height;
    const size_t pixels = size_t{width} * height;
    size_t position = ThumbnailPosition();
    for (size_t i = 0; i < pixels; i++) {
        for (size_t c = 0; c < 3; c++)
            h.Thumbnail[4 * i + c] = Bytes_GetByte(JPG_File, position);
        h.Thumbnail[4 * i + 3] = 255;
    }
    JPG_Decoder.ThumbPaddedWidth = width;
    JPG_Decoder.ThumbPaddedHeight = height;
    JPG_Position = PositionAfterThumbnail(pixels, end);
}

// Reads JFIF's APP0 segment; of others only the identifier. A thumbnail is read only once, since
// the walk may resume before it.
static void ReadAPP0(size_t end)
{
    JPG_HEADER &h = JPG_Header;
    ReadIdentifier(end);
    if (std::strcmp(h.Identifier.data(), "JFIF") == 0) {
        JPG_Decoder.JFIF = true;
        h.MajorVersion = JPG_GetByte();
        h.MinorVersion = JPG_GetByte();
        h.Units = JPG_GetByte();
        h.XDensity = JPG_GetWord();
        h.YDensity = JPG_GetWord();
        const uint8_t width = JPG_GetByte(), height = JPG_GetByte();
        if (width != 0 && height != 0 && !h.Thumbnail && !JPG_Decoder.Embedded)
            return ReadThumbnail(width, height, end);
    }
    JPG_Position = end;
}

// Adobe's segment, which gives the colour transform. Adobe Technical Note 5116, section 18.
static void ReadAPP14()
{
    const std::span<const uint8_t> segment = Bytes_GetSpan(JPG_File, JPG_Position, 12);
    if (segment.size() < 12 || std::memcmp(segment.data(), "Adobe", 5) != 0)
        return;
    JPG_Decoder.Adobe = true;
    JPG_Decoder.Transform = segment[11];
}

// Position of the marker FF `second` in [from, end), or `end`.
static size_t FindMarker(size_t from, size_t end, uint8_t second)
{
    for (size_t i = from; i + 1 < std::min(end, JPG_File.size()); i++)
        if (JPG_File[i] == 0xFF && JPG_File[i + 1] == second)
            return i;
    return end;
}

// Position of the first IFD. Framework: right after the TIFF header, ignoring its offset.
static size_t FirstIFD(size_t base)
{
    size_t position = base + 4;
    const uint32_t offset = JPG_Exif.ByteOrder == 'M' ? Bytes_GetBig(JPG_File, position, 4)
                                                      : Bytes_GetLittle(JPG_File, position, 4);
    return JPG_ByFormat() ? base + offset : base + 8;
}

// Framework: without a thumbnail tag, searches the first bytes of the file for one, as many bytes
// as the segment is long.
static void FindThumbnail(size_t length)
{
    JPG_EXIF &exif = JPG_Exif;
    if (JPG_ByFormat() || exif.ThumbOffset != 0 || length <= 2)
        return;
    const size_t limit = length - 2, offset = FindMarker(1, limit, 0xD8);
    if (offset >= limit)
        return;
    exif.ThumbOffset = static_cast<uint32_t>(offset);
    const size_t stop = FindMarker(offset, limit, 0xD9);
    if (exif.ThumbLength == 0 && stop < limit)
        exif.ThumbLength = static_cast<uint32_t>(stop - offset);
}

static void ReadAPP1(size_t end, size_t length)
{
    JPG_EXIF &exif = JPG_Exif;
    ReadIdentifier(end);
    if (std::strcmp(JPG_Header.Identifier.data(), "Exif") != 0)
        return;
    JPG_Position++;  // padding byte
    const size_t base = JPG_Position;
    exif.Base = static_cast<uint16_t>(base);
    exif.ByteOrder = JPG_GetByte();
    JPG_Position = FirstIFD(base);
    exif.IFDNumber = 0;
    exif.LatitudeReference = exif.LongitudeReference = '0';
    exif.Latitude = exif.Longitude = 0;
    JPG_LoadExif();
    FindThumbnail(length);
    if (exif.ThumbCompression == 0)
        exif.ThumbCompression = 6;
}

// Framework: traces a skipped segment on standard output.
static void Trace(uint8_t marker)
{
    if (JPG_ByFormat())
        return;
    const char *name = JPG_Markers[marker - 0xC0u];
    std::printf(marker == 0xC1 ? "\n-->(%s)\n" : "\n\n-->(%s)\n\n", name);
}

static void SkipSegment(uint8_t marker)
{
    const bool frame = marker > 0xC0 && marker < 0xD0 && marker != 0xC8 && marker != 0xCC;
    if (frame)
        JPG_Decoder.Refused = marker;
    Trace(marker);
}

// Reads the application segments that are used. True if the position after the segment is already
// set.
static bool ReadApplication(uint8_t marker, size_t end, size_t length)
{
    switch (marker) {
    case 0xE0:
        ReadAPP0(end);
        return true;  // it sets the position itself
    case 0xE1:
        ReadAPP1(end, length);
        break;
    case 0xED:
        ReadIdentifier(end);
        break;
    }
    return false;
}

// Reads or skips a marker's segment. False if it is a scan header.
static bool ReadSegment(uint8_t marker)
{
    const size_t start = JPG_Position, length = JPG_GetWord(), end = start + length;
    switch (marker) {
    case 0xC1:
        if (!JPG_ByFormat()) {
            SkipSegment(marker);
            break;
        }
        [[fallthrough]];
    case 0xC0:
    case 0xC2:
        ReadFrame(marker == 0xC2);
        break;
    case 0xC4:
        while (JPG_Position < std::min(end, JPG_File.size()))
            ReadHuffmanTable();
        break;
    case 0xDB:
        while (JPG_Position < std::min(end, JPG_File.size()))
            ReadQuantisationTable();
        break;
    case 0xDD:
        JPG_Header.RestartInterval = JPG_GetWord();
        break;
    case 0xDA:
        ReadScanHeader();
        return false;
    case 0xE0:
    case 0xE1:
    case 0xED:
        if (!JPG_Decoder.Stream && ReadApplication(marker, end, length))
            return true;
        break;
    case 0xEE:
        ReadAPP14();
        Trace(marker);
        break;
    case 0xFE:
        CopyText(JPG_Position, length < 3 ? 0 : length - 3, JPG_Header.Comment);
        break;
    default:
        SkipSegment(marker);
        break;
    }
    JPG_Position = std::max(end, start + 2);
    return true;
}

// A second FF is a fill byte (T.81, B.1.1.2), unless no marker can follow; then it is a length.
static bool IsFill(uint8_t marker)
{
    return marker == 0xFF && JPG_Position < JPG_File.size() && JPG_File[JPG_Position] >= 0xC0;
}

// Takes the height from the DNL segment after the first scan if the frame header leaves it 0. ITU-T
// T.81, B.2.5.
static void ReadLineCount()
{
    const std::span<const uint8_t> file = JPG_File;
    for (size_t i = JPG_Header.DataOffset; i + 6 <= file.size(); i++) {
        const uint8_t marker = file[i + 1];
        if (file[i] != 0xFF || marker < 0xC0 || marker == 0xFF || (marker & 0xF8) == 0xD0)
            continue;
        if (marker == 0xDC) {
            size_t position = i + 4;
            JPG_Header.Height = static_cast<uint16_t>(Bytes_GetBig(file, position, 2));
            MakeGeometry();
        }
        return;
    }
}

void JPG_WalkMarkers()
{
    JPG_Header.DataOffset = 0;
    const size_t limit = JPG_Header.FileSize;
    while (JPG_Position + 1 < limit) {
        if (JPG_GetByte() != 0xFF)
            continue;
        const uint8_t marker = JPG_GetByte();
        if (IsFill(marker)) {
            JPG_Position--;  // it starts the marker
            continue;
        }
        if (marker == 0xD9 && JPG_Decoder.InScans) {
            JPG_Decoder.Ended = true;
            break;  // anything after EOI is not part of the picture
        }
        const bool bare = marker < 0xC0 || (marker >= 0xD0 && marker <= 0xD9);
        if (bare || ReadSegment(marker))
            continue;
        JPG_Header.DataOffset = static_cast<uint32_t>(std::min(JPG_Position, JPG_File.size()));
        break;
    }
    JPG_Position = JPG_Header.DataOffset;
    if (JPG_ByFormat() && !JPG_Decoder.InScans && JPG_Header.Height == 0)
        ReadLineCount();
}
