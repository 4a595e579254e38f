#include "picture/jpg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "extra/bytes.h"
#include "picture/jpg_scan.h"
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

constexpr std::array<uint8_t, 64> zigZag = MakeZigZag();
const std::array<uint8_t, 64> JPG_ZigZag = zigZag, JPG_ZigZag2 = Inverse(zigZag);
static_assert(zigZag[1] == 1 && zigZag[2] == 8 && zigZag[35] == 56 && zigZag[63] == 63);

const std::array<float, 8> JPG_ScaleFactor = {1.0F, 1.387039845F, 1.306562965F, 1.175875602F,
                                              1.0F, 0.785694958F, 0.541196100F, 0.275899379F};

// What the trace calls the markers from 0xC0 on that have a segment which nobody reads.
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

// Copies `count` bytes of the file to a text, as many as it holds, with a NUL behind them.
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

// Does what the tag of an entry asks for; `field` is the file position of its value.
static void ReadEntry(const JPG_EXIF_ENTRY &entry, size_t field)
{
    JPG_EXIF &exif = JPG_Exif;
    const size_t target = size_t{exif.Base} + entry.Value;
    switch (entry.Tag) {
    case 1:
        exif.LatitudeReference = static_cast<char>(entry.Value >> 24);
        break;
    case 2:
        exif.Latitude = ReadDegrees(target);
        break;
    case 3:
        exif.LongitudeReference = static_cast<char>(entry.Value >> 24);
        break;
    case 4:
        exif.Longitude = ReadDegrees(target);
        break;
    case 259:
        // As wide as its type says: a short stands in the first bytes of the field.
        JPG_Position = field;
        exif.ThumbCompression =
            static_cast<uint8_t>(entry.Type == 3 ? JPG_GetExifWord() : JPG_GetExifDWord());
        break;
    case 270:
        CopyText(target, entry.Count, exif.Description);
        break;
    case 271:
        if (target > 8092)
            CopyText(field, 4, exif.Make);
        else
            CopyText(target, entry.Count, exif.Make);
        break;
    case 272:
        CopyText(target, entry.Count, exif.Model);
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

// Each IFD takes a number of its own, and they run out: so chains that bite their tail end.
void JPG_LoadExif()
{
    constexpr std::array<uint8_t, 13> typeSizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};
    JPG_EXIF &exif = JPG_Exif;
    while (exif.IFDNumber < exif.IFDs.size()) {
        JPG_IFD &ifd = exif.IFDs[exif.IFDNumber];
        ifd.Count = JPG_GetExifWord();
        for (size_t i = 0; i < std::min<size_t>(ifd.Count, 255); i++) {
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

static void ReadFrame(bool progressive)
{
    JPG_HEADER &h = JPG_Header;
    JPG_DECODER &d = JPG_Decoder;
    h.Precision = JPG_GetByte();
    h.Height = JPG_GetWord();
    h.Width = JPG_GetWord();
    h.ComponentCount = JPG_GetByte();
    for (size_t i = 0; i < std::min<size_t>(h.ComponentCount, h.Components.size()); i++) {
        h.Components[i].Id = JPG_GetByte();
        h.Components[i].Sampling = JPG_GetByte();
        h.Components[i].Quantisation = JPG_GetByte();
    }
    d.Progressive = progressive;
    d.H = h.Components[0].Sampling >> 4;
    d.V = h.Components[0].Sampling & 15;
    d.PaddedWidth = RoundUp(h.Width, 8u * d.H);
    d.PaddedHeight = RoundUp(h.Height, 8u * d.V);
    d.McusAcross = d.H == 0 ? 0 : d.PaddedWidth / (8u * d.H);
    d.McusDown = d.V == 0 ? 0 : d.PaddedHeight / (8u * d.V);
    h.OutputSize = d.PaddedWidth * d.PaddedHeight * 4;
}

// Canonical codes: ITU-T T.81, C.2.
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
    uint32_t code = 0;
    for (size_t n = 0; n < 16; n++) {
        const uint32_t count = table.Counts[n];
        table.First[n] = count == 0 ? uint16_t{65535} : static_cast<uint16_t>(code);
        code += count;
        table.Last[n] = count == 0 ? uint16_t{0} : static_cast<uint16_t>(code - 1);
        code *= 2;
    }
    if (table.Number < 4)
        (table.Class ? JPG_Header.AC : JPG_Header.DC)[table.Number] = table;
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
        const size_t natural = zigZag[i];
        table.Values[natural] = static_cast<float>(JPG_GetByte()) * JPG_ScaleFactor[natural / 8] *
                                JPG_ScaleFactor[natural % 8];
    }
    if (table.Number < 4)
        JPG_Header.Quantisation[table.Number] = table;
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
    if (h.Ss == 0 && h.Se == 63 && h.AhAl == 0)
        h.ScanMode = 1;
    else if (h.Ss == 0 && h.Se == 0)
        h.ScanMode = h.Ah ? 3 : 2;
    else if (h.Ss != 0 && h.Se != 0)
        h.ScanMode = h.Ah ? 5 : 4;
}

// Copies an APP segment's name and leaves the position behind its zero.
static void ReadIdentifier(size_t end)
{
    const size_t start = JPG_Position;
    while (JPG_Position < end && JPG_GetByte() != 0) {
    }
    const size_t behind = std::max(JPG_Position, start + 1);
    CopyText(start, behind - 1 - start, JPG_Header.Identifier);
}

// JFIF. The thumbnail's bytes are taken where they lie when the segment comes first, and behind
// them the walk goes on at a place of no meaning, on purpose; but only once, since that may lie
// before.
static void ReadJFIF(size_t end)
{
    JPG_HEADER &h = JPG_Header;
    ReadIdentifier(end);
    h.MajorVersion = JPG_GetByte();
    h.MinorVersion = JPG_GetByte();
    h.Units = JPG_GetByte();
    h.XDensity = JPG_GetWord();
    h.YDensity = JPG_GetWord();
    const uint8_t width = JPG_GetByte(), height = JPG_GetByte();
    JPG_Position = end;
    if (h.Thumbnail || JPG_Decoder.Embedded)
        return;
    h.ThumbWidth = width;
    h.ThumbHeight = height;
    h.Thumbnail = Picture_NewPixels(width, height);
    if (!h.Thumbnail)
        return;
    const size_t pixels = size_t{width} * height;
    size_t position = 20;
    for (size_t i = 0; i < pixels; i++) {
        for (size_t c = 0; c < 3; c++)
            h.Thumbnail[4 * i + c] = Bytes_GetByte(JPG_File, position);
        h.Thumbnail[4 * i + 3] = 255;
    }
    JPG_Decoder.ThumbPaddedWidth = width;
    JPG_Decoder.ThumbPaddedHeight = height;
    JPG_Position = pixels;
}

// Where a pair of bytes 0xFF `second` stands in [from, end), or `end`.
static size_t FindMarker(size_t from, size_t end, uint8_t second)
{
    for (size_t i = from; i + 1 < std::min(end, JPG_File.size()); i++)
        if (JPG_File[i] == 0xFF && JPG_File[i + 1] == second)
            return i;
    return end;
}

static void ReadAPP1(size_t end, size_t length)
{
    JPG_EXIF &exif = JPG_Exif;
    ReadIdentifier(end);
    if (std::strcmp(JPG_Header.Identifier.data(), "Exif") != 0)
        return;
    JPG_Position++;  // the pad
    exif.Base = static_cast<uint16_t>(JPG_Position);
    exif.ByteOrder = JPG_GetByte();
    JPG_Position += 7;  // the rest of it, the number 42, and the first IFD's offset, where it is
    exif.IFDNumber = 0;
    exif.LatitudeReference = exif.LongitudeReference = '0';
    exif.Latitude = exif.Longitude = 0;
    JPG_LoadExif();
    if (exif.ThumbOffset == 0 && length > 2) {
        const size_t limit = length - 2;
        const size_t offset = FindMarker(1, limit, 0xD8);
        if (offset < limit) {
            exif.ThumbOffset = static_cast<uint32_t>(offset);
            const size_t stop = FindMarker(offset, limit, 0xD9);
            if (exif.ThumbLength == 0 && stop < limit)
                exif.ThumbLength = static_cast<uint32_t>(stop - offset);
        }
    }
    if (exif.ThumbCompression == 0)
        exif.ThumbCompression = 6;
}

static void Trace(uint8_t marker)
{
    const char *name = JPG_Markers[marker - 0xC0u];
    std::printf(marker == 0xC1 ? "\n-->(%s)\n" : "\n\n-->(%s)\n\n", name);
}

// Reads or passes over the segment of a marker. False when it was a scan header.
static bool ReadSegment(uint8_t marker)
{
    const size_t start = JPG_Position, length = JPG_GetWord(), end = start + length;
    switch (marker) {
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
        ReadJFIF(end);
        return true;  // it says where to go on
    case 0xE1:
        ReadAPP1(end, length);
        break;
    case 0xED:
        ReadIdentifier(end);
        break;
    case 0xFE:
        CopyText(JPG_Position, length < 3 ? 0 : length - 3, JPG_Header.Comment);
        break;
    default:
        Trace(marker);
        break;
    }
    JPG_Position = std::max(end, start + 2);
    return true;
}

// A second FF fills (T.81, B.1.1.2), unless what follows cannot be a marker and thus is a length.
static bool IsFill(uint8_t marker)
{
    return marker == 0xFF && JPG_Position < JPG_File.size() && JPG_File[JPG_Position] >= 0xC0;
}

static void WalkMarkers()
{
    const size_t limit = JPG_Header.FileSize;
    while (JPG_Position + 1 < limit) {
        if (JPG_GetByte() != 0xFF)
            continue;
        const uint8_t marker = JPG_GetByte();
        if (IsFill(marker)) {
            JPG_Position--;  // it begins the marker
            continue;
        }
        if (marker == 0xD9 && JPG_Decoder.InScans)
            break;  // whatever follows is no part of the picture
        const bool bare = marker < 0xC0 || (marker >= 0xD0 && marker <= 0xD9);
        if (bare || ReadSegment(marker))
            continue;
        JPG_Header.DataOffset = static_cast<uint32_t>(std::min(JPG_Position, JPG_File.size()));
        break;
    }
    JPG_Position = JPG_Header.DataOffset;
}

void JPG_Load(const char *path)
{
    if (path[0] != '*') {
        std::free(JPG_Header.Thumbnail);
        JPG_Header = {};
        JPG_Decoder = {};
        JPG_Exif = {};
        JPG_Exif.LatitudeReference = JPG_Exif.LongitudeReference = '0';
        JPG_File = Bytes_LoadFile(path);
        JPG_Header.FileSize = static_cast<uint32_t>(JPG_File.size());
        JPG_Position = 0;
    }
    JPG_Header.DataOffset = 0;
    WalkMarkers();
}

// Reads the embedded JPEG's headers in place of the picture's; its tables and sizes are its own.
static bool LoadEmbedded()
{
    JPG_HEADER &h = JPG_Header;
    const JPG_EXIF exif = JPG_Exif;
    const uint64_t end = uint64_t{exif.ThumbOffset} + exif.ThumbLength;
    if (exif.ThumbCompression != 6 || exif.ThumbLength == 0 || exif.ThumbOffset == 0)
        return false;
    h.FileSize = static_cast<uint32_t>(std::min<uint64_t>(end, JPG_File.size()));
    h.Width = h.Height = h.RestartInterval = 0;
    JPG_Decoder = {};
    JPG_Decoder.Embedded = true;
    JPG_Position = exif.ThumbOffset;
    JPG_Load("*");
    JPG_Exif = exif;  // should it have Exif data of its own
    std::free(h.Thumbnail);
    h.Thumbnail = nullptr;
    return h.DataOffset != 0 && h.Width != 0;
}

uint8_t *JPG_GetThumbnail()
{
    JPG_HEADER &h = JPG_Header;
    if (h.Thumbnail) {
        uint8_t *thumbnail = h.Thumbnail;
        h.Thumbnail = nullptr;
        return thumbnail;
    }
    h.ThumbWidth = h.ThumbHeight = 0;
    if (!LoadEmbedded())
        return nullptr;
    const JPG_DECODER &d = JPG_Decoder;
    uint8_t *thumbnail = JPG_Decoding();
    if (thumbnail) {
        h.ThumbWidth = h.Width;
        h.ThumbHeight = h.Height;
        JPG_Decoder.ThumbPaddedWidth = d.PaddedWidth;
        JPG_Decoder.ThumbPaddedHeight = d.PaddedHeight;
    }
    return thumbnail;
}

void JPG_UnLoad()
{
    JPG_File = {};
}

JPG_HEADER *JPG_GetHeader(JPG_HEADER *out)
{
    *out = JPG_Header;
    return out;
}

JPG_EXIF *JPG_GetExif(JPG_EXIF *out)
{
    *out = JPG_Exif;
    return out;
}
