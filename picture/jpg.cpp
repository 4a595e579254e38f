#include "picture/jpg.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "extra/reason.h"
#include "picture/jpg_colour.h"
#include "picture/jpg_scan.h"
#include "picture/pixels.h"

bool JPG_Detected(std::span<const uint8_t> head)
{
    const auto has = [head](size_t offset, const char *text, size_t count) {
        return head.size() >= offset + count && std::memcmp(&head[offset], text, count) == 0;
    };
    // FF D8, then any later marker; the bytes between may be damaged.
    if (Picture_Rules == PICTURE_RULES_FORMAT)
        return has(0, "\xFF\xD8", 2) && std::find(head.begin() + 2, head.end(), 0xFF) != head.end();
    return (has(0, "\xFF\xD8\xFF\xE0", 4) && has(6, "JFIF", 4)) ||
           (has(0, "\xFF\xD8\xFF\xE1", 4) && has(6, "Exif", 4));
}

// Discards the previous file.
static void Begin(uint8_t rules, BYTES_BUFFER file)
{
    std::free(JPG_Header.Thumbnail);
    JPG_Header = {};
    JPG_Decoder = {};
    JPG_Decoder.Rules = rules;
    JPG_File = std::move(file);
    JPG_Header.FileSize = static_cast<uint32_t>(JPG_File.size());
    JPG_Position = 0;
    if (JPG_ByFormat())
        JPG_SetTypicalTables();
}

void JPG_Load(const char *path)
{
    Reason_Guard([path] {
        if (path[0] != '*') {
            Begin(Picture_Rules, Reason_Guard([path] { return Bytes_LoadFile(path); }));
            JPG_Exif = {};
            JPG_Exif.LatitudeReference = JPG_Exif.LongitudeReference = '0';
        }
        JPG_WalkMarkers();
    });
}

// Format: JFIF means grey or YCbCr; else Adobe's segment decides, then the components' ids.
static JPG_COLOURS ColoursByFormat()
{
    const JPG_HEADER &h = JPG_Header;
    const JPG_DECODER &d = JPG_Decoder;
    const auto id = [&h](size_t i) { return h.Components[i].Id; };
    switch (h.ComponentCount) {
    case 1:
    case 2:
        return JPG_COLOURS_GREY;
    case 3:
        if (d.JFIF)
            return JPG_COLOURS_YCBCR;
        if (d.Adobe)
            return d.Transform == 0 ? JPG_COLOURS_RGB : JPG_COLOURS_YCBCR;
        return id(0) == 'R' && id(1) == 'G' && id(2) == 'B' ? JPG_COLOURS_RGB : JPG_COLOURS_YCBCR;
    case 4:
        return d.Adobe && d.Transform != 0 ? JPG_COLOURS_YCCK : JPG_COLOURS_CMYK;
    }
    return JPG_COLOURS_NONE;
}

static JPG_COLOURS ColoursByFramework()
{
    switch (JPG_Header.ComponentCount) {
    case 1:
        return JPG_COLOURS_GREY;
    case 3:
        return JPG_COLOURS_YCBCR;
    }
    return JPG_COLOURS_NONE;
}

uint8_t *JPG_Decoding()
{
    return Reason_Guard(
        [] { return JPG_DecodeScans(JPG_ByFormat() ? ColoursByFormat() : ColoursByFramework()); });
}

// Reads the headers of the embedded JPEG over the picture's; tables and sizes are then the
// thumbnail's.
static bool LoadEmbedded()
{
    JPG_HEADER &h = JPG_Header;
    const JPG_EXIF exif = JPG_Exif;
    const uint64_t end = uint64_t{exif.ThumbOffset} + exif.ThumbLength;
    if (exif.ThumbCompression != 6 || exif.ThumbLength == 0 || exif.ThumbOffset == 0)
        return false;
    h.FileSize = static_cast<uint32_t>(std::min<uint64_t>(end, JPG_File.size()));
    h.Width = h.Height = h.RestartInterval = 0;
    const uint8_t rules = JPG_Decoder.Rules;
    const uint64_t picture = uint64_t{4} * JPG_Decoder.PaddedWidth * JPG_Decoder.PaddedHeight;
    JPG_Decoder = {};
    JPG_Decoder.Beside = picture;
    JPG_Decoder.Rules = rules;
    JPG_Decoder.Embedded = true;
    JPG_Decoder.Start = JPG_Position = exif.ThumbOffset;
    JPG_WalkMarkers();
    JPG_Exif = exif;  // the embedded JPEG may have replaced it
    std::free(h.Thumbnail);
    h.Thumbnail = nullptr;
    return h.DataOffset != 0 && h.Width != 0;
}

static uint8_t *DecodeThumbnail()
{
    JPG_HEADER &h = JPG_Header;
    h.ThumbWidth = h.ThumbHeight = 0;
    if (!LoadEmbedded())
        return nullptr;
    uint8_t *thumbnail = JPG_Decoding();
    if (thumbnail) {
        h.ThumbWidth = h.Width;
        h.ThumbHeight = h.Height;
        JPG_Decoder.ThumbPaddedWidth = JPG_Decoder.PaddedWidth;
        JPG_Decoder.ThumbPaddedHeight = JPG_Decoder.PaddedHeight;
    }
    return thumbnail;
}

uint8_t *JPG_GetThumbnail()
{
    if (JPG_Header.Thumbnail)
        return std::exchange(JPG_Header.Thumbnail, nullptr);
    const bool whole = Reason_Get()[0] == 0;
    uint8_t *thumbnail = Reason_Guard(DecodeThumbnail);
    if (whole)
        Reason_Clear();  // the picture itself is complete
    return thumbnail;
}

void JPG_UnLoad()
{
    std::free(JPG_Header.Thumbnail);
    JPG_Header.Thumbnail = nullptr;
    JPG_File = BYTES_BUFFER();
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

namespace
{

// Saves the records of the file being decoded while another one takes their place.
class JPG_KEPT
{
public:
    JPG_KEPT() : file(std::move(JPG_File))
    {
        JPG_Header.Thumbnail = nullptr;
    }
    ~JPG_KEPT()
    {
        JPG_Header = header;
        JPG_Decoder = decoder;
        JPG_File = std::move(file);
        JPG_Position = position;
    }
    JPG_KEPT(const JPG_KEPT &) = delete;
    JPG_KEPT &operator=(const JPG_KEPT &) = delete;

private:
    const JPG_HEADER header = JPG_Header;
    const JPG_DECODER decoder = JPG_Decoder;
    BYTES_BUFFER file;
    const size_t position = JPG_Position;
};

}  // namespace

JPG_STREAM JPG_DecodeStream(std::span<const uint8_t> tables, std::span<const uint8_t> stream,
                            bool toRGB, uint64_t maxPixels)
{
    return Reason_Guard([&] {
        const JPG_KEPT kept;
        BYTES_BUFFER bytes(tables.begin(), tables.end());
        bytes.insert(bytes.end(), stream.begin(), stream.end());
        Begin(PICTURE_RULES_FORMAT, std::move(bytes));
        JPG_Decoder.Stream = true;
        JPG_Decoder.MaxPixels = maxPixels;
        JPG_Decoder.Start = tables.size();
        JPG_WalkMarkers();
        const JPG_HEADER &h = JPG_Header;
        const bool convert = toRGB && h.ComponentCount == 3;
        const PICTURE_PIXELS padded(
            JPG_DecodeScans(convert ? JPG_COLOURS_YCBCR : JPG_COLOURS_STORED));
        JPG_STREAM out{};
        if (!padded)
            return out;
        out = {h.Width, h.Height, h.ComponentCount, {}};
        out.Samples.resize(size_t{h.Width} * h.Height * h.ComponentCount);
        const size_t step = convert ? 4 : h.ComponentCount, row = size_t{h.Width} * out.Components;
        for (size_t y = 0; y < h.Height; y++) {
            const uint8_t *from = padded.get() + y * JPG_Decoder.PaddedWidth * step;
            uint8_t *to = out.Samples.data() + y * row;
            if (step == out.Components)
                std::memcpy(to, from, row);
            else
                for (size_t x = 0; x < h.Width; x++)
                    std::memcpy(to + 3 * x, from + 4 * x, 3);
        }
        return out;
    });
}
