#include "audio/mp3.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

#include "audio/audio_module.h"

std::array<MP3_HEADER *, 32> MP3_Header;
uint8_t MP3_SoundNumber = 0;
uint8_t MP3_Init = 0;

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

// The next byte; 0xFF at the end of the file, which the frame search takes for one.
static uint8_t GetByte(FILE *file)
{
    return static_cast<uint8_t>(getc_unlocked(file));
}

static uint32_t GetBig(FILE *file, int count)
{
    uint32_t value = 0;
    for (int i = 0; i < count; i++)
        value = value << 8 | GetByte(file);
    return value;
}

// Reads `count` bytes, or what is left of the file, and keeps as many as the text holds.
static void GetText(FILE *file, int64_t count, std::span<char> text)
{
    size_t kept = 0;
    for (; count > 0; count--) {
        const int byte = getc_unlocked(file);
        if (byte == EOF)
            break;
        if (kept + 1 < text.size())
            text[kept++] = static_cast<char>(byte);
    }
    if (!text.empty())
        text[kept] = 0;
}

constexpr uint32_t FrameId(const char (&id)[5])
{
    uint32_t value = 0;
    for (int i = 0; i < 4; i++)
        value = value << 8 | static_cast<uint8_t>(id[i]);
    return value;
}

// Where the text of an ID3v2 frame goes; nowhere for most.
static std::span<char> TextOf(MP3_ID3V2 &tag, uint32_t id)
{
    switch (id) {
    case FrameId("TIT2"):
        return tag.Title;
    case FrameId("TPE1"):
        return tag.Artist;
    case FrameId("TALB"):
        return tag.Album;
    case FrameId("TDRC"):
    case FrameId("TYER"):
        return tag.Year;
    case FrameId("COMM"):
        return tag.Comment;
    case FrameId("TRCK"):
        return tag.Track;
    case FrameId("TCON"):
        return tag.Genre;
    default:
        return {};
    }
}

// Reads the tag if the file begins with one, else nothing. What it counts is kept on purpose: the
// size's bytes as if they had 8 bits, texts of other frames not passed over, four bytes of a
// comment twice. The file stands where the counting ends, in the tag or behind it.
static void ReadID3v2(FILE *file, MP3_ID3V2 &tag)
{
    if (GetBig(file, 3) != 0x494433) {  // "ID3"
        std::rewind(file);
        return;
    }
    tag.Version = static_cast<uint16_t>(GetBig(file, 2));
    tag.Flags = GetByte(file);
    tag.Size = GetBig(file, 4);
    for (int64_t remaining = tag.Size; remaining >= 9 && !feof(file);) {
        const uint32_t id = GetBig(file, 4);
        remaining -= 4;
        if (id >> 24 < '0' || id >> 24 > 'Z') {
            GetText(file, remaining, {});
            break;
        }
        int64_t length = int64_t{GetBig(file, 4)} - 1;
        GetBig(file, 3);  // flags and text encoding
        if (remaining > length + 7)
            remaining -= length + 7;
        std::span<char> text = TextOf(tag, id);
        if (id == FrameId("COMM")) {
            const uint32_t language = GetBig(file, 4);
            length -= 4;
            if (language >> 24 != 0) {  // kept on purpose: only a comment without one is taken
                GetText(file, length, {});
                text = {};
            }
            if (remaining >= 5)
                remaining -= 4;
        }
        if (!text.empty() && remaining >= 9)
            GetText(file, length, text);
    }
}

// Reads the tag in the file's last 128 bytes.
static void ReadID3v1(FILE *file, MP3_ID3V1 &tag)
{
    tag = {};
    tag.Genre = 255;
    if (std::fseek(file, -128, SEEK_END) == 0 && GetBig(file, 3) == 0x544147) {  // "TAG"
        GetText(file, 30, tag.Title);
        GetText(file, 30, tag.Artist);
        GetText(file, 30, tag.Album);
        GetText(file, 4, tag.Year);
        GetText(file, 30, tag.Comment);
        if (tag.Comment[28] == 0) {  // ID3v1.1
            tag.TrackNumber = static_cast<uint8_t>(tag.Comment[29]);
            tag.Comment[27] = 0;
        }
        tag.Genre = GetByte(file);
    }
    tag.Genre = std::min(tag.Genre, MP3_UnknownGenre);
}

void MP3_Load(const char *path)
{
    if (MP3_SoundNumber >= MP3_Header.size())
        return;
    uint32_t size;
    const AUDIO_FILE file = Audio_OpenFile(path, &size);
    if (!file)
        return;
    MP3_HEADER *&record = MP3_Header[MP3_SoundNumber];
    delete record;
    record = new MP3_HEADER{};
    ReadID3v2(file.get(), record->ID3v2);
    MP3_LoadFrame(file.get(), MP3_SoundNumber);
    record->FileSize = size;
    ReadID3v1(file.get(), record->ID3v1);
    if (MP3_Init == 0) {
        MP3_BuildTables();
        MP3_Init = 1;
    }
    record->BitsPerSample = 16;
    MP3_SoundNumber++;
}

constexpr std::array<uint16_t, 4> MP3_SampleRate = {44100, 48000, 32000, 0};  // of MPEG-1

// Bytes of a frame, with its header; 0 without a sampling rate. All versions are counted as MPEG-1
// is, on purpose: below it, where frames are half as long, a frame takes the next one with it.
static constexpr uint32_t FrameLength(uint32_t bitRate, uint32_t samplingRate, uint32_t padding)
{
    return samplingRate == 0 ? 0 : 144 * bitRate / samplingRate + padding;
}
static_assert(FrameLength(160000, 32000 / 4, 1) == MP3_MaxFrame &&
              FrameLength(320000, 32000, 1) < MP3_MaxFrame);
static_assert(FrameLength(0, 8000, 1) < 4 && FrameLength(1, 8000, 1) < 4 &&
                  FrameLength(8000, 24000, 0) >= 6 && FrameLength(32000, 48000, 0) >= 6,
              "frames are either rejected or have room for a checksum");

// Sets the record's fields from the four bytes of a header.
static void ReadHeader(MP3_HEADER &record)
{
    const uint32_t header = MP3_UnAligned32(record.FrameBuffer.data());
    const auto field = [header](int lowest, int bits) {
        return static_cast<uint8_t>(header >> lowest & ((1u << bits) - 1));
    };
    record.Version = field(19, 2);
    record.Layer = field(17, 2);
    record.Protection = static_cast<uint8_t>(1 - field(16, 1));
    record.BitRateIndex = field(12, 4);
    record.SamplingRateIndex = field(10, 2);
    record.Padding = field(9, 1);
    record.Private = field(8, 1);
    record.ChannelMode = field(6, 2);
    record.ModeExtension = field(4, 2);
    record.Copyright = field(3, 1);
    record.Original = field(2, 1);
    record.Emphasis = field(0, 2);

    const int low = record.Version == 0 ? 2 : record.Version == 2 ? 1 : 0;  // halvings of the rate
    record.Rate = static_cast<uint8_t>(record.SamplingRateIndex + 3 * low);
    record.Channels = record.ChannelMode == 3 ? 1 : 2;
    record.SamplingRate = static_cast<uint32_t>(MP3_SampleRate[record.SamplingRateIndex]) >> low;
    record.BitRate = record.BitRateIndex == 15
                         ? 1
                         : 1000u * MP3_BitRate[record.Version == 3][record.BitRateIndex];
    record.FrameLength =
        static_cast<uint16_t>(FrameLength(record.BitRate, record.SamplingRate, record.Padding));
}

uint8_t MP3_LoadFrame(FILE *file, uint8_t n)
{
    if (MP3_GetHeader(n) == nullptr)
        return 0;
    MP3_HEADER &record = *MP3_Header[n];
    while (!feof(file)) {
        if (GetByte(file) != 0xFF)
            continue;
        const uint8_t second = GetByte(file);
        if (second == 0xFF)
            return 0;
        if ((second & 0xE2) != 0xE2)  // Layer III and Layer I pass
            continue;
        record.FrameBuffer[0] = 0xFF;
        record.FrameBuffer[1] = second;
        record.FrameBuffer[2] = GetByte(file);
        record.FrameBuffer[3] = GetByte(file);
        ReadHeader(record);
        if (record.FrameLength < 4)
            continue;
        if (record.Protection == 1)
            GetBig(file, 2);  // the CRC, which nobody checks
        const std::span body = std::span(record.FrameBuffer).subspan(4, record.FrameLength - 4u);
        const size_t size = body.size() - (record.Protection == 1 ? 2 : 0);
        const size_t read = std::fread(body.data(), 1, size, file);
        std::fill(body.begin() + static_cast<ptrdiff_t>(read), body.end(), uint8_t{0});
        return 1;
    }
    return 0;
}

// Bytes of the samples that the record's frame is decoded to.
static uint32_t DecodedSize(const MP3_HEADER &record)
{
    return (record.Version == 3 ? 36u : 18u) * 32 * 2 * record.Channels;
}

int32_t MP3_Decode(MP3_HEADER &record, int16_t *samples)
{
    constexpr uint8_t reserved = 1;
    if (record.FrameLength < 4)
        return -1;
    MP3_LAYER3 &layer3 = record.Layer3;
    MP3_InitGetBits(layer3.Bits, record.FrameBuffer.data() + 4, 8 * (record.FrameLength - 4));
    if (record.Protection == 1)
        MP3_GetBits(layer3.Bits, 16);  // kept on purpose, although the buffer has no CRC
    const bool joint = record.ChannelMode == 1;
    const MP3_FORMAT format = {record.Rate, static_cast<uint8_t>(record.Channels),
                               joint && (record.ModeExtension & 1) != 0,
                               joint && (record.ModeExtension & 2) != 0};
    const int blocks = record.Version == reserved ? -1 : MP3_DecodeGranules(layer3, format);
    MP3_KeepReservoir(layer3, blocks < 0);
    if (blocks < 0)
        return -1;
    for (size_t c = 0; c < record.Channels; c++)
        MP3_Synthesis(layer3.Filter[c], static_cast<size_t>(blocks), samples + c, record.Channels);
    return static_cast<int32_t>(DecodedSize(record));
}

// Writes samples with their low byte first.
static void StoreSamples(const int16_t *samples, size_t bytes, uint8_t *out)
{
    if constexpr (std::endian::native == std::endian::little)
        std::memcpy(out, samples, bytes);
    else
        for (size_t i = 0; i < bytes; i++)
            out[i] = static_cast<uint8_t>(samples[i / 2] >> i % 2 * 8);
}

void MP3_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    const uint32_t capacity = *length;
    *length = 0;
    if (MP3_GetHeader(n) == nullptr)
        return;
    MP3_HEADER &record = *MP3_Header[n];
    std::array<int16_t, MP3_MaxSamples> samples;
    for (long start = std::ftell(file); MP3_LoadFrame(file, n) != 0; start = std::ftell(file)) {
        const uint32_t room = capacity - *length;
        if (DecodedSize(record) > room && *length != 0) {  // larger than the frames before it
            std::fseek(file, start, SEEK_SET);
            break;
        }
        const int32_t decoded = MP3_Decode(record, samples.data());
        if (decoded < 0)
            continue;
        const auto size = static_cast<uint32_t>(decoded);
        const uint32_t stored = std::min(size, room - room % (2u * record.Channels));
        StoreSamples(samples.data(), stored, buffer + *length);
        *length += stored;
        if (capacity - *length < size)
            break;
    }
}

void MP3_Destroy()
{
    for (MP3_HEADER *&record : MP3_Header) {
        delete record;
        record = nullptr;
    }
}

MP3_HEADER *MP3_GetHeader(uint8_t n)
{
    return n < MP3_Header.size() ? MP3_Header[n] : nullptr;
}

void MP3_SetSoundNumber(uint8_t n)
{
    MP3_SoundNumber = n;
}
