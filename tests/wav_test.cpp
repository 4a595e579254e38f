#include "audio/g711.h"
#include "tests/sound_files.h"

namespace
{

const MODULE &Wav = Modules[0];

using BYTES = std::vector<uint8_t>;

BYTES operator+(BYTES a, const BYTES &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

BYTES Little(uint64_t value, int count)
{
    BYTES bytes;
    for (int i = 0; i < count; i++)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return bytes;
}

// 0, 1, 2 ... so that a byte tells where it stood.
BYTES Ramp(size_t count)
{
    BYTES bytes(count);
    for (size_t i = 0; i < count; i++)
        bytes[i] = static_cast<uint8_t>(i);
    return bytes;
}

BYTES Chunk(const char (&id)[5], const BYTES &contents)
{
    return Text(id) + Little(contents.size(), 4) + contents;
}

BYTES Riff(const BYTES &chunks)
{
    return Chunk("RIFF", Text("WAVE") + chunks);
}

// The fields of a format chunk at 8000 Hz.
BYTES Format(uint16_t tag, uint16_t channels, uint16_t align, uint16_t bits)
{
    return Little(tag, 2) + Little(channels, 2) + Little(8000, 4) + Little(8000u * align, 4) +
           Little(align, 2) + Little(bits, 2);
}

// Microsoft's extra fields: samples a block, then 2 of the standard pairs and 5 more. The last is
// (512, -256): the prediction goes straight on.
BYTES MicrosoftFormat(uint16_t channels, uint16_t align)
{
    BYTES extra = Little(0, 2) + Little(7, 2);
    for (const int pair : {256, 0, 512, 0, 0, 0, 192, 64, 240, 0, 460, 0})
        extra = extra + Little(static_cast<uint64_t>(pair), 2);
    extra = extra + Little(0, 4);
    extra.resize(4 + 6 * 4);
    extra = extra + Little(512, 2) + Little(static_cast<uint64_t>(-256), 2);
    return Format(2, channels, align, 4) + Little(extra.size(), 2) + extra;
}

// As ADPCM files usually are: with a fact chunk in front of the data.
BYTES AdpcmFile(const BYTES &format, const BYTES &data)
{
    return Riff(Chunk("fmt ", format) + Chunk("fact", Little(0, 4)) + Chunk("data", data));
}

FACTS LoadBytes(const BYTES &file)
{
    return LoadFirst(Wav, WriteTemp("wav.wav", file));
}

// Samples of a refill's counted bytes.
std::vector<int> Words(const REFILL &refill)
{
    std::vector<int> words;
    for (size_t i = 0; i + 1 < refill.Length; i += 2)
        words.push_back(static_cast<int16_t>(refill.Bytes[i] | refill.Bytes[i + 1] << 8));
    return words;
}

} // namespace

TEST(G711, WorkedValues)
{
    const struct {
        const char *what;
        int value, expected;
    } rows[] = {
        {"A-law: the least negative", Audio_Alaw(0x55), -8},
        {"A-law: the least positive", Audio_Alaw(0xD5), 8},
        {"A-law: table 1a's 4032, the largest", Audio_Alaw(0xAA), 4032 * 8},
        {"A-law: table 1a's 2112, the lowest of its segment", Audio_Alaw(0xA5), 2112 * 8},
        {"A-law: table 1b's -4032", Audio_Alaw(0x2A), -4032 * 8},
        {"A-law: 0x80", Audio_Alaw(0x80), 5504},
        {"mu-law: table 2a's 8031, the largest", Audio_Ulaw(0x80), 8031 * 4},
        {"mu-law: table 2a's 4191, the lowest of its segment", Audio_Ulaw(0x8F), 4191 * 4},
        {"mu-law: table 2b's -8031", Audio_Ulaw(0x00), -32124},
        {"mu-law: zeros", Audio_Ulaw(0xFF) | Audio_Ulaw(0x7F), 0},
        {"mu-law: the least positive", Audio_Ulaw(0xFE), 8},
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.value, r.expected) << r.what;
}

// Lengths lack a sample, and one that passes the buffer's end is lost with it.
TEST(Wav, Refills)
{
    const struct {
        const char *what;
        uint16_t tag, bits;
        size_t data;
        uint32_t given, reported, taken;
    } rows[] = {
        {"8 bits", 1, 8, 10, 10, 9, 10},
        {"8 bits to the end", 1, 8, 10, 4096, 9, 10},
        {"16 bits, a full buffer", 1, 16, 70000, 65536, 65534, 65536},
        {"16 bits, half a sample at the end", 1, 16, 7, 100, 6, 7},
        {"24 bits, a full buffer", 1, 24, 70000, 65536, 65535, 65538},
        {"32 bits", 1, 32, 40, 38, 36, 40},
        {"one sample is none", 1, 32, 4, 100, 0, 4},
        {"nothing left", 1, 16, 0, 100, 0, 0},
        {"12 bits are not decoded", 1, 12, 40, 40, 40, 0},
        {"floating point is not decoded", 3, 32, 40, 40, 40, 0},
        {"A-law", 6, 8, 10, 100, 18, 10},
        {"mu-law, a full buffer", 7, 8, 70000, 65536, 65534, 32768},
        {"mu-law, an odd buffer", 7, 8, 20, 7, 6, 4},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const BYTES data = Ramp(r.data);
        const std::string path = WriteTemp(
            "wav.wav", Riff(Chunk("fmt ", Format(r.tag, 1, 4, r.bits)) + Chunk("data", data)));
        const FACTS facts = LoadFirst(Wav, path);
        EXPECT_EQ(facts.DataStart, r.tag == 3 ? 0 : 44);
        const REFILL refill = Refill(Wav, path, 44, r.given);
        EXPECT_EQ(refill.Length, r.reported);
        EXPECT_EQ(refill.Position, 44 + r.taken);
        for (uint32_t i = 0; i < r.reported && r.taken != 0; i++)
            ASSERT_EQ(refill.Bytes[i],
                      r.tag == 1 ? data[i]
                                 : static_cast<uint8_t>(
                                       (r.tag == 6 ? AUDIO_ALAW : AUDIO_ULAW)[data[i / 2]] >>
                                       (8 * (i % 2))))
                << i;
    }
}

TEST(Wav, Chunks)
{
    const BYTES format = Chunk("fmt ", Format(1, 2, 4, 16)), data = Chunk("data", Ramp(40));
    const BYTES list = Chunk("LIST", Ramp(20)), odd = Chunk("odd ", Ramp(3)) + BYTES{0};
    const BYTES extensible = Format(0xFFFE, 2, 4, 16) + Little(22, 2) + Little(16, 2) +
                             Little(3, 4) + Little(1, 2) + Ramp(14);
    BYTES unknown = data, large = data, zeros = Chunk("data", {});
    unknown[4] = 0;
    large[7] = 0xFF;
    const struct {
        const char *what;
        BYTES chunks;
        uint16_t tag;
        uint32_t start, end;
    } rows[] = {
        {"as usual", format + data, 1, 44, 84},
        {"an 18-byte format chunk", Chunk("fmt ", Format(1, 2, 4, 16) + Little(0, 2)) + data, 1, 46,
         86},
        {"a chunk before the data", format + list + data, 1, 72, 112},
        {"a chunk before the format", list + format + data, 1, 72, 112},
        {"an odd chunk is padded", format + odd + data, 1, 56, 96},
        {"a chunk far behind the start", format + Chunk("pad ", Ramp(5000)) + data, 1, 5052, 5092},
        {"extensible, linear", Chunk("fmt ", extensible) + data, 1, 68, 108},
        {"extensible without a sub-format", Chunk("fmt ", Format(0xFFFE, 2, 4, 16)) + data, 0xFFFE,
         0, 0},
        {"a chunk behind the data", format + data + list, 1, 44, 84},
        {"a size of 0 is not known yet", format + unknown + list, 1, 44, 112},
        {"a size that passes the end", format + large, 1, 44, 84},
        {"no data chunk", format + list, 1, 44, 64},
        {"no format chunk", list + data, 0x0100, 0, 0},
        {"chunks without contents", format + zeros + zeros, 1, 44, 52},
        {"a fact chunk and Microsoft ADPCM",
         Chunk("fmt ", MicrosoftFormat(1, 32)) + Chunk("fact", Ramp(4)) + data, 2, 90, 130},
        {"Microsoft ADPCM without a data chunk", Chunk("fmt ", MicrosoftFormat(1, 32)), 2, 90, 70},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const FACTS facts = LoadBytes(Riff(r.chunks));
        ASSERT_NE(WAV_GetHeader(0), nullptr);
        EXPECT_EQ(WAV_GetHeader(0)->FormatTag, r.tag);
        EXPECT_EQ(facts.DataStart, r.start);
        EXPECT_EQ(WAV_GetHeader(0)->DataEnd, r.end);
    }
}

TEST(Wav, SoundEndsWithItsChunk)
{
    const std::string path =
        WriteTemp("wav.wav", Riff(Chunk("fmt ", Format(1, 1, 1, 8)) + Chunk("data", Ramp(10)) +
                                  Chunk("LIST", Ramp(20))));
    LoadFirst(Wav, path);
    const REFILL refill = Refill(Wav, path, 44, 100);
    EXPECT_EQ(refill.Length, 9u);
    EXPECT_EQ(refill.Position, 54u);
    EXPECT_EQ(Refill(Wav, path, 54, 100).Length, 0u);
    EXPECT_EQ(Refill(Wav, path, 60, 100).Length, 0u);
}

// Blocks worked by hand.
TEST(Wav, AdpcmSamples)
{
    const BYTES header = {9, 40, 0, 100, 0, 90, 0}; // predictor 9 is 6, delta 40, newest, previous
    const BYTES stereo = {6, 6, 16, 0, 32, 0, 10, 0, 20, 0, 10, 0, 20, 0};
    const struct {
        const char *what;
        BYTES format, block;
        std::vector<int> samples; // counted ones
    } rows[] = {
        // 2 * 100 - 90 + 40; delta 35; 2 * 150 - 100 - 35, delta 31; ...
        {"Microsoft, mono", MicrosoftFormat(1, 9), header + BYTES{0x1F, 0x00}, {90, 100, 150, 165}},
        {"Microsoft, stereo", MicrosoftFormat(2, 16), stereo + BYTES{0x10, 0x00}, {10, 20, 10, 20}},
        {"Microsoft, delta stays 16",
         MicrosoftFormat(1, 9),
         BYTES{6, 1, 0, 0, 0, 0, 0} + BYTES{0x01, 0x11},
         {0, 0, 0, 16}},
        {"Microsoft, toward zero and clamped",
         MicrosoftFormat(1, 9),
         BYTES{3, 0xFF, 0x7F, 0xFD, 0xFF, 0, 0} + BYTES{0x07, 0x70},
         {0, -3, -2, 32767}},
        // Step 7: 7 >> 3; then + 7, index 0, 8, ...
        {"IMA, mono, low code first",
         Format(17, 1, 6, 4) + Little(2, 2) + Little(5, 2),
         BYTES{10, 0, 0, 0, 0x40, 0x8C},
         {10, 17, 7, 6}},
        {"IMA, index 100 is 88",
         Format(17, 1, 6, 4) + Little(2, 2) + Little(5, 2),
         BYTES{0, 0, 100, 0, 0x0F, 0x00},
         {-32768, -28673, -24949, -21564}},
        {"IMA, stereo",
         Format(17, 2, 16, 4) + Little(2, 2) + Little(9, 2),
         BYTES{0, 0, 0, 0, 100, 0, 0, 0, 0x44, 0, 0, 0, 0x0C, 0, 0, 0},
         {7, 93, 17, 94, 18, 95, 19, 95, 20, 95, 21, 95, 21, 95, 21, 95}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const BYTES file = AdpcmFile(r.format, r.block);
        const FACTS facts = LoadBytes(file);
        EXPECT_EQ(facts.BitsPerSample, 16u);
        EXPECT_EQ(facts.DataStart, file.size() - r.block.size());
        const REFILL refill = Refill(Wav, TempPath("wav.wav"), facts.DataStart,
                                     static_cast<uint32_t>(2 * r.samples.size()));
        EXPECT_EQ(Words(refill), r.samples);
    }
}

TEST(Wav, AdpcmLengths)
{
    const struct {
        const char *what;
        uint16_t tag, channels, align;
        size_t data;
        uint32_t given, reported, taken;
    } rows[] = {
        {"Microsoft: 8 blocks fit", 2, 1, 2048, 70000, 65536, 8 * 4 * 2041, 8 * 2048},
        {"Microsoft: stored bytes pass the buffer", 2, 2, 2062, 70000, 65536, 65536, 8 * 2062},
        {"IMA: 8 blocks fit", 17, 1, 2048, 70000, 65536, 8 * 4 * 2044, 8 * 2048},
        {"the rest of the file: four times its bytes", 17, 1, 256, 3 * 256, 65536, 3 * 4 * 252,
         3 * 256},
        {"a block that the headers' bytes make up", 17, 1, 8, 8 * 5, 65536, 10 * 16, 8 * 5},
        {"less than a block", 17, 1, 256, 251, 65536, 0, 0},
        {"256 blocks are none", 17, 1, 68, 70000, 65536, 0, 0},
        {"257 blocks are one", 17, 1, 68, 70000, 65792, 256, 68},
        {"no room for codes", 2, 2, 14, 100, 65536, 0, 0},
        {"align 0", 17, 0, 0, 100, 65536, 0, 0},
        {"three channels", 17, 3, 32, 64, 65536, 3 * 4 * 20, 64},
        {"no channels", 2, 0, 32, 64, 65536, 2 * 4 * 32, 64},
        {"stereo codes that are no whole round", 17, 2, 20, 20, 65536, 4 * 12, 20},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const BYTES file =
            AdpcmFile(Format(r.tag, r.channels, r.align, 4) + Little(0, 4), BYTES(r.data, 0x11));
        const FACTS facts = LoadBytes(file);
        const REFILL refill = Refill(Wav, TempPath("wav.wav"), facts.DataStart, r.given);
        EXPECT_EQ(refill.Length, r.reported);
        EXPECT_EQ(refill.Position, facts.DataStart + r.taken);
    }
}

TEST(Wav, NextSamples)
{
    LoadBytes(AdpcmFile(MicrosoftFormat(2, 32), {}));
    WAV_CHANNEL &right = WAV_GetHeader(0)->Decoder[1];
    right = {6, 512, -256, 40, 100, 90, 0};
    EXPECT_EQ(WAV_MS_ADPCM_GetNextSample(0, 1, 1), 150);
    EXPECT_EQ(right.Previous, 100);
    EXPECT_EQ(right.Delta, 35);
    EXPECT_EQ(WAV_IMA_ADPCM_GetNextSample(0, 1, 4), 157);
    EXPECT_EQ(right.StepIndex, 2);
    EXPECT_EQ(WAV_IMA_ADPCM_GetNextSample(0, 2, 4), 0) << "no such channel";
    EXPECT_EQ(WAV_MS_ADPCM_GetNextSample(31, 0, 4), 0) << "no such record";
}
