#include "tools/player/sound.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <span>

#include <sys/stat.h>
#include <unistd.h>

#include "audio/aiff.h"
#include "audio/au.h"
#include "audio/iff.h"
#include "audio/mod.h"
#include "audio/mp3.h"
#include "audio/voc.h"
#include "audio/wav.h"
#include "tools/common/text.h"
#include "tools/player/text.h"

// What tracker modules are rendered as.
constexpr uint32_t ModuleBits = 16;
constexpr uint32_t ModuleChannels = 2;
constexpr uint32_t ModuleHz = 44100;

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
    uint8_t Growth;  // bytes of output for each of the file; 0: not decoded
};

// Sets codec and output bytes. `data` is the bytes of the sound in the file.
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
    const bool microsoft = header.FormatTag == 2;
    if (!microsoft && header.FormatTag != 17)
        return;
    const uint64_t codes = (microsoft ? 7u : 4u) * header.Channels;  // in front of them
    const uint64_t headers = microsoft ? 4u * header.Channels : 0;   // bytes of samples there
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
    sound.Bytes = uint64_t{header.Milliseconds} * ModuleHz / 1000 * ModuleChannels * ModuleBits / 8;
    sound.Title = Player_Text(header.Title);
    AddNumber(sound, "positions", header.SongLength);
    AddNumber(sound, "instruments", header.SampleCount);
    for (size_t i = 0; i < header.SampleCount; i++) {
        const std::string number = "instrument " + std::to_string(i + 1);
        AddFact(sound, number.c_str(), Player_Text(header.SampleNames[i]));
    }
}

// Samples a channel of the frames from where `file` stands on.
static uint64_t CountFrames(FILE *file, uint8_t n)
{
    uint64_t samples = 0;
    while (MP3_LoadFrame(file, n) != 0)
        samples += MP3_GetHeader(n)->Version == 3 ? 1152 : 576;
    return samples;
}

// Those of the sound. Where the search for frames gives up, the next refill goes on with it; only
// one that finds none is the end.
static uint64_t CountMP3(FILE *file, uint8_t n)
{
    uint64_t samples = 0;
    while (const uint64_t more = CountFrames(file, n))
        samples += more;
    return samples;
}

// The newer tag's text, which the older one cuts, if it has one.
static std::string TagText(std::span<const char> v2, std::span<const char> v1)
{
    const std::string text = Player_Text(v2);
    return text.empty() ? Player_Text(v1) : text;
}

// The newer tag's number is cut to one character: it may be part of the number, or of no text.
static std::string TrackText(const MP3_ID3V1 &v1, const MP3_ID3V2 &v2)
{
    if (v1.TrackNumber != 0)
        return std::to_string(v1.TrackNumber);
    const char first = v2.Track[0];
    return first >= '0' && first <= '9' ? std::string(1, first) : "";
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

static void DescribeMP3(PLAYER_SOUND &sound)
{
    const AudioTrack &track = *sound.Track;
    const uint8_t n = track.SoundNumber;
    uint32_t size;
    const SOUND_STREAM file = Sound_OpenFile(track.Path.c_str(), &size);
    if (!file)
        return;
    fseeko(file.get(), track.DataStart, SEEK_SET);
    MP3_LoadFrame(file.get(), n);
    const MP3_HEADER &header = *MP3_GetHeader(n);
    sound.Channels = header.Channels;
    sound.Hz = header.SamplingRate;
    sound.Format = "MPEG audio";
    sound.Codec = std::string(MP3_Version[header.Version & 3]) + " " + MP3_Layer[header.Layer & 3];
    AddTags(sound, header.ID3v1, header.ID3v2);
    AddFact(sound, "bit rate", std::to_string(header.BitRate / 1000) + " kbit/s");
    AddFact(sound, "mode", MP3_Channels[header.ChannelMode & 3]);
    fseeko(file.get(), track.DataStart, SEEK_SET);
    sound.Bytes = CountMP3(file.get(), n) * Player_FrameBytes(sound);
}

static void DescribeVOC(PLAYER_SOUND &sound)
{
    const VOC_HEADER &header = RecordOf<VOC_HEADER>(sound);
    sound.Format = "Creative Voice";
    SetCodec(sound, header.Codec, DataBytes(header.DataStart, header.FileSize),
             {{0, "linear", 1}, {4, "linear", 1}, {6, "A-law", 2}, {7, "mu-law", 2}});
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
}

static void DescribeIFF(PLAYER_SOUND &sound)
{
    const IFF_HEADER &header = RecordOf<IFF_HEADER>(sound);
    sound.Format = header.BitsPerSample == 8 ? "IFF 8SVX" : "IFF 16SV";
    sound.Codec = "linear";
    if (header.Compression != 0)
        sound.Codec = "compression " + std::to_string(header.Compression) + ", taken for linear";
    sound.Bytes = DataBytes(header.DataStart, header.FileSize);
    AddFact(sound, "annotation", Player_Text(header.Annotation));
    AddNumber(sound, "octaves", header.Octaves);
}

// The rate that the record has is right for some files only; the bytes that it was taken from tell
// it for all.
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
    AddFact(sound, "compression", compression);
    AddNumber(sound, "frames", header.FrameCount);
}

// By AUDIO_TYPE.
constexpr std::array<void (*)(PLAYER_SOUND &), 9> Describe = {
    nullptr,     DescribeRaw, DescribeWAV, DescribeMOD, DescribeMP3,
    DescribeVOC, DescribeAU,  DescribeIFF, DescribeAIFF};
static_assert(Describe.size() == AUDIO_TYPES);

void PLAYER_UNLOAD::operator()(AudioTrack *track) const
{
    const bool freed = track->Buffer[0];  // the others the engine leaves to their owner
    Audio_AbortStream(*track);  // so that the unloading need not wait for what is buffered
    Audio_UnLoad(track);
    if (!freed)
        delete track;
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
}

// Why the file cannot be read; empty when it can.
static std::string WhyUnreadable(const std::string &path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
        return std::strerror(errno);
    if (S_ISDIR(status.st_mode))
        return std::strerror(EISDIR);
    uint32_t size;
    return Sound_OpenFile(path.c_str(), &size) ? "" : "not a regular file below 4 GiB";
}

static void SetOutput(uint8_t bits, uint8_t channels, uint32_t hz)
{
    Audio_SetChannel(channels);
    Audio_SetBPS(bits);
    Audio_Hz = hz;
}

static void ReadFacts(PLAYER_SOUND &sound)
{
    const AudioTrack &track = *sound.Track;
    AUDIO_FACTS facts = {Audio_Channel, Audio_Hz, Audio_BPS, 0};
    if (track.Decoded)
        facts = Audio_Modules[track.Type].Facts(track.Record.get());
    sound.Name = Player_Text(track.Path.substr(track.Path.rfind('/') + 1));
    sound.Bits = facts.BitsPerSample;
    sound.Channels = facts.Channels;
    sound.Hz = facts.SamplingRate;
    Describe[track.Type](sound);
}

// Bytes in front of an MPEG stream that its tag takes (ID3v2.4, 3.1), with what pads it; 0 without.
// The engine looks for frames from the first byte on, where a tag's pictures may pass for some, and
// hide the sound where they are large.
static uint32_t TagBytes(const std::string &path)
{
    uint32_t size;
    const SOUND_STREAM file = Sound_OpenFile(path.c_str(), &size);
    std::array<uint8_t, 10> head{};
    if (!file || std::fread(head.data(), 1, head.size(), file.get()) != head.size() ||
        std::memcmp(head.data(), "ID3", 3) != 0)
        return 0;
    uint32_t bytes = 0;
    for (const uint8_t seven : std::span(head).last(4))
        bytes = bytes << 7 | (seven & 0x7Fu);
    bytes += (head[5] & 0x10) != 0 ? 20 : 10;  // with a footer or without
    fseeko(file.get(), bytes, SEEK_SET);
    int byte = std::getc(file.get());
    for (; byte == 0; byte = std::getc(file.get()))
        bytes++;
    const int second = std::getc(file.get());
    return byte == 0xFF && second != EOF && (second & 0xE2) == 0xE2 ? bytes : 0;
}

std::string Player_Open(const std::string &path, const PLAYER_RAW &raw, PLAYER_SOUND &sound)
{
    const std::string unreadable = WhyUnreadable(path);
    if (!unreadable.empty())
        return unreadable;
    const uint32_t tag = TagBytes(path);
    const uint8_t type = tag != 0 ? uint8_t{AUDIO_MP3} : Audio_Check(path.c_str());
    if (type != AUDIO_RAW)
        SetOutput(ModuleBits, ModuleChannels, ModuleHz);
    else if (raw.Channels != 0)
        SetOutput(raw.Bits, raw.Channels, raw.Hz);
    else
        return "not a sound of a known format (--raw takes it for samples)";
    sound.Track.reset(Audio_LoadAs(path.c_str(), type));
    sound.Incomplete = Audio_Reason();
    if (!sound.Track->Buffer[0])
        return sound.Incomplete.empty() ? "damaged, or not a sound" : sound.Incomplete;
    if (tag > sound.Track->DataStart) {
        sound.Track->DataStart = tag;
        sound.Incomplete.clear();  // what is said of the tag's bytes
    }
    ReadFacts(sound);
    return "";
}

std::string Player_WhySilent(const PLAYER_SOUND &sound)
{
    if (!sound.Plays)
        return sound.Format + " with " + sound.Codec + " is not decoded";
    const bool bits = sound.Bits == 8 || sound.Bits == 16 || sound.Bits == 24 || sound.Bits == 32;
    if (!bits || sound.Channels == 0 || sound.Channels > UINT8_MAX || sound.Hz == 0)
        return sound.Format + " of " + std::to_string(sound.Channels) + " channels of " +
               std::to_string(sound.Bits) + " bits at " + std::to_string(sound.Hz) +
               " Hz is not decoded";
    return sound.Bytes == 0 ? "there is no sound in it" : "";
}

void Player_Start(const PLAYER_SOUND &sound)
{
    Audio_SetCurrent(sound.Track.get());
    Audio_SetLoop(1);
    Audio_ReStart();
}

size_t Player_Take(const PLAYER_SOUND &sound, uint32_t &passes, std::span<uint8_t> out)
{
    AudioTrack &track = *sound.Track;
    size_t done = Audio_Take(&track, out.data(), out.size());
    while (track.Ended && track.Taken != 0 && track.Error == 0 && passes != 1) {
        passes -= passes != 0;
        Player_Start(sound);
        done += Audio_Take(&track, out.data() + done, out.size() - done);
    }
    return done;
}

double Player_Seconds(const PLAYER_SOUND &sound)
{
    const double bytes = 1.0 * Player_FrameBytes(sound) * sound.Hz;
    return bytes > 0 ? static_cast<double>(sound.Bytes) / bytes : 0;
}

static void AddLine(std::string &text, const std::string &what, const std::string &value)
{
    text += "  " + what + std::string(what.size() < 15 ? 15 - what.size() : 1, ' ') + value + "\n";
}

// Of the length's last second.
static std::string Thousandths(const PLAYER_SOUND &sound)
{
    const int thousandths = static_cast<int>(std::fmod(Player_Seconds(sound), 1) * 1000);
    std::string text = std::to_string(1000 + thousandths);
    text[0] = '.';
    return text;
}

std::string Player_Info(const PLAYER_SOUND &sound)
{
    std::string text = Player_Text(sound.Track->Path) + "\n";
    AddLine(text, "format", sound.Format);
    AddLine(text, "codec", sound.Codec);
    AddLine(text, "rate", std::to_string(sound.Hz) + " Hz");
    AddLine(text, "channels", std::to_string(sound.Channels));
    AddLine(text, "bits", std::to_string(sound.Bits));
    AddLine(text, "length", Player_Time(Player_Seconds(sound)) + Thousandths(sound));
    if (!sound.Title.empty())
        AddLine(text, "title", sound.Title);
    for (const auto &[what, value] : sound.Facts)
        AddLine(text, what, value);
    if (!sound.Incomplete.empty())
        AddLine(text, "incomplete", sound.Incomplete);
    const std::string silent = Player_WhySilent(sound);
    if (!silent.empty())
        AddLine(text, "silent", silent);
    return text;
}

std::string Player_JSON(const PLAYER_SOUND &sound)
{
    const auto whole = static_cast<uint64_t>(Player_Seconds(sound));
    std::string text = "{\"path\":";
    text += Text_JSON(sound.Track->Path);
    const auto add = [&text](const char *name, const std::string &value) {
        text += ",\"";
        text += name;
        text += "\":";
        text += value;
    };
    add("format", Text_JSON(sound.Format));
    add("codec", Text_JSON(sound.Codec));
    add("rate", std::to_string(sound.Hz));
    add("channels", std::to_string(sound.Channels));
    add("bits", std::to_string(sound.Bits));
    add("length", std::to_string(whole) + Thousandths(sound));
    if (!sound.Title.empty())
        add("title", Text_JSON(sound.Title));
    std::string facts = "{";
    for (const auto &[what, value] : sound.Facts) {
        facts += facts.size() > 1 ? "," : "";
        facts += Text_JSON(what) + ":" + Text_JSON(value);
    }
    add("facts", facts + "}");
    const std::string silent = Player_WhySilent(sound);
    add("truncated", sound.Incomplete.empty() ? "false" : "true");
    if (!silent.empty() || !sound.Incomplete.empty())
        add("reason", Text_JSON(sound.Incomplete.empty() ? silent : sound.Incomplete));
    return text;
}
