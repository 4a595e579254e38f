// Detection of sound formats by content.
#include "audio/audio.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "audio/audio_module.h"
#include "platform/system.h"

using namespace std::string_view_literals;

uint8_t Audio_Type;
AUDIO_MP3FRAME Audio_MP3Frame;
AUDIO_MP3DETECT Audio_MP3Detect;

// ISO/IEC 11172-3, 2.4.2.3, and 13818-3: kbit/s of Layer III by index, below MPEG-1 and for it. All
// layers are taken by it.
constexpr std::array<std::array<uint16_t, 15>, 2> bitRates = {
    {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}}};
constexpr std::array<uint32_t, 4> samplingRates = {44100, 48000, 32000, 0};
// Of the coded version: MPEG-2.5, reserved, MPEG-2, MPEG-1.
constexpr std::array<uint32_t, 4> rateDivisors = {4, 1, 2, 1};

static constexpr uint32_t FrameLength(uint32_t bitRate, uint32_t samplingRate, uint32_t padding)
{
    return samplingRate == 0 ? 0 : 144 * bitRate / samplingRate + padding;
}

static_assert(std::is_sorted(bitRates[0].begin(), bitRates[0].end()) &&
                  std::is_sorted(bitRates[1].begin(), bitRates[1].end()) &&
                  FrameLength(bitRates[0].back() * 1000u, 32000 / 4, 1) < Audio_CheckBytes &&
                  FrameLength(bitRates[1].back() * 1000u, 32000, 1) < Audio_CheckBytes,
              "no frame is so long that it would have to be taken as none");

// Signatures at byte 1080 of modules, and what stands there in known modules of 15 instruments,
// which have none. The zeros are meant: they make every other file of up to 1080 bytes a module.
constexpr size_t moduleTag = 1080;
constexpr std::array moduleTags = {"M.K."sv,
                                   "M!K!"sv,
                                   "FLT4"sv,
                                   "FLT8"sv,
                                   "CD81"sv,
                                   "OCTA"sv,
                                   "TDZ1"sv,
                                   "\x00\xCA\x60\x00"sv,
                                   "\x00\xBE\x10\x00"sv,
                                   "\x00\x00\x00\x00"sv,
                                   "\x00\xFE\x40\x00"sv,
                                   "\x01\x1D\x10\x00"sv,
                                   "\x00\xD6\x10\x00"sv,
                                   "\x00\xAA\x30\x00"sv,
                                   "\x01\xC5\x20\x00"sv,
                                   "\x00\x00\x0C\x0F"sv,
                                   "\x00\xBE\x50\x00"sv};
static_assert(std::all_of(moduleTags.begin(), moduleTags.end(),
                          [](std::string_view tag) { return tag.size() == 4; }));

// The start of a file; what it lacks is 0, and so are the bytes behind the block.
struct AUDIO_HEAD {
    std::array<uint8_t, Audio_CheckBytes + 3> Bytes{};

    std::string_view Text(size_t offset, size_t count) const
    {
        return {reinterpret_cast<const char *>(Bytes.data()) + offset, count};
    }
    bool Has(size_t offset, std::string_view tag) const
    {
        return Text(offset, tag.size()) == tag;
    }
};

static void ReadFrameHeader(const uint8_t *bytes)
{
    AUDIO_MP3FRAME &frame = Audio_MP3Frame;
    const auto bits = [bytes](int byte, int shift, int mask) {
        return static_cast<uint8_t>(bytes[byte] >> shift & mask);
    };
    frame.Version = bits(1, 3, 3);
    frame.Layer = bits(1, 1, 3);
    frame.Protection = static_cast<uint8_t>(1 - bits(1, 0, 1));
    frame.BitRate = bits(2, 4, 15);
    frame.SamplingRate = bits(2, 2, 3);
    constexpr std::array<uint8_t, 4> adjust = {6, 0, 3, 0};
    frame.AdjustedSamplingRate = static_cast<uint8_t>(frame.SamplingRate + adjust[frame.Version]);
    frame.Padding = bits(2, 1, 1);
    frame.Private = bits(2, 0, 1);
    frame.ChannelMode = bits(3, 6, 3);
    frame.ModeExtension = bits(3, 4, 3);
    frame.Copyright = bits(3, 3, 1);
    frame.Original = bits(3, 2, 1);
    frame.Emphasis = bits(3, 0, 3);

    AUDIO_MP3DETECT &detect = Audio_MP3Detect;
    detect.Channels = frame.ChannelMode == 3 ? 1 : 2;
    detect.SamplingRate = samplingRates[frame.SamplingRate] / rateDivisors[frame.Version];
    detect.BitRate =
        frame.BitRate == 15 ? 1 : bitRates[frame.Version == 3 ? 1 : 0][frame.BitRate] * 1000u;
    frame.Length =
        static_cast<uint16_t>(FrameLength(detect.BitRate, detect.SamplingRate, frame.Padding));
}

// Two frames that lie where an earlier one's length said. Such hits add up over the whole block,
// and a frame that was hit predicts nothing itself.
static bool LooksLikeMPEG(const AUDIO_HEAD &head)
{
    constexpr size_t shortest = 128;  // a length up to that is passed over, but predicts nothing
    size_t predicted = SIZE_MAX;
    int hits = 0;
    for (size_t i = 0; i < Audio_CheckBytes;) {
        const uint8_t *bytes = head.Bytes.data() + i;
        // The sync bits and a layer code of 1 or 3.
        if (bytes[0] != 0xFF || (bytes[1] & 0xE2) != 0xE2) {
            i++;
            continue;
        }
        if (i == predicted) {
            if (++hits == 2)
                return true;
            i++;
            continue;
        }
        ReadFrameHeader(bytes);
        const size_t length = Audio_MP3Frame.Length;
        i += std::max<size_t>(length, 1);
        if (length > shortest)
            predicted = i;
    }
    return false;
}

static bool LooksLikeVOC(const AUDIO_HEAD &head)
{
    const std::string_view name = "Creative Voice File"sv;
    return head.Has(0, name) && head.Bytes[19] == 0x1A &&
           System_MakeUWord(head.Bytes[20], head.Bytes[21]) == 26;
}

static bool LooksLikeMOD(const AUDIO_HEAD &head)
{
    const std::string_view tag = head.Text(moduleTag, 4);
    if (std::find(moduleTags.begin(), moduleTags.end(), tag) != moduleTags.end())
        return true;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (tag.substr(1) == "CHN")
        return tag[0] >= '1' && tag[0] <= '9';
    if (tag.substr(2) != "CH" || !isDigit(tag[0]) || !isDigit(tag[1]))
        return false;
    const int channels = (tag[0] - '0') * 10 + (tag[1] - '0');
    return channels >= 10 && channels <= 64;
}

// The order matters: the first test that succeeds wins.
static AUDIO_TYPE TypeOf(const AUDIO_HEAD &head)
{
    if (head.Has(0, "RIFF") && head.Has(8, "WAVE"))
        return AUDIO_WAV;
    if (LooksLikeMPEG(head))
        return AUDIO_MP3;
    if (LooksLikeVOC(head))
        return AUDIO_VOC;
    if (head.Has(0, ".snd"))
        return AUDIO_AU;
    if (head.Has(0, "FORM") && (head.Has(8, "8SVX") || head.Has(8, "16SV")))
        return AUDIO_IFF;
    if (head.Has(8, "AIFF") || head.Has(8, "AIFC"))  // whatever stands before it
        return AUDIO_AIFF;
    if (LooksLikeMOD(head))
        return AUDIO_MOD;
    return AUDIO_RAW;
}

uint8_t Audio_Check(const char *path)
{
    uint32_t size;
    if (const AUDIO_FILE file = Audio_OpenFile(path, &size)) {
        AUDIO_HEAD head;
        if (std::fread(head.Bytes.data(), 1, Audio_CheckBytes, file.get()) > 0 ||
            !std::ferror(file.get()))
            Audio_Type = TypeOf(head);
    }
    return Audio_Type;
}
