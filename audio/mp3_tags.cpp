#include "audio/mp3_tags.h"

#include <algorithm>
#include <cctype>
#include <vector>

constexpr int MP3_MaxTags = 16;                      // on either side of the sound
constexpr size_t MP3_MaxTagBytes = size_t{4} << 20;  // read of one tag
constexpr int MP3_MaxItems = 4096;                   // read of one tag

// clang-format off
const char MP3_Genre[127][18] = {
    "Blues", "Classic Rock", "Country", "Dance", "Disco", "Funk", "Grunge", "Hip-Hop", "Jazz",
    "Metal", "New Age", "Oldies", "Other", "Pop", "R&B", "Rap", "Reggae", "Rock", "Techno",
    "Industrial", "Alternative", "Ska", "Death Metal", "Pranks", "Soundtrack", "Euro-Techno",
    "Ambient", "Trip-Hop", "Vocal", "Jazz+Funk", "Fusion", "Trance", "Classical", "Instrumental",
    "Acid", "House", "Game", "Sound Clip", "Gospel", "Noise", "AlternRock", "Bass", "Soul",
    "Punk", "Space", "Meditative", "Instrumental Pop", "Instrumental Rock", "Ethnic", "Gothic",
    "Darkwave", "Techno-Industrial", "Electronic", "Pop-Folk", "Eurodance", "Dream",
    "Southern Rock", "Comedy", "Cult", "Gangsta", "Top 40", "Christian Rap", "Pop/Funk", "Jungle",
    "Native American", "Cabaret", "New Wave", "Psychadelic", "Rave", "Showtunes", "Trailer",
    "Lo-Fi", "Tribal", "Acid Punk", "Acid Jazz", "Polka", "Retro", "Musical", "Rock & Roll",
    "Hard Rock", "Folk", "Folk-Rock", "National Folk", "Swing", "Fast Fusion", "Bebob", "Latin",
    "Revival", "Celtic", "Bluegrass", "Avantgarde", "Gothic Rock", "Progressive Rock",
    "Psychedelic Rock", "Symphonic Rock", "Slow Rock", "Big Band", "Chorus", "Easy Listening",
    "Acoustic", "Humour", "Speech", "Chanson", "Opera", "Chamber Music", "Sonata", "Symphony",
    "Booty Bass", "Primus", "Porn Groove", "Satire", "Slow Jam", "Club", "Tango", "Samba",
    "Folklore", "Ballad", "Poweer Ballad", "Rhytmic Soul", "Freestyle", "Duet", "Punk Rock",
    "Drum Solo", "A Capela", "Euro-House", "Dance Hall", "unknown"};
// clang-format on
static_assert(std::size(MP3_Genre) == MP3_UnknownGenre + 1);

using TEXT_BYTES = std::span<const uint8_t>;

// Seven bits per byte.
static uint32_t Synchsafe(uint32_t bytes)
{
    return (bytes >> 24 & 127) << 21 | (bytes >> 16 & 127) << 14 | (bytes >> 8 & 127) << 7 |
           (bytes & 127);
}

// Decimal number of `count` digits.
static uint64_t DigitsAt(SOUND_FILE &file, uint64_t at, int count)
{
    uint64_t number = 0;
    for (int i = 0; i < count; i++)
        number = number * 10 + Sound_GetByte(file, at) % 16;
    return number;
}

// Length of the tag that ends at `end`, 0 if none does.
static uint64_t TagBefore(SOUND_FILE &file, uint64_t end)
{
    const auto has = [&file, end](uint64_t before, std::string_view name) {
        for (uint64_t at = end - before; const char letter : name)
            if (before > end || Sound_GetByte(file, at) != static_cast<uint8_t>(letter))
                return false;
        return true;
    };
    if (has(128, "TAG"))
        return has(128 + 227, "TAG+") ? 128 + 227 : 128;
    if (has(32, "APETAGEX")) {
        const bool header = (Sound_LittleAt(file, end - 12, 4) & 0x80000000) != 0;
        return Sound_LittleAt(file, end - 20, 4) + (header ? 32u : 0u);
    }
    if (has(9, "LYRICS200"))
        return DigitsAt(file, end - 15, 6) + 15;
    if (has(9, "LYRICSEND"))
        for (uint64_t size = 20; size <= 5100 + 20; size++)
            if (has(size, "LYRICSBEGIN"))
                return size;
    if (has(10, "3DI"))
        return 20 + Synchsafe(Sound_BigAt(file, end - 4, 4));
    return 0;
}

// Appends a character in UTF-8.
static void Append(std::string &text, uint32_t code)
{
    const auto add = [&text](uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80)
        return add(code);
    if (code < 0x800) {
        add(0xC0 | code >> 6);
    } else {
        if (code < 0x10000) {
            add(0xE0 | code >> 12);
        } else {
            add(0xF0 | code >> 18);
            add(0x80 | (code >> 12 & 63));
        }
        add(0x80 | (code >> 6 & 63));
    }
    add(0x80 | (code & 63));
}

// Takes a text up to its NUL from `bytes`, which then begin after it. Encodings are ID3v2's: 0
// Latin-1, 1 UTF-16 with a byte order mark, 2 UTF-16 big-endian, 3 UTF-8.
static std::string TakeText(TEXT_BYTES &bytes, uint8_t encoding)
{
    std::string text;
    const bool wide = encoding == 1 || encoding == 2;
    bool little = false;
    uint32_t high = 0;  // first half of a surrogate pair
    size_t at = 0;
    while (at < bytes.size()) {
        uint32_t code = Bytes_GetBig(bytes, at, wide ? 2 : 1);
        if (wide && (code == 0xFFFE || code == 0xFEFF) && at == 2) {
            little = code == 0xFFFE;
            continue;
        }
        if (little)
            code = (code & 255) << 8 | code >> 8;
        if (code == 0)
            break;
        if (text.size() + 4 > MP3_MaxText)
            continue;
        if (encoding == 3)
            text += static_cast<char>(code);
        else if (wide && code >> 10 == 0x36)
            high = code;
        else if (wide && code >> 10 == 0x37)
            Append(text, 0x10000 + ((high & 1023) << 10) + (code & 1023));
        else
            Append(text, code);
    }
    bytes = bytes.subspan(std::min(at, bytes.size()));
    return text;
}

// The text without trailing blanks.
static std::string Trimmed(std::string text)
{
    text.resize(text.find_last_not_of(' ') + 1);
    return text;
}

// Resolves ID3v1 genre numbers, written as "(17)" or "17".
static std::string GenreOf(const std::string &text)
{
    const size_t first = text.starts_with('(') ? 1 : 0;
    size_t at = first, number = 0;
    for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); at++)
        number = std::min<size_t>(number * 10 + static_cast<size_t>(text[at] - '0'), 999);
    const bool whole = first != 0 ? at < text.size() && text[at] == ')' : at == text.size();
    if (at == first || !whole || number >= MP3_UnknownGenre)
        return text;
    const std::string rest = text.substr(at + first);
    return rest.empty() ? MP3_Genre[number] : rest;
}

static std::string *TextOf(MP3_TEXTS &texts, std::string_view id)
{
    const struct {
        std::string_view Names;  // in ID3v2.2, in later versions, in APEv2
        std::string MP3_TEXTS::*Text;
    } rows[] = {
        {"TT2 TIT2 TITLE ", &MP3_TEXTS::Title},     {"TP1 TPE1 ARTIST ", &MP3_TEXTS::Artist},
        {"TAL TALB ALBUM ", &MP3_TEXTS::Album},     {"TYE TYER TDRC YEAR ", &MP3_TEXTS::Year},
        {"COM COMM COMMENT ", &MP3_TEXTS::Comment}, {"TRK TRCK TRACK ", &MP3_TEXTS::Track},
        {"TCO TCON GENRE ", &MP3_TEXTS::Genre},
    };
    std::string name;
    for (const char letter : id)
        name += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    name += ' ';
    for (const auto &row : rows)
        if (id.size() >= 3 &&
            (row.Names.starts_with(name) || row.Names.find(' ' + name) != std::string_view::npos))
            return &(texts.*row.Text);
    return nullptr;
}

static void Set(std::string *text, const std::string &value)
{
    if (text && text->empty())
        *text = value;
}

// Removes unsynchronisation: the zeros that keep 0xFF from looking like a frame.
static std::vector<uint8_t> Synchronised(TEXT_BYTES bytes)
{
    std::vector<uint8_t> result;
    result.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size(); i++)
        if (bytes[i] != 0 || i == 0 || bytes[i - 1] != 0xFF)
            result.push_back(bytes[i]);
    return result;
}

static std::vector<uint8_t> ReadPart(const SOUND_FILE &file, uint64_t start, uint64_t end)
{
    const uint64_t most = std::min<uint64_t>(end, file.Size);
    std::vector<uint8_t> bytes(
        start < most ? static_cast<size_t>(std::min<uint64_t>(most - start, MP3_MaxTagBytes)) : 0);
    bytes.resize(Bytes_ReadAt(*file.From, start, std::span(bytes)).value_or(0));
    return bytes;
}

// Skips what an ID3v2 frame has besides its data. False if it is compressed or encrypted.
static bool Unwrap(uint8_t major, uint8_t flags, std::vector<uint8_t> &data)
{
    const bool newer = major >= 4;
    if ((flags & (newer ? 0x0C : 0xC0)) != 0)
        return false;
    const size_t group = (flags & (newer ? 0x40 : 0x20)) != 0 ? 1 : 0;
    const size_t size = newer && (flags & 1) != 0 ? 4 : 0;
    data.erase(data.begin(),
               data.begin() + static_cast<ptrdiff_t>(std::min(group + size, data.size())));
    if (newer && (flags & 2) != 0)
        data = Synchronised(data);
    return true;
}

static void ReadID3v2(const SOUND_FILE &file, uint64_t start, uint64_t size, MP3_TEXTS &texts)
{
    std::vector<uint8_t> tag = ReadPart(file, start, start + size);
    if (tag.size() < 10)
        return;
    const uint8_t major = tag[3], flags = tag[5];
    tag.erase(tag.begin(), tag.begin() + 10);
    if (major < 4 && (flags & 0x80) != 0)
        tag = Synchronised(tag);
    size_t at = 0;
    if (major >= 3 && (flags & 0x40) != 0) {  // an extended header
        const uint32_t length = Bytes_GetBig(tag, at, 4);
        at = major == 3 ? 4 + size_t{length} : Synchsafe(length);
    }
    const int letters = major == 2 ? 3 : 4;
    for (int i = 0; i < MP3_MaxItems && at + 6 < tag.size() && tag[at] != 0; i++) {
        std::string id;
        for (int k = 0; k < letters; k++)
            id += static_cast<char>(Bytes_GetByte(tag, at));
        uint32_t length = Bytes_GetBig(tag, at, letters);
        if (major >= 4)
            length = Synchsafe(length);
        const uint32_t frameFlags = major == 2 ? 0 : Bytes_GetBig(tag, at, 2);
        if (at >= tag.size())
            return;
        const size_t count = std::min<size_t>(length, tag.size() - at);
        std::string *text = TextOf(texts, id);
        std::vector<uint8_t> data;
        if (text)
            data.assign(tag.begin() + static_cast<ptrdiff_t>(at),
                        tag.begin() + static_cast<ptrdiff_t>(at + count));
        at += count;
        if (data.empty() || !Unwrap(major, static_cast<uint8_t>(frameFlags), data) || data.empty())
            continue;
        TEXT_BYTES bytes(data);
        const uint8_t encoding = bytes[0];
        bytes = bytes.subspan(1);
        if (text == &texts.Comment) {
            bytes = bytes.subspan(std::min<size_t>(3, bytes.size()));  // the language
            if (!TakeText(bytes, encoding).empty())
                continue;  // a program's own comment, which has a description
        }
        const std::string value = TakeText(bytes, encoding);
        Set(text, text == &texts.Genre ? GenreOf(value) : value);
    }
}

// The items from `start` to `end`.
static void ReadAPE(const SOUND_FILE &file, uint64_t start, uint64_t end, MP3_TEXTS &texts)
{
    const std::vector<uint8_t> tag = ReadPart(file, start, end);
    size_t at = 0;
    for (int i = 0; i < MP3_MaxItems && at + 8 < tag.size(); i++) {
        const uint32_t length = Bytes_GetLittle(tag, at, 4), flags = Bytes_GetLittle(tag, at, 4);
        TEXT_BYTES rest = TEXT_BYTES(tag).subspan(at);
        const std::string name = TakeText(rest, 3);
        TEXT_BYTES value = rest.first(std::min<size_t>(length, rest.size()));
        at = tag.size() - rest.size() + value.size();
        if ((flags >> 1 & 3) == 0)  // a text
            Set(TextOf(texts, name), TakeText(value, 3));
    }
}

static void ReadID3v1(SOUND_FILE &file, uint64_t position, MP3_TEXTS &texts)
{
    position += 3;
    const auto take = [&](uint64_t count) {
        const std::vector<uint8_t> bytes = ReadPart(file, position, position + count);
        position += count;
        TEXT_BYTES text(bytes);
        return Trimmed(TakeText(text, 0));
    };
    Set(&texts.Title, take(30));
    Set(&texts.Artist, take(30));
    Set(&texts.Album, take(30));
    Set(&texts.Year, take(4));
    Set(&texts.Comment, take(30));
    const uint32_t track = Sound_BigAt(file, position - 2, 2);
    if (track > 0 && track < 256)  // ID3v1.1: preceded by a zero
        Set(&texts.Track, std::to_string(track));
    const uint8_t genre = Sound_GetByte(file, position);
    if (genre < MP3_UnknownGenre)
        Set(&texts.Genre, MP3_Genre[genre]);
}

uint64_t MP3_TagAt(SOUND_FILE &file, uint64_t at)
{
    if (Sound_BigAt(file, at, 3) == Sound_Id("ID3")) {
        const bool footer = (Sound_BigAt(file, at + 5, 1) & 0x10) != 0;
        return 10 + Synchsafe(Sound_BigAt(file, at + 6, 4)) + (footer ? 10 : 0);
    }
    if (Sound_BigAt(file, at, 4) == Sound_Id("APET") &&
        Sound_BigAt(file, at + 4, 4) == Sound_Id("AGEX"))
        return uint64_t{32} + Sound_LittleAt(file, at + 12, 4);
    return 0;
}

// Reads the tag of `size` bytes that ends at `end`.
static void ReadTagBefore(SOUND_FILE &file, uint64_t end, uint64_t size, MP3_TEXTS &texts)
{
    const bool ape = Sound_BigAt(file, end - 32, 4) == Sound_Id("APET");
    if (ape)
        ReadAPE(file, end - 32 - (Sound_LittleAt(file, end - 20, 4) - 32), end - 32, texts);
    else if (Sound_BigAt(file, end - size, 3) == Sound_Id("ID3"))
        ReadID3v2(file, end - size, size - 10, texts);
}

MP3_PART MP3_ReadTags(SOUND_FILE &file, MP3_TEXTS &texts)
{
    MP3_PART part = {0, file.Size};
    for (int i = 0; i < MP3_MaxTags; i++) {
        const uint64_t size = MP3_TagAt(file, part.Start);
        if (size == 0 || size > part.End - part.Start)
            break;
        if (Sound_BigAt(file, part.Start, 3) == Sound_Id("ID3"))
            ReadID3v2(file, part.Start, size, texts);
        else
            ReadAPE(file, part.Start + 32, part.Start + size, texts);
        part.Start += size;
    }
    uint64_t v1 = 0;
    for (int i = 0; i < MP3_MaxTags; i++) {
        const uint64_t size = TagBefore(file, part.End);
        if (size == 0 || size > part.End - part.Start)
            break;
        if (Sound_BigAt(file, part.End - 128, 3) == Sound_Id("TAG") && size >= 128 && v1 == 0 &&
            part.End == file.Size)
            v1 = part.End - 128;
        else
            ReadTagBefore(file, part.End, size, texts);
        part.End -= size;
    }
    if (v1 != 0)
        ReadID3v1(file, v1, texts);
    return part;
}
