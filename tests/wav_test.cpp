#include <numeric>

#include "audio/audio_module.h"
#include "audio/g711.h"
#include "tests/sound_files.h"

namespace
{

BYTES Little(int64_t value, int count)
{
    return Number(value, -count);
}

// 0, 1, 2 ... so that a byte shows its position.
BYTES Ramp(size_t count)
{
    BYTES bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

BYTES Part(const char (&id)[5], const BYTES &contents)
{
    return Text(id) + Little(static_cast<int64_t>(contents.size()), 4) + contents;
}

BYTES Riff(const BYTES &chunks)
{
    return Part("RIFF", Text("WAVE") + chunks);
}

// The contents of a format chunk at 8000 Hz.
BYTES Format(uint16_t tag, uint16_t channels, uint16_t align, uint16_t bits)
{
    return Little(tag, 2) + Little(channels, 2) + Little(8000, 4) + Little(8000 * align, 4) +
           Little(align, 2) + Little(bits, 2);
}

// With seven pairs of coefficients, the last of which extrapolates linearly.
BYTES Microsoft(uint16_t channels, uint16_t align)
{
    BYTES extra = Little(32, 2) + Little(0, 2) + Little(7, 2);
    for (const int pair : {256, 0, 512, 0, 0, 0, 192, 64, 240, 0, 460, 0, 512, -256})
        extra = extra + Little(pair, 2);
    return Format(2, channels, align, 4) + extra;
}

BYTES Ima(uint16_t channels, uint16_t align)
{
    return Format(17, channels, align, 4) + Little(2, 2) + Little(0, 2);
}

// The usual layout of ADPCM files: with a fact chunk before the data.
BYTES AdpcmFile(const BYTES &format, const BYTES &data)
{
    return Riff(Part("fmt ", format) + Part("fact", Little(0, 4)) + Part("data", data));
}

}  // namespace

// Lengths lack a sample, except ADPCM's; one that crosses the buffer's end is lost as well. The
// sound ends with its chunk.
TEST(Wav, Refills)
{
    const auto samples = [](uint16_t tag, uint16_t bits) { return Format(tag, 1, 4, bits); };
    const struct {
        const char *what;
        BYTES format;
        size_t data;
        uint32_t given, reported, taken;
    } rows[] = {
        {"8 bits", samples(1, 8), 10, 10, 9, 10},
        {"16 bits, a full buffer", samples(1, 16), 70000, 65536, 65534, 65536},
        {"16 bits, half a sample at the end", samples(1, 16), 7, 100, 6, 7},
        {"24 bits, a full buffer", samples(1, 24), 70000, 65536, 65535, 65538},
        {"32 bits", samples(1, 32), 40, 38, 36, 40},
        {"one sample counts as none", samples(1, 32), 4, 100, 0, 4},
        {"floating point is not decoded", samples(3, 32), 40, 40, 40, 0},
        {"A-law", samples(6, 8), 10, 100, 18, 10},
        {"mu-law, a full buffer", samples(7, 8), 70000, 65536, 65534, 32768},
        {"Microsoft", Microsoft(1, 2048), 70000, 65536, 8 * 4 * 2041, 8 * 2048},
        {"what does not count passes the buffer", Microsoft(2, 2062), 70000, 65536, 65536, 16496},
        {"IMA", Ima(1, 2048), 70000, 65536, 8 * 4 * 2044, 8 * 2048},
        {"four times the rest of the file", Ima(1, 256), 768, 65536, 3 * 4 * 252, 768},
        {"a block made of the headers' bytes", Ima(1, 8), 40, 65536, 10 * 16, 40},
        {"256 blocks are none", Ima(1, 68), 70000, 65536, 0, 0},
        {"no room for codes", Microsoft(2, 14), 100, 65536, 0, 0},
        {"no channels", Microsoft(0, 32), 64, 65536, 2 * 4 * 32, 64},
        {"no whole round of stereo codes", Ima(2, 20), 20, 65536, 4 * 12, 20},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const BYTES data = Ramp(r.data);
        const bool adpcm = r.format.size() > 16;
        const BYTES plain = Part("fmt ", r.format) + Part("data", data) + Part("LIST", Ramp(20));
        const BYTES file = adpcm ? AdpcmFile(r.format, data) : Riff(plain);
        const uint32_t start = LoadBytes(Wav, file).DataStart;
        const REFILL refill = Refill(Wav, start, r.given);
        EXPECT_EQ(refill.Length, r.reported);
        EXPECT_EQ(refill.Position, start + r.taken);
        if (adpcm)
            continue;
        const auto &table = r.format[0] == 6 ? AUDIO_ALAW : AUDIO_ULAW;
        for (uint32_t i = 0; i < r.reported && r.taken != 0; i++)
            ASSERT_EQ(refill.Bytes[i],
                      r.format[0] == 1 ? data[i] : (table[data[i / 2]] >> (8 * (i % 2)) & 255));
        EXPECT_TRUE(r.taken != r.data || Refill(Wav, refill.Position, 100).Length == 0);
    }
}

TEST(Wav, Chunks)
{
    const BYTES format = Part("fmt ", Format(1, 2, 4, 16)), data = Part("data", Ramp(40));
    const BYTES list = Part("LIST", Ramp(20)), odd = Part("odd ", Ramp(3)) + BYTES{0};
    const BYTES extensible = Part("fmt ", Format(0xFFFE, 2, 4, 16) + Little(22, 2) + Little(16, 2) +
                                              Little(3, 4) + Little(1, 2) + Ramp(14));
    const BYTES unknown = Text("data\0\0\0\0") + Ramp(40), none = Part("none", {});
    BYTES many = format;  // the data chunk is the last one walked
    for (int i = 0; i < 16382; i++)
        many.insert(many.end(), none.begin(), none.end());
    const BYTES large = Text("data\xFF\xFF\xFF\xFF") + Ramp(40);
    const struct {
        const char *what;
        BYTES chunks;
        uint16_t tag;
        uint32_t start, end;
        bool streamed = false;  // the size of the whole is unknown, too
    } rows[] = {
        {"a chunk before the format", list + format + data, 1, 72, 112},
        {"an odd chunk is padded", format + odd + data, 1, 56, 96},
        {"far past the start", format + Part("far ", Ramp(5000)) + data, 1, 5052, 5092},
        {"extensible", extensible + data, 1, 68, 108},
        {"a size of 0 is not known yet", format + unknown + list, 1, 44, 112, true},
        {"an empty sound", format + Part("data", {}) + list, 1, 44, 44},
        {"a size that passes the end", format + large, 1, 44, 84},
        {"no format chunk", list + data, 256, 0, 0},
        {"chunks without contents", format + none + none + data, 1, 60, 100},
        {"as many chunks as are walked", many + data, 1, 131100, 131140},
        {"one more: as without others", many + none + data, 1, 44, 44},
        {"Microsoft ADPCM alone", Part("fmt ", Microsoft(1, 32)), 2, 90, 70},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        BYTES file = Riff(r.chunks);
        if (r.streamed)
            std::fill_n(file.begin() + 4, 4, uint8_t{0});
        LoadBytes(Wav, file);
        const WAV_HEADER &w = *WAV_GetHeader(0);
        EXPECT_EQ(std::tuple(w.FormatTag, w.DataStart, w.DataEnd),
                  std::tuple(r.tag, r.start, r.end));
    }
}

// Blocks computed by hand.
TEST(Wav, AdpcmSamples)
{
    const struct {
        const char *what;
        BYTES format, block;
        std::vector<int> samples;  // the ones counted
        int32_t (*next)(uint8_t n, uint8_t channel, uint8_t code);
        int after;  // the samples that fit, for a code 0
    } rows[] = {
        // clang-format off
        // Predictor 9 is 6. 2 * 100 - 90 + 40, delta 35; 2 * 150 - 100 - 35.
        {"Microsoft", Microsoft(1, 9), {9, 40, 0, 100, 0, 90, 0, 0x1F, 0}, {90, 100, 150, 165},
         WAV_MS_ADPCM_GetNextSample, 180},
        {"delta is 16 at least", Microsoft(1, 9), {6, 1, 0, 0, 0, 0, 0, 0x01, 0}, {0, 0, 0, 16},
         WAV_MS_ADPCM_GetNextSample, 32},
        {"IMA, index 100 is 88", Ima(1, 6), {0, 0, 100, 0, 0x80, 0}, {4095, 371, 3756, 6833},
         WAV_IMA_ADPCM_GetNextSample, 9631},
        // clang-format on
    };
    for (const auto &r : rows) {
        const BYTES file = AdpcmFile(r.format, r.block);
        const FACTS facts = LoadBytes(Wav, file);
        const auto start = static_cast<uint32_t>(file.size() - r.block.size());
        EXPECT_EQ(facts, (FACTS{1, 8000, 16, start})) << r.what;
        const REFILL refill = Refill(Wav, start, static_cast<uint32_t>(2 * r.samples.size()));
        std::vector<int> samples;
        for (size_t i = 0; i < refill.Length; i += 2)
            samples.push_back(static_cast<int16_t>(refill.Bytes[i] | refill.Bytes[i + 1] << 8));
        EXPECT_EQ(samples, r.samples) << r.what;
        EXPECT_EQ(r.next(0, 0, 16), r.after) << r.what << ": of the code, four bits count";
        EXPECT_EQ(r.next(0, 2, 1) + r.next(99, 0, 1), 0) << r.what;
    }
}

TEST(Wav, FormatRules)
{
    const BYTES data = Part("data", {0x10, 0x20, 0xF0, 0xFF});
    const auto file = [](const BYTES &format, const BYTES &bytes) {
        return Riff(Part("fmt ", format) + Part("data", bytes));
    };
    // 1, -1, 1/2, not a number, -8
    const BYTES floats = Text("\0\0\x80\x3F\0\0\x80\xBF\0\0\0\x3F\0\0\xC0\x7F\0\0\0\xC1");
    const BYTES rifx = Text("RIFX\0\0\0\0WAVE") +
                       Chunk("fmt ", Number(1, 2) + Number(1, 2) + Number(8000, 4) +
                                         Number(16000, 4) + Number(2, 2) + Number(16, 2)) +
                       Chunk("data", {1, 2, 0xFF, 0xFE});
    const BYTES rf64 = Text("RF64\xFF\xFF\xFF\xFFWAVE") +
                       Part("ds64", BYTES(8) + Little(4, 8) + BYTES(12)) +
                       Part("fmt ", Format(1, 1, 2, 16)) + Text("data\xFF\xFF\xFF\xFF") +
                       BYTES{1, 0, 2, 0} + Part("LIST", Ramp(20));
    const BYTES three = Little(-1000, 2) + Little(1000, 2) + Little(1000, 2);
    // The first block is whole, the second has one byte of codes.
    const BYTES ima = {0, 0, 88, 0, 0x80, 0, 5, 0, 0, 0, 0x80};
    const BYTES fewer = Format(17, 1, 6, 4) + Little(2, 2) + Little(3, 2);
    const BYTES floor = {4, 16, 0, 0xFF, 0xFF, 0, 0, 0x00};
    BYTES unnamed = Microsoft(1, 8);
    unnamed[20] = 0;
    // clang-format off
    const FORMAT_ROW rows[] = {
        {"12 bits in 2 bytes", Wav, file(Format(1, 1, 2, 12), {0x10, 0x20, 0xF0, 0xFF}), 1, 8000,
         16, {0x2010, -16}},
        {"20 bits in 4", Wav, file(Format(1, 1, 4, 20), {0, 1, 2, 0x83}), 1, 8000, 32,
         {static_cast<int>(0x83020100)}},
        {"8 bytes", Wav, file(Format(1, 1, 8, 64), Ramp(8)), 1, 8000, 32, {0x07060504}},
        {"5 bits", Wav, file(Format(1, 1, 1, 5), {0x80, 0xF8}), 1, 8000, 8, {0x80, 0xF8}},
        {"floating point", Wav, file(Format(3, 1, 4, 32), floats), 1, 8000, 32,
         {INT32_MAX, INT32_MIN, 1 << 30, 0, INT32_MIN}},
        {"of 64 bits", Wav, file(Format(3, 1, 8, 64), Little(0x3FD0000000000000, 8)), 1, 8000, 32,
         {1 << 29}},
        {"big-endian", Wav, rifx, 1, 8000, 16, {0x0102, -2}},
        {"sizes of 64 bits", Wav, rf64, 1, 8000, 16, {1, 2}},
        {"data before the format", Wav, Riff(data + Part("fmt ", Format(1, 1, 2, 16))), 1, 8000,
         16, {0x2010, -16}},
        {"centre to both sides", Wav, file(Format(1, 3, 6, 16), three), 2, 8000, 16, {-172, 999}},
        {"A-law", Wav, file(Format(6, 1, 1, 8), {0xD5, 0x55, 0x80}), 1, 8000, 16, {8, -8, 5504}},
        {"IMA", Wav, file(Ima(1, 6), ima), 1, 8000, 16, {0, 4095, 371, 3756, 6833, 5}},
        {"as many as it says", Wav, file(fewer, ima), 1, 8000, 16, {0, 4095, 371, 5}},
        {"Microsoft, rounded down", Wav, file(Microsoft(1, 8), floor), 1, 8000, 16,
         {0, -1, -1, -1}},
        {"its usual coefficients", Wav, file(unnamed, floor), 1, 8000, 16, {0, -1, -1, -1}},
        {"no data chunk", Wav, Riff(Part("fmt ", Format(1, 1, 2, 16)) + Part("none", Ramp(60))),
         1, 8000, 16, {}, "no data chunk"},
        {"no format chunk", Wav, Riff(data), 0, 0, 0, {}, "no format chunk"},
        {"MPEG", Wav, file(Format(0x55, 2, 1, 0), Ramp(40)), 2, 8000, 0, {},
         "MPEG audio inside RIFF WAVE"},
        {"ADPCM of three", Wav, file(Ima(3, 24), Ramp(24)), 3, 8000, 0, {}, "ADPCM of 3 channels"},
        {"GSM", Wav, file(Format(0x31, 1, 65, 0), Ramp(65)), 1, 8000, 0, {}, "GSM 6.10 compression"},
        {"tag 99", Wav, file(Format(99, 1, 1, 8), Ramp(4)), 1, 8000, 0, {}, "format tag 99"},
        {"small blocks", Wav, file(Ima(1, 3), Ramp(6)), 1, 8000, 0, {}, "ADPCM blocks of 3 bytes"},
        {"33 channels", Wav, file(Format(1, 33, 66, 16), Ramp(66)), 0, 8000, 0, {}, "33 channels"},
        {"reals of 24 bits", Wav, file(Format(3, 1, 3, 24), Ramp(6)), 0, 8000, 0, {},
         "24 bits a sample"},
        {"72 bits", Wav, file(Format(1, 1, 9, 72), Ramp(9)), 0, 8000, 0, {}, "72 bits a sample"},
        {"no channels", Wav, file(Format(1, 0, 2, 16), Ramp(6)), 0, 8000, 0, {}, "0 channels"},
        {"A-law of 3", Wav, file(Format(6, 3, 3, 8), BYTES(3, 0x80)), 2, 8000, 16, {5503, 5503}},
        {"mu-law of 3", Wav, file(Format(7, 3, 3, 8), BYTES(3)), 2, 8000, 16, {-32124, -32124}},
        {"bytes of three", Wav, file(Format(1, 3, 3, 8), {192, 64, 128}), 2, 8000, 8, {165, 90}},
        {"no bits", Wav, file(Format(1, 1, 0, 0), Ramp(4)), 1, 8000, 0, {}, "0 bits a sample"},
    };
    // clang-format on
    for (const FORMAT_ROW &row : rows)
        CheckFormat(row);

    for (const char *kind : {"RIFX", "RF64", "BW64"}) {
        BYTES other = rf64;
        std::copy_n(kind, 4, other.begin());
        EXPECT_NE(Audio_CheckBytes(other), AUDIO_WAV) << kind;
        const FORMAT_RULES rules;
        EXPECT_EQ(Audio_CheckBytes(other), AUDIO_WAV) << kind;
    }

    // A block that decodes to more than a buffer.
    const FORMAT_RULES rules;
    const FACTS facts =
        LoadBytes(Wav, Riff(Part("fmt ", Ima(1, 40004)) + Part("data", Ramp(100000))));
    const std::string path = TempPath("sound");
    const BYTES whole = DecodeWhole(Wav, path, facts, {100000});
    EXPECT_EQ(whole.size(), 2u * (2 * 80001 + 1 + 2 * (100000 - 2 * 40004 - 4)));
    EXPECT_TRUE(DecodeWhole(Wav, path, facts, {32768}) == whole);
}

// L and R go to one side in full, l and r at 0.71, C to both at 0.71, S at a half, - to none; the
// sum is scaled to full level. One channel sounds in each frame.
TEST(Wav, SpeakersAreMixedToTwo)
{
    const struct {
        uint16_t channels;
        uint32_t mask;
        std::string weights;
    } rows[] = {
        {3, 0, "LRC"},
        {4, 0, "LRlr"},
        {5, 0, "LRClr"},
        {6, 0, "LRC-lr"},
        {7, 0, "LRC-Slr"},
        {8, 0, "LRC-lrlr"},
        {9, 0, "SSSSSSSSS"},
        {3, 3, "LRS"},
        {32, 0, std::string(32, 'S')},
        {18, 0x3FFFF, "LRC-lrLRSlrSlSrlSr"},
    };
    for (const auto &r : rows) {
        const auto weight = [](char speaker, const std::string &side) {
            const size_t at = side.find(speaker);
            return at == 0 ? 32768 : speaker == 'S' ? 16384 : at != std::string::npos ? 23170 : 0;
        };
        const std::array<std::string, 2> sides = {"LlC", "RrC"};
        int most = 32768;
        for (const std::string &side : sides)
            most = std::max(
                most, std::accumulate(r.weights.begin(), r.weights.end(), 0,
                                      [&](int sum, char c) { return sum + weight(c, side); }));
        BYTES data;
        std::vector<int> expected;
        for (size_t frame = 0; frame < r.channels; frame++) {
            for (size_t channel = 0; channel < r.channels; channel++)
                data = data + Little(channel == frame ? 16384 : 0, 2);
            for (const std::string &side : sides)
                expected.push_back(
                    static_cast<int>(weight(r.weights[frame], side) * 32768LL / most / 2));
        }
        const BYTES format = Format(0xFFFE, r.channels, static_cast<uint16_t>(2 * r.channels), 16) +
                             Little(22, 2) + Little(16, 2) + Little(r.mask, 4) + Little(1, 2) +
                             BYTES(14);
        CheckFormat({r.weights.c_str(), Wav, Riff(Part("fmt ", format) + Part("data", data)), 2,
                     8000, 16, expected});
    }
}
