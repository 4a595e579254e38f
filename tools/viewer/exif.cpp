#include "tools/viewer/exif.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "picture/jpg.h"
#include "tools/common/text.h"

enum EXIF_TAG : uint16_t {
    EXIF_LatitudeReference = 1,
    EXIF_LongitudeReference = 3,
    EXIF_Orient = 274,
    EXIF_Changed = 306,
    EXIF_ExposureTime = 33434,
    EXIF_FNumber = 33437,
    EXIF_Sensitivity = 34855,
    EXIF_Taken = 36867,
    EXIF_FocalLength = 37386,
};
constexpr uint16_t Exif_Text = 2, Exif_Short = 3, Exif_Fraction = 5;

static const JPG_EXIF_ENTRY *Find(uint16_t tag)
{
    for (const JPG_IFD &ifd : JPG_Exif.IFDs)
        for (size_t i = 0; i < std::min<size_t>(ifd.Count, ifd.Entries.size()); i++)
            if (ifd.Entries[i].Tag == tag)
                return &ifd.Entries[i];
    return nullptr;
}

// A short occupies the first bytes of its field.
static uint32_t Whole(const JPG_EXIF_ENTRY &entry)
{
    if (entry.Type != Exif_Short)
        return entry.Value;
    return JPG_Exif.ByteOrder == 'M' ? entry.Value >> 16 : entry.Value & 0xFFFF;
}

int Exif_Orientation()
{
    const JPG_IFD &ifd = JPG_Exif.IFDs[0];
    for (size_t i = 0; i < std::min<size_t>(ifd.Count, ifd.Entries.size()); i++)
        if (const uint32_t value = Whole(ifd.Entries[i]);
            ifd.Entries[i].Tag == EXIF_Orient && value >= 1 && value <= 8)
            return static_cast<int>(value);
    return 1;
}

// The first bytes of a value that is stored outside its entry.
template <size_t Size>
static std::optional<std::array<uint8_t, Size>> Read(const BYTES_OPEN &from,
                                                     const JPG_EXIF_ENTRY &entry)
{
    std::array<uint8_t, Size> bytes{};
    if (Bytes_ReadAt(from, uint64_t{JPG_Exif.Base} + entry.Value, bytes) != Size)
        return std::nullopt;
    return bytes;
}

static std::string Text(const BYTES_OPEN &from, uint16_t tag)
{
    const JPG_EXIF_ENTRY *entry = Find(tag);
    if (!entry || entry->Type != Exif_Text || entry->Count < 19)  // "2026:01:31 12:00:00"
        return "";
    const auto bytes = Read<19>(from, *entry);
    return bytes ? Text_FromEither({reinterpret_cast<const char *>(bytes->data()), bytes->size()})
                 : "";
}

static std::optional<double> Fraction(const BYTES_OPEN &from, uint16_t tag)
{
    const JPG_EXIF_ENTRY *entry = Find(tag);
    const auto bytes = entry && entry->Type == Exif_Fraction ? Read<8>(from, *entry) : std::nullopt;
    if (!bytes)
        return std::nullopt;
    size_t at = 0;
    const auto number = [&] {
        return JPG_Exif.ByteOrder == 'M' ? Bytes_GetBig(*bytes, at, 4)
                                         : Bytes_GetLittle(*bytes, at, 4);
    };
    const uint32_t above = number(), below = number();
    return below == 0 ? std::nullopt : std::optional(static_cast<double>(above) / below);
}

template <typename... Values>
static std::string Printed(const char *format, Values... values)
{
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

static std::string Exposure(const BYTES_OPEN &from)
{
    std::string text;
    const auto add = [&](const std::string &part) { text += (text.empty() ? "" : ", ") + part; };
    if (const auto time = Fraction(from, EXIF_ExposureTime); time && *time > 0)
        add(*time < 0.4 ? Printed("1/%.0f s", 1 / *time) : Printed("%.3g s", *time));
    if (const auto f = Fraction(from, EXIF_FNumber); f && *f > 0)
        add(Printed("f/%.3g", *f));
    if (const JPG_EXIF_ENTRY *iso = Find(EXIF_Sensitivity))
        add("ISO " + std::to_string(Whole(*iso)));
    if (const auto length = Fraction(from, EXIF_FocalLength); length && *length > 0)
        add(Printed("%.4g mm", *length));
    return text;
}

// N, S, E or W. The decoder reads the letter from the field's high byte, where only big-endian data
// have it.
static char Reference(uint16_t tag, char decoded)
{
    const JPG_EXIF_ENTRY *entry = JPG_Exif.ByteOrder == 'I' ? Find(tag) : nullptr;
    return entry && entry->Type == Exif_Text ? static_cast<char>(entry->Value & 0xFF) : decoded;
}

static std::string Degrees(float degrees, char reference)
{
    return std::string_view("NSEW").find(reference) == std::string_view::npos
               ? ""
               : Printed("%.5f %c", static_cast<double>(degrees), reference);
}

std::vector<VIEWER_FACT> Exif_Camera(const BYTES_OPEN &from)
{
    const JPG_EXIF &exif = JPG_Exif;
    std::vector<VIEWER_FACT> facts;
    const auto add = [&](const char *name, const std::string &text) {
        if (!text.empty())
            facts.push_back({name, text});
    };
    add("make", Text_FromEither(exif.Make.data()));
    add("model", Text_FromEither(exif.Model.data()));
    const std::string taken = Text(from, EXIF_Taken);
    add("date", taken.empty() ? Text(from, EXIF_Changed) : taken);
    add("exposure", Exposure(from));
    add("latitude",
        Degrees(exif.Latitude, Reference(EXIF_LatitudeReference, exif.LatitudeReference)));
    add("longitude",
        Degrees(exif.Longitude, Reference(EXIF_LongitudeReference, exif.LongitudeReference)));
    return facts;
}
