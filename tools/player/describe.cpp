#include "tools/player/describe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <span>

#include "audio/aiff.h"
#include "audio/au.h"
#include "audio/iff.h"
#include "audio/mod.h"
#include "audio/mp3.h"
#include "audio/voc.h"
#include "audio/wav.h"
#include "tools/player/text.h"

static void AddFact(PLAYER_SOUND &sound, const char *what, const std::string &value)
{
    if (!value.empty())
        sound.Facts.emplace_back(what, value);
}

static void AddNumber(PLAYER_SOUND &sound, const char *what, uint64_t value)
{
    if (value != 0)
        AddFact(sound, what, std::to_string(value));
}

template <typename Header>
static const Header &RecordOf(const PLAYER_SOUND &sound)
{
    return *static_cast<const Header *>(sound.Track->Record.get());
}

struct CODEC {
    uint16_t Code;
    const char *Name;
    uint8_t Growth;  // bytes of output for each byte of the file; 0: not decoded
};

// Sets codec and output size. `data` is the size of the sound in the file.
template <size_t N>
static void SetCodec(PLAYER_SOUND &sound, uint16_t code, uint64_t data, const CODEC (&codecs)[N])
{
    for (const CODEC &codec : codecs)
        if (codec.Code == code) {
            sound.Codec = codec.Name;
            sound.Plays = codec.Growth != 0;
            sound.Bytes = data * codec.Growth;
            return;
        }
    sound.Codec = "codec " + std::to_string(code);
    sound.Plays = false;
}

static uint64_t DataBytes(uint64_t start, uint64_t end)
{
    return start < end ? end - start : 0;
}

// Sets codec and output size of sound that is decoded by its format's rules.
static void SetFrames(PLAYER_SOUND &sound, const SOUND_FRAMES &frames, uint64_t data)
{
    const uint32_t stored = Sound_StoredBytes(frames);
    sound.Plays = frames.Bytes != 0;
    if (!sound.Plays)
        return;
    sound.Codec = frames.Coding == SOUND_FLOAT  ? "floating point"
                  : frames.Coding == SOUND_ALAW ? "A-law"
                  : frames.Coding == SOUND_ULAW ? "mu-law"
                                                : "linear";
    sound.Bytes = data / stored * Player_FrameBytes(sound);
    sound.Real = frames.Real;
    if (frames.Coding == SOUND_FLOAT && frames.Bytes == 8)
        AddFact(sound, "stored", "64 bits");
    if (frames.Mixed)
        AddFact(sound, "stored", std::to_string(frames.Channels) + " channels, mixed to two");
}

static void DescribeRaw(PLAYER_SOUND &sound)
{
    sound.Format = "raw samples";
    sound.Codec = "linear";
    sound.Bytes = sound.Track->FileSize;
}

static void DescribeWAV(PLAYER_SOUND &sound)
{
    const WAV_HEADER &header = RecordOf<WAV_HEADER>(sound);
    const uint64_t data = DataBytes(header.DataStart, header.DataEnd);
    sound.Format = "RIFF WAVE";
    SetCodec(sound, header.FormatTag, data,
             {{1, "linear", 1},
              {2, "Microsoft ADPCM", 4},
              {6, "A-law", 2},
              {7, "mu-law", 2},
              {17, "IMA ADPCM", 4}});
    if (header.Rules == AUDIO_RULES_FORMAT && header.BlockFrames != 0) {
        sound.Plays = true;
        sound.Bytes = data / header.BlockAlign * header.BlockFrames * Player_FrameBytes(sound);
        AddNumber(sound, "block bytes", header.BlockAlign);
        return;
    }
    if (header.Rules == AUDIO_RULES_FORMAT) {
        if (header.Frames.Big)
            AddFact(sound, "byte order", "big-endian");
        return SetFrames(sound, header.Frames, data);
    }
    const bool microsoft = header.FormatTag == 2;
    if (!microsoft && header.FormatTag != 17)
        return;
    const uint64_t codes = (microsoft ? 7u : 4u) * header.Channels;  // bytes before the codes
    const uint64_t headers = microsoft ? 4u * header.Channels : 0;   // their samples, in bytes
    sound.Plays = header.BlockAlign > codes && header.Channels <= 2;
    sound.Bytes =
        sound.Plays ? data / header.BlockAlign * ((header.BlockAlign - codes) * 4 + headers) : 0;
    AddNumber(sound, "block bytes", header.BlockAlign);
}

static void DescribeMOD(PLAYER_SOUND &sound)
{
    const MOD_HEADER &header = RecordOf<MOD_HEADER>(sound);
    sound.Format = "tracker module";
    sound.Codec = std::to_string(header.SongChannels) + " voices";
    sound.Bytes = uint64_t{header.Milliseconds} * sound.Hz / 1000 * Player_FrameBytes(sound);
    sound.Title = Player_Text(header.Title);
    AddNumber(sound, "positions", header.SongLength);
    AddNumber(sound, "instruments", header.SampleCount);
    for (size_t i = 0; i < header.SampleCount; i++) {
        const std::string number = "instrument " + std::to_string(i + 1);
        AddFact(sound, number.c_str(), Player_Text(header.SampleNames[i]));
    }
}

// Samples per channel of the frames from the current position of `file`.
static uint64_t CountFrames(FILE *file, uint8_t n)
{
    uint64_t samples = 0;
    while (MP3_LoadFrame(file, n) != 0)
        samples += MP3_GetHeader(n)->Version == 3 ? 1152 : 576;
    return samples;
}

// Samples of the sound. Where the search for frames is interrupted, the next refill continues it;
// only an empty refill that is not Unfinished is the end.
static uint64_t CountMP3(FILE *file, uint8_t n)
{
    uint64_t samples = 0;
    while (const uint64_t more = CountFrames(file, n))
        samples += more;
    return samples;
}

// The newer tag's text, if it has one, since the older tag truncates it.
static std::string TagText(std::span<const char> v2, std::span<const char> v1)
{
    const std::string text = Player_Text(v2);
    return text.empty() ? Player_Text(v1) : text;
}

// The newer tag's number is kept as one character: it may be truncated, or not a number.
static std::string TrackText(const MP3_ID3V1 &v1, const MP3_ID3V2 &v2)
{
    if (v1.TrackNumber != 0)
        return std::to_string(v1.TrackNumber);
    const char first = v2.Track[0];
    return first >= '0' && first <= '9' ? std::string(1, first) : "";
}

static void AddTexts(PLAYER_SOUND &sound, const MP3_TEXTS &texts)
{
    sound.Title = Player_Text(texts.Title);
    AddFact(sound, "artist", Player_Text(texts.Artist));
    AddFact(sound, "album", Player_Text(texts.Album));
    AddFact(sound, "year", Player_Text(texts.Year));
    AddFact(sound, "track", Player_Text(texts.Track));
    AddFact(sound, "genre", Player_Text(texts.Genre));
    AddFact(sound, "comment", Player_Text(texts.Comment));
}

static void AddTags(PLAYER_SOUND &sound, const MP3_ID3V1 &v1, const MP3_ID3V2 &v2)
{
    const std::string genre = v1.Genre < MP3_UnknownGenre ? MP3_Genre[v1.Genre] : "";
    sound.Title = TagText(v2.Title, v1.Title);
    AddFact(sound, "artist", TagText(v2.Artist, v1.Artist));
    AddFact(sound, "album", TagText(v2.Album, v1.Album));
    AddFact(sound, "year", TagText(v2.Year, v1.Year));
    AddFact(sound, "track", TrackText(v1, v2));
    AddFact(sound, "genre", TagText(v2.Genre, genre));
    AddFact(sound, "comment", TagText(v2.Comment, v1.Comment));
}

// The first frame's bit rate, or the mean if other frames differ.
static std::string BitRateText(const MP3_HEADER &header, double first, uint64_t samples)
{
    const MP3_STREAM &frames = header.Frames;
    const auto kilobits = [](double rate) { return std::to_string(std::lround(rate / 1000)); };
    const double seconds =
        static_cast<double>(samples + frames.Skip) / std::max(header.SamplingRate, 1u);
    const double mean =
        static_cast<double>(frames.End - frames.Start) * 8 / std::max(seconds, 0.01);
    if (frames.FreeLength != 0)
        return kilobits(mean) + " kbit/s, free format";
    if (frames.End != 0 && seconds > 0.5 && std::abs(mean - first) > first / 10)
        return kilobits(mean) + " kbit/s on average, variable";
    return kilobits(first) + " kbit/s";
}

static void DescribeMP3(PLAYER_SOUND &sound)
{
    const AudioTrack &track = *sound.Track;
    const uint8_t n = track.SoundNumber;
    uint32_t size;
    const SOUND_STREAM file = Sound_OpenFile(track.Path.c_str(), &size);
    if (!file) {
        sound.Track->Error = errno;
        return;
    }
    fseeko(file.get(), track.DataStart, SEEK_SET);
    MP3_LoadFrame(file.get(), n);
    const MP3_HEADER &header = *MP3_GetHeader(n);
    sound.Channels = header.Channels;
    sound.Hz = header.SamplingRate;
    sound.Format = "MPEG audio";
    if (sound.Hz == 0)  // no frame of Layer III
        return;
    sound.Codec = std::string(MP3_Version[header.Version & 3]) + " " + MP3_Layer[header.Layer & 3];
    if (header.Rules == AUDIO_RULES_FORMAT)
        AddTexts(sound, header.Texts);
    else
        AddTags(sound, header.ID3v1, header.ID3v2);
    const uint32_t bitRate = header.BitRate;  // copied first: counting the frames changes it
    const std::string mode = MP3_Channels[header.ChannelMode & 3];
    fseeko(file.get(), track.DataStart, SEEK_SET);
    const uint64_t samples =
        header.Frames.Samples != 0 ? header.Frames.Samples : CountMP3(file.get(), n);
    AddFact(sound, "bit rate", BitRateText(header, bitRate, samples));
    AddFact(sound, "mode", mode);
    if (header.Frames.Skip != 0)
        AddFact(sound, "left out",
                std::to_string(header.Frames.Skip) + " samples of the encoder's delay");
    sound.Bytes = samples * Player_FrameBytes(sound);
    if (std::ferror(file.get()))
        sound.Track->Error = EIO;
}

static void DescribeVOC(PLAYER_SOUND &sound)
{
    const VOC_HEADER &header = RecordOf<VOC_HEADER>(sound);
    sound.Format = "Creative Voice";
    SetCodec(sound, header.Codec, DataBytes(header.DataStart, header.FileSize),
             {{0, "linear", 1}, {4, "linear", 1}, {6, "A-law", 2}, {7, "mu-law", 2}});
    if (header.Rules == AUDIO_RULES_FORMAT) {
        SetFrames(sound, header.Frames, 0);
        for (const VOC_PIECE &piece : header.Pieces)
            sound.Bytes += (piece.Bytes / Sound_StoredBytes(header.Frames) + piece.Silence) *
                           Player_FrameBytes(sound);
    }
    AddFact(sound, "version",
            std::to_string(header.Version >> 8) + "." + std::to_string(header.Version & 0xFF));
}

static void DescribeAU(PLAYER_SOUND &sound)
{
    const AU_HEADER &header = RecordOf<AU_HEADER>(sound);
    sound.Format = "Sun/NeXT audio";
    SetCodec(sound, header.Encoding, DataBytes(header.DataStart, header.FileSize),
             {{1, "mu-law", 2},
              {2, "linear", 1},
              {3, "linear", 1},
              {4, "linear", 1},
              {5, "linear", 1},
              {27, "A-law", 2}});
    sound.Bytes -= sound.Bytes % std::max(Player_FrameBytes(sound), 1u);
    if (header.Rules == AUDIO_RULES_FORMAT)
        SetFrames(sound, header.Frames, DataBytes(header.DataStart, header.DataEnd));
}

static void DescribeIFF(PLAYER_SOUND &sound)
{
    const IFF_HEADER &header = RecordOf<IFF_HEADER>(sound);
    sound.Format = header.BitsPerSample == 8 ? "IFF 8SVX" : "IFF 16SV";
    sound.Codec = "linear";
    sound.Bytes = DataBytes(header.DataStart, header.FileSize);
    if (header.Rules == AUDIO_RULES_FORMAT) {
        const uint32_t packed = header.Compression;
        sound.Codec = packed == 0   ? "linear"
                      : packed == 1 ? "Fibonacci delta"
                                    : "exponential delta";
        sound.Bytes =
            DataBytes(header.DataStart, header.DataEnd) * header.Channels * (packed != 0 ? 2 : 1);
    } else if (header.Compression != 0)
        sound.Codec = "compression " + std::to_string(header.Compression) + ", taken for linear";
    AddFact(sound, "annotation", Player_Text(header.Annotation));
    AddNumber(sound, "octaves", header.Octaves);
}

// The record's rate is right for some files only; the bytes that it comes from are right for all.
static uint32_t RateOfAIFF(const AIFF_HEADER &header)
{
    const auto &rate = header.Rate;
    const int exponent = (rate[0] & 0x7F) << 8 | rate[1];
    double mantissa = 0;
    for (size_t i = 2; i < rate.size(); i++)
        mantissa = mantissa * 256 + rate[i];
    const double hz = std::ldexp(mantissa, exponent - 16383 - 63);
    return hz >= 1 && hz < 4e9 ? static_cast<uint32_t>(std::lround(hz)) : header.SamplingRate;
}

static void DescribeAIFF(PLAYER_SOUND &sound)
{
    const AIFF_HEADER &header = RecordOf<AIFF_HEADER>(sound);
    const std::string compression = Player_Text(header.Compression);
    sound.Format = compression.empty() ? "AIFF" : "AIFF-C";
    sound.Hz = RateOfAIFF(header);
    SetCodec(sound, header.Codec, DataBytes(header.DataStart, header.FileSize),
             {{0, "linear", 1}, {1, "bytes", 1}, {2, "A-law", 2}, {3, "mu-law", 2}});
    if (header.Rules == AUDIO_RULES_FORMAT)
        SetFrames(sound, header.Frames, DataBytes(header.DataStart, header.DataEnd));
    AddFact(sound, "compression", compression);
    AddNumber(sound, "frames", header.FrameCount);
}

void Describe_Sound(PLAYER_SOUND &sound)
{
    // Indexed by AUDIO_TYPE.
    constexpr std::array<void (*)(PLAYER_SOUND &), 9> describe = {
        nullptr,     DescribeRaw, DescribeWAV, DescribeMOD, DescribeMP3,
        DescribeVOC, DescribeAU,  DescribeIFF, DescribeAIFF};
    static_assert(describe.size() == AUDIO_TYPES);
    describe[sound.Track->Type](sound);
}
