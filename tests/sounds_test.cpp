// VOC, AU, IFF and AIFF, and what all sound modules have in common.
#include "audio/g711.h"
#include "tests/mod_writer.h"
#include "tests/sound_files.h"

namespace
{

BYTES VocFile(const BYTES &blocks)
{
    return Text("Creative Voice File\x1A\x1A\0\x0A\x01\x29\x11") + blocks;
}

BYTES AuFile(uint32_t encoding, const BYTES &data)
{
    return Text(".snd\0\0\0\x18\0\0\0\0") + Number(encoding, 4) + Number(11025, 4) + Number(2, 4) +
           data;
}

BYTES IffFile(const char (&type)[5], const BYTES &chunks)
{
    return Chunk("FORM", Text(type) + chunks);
}

// 8363 Hz, 3 octaves, compression 1.
const BYTES Vhdr = Chunk("VHDR", BYTES(12) + Number(8363, 2) + BYTES{3, 1, 0, 1, 0, 0});

// 2 channels; 44100 Hz, or half of that with the exponent 13.
BYTES Comm(uint16_t bits, const BYTES &compression = {}, uint8_t exponent = 14)
{
    return Chunk("COMM", BYTES{0, 2, 0, 0, 1, 0} + Number(bits, 2) +
                             BYTES{0x40, exponent, 0xAC, 0x44, 0, 0, 0, 0, 0, 0} + compression);
}

struct FILE_ROW {
    const char *What;
    BYTES File;
    FACTS Facts;
    uint32_t Codec;
    std::string Text = "";
};

const BYTES Data = {1, 2, 3, 4, 5, 6, 7};

}  // namespace

TEST(Sounds, Headers)
{
    const BYTES block1 = {1, 9, 0, 0, 0xA6, 0}, block8 = {8, 4, 0, 0, 0x54, 0xE9, 4, 1};
    const BYTES block9 = {9, 15, 0, 0, 0x44, 0xAC, 0, 0, 16, 2, 4, 0, 0, 0, 0, 0};
    const FILE_ROW voc[] = {
        {"block 8, then block 1's rate", VocFile(block8 + block1), {2, 11111, 8, 40}, 0},
        {"block 8 alone", VocFile(block8), {2, 22053, 8, 0}, 4},
        {"block 9", VocFile(block9 + Data), {2, 44100, 16, 42}, 4},
        {"A-law", VocFile({1, 9, 0, 0, 0xA6, 6}), {1, 11111, 16, 32}, 6},
        {"other bytes in front", VocFile(BYTES(3, 5) + block1), {1, 11111, 8, 35}, 0},
        {"at the scan's end", VocFile(BYTES(997) + block9), {2, 44100, 16, 1039}, 4},
        {"past it", VocFile(BYTES(998) + block9), {1, 0, 8, 0}, 0},
    };
    for (const FILE_ROW &row : voc) {
        EXPECT_EQ(LoadBytes(Voc, row.File), row.Facts) << row.What;
        EXPECT_EQ(VOC_GetHeader(0)->Codec, row.Codec) << row.What;
        EXPECT_EQ(VOC_GetHeader(0)->Version, 0x010A) << row.What;
    }

    const BYTES body = Chunk("BODY", Data), odd = Chunk("NAME", Data);
    const BYTES text = Chunk("ANNO", BYTES(300, 'x'));
    const FILE_ROW iff[] = {
        {"8SVX", IffFile("8SVX", Vhdr + body), {1, 8363, 8, 48}, 1},
        {"16SV", IffFile("16SV", Chunk("ANNO", {'a'}) + body), {1, 0, 16, 29}, 0, "a"},
        {"long text", IffFile("8SVX", text + body), {1, 0, 8, 328}, 0, std::string(127, 'x')},
        {"odd chunks have no padding", IffFile("8SVX", odd + body), {1, 0, 8, 35}, 0},
        {"with it no body is found", IffFile("8SVX", odd + BYTES(1) + body), {1, 0, 8, 0}, 0},
        {"far", IffFile("8SVX", Chunk("NAME", BYTES(5000)) + body), {1, 0, 8, 5028}, 0},
        {"no form", body, {1, 0, 0, 8}, 0},
    };
    for (const FILE_ROW &row : iff) {
        EXPECT_EQ(LoadBytes(Iff, row.File), row.Facts) << row.What;
        EXPECT_EQ(IFF_GetHeader(0)->Compression, row.Codec) << row.What;
        EXPECT_EQ(IFF_GetHeader(0)->Annotation.data(), row.Text) << row.What;
    }

    const BYTES sound = Chunk("SSND", Data);
    const auto aifc = [&](uint16_t bits, const BYTES &compression) {
        return IffFile("AIFC", Comm(bits, compression) + sound);
    };
    const std::string cut = "xxxxxxxxxxxxxxxal", x17(17, 'x');
    const BYTES none = Chunk("NONE", {});
    BYTES padded = Comm(16) + odd + BYTES(1);
    for (int i = 4; i < 16384; i++)  // after the form, too
        padded.insert(padded.end(), none.begin(), none.end());
    const FILE_ROW aiff[] = {
        {"22050 Hz, doubled", IffFile("AIFF", Comm(8, {}, 13) + sound), {2, 44100, 8, 46}, 0},
        {"raw", aifc(8, Text("raw ")), {2, 44100, 8, 50}, 1, "raw "},
        {"ALAW", aifc(8, Text("ALAW")), {2, 44100, 16, 50}, 2, "ALAW"},
        {"the last name wins", aifc(8, Text("uLawalaw")), {2, 44100, 16, 54}, 3, "uLawalaw"},
        {"none of them", aifc(16, Text("sowt")), {2, 44100, 16, 50}, 0, "sowt"},
        {"past the cut", aifc(16, BYTES(15, 'x') + Text("alaw")), {2, 44100, 16, 65}, 0, cut},
        {"a long text", aifc(16, BYTES(300, 'x')), {2, 44100, 16, 346}, 0, x17},
        {"odd, not padded", IffFile("AIFF", odd + Comm(16) + sound), {2, 44100, 16, 61}, 0},
        {"odd, padded", IffFile("AIFF", Comm(16) + odd + BYTES(1) + sound), {2, 44100, 16, 62}, 0},
        {"no sound", IffFile("AIFF", Comm(16)), {2, 44100, 16, 0}, 0},
        {"16384 chunks", IffFile("AIFF", padded + sound), {2, 44100, 16, 131102}, 0},
        {"one more", IffFile("AIFF", padded + none + sound), {2, 44100, 16, 0}, 0},
        {"no common chunk", IffFile("AIFF", sound), {1, 0, 0, 20}, 0},
    };
    for (const FILE_ROW &row : aiff) {
        EXPECT_EQ(LoadBytes(Aiff, row.File), row.Facts) << row.What;
        EXPECT_EQ(AIFF_GetHeader(0)->Codec, row.Codec) << row.What;
        EXPECT_EQ(AIFF_GetHeader(0)->Compression.data(), row.Text) << row.What;
    }
}

// The result of each codec for seven bytes, and how much its length falls short.
TEST(Sounds, Codecs)
{
    const auto g711 = [](int16_t (*expand)(uint8_t)) {
        BYTES bytes;
        for (const uint8_t byte : Data)
            bytes = bytes + Number(expand(byte), -2);
        return bytes;
    };
    const auto voc = [](uint8_t codec) { return VocFile({1, 9, 0, 0, 0xA6, codec}) + Data; };
    const auto aiff = [](uint16_t bits, const BYTES &compression = {}) {
        return IffFile("AIFC", Comm(bits, compression) + Chunk("SSND", Data));
    };
    const BYTES turned = {127, 126, 125, 124, 123, 122}, swapped = {2, 1, 4, 3, 6, 5};
    const BYTES alaw = g711(Audio_Alaw), ulaw = g711(Audio_Ulaw);
    const BYTES sv16 = IffFile("16SV", Chunk("BODY", Data));
    const struct {
        const char *what;
        const MODULE &module;
        BYTES file, expected;  // nothing: the buffer is unchanged
        uint32_t given, reported, atEnd;
    } rows[] = {
        {"VOC 16 bits, half a sample at the end", Voc, voc(4), Data, 100, 6, 0},
        {"VOC mu-law, a buffer's end", Voc, voc(7), ulaw, 6, 4, 4},
        {"VOC ADPCM", Voc, voc(1), {}, 100, 100, 100},
        {"AU 8 bits", Au, AuFile(2, Data), turned, 6, 5, 0},
        {"AU 16 bits go on", Au, AuFile(3, Data), swapped + BYTES{255, 7, 255}, 100, 99, 99},
        {"AU 16 bits, an odd buffer", Au, AuFile(65536 + 3, Data), {2, 1, 4}, 3, 3, 3},
        {"AU 24 bits", Au, AuFile(4, Data), {3, 2, 1, 6, 5, 4}, 100, 6, 0},
        {"AU 32 bits go on", Au, AuFile(5, Data), {4, 3, 2, 1, 255, 7, 6, 5}, 100, 99, 99},
        {"AU A-law", Au, AuFile(27, Data), alaw, 100, 12, 0},
        {"16SV, an odd buffer", Iff, sv16, {2, 1, 4}, 3, 3, 1},
        {"AIFF 8 bits", Aiff, aiff(8), turned, 100, 6, 0},
        {"AIFF 16 bits", Aiff, aiff(16), swapped, 100, 5, 0},
        {"AIFF 24 bits in the file's order", Aiff, aiff(24), Data, 100, 6, 0},
        {"AIFF 32 bits", Aiff, aiff(32), {4, 3, 2, 1}, 100, 4, 0},
        {"AIFF mu-law", Aiff, aiff(16, Text("ulaw")), ulaw, 100, 12, 0},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const FACTS facts = LoadBytes(r.module, r.file);
        EXPECT_EQ(facts.DataStart, r.file.size() - Data.size());
        const bool g711Codes = r.expected == alaw || r.expected == ulaw;
        EXPECT_TRUE(!g711Codes || facts.BitsPerSample == 16);
        const REFILL refill = Refill(r.module, facts.DataStart, r.given);
        EXPECT_EQ(refill.Length, r.reported);
        const BYTES expected = r.expected.empty() ? BYTES(100, 0xEE) : r.expected;
        const size_t count = std::min<size_t>(r.reported, expected.size());
        EXPECT_EQ(Prefix(refill.Bytes, count), Prefix(expected, count));
        EXPECT_EQ(Refill(r.module, refill.Position, r.given).Length, r.atEnd);
    }
}

TEST(Sounds, FormatRules)
{
    const BYTES head = {0, 0, 0, 2, 0, 0, 0, 0}, words = {1, 2, 0xFF, 0xFE, 3};
    const auto aiff = [&](uint16_t bits, const BYTES &compression, const BYTES &data) {
        return IffFile("AIFC", Comm(bits, compression) + Chunk("NAME", {'x'}) + BYTES(1) +
                                   Chunk("SSND", head + BYTES(2) + data) + BYTES(1) +
                                   Chunk("MARK", BYTES(9)));
    };
    const BYTES reals = {0x3F, 0, 0, 0, 0xBE, 0x80, 0, 0}, three = {1, 2, 0x83, 4, 5, 6};
    const BYTES real64 = {0x3F, 0xD0, 0, 0, 0, 0, 0, 0};
    const auto rated = [](uint8_t sign, uint8_t exponent, uint8_t last) {
        return Chunk("COMM", BYTES{0, 1, 0, 0, 0, 2, 0, 8} +
                                 BYTES{sign, exponent, 0xAC, last, 0, 0, 0, 0, 0, 0});
    };
    const BYTES slow = rated(0x40, 12, 0x44), bytes = Chunk("SSND", BYTES(8) + BYTES{1, 0xFF});
    const auto au = [](uint32_t encoding, uint32_t size, const BYTES &data) {
        return Text(".snd\0\0\0\x18") + Number(size, 4) + Number(encoding, 4) + Number(11025, 4) +
               Number(1, 4) + data;
    };
    const auto block = [](uint8_t type, const BYTES &contents) {
        return BYTES{type} + Number(static_cast<int64_t>(contents.size()), -3) + contents;
    };
    const auto sound = [&](const BYTES &data, uint8_t codec = 0) {
        return block(1, BYTES{0x9C, codec} + data);
    };
    const auto voc = [](const BYTES &blocks) {
        return Text("Creative Voice File\x1A\x1A\0\x0A\x01\x29\x11") + blocks + BYTES(1) + Data;
    };
    BYTES many;
    for (int i = 1; i < 4096; i++)
        many = std::move(many) + block(5, {});
    const BYTES extended = block(8, {0x54, 0xE9, 0, 1});
    const BYTES format9 = Number(22050, -4) + BYTES{16, 1, 4, 0, 0, 0, 0, 0};
    const BYTES silence = block(3, {3, 0, 0xCE});  // 4 samples at twice the rate
    const auto vhdr = [](uint8_t packing) {
        return Chunk("VHDR", BYTES(12) + Number(8363, 2) + BYTES{1, packing, 0, 1, 0, 0});
    };
    const BYTES stereo = Chunk("CHAN", {0, 0, 0, 6}), odd = Chunk("NAME", {'x'}) + BYTES(1);
    const auto svx = [&](uint8_t packing, const BYTES &chunks, const BYTES &data) {
        return IffFile("8SVX", vhdr(packing) + odd + chunks + Chunk("BODY", data) +
                                   Chunk("ANNO", BYTES(9)));
    };
    // clang-format off
    const FORMAT_ROW rows[] = {
        {"AIFF from its offset to its end", Aiff, aiff(16, {}, words), 2, 44100, 16, {258, -2}},
        {"12 bits", Aiff, aiff(12, Text("NONE"), words), 2, 44100, 16, {258, -2}},
        {"24 bits", Aiff, aiff(24, {}, three), 2, 44100, 24, {0x010283, 0x040506}},
        {"sowt", Aiff, aiff(24, Text("sowt\0\0"), three), 2, 44100, 24, {-0x7CFDFF, 0x060504}},
        {"unsigned", Aiff, aiff(8, Text("raw "), words), 2, 44100, 8, {1, 2, 255, 254}},
        {"in24", Aiff, aiff(16, Text("in24"), three), 2, 44100, 24, {0x010283, 0x040506}},
        {"fl32", Aiff, aiff(16, Text("FL32"), reals), 2, 44100, 32, {1 << 30, -(1 << 29)}},
        {"A-law", Aiff, aiff(8, Text("ALAW"), {0xD5, 0x55}), 2, 44100, 16, {8, -8}},
        {"mu-law", Aiff, aiff(8, Text("ulaw"), {0, 0xFF}), 2, 44100, 16, {-32124, 0}},
        {"unsigned words", Aiff, aiff(16, Text("raw "), words), 2, 44100, 16, {-32510, 32766}},
        {"twos", Aiff, aiff(16, Text("twos"), words), 2, 44100, 16, {258, -2}},
        {"in16", Aiff, aiff(8, Text("in16"), words), 2, 44100, 16, {258, -2}},
        {"42ni", Aiff, aiff(8, Text("42ni"), three), 2, 44100, 24, {-0x7CFDFF, 0x060504}},
        {"in32", Aiff, aiff(8, Text("in32"), reals), 2, 44100, 32, {0x3F << 24, -0x4180 * 65536}},
        {"23ni", Aiff, aiff(8, Text("23ni"), reals), 2, 44100, 32, {0x3F, 0x80BE}},
        {"fl64", Aiff, aiff(8, Text("fl64"), real64 + real64), 2, 44100, 32, {1 << 29, 1 << 29}},
        {"the data first", Aiff, IffFile("AIFF", bytes + slow), 1, 11025, 8, {129, 127}},
        {"no padding", Aiff, IffFile("AIFF", slow + Chunk("NAME", {'x'}) + bytes), 1, 11025, 8,
         {129, 127}},
        {"a rate with a half", Aiff, IffFile("AIFF", rated(0x40, 12, 0x46) + bytes), 1, 11026, 8,
         {129, 127}},
        {"below 0", Aiff, IffFile("AIFF", rated(0xC0, 12, 0x44) + bytes), 1, 0, 8, {129, 127}},
        {"too high", Aiff, IffFile("AIFF", rated(0x40, 32, 0x44) + bytes), 1, 0, 8, {129, 127}},
        {"packed", Aiff, aiff(16, Text("ima4"), words), 0, 44100, 0, {}, "compression 'ima4'"},
        {"not finished", Aiff, IffFile("AIFF", slow + Text("SSND") + BYTES(12) + BYTES{1, 0xFF}),
         1, 11025, 8, {129, 127}},
        {"no sound", Aiff, IffFile("AIFF", slow), 1, 11025, 8, {}, "no sound data chunk"},
        {"no common chunk", Aiff, IffFile("AIFF", Chunk("SSND", Data)), 0, 0, 0, {},
         "no common chunk"},
        {"AU ends where it says", Au, au(3, 4, words), 1, 11025, 16, {258, -2}},
        {"or with the file", Au, au(3, UINT32_MAX, words), 1, 11025, 16, {258, -2}},
        {"8 bits", Au, au(2, 2, {1, 0xFF}), 1, 11025, 8, {129, 127}},
        {"floating point", Au, au(6, 8, reals), 1, 11025, 32, {1 << 30, -(1 << 29)}},
        {"64 bits", Au, au(7, 8, real64), 1, 11025, 32, {1 << 29}},
        {"24 bits", Au, au(4, 6, three), 1, 11025, 24, {0x010283, 0x040506}},
        {"32 bits", Au, au(5, 4, three), 1, 11025, 32, {0x01028304}},
        {"AU mu-law", Au, au(1, 2, {0, 0xFF}), 1, 11025, 16, {-32124, 0}},
        {"AU A-law", Au, au(27, 2, {0xD5, 0x55}), 1, 11025, 16, {8, -8}},
        {"data at 20", Au, Text(".snd\0\0\0\x14") + BYTES(4) + Number(3, 4) + Number(11025, 4) +
         Number(1, 4) + words, 1, 11025, 16, {258, -2}},
        {"lowest byte first", Au, Text("dns.\x18\0\0\0") + BYTES(4) + Number(3, -4) +
         Number(11025, -4) + Number(1, -4) + words, 1, 11025, 16, {513, -257}},
        {"AU ADPCM", Au, au(23, 8, reals), 0, 11025, 0, {}, "encoding 23"},
        {"VOC, all blocks", Voc,
         voc(sound({1, 2}) + block(5, Text("text")) + block(4, {1, 0}) + block(2, {3}) + silence +
         sound({4})), 1, 10000, 8, {1, 2, 3, 128, 128, 4}},
        {"nothing but silence", Voc, voc(silence), 0, 0, 0, {}, "no sound block"},
        {"silence first", Voc, voc(silence + sound({1})), 1, 10000, 8, {128, 128, 1}},
        {"repeated twice", Voc,
         voc(sound({9}) + block(6, {2, 0}) + sound({1, 2}) + silence + block(7, {}) + block(7, {}) +
         sound({3})), 1, 10000, 8, {9, 1, 2, 128, 128, 1, 2, 128, 128, 1, 2, 128, 128, 3}},
        {"endless", Voc, voc(block(6, {255, 255}) + sound({1, 2}) + block(7, {}) + sound({3})),
         1, 10000, 8, {1, 2, 3}},
        {"an empty block", Voc, voc(sound({}) + sound({1})), 1, 10000, 8, {1}},
        {"wide silence", Voc, voc(block(9, format9 + BYTES{1, 2}) + block(3, {3, 0, 0xD3})), 1,
         22050, 16, {0x0201, 0, 0, 0}},
        {"extended, at its rate", Voc, voc(extended + sound({1, 2, 3, 4}) + sound({5, 6})), 2,
         22053, 8, {1, 2, 3, 4}, "codec 0 with 1 channels after codec 0 with 2"},
        {"new format", Voc, voc(block(9, format9 + BYTES{1, 2}) + block(2, {3, 4})), 1, 22050, 16,
         {0x0201, 0x0403}},
        {"mu-law", Voc, voc(sound({0x00, 0xFF}, 7)), 1, 10000, 16, {-32124, 0}},
        {"another coding", Voc, voc(sound({1, 2}) + sound({3}, 6)), 1, 10000, 8, {1, 2},
         "codec 6 with 1 channels after codec 0 with 1"},
        {"ADPCM", Voc, voc(sound({1, 2}, 1)), 0, 10000, 0, {}, "Creative ADPCM, codec 1"},
        {"of the new format, and what follows", Voc,
         voc(sound({1, 2}) + block(9, Number(10000, -4) + BYTES{4, 1, 1} + BYTES(6)) +
         sound({3})), 1, 10000, 8, {1, 2}, "codec 1 with 1 channels after codec 0 with 1"},
        {"another rate", Voc, voc(sound({1, 2}) + block(1, {0xA6, 0, 3})), 1, 10000, 8, {1, 2, 3},
         "a block of 11111 Hz is played with 10000"},
        {"cut", Voc, voc({1, 99, 0, 0, 0x9C, 0, 9, 8}), 1, 10000, 8, {9, 8, 0, 1, 2, 3, 4, 5, 6, 7},
         "cut after 10 of 97 bytes of sound"},
        {"many blocks", Voc, voc(sound({1}) + many + sound({2})), 1, 10000, 8, {1},
         "more than 4096 blocks"},
        {"8SVX", Iff, svx(0, {}, {1, 0xFF}), 1, 8363, 8, {129, 127}},
        {"stereo", Iff, svx(0, stereo, {1, 2, 3, 4}), 2, 8363, 8, {129, 131, 130, 132}},
        {"Fibonacci delta", Iff, svx(1, {}, {0, 10, 0xE9, 0xFF}), 1, 8363, 8, {139, 152, 173, 194}},
        {"deltas beyond the range", Iff, svx(2, {}, {0, 0, 0x00, 0xFF}), 1, 8363, 8,
         {0, 0, 64, 128}},
        {"exponential delta, stereo", Iff, svx(2, stereo, {0, 1, 0xF9, 0, 10, 0x98}), 2, 8363, 8,
         {130, 138, 194, 139}},
        {"16SV, stereo", Iff,
         IffFile("16SV", vhdr(0) + stereo + Chunk("BODY", {1, 2, 3, 4, 0xFF, 0xFE, 5, 6})), 2,
         8363, 16, {0x0102, -2, 0x0304, 0x0506}},
        {"padding forgotten", Iff,
         IffFile("8SVX", vhdr(0) + Chunk("NAME", {'x'}) + Chunk("BODY", {1, 0xFF})), 1, 8363, 8,
         {129, 127}},
        {"an unknown packing", Iff, svx(3, {}, {1, 2}), 1, 8363, 8, {}, "compression 3"},
    };
    // clang-format on
    for (const FORMAT_ROW &row : rows)
        CheckFormat(row);
    for (const BYTES &name : {Text("dns."), Text("\0ds.")}) {
        EXPECT_NE(Audio_CheckBytes(name + BYTES(28)), AUDIO_AU);
        const FORMAT_RULES rules;
        EXPECT_EQ(Audio_CheckBytes(name + BYTES(28)), AUDIO_AU);
    }
    const FORMAT_RULES rules;
    for (const bool more : {false, true}) {
        LoadBytes(Voc, voc(sound({9}) + block(6, {254, 255}) + sound({1}) + block(7, {}) +
                           (more ? sound({2}) : BYTES{})));
        EXPECT_EQ(VOC_GetHeader(0)->Pieces.size(), 65536u);
        EXPECT_STREQ(Reason_Get(), more ? "more than 65536 blocks with repeats" : "");
    }
}

// For every module, in their order, MP3, and MOD, a file that uses most of its header.
static const BYTES Samples[] = {
    ReadFile(TEST_DATA "sounds/wav/waveformatextensible-24bit-192kHz-mono.wav"),
    VocFile({8, 4, 0, 0, 0x54, 0xE9, 4, 1, 1, 9, 0, 0, 0xA6, 6, 1, 2, 3, 4}),
    AuFile(4, Data),
    IffFile("16SV", Vhdr + Chunk("ANNO", Data) + Chunk("BODY", Data)),
    IffFile("AIFC", Comm(16, Text("alaw")) + Chunk("NAME", Data) + Chunk("SSND", Data)),
    ReadFile(TEST_DATA "mp3_joint.mp3"),
    WriteModule({{"C-2 01"}, {}}),
};

TEST(Sounds, Records)
{
    for (size_t i = 0; i < std::size(Samples); i++) {
        const MODULE *module = i < std::size(Modules) ? Modules[i] : i == 5 ? &Mp3 : &Mod;
        SCOPED_TRACE(module->Name);
        const FACTS facts = LoadBytes(*module, Samples[i]);
        module->Load(TempPath("absent").c_str());
        module->Load(testing::TempDir().c_str());
        EXPECT_EQ(module->SoundNumber(), 1) << "what cannot be opened takes no slot";
        for (int k = 0; k < 40; k++)
            module->Load(TempPath("sound").c_str());
        EXPECT_EQ(module->SoundNumber(), 32) << "all slots are used";
        EXPECT_EQ(module->Facts(31), facts);
        module->SetSoundNumber(3);
        module->Load(WriteTemp("sound", {}).c_str());
        EXPECT_TRUE(module == &Mod || module->Facts(3) != facts) << "a slot is filled anew";
        module->Destroy();
        for (const uint8_t n : BYTES{0, 31, 32, 255}) {
            EXPECT_EQ(module->Facts(n), FACTS{});
            uint32_t length = 100;
            module->Decoding(nullptr, nullptr, &length, n);
            EXPECT_EQ(length, 0u) << "no record, no sound";
        }
    }
}

// A truncated file stays within the buffer, and its data are found at the same place.
TEST(Sounds, Prefixes)
{
    for (size_t i = 0; i < std::size(Modules); i++) {
        const uint32_t start = LoadBytes(*Modules[i], Samples[i]).DataStart;
        for (size_t size = 0; size < Samples[i].size(); size++) {
            const FACTS facts = LoadBytes(*Modules[i], Prefix(Samples[i], size));
            EXPECT_TRUE(size <= start || facts.DataStart == start) << i << ' ' << size;
            for (const uint32_t length : {0u, 1u, 5u, 64u})
                Refill(*Modules[i], facts.DataStart, length);
        }
    }
}

TEST(Sounds, Reasons)
{
    const BYTES wave = WaveFile(1, 1, 16, Data), form = Text("SSND\0\0\0\x63");
    const struct {
        const MODULE &module;
        BYTES file;
        const char *reason;
    } rows[] = {
        {Wav, wave, ""},
        {Wav, Prefix(wave, wave.size() - 2), "cut after 5 of 7 bytes of sound"},
        {Wav, Prefix(wave, 40) + BYTES(4, 0xFF) + Data, ""},
        {Wav, WaveFile(85, 1, 16, Data), "format tag 85"},
        {Wav, WaveFile(1, 1, 12, Data), "12 bits a sample"},
        {Wav, Text("RIFF"), "format tag 0"},
        {Voc, VocFile({1, 9, 0, 0, 0xA6, 1}), "codec 1"},
        {Voc, VocFile({}), "no sound block"},
        {Au, AuFile(23, Data), "encoding 23"},
        {Iff, IffFile("8SVX", Vhdr + Chunk("BODY", Data)),
         "compression 1, played as linear samples"},
        {Iff, IffFile("8SVX", Vhdr), "no body chunk"},
        {Iff, Chunk("BODY", Data), "neither an 8SVX nor a 16SV form"},
        {Aiff, IffFile("AIFF", Comm(16)), "no sound data chunk"},
        {Aiff, IffFile("AIFF", Comm(12) + Chunk("SSND", Data)), "12 bits a sample"},
        {Aiff, IffFile("AIFF", Comm(16) + form), "cut after 0 of 99 bytes of sound"},
    };
    for (const auto &r : rows) {
        LoadBytes(r.module, r.file);
        EXPECT_STREQ(Reason_Get(), r.reason) << r.module.Name;
    }
    const std::string huge = WriteTemp("huge", {});
    std::filesystem::resize_file(huge, uint64_t{1} << 32);
    Wav.Load(huge.c_str());
    EXPECT_STREQ(Reason_Get(), "4 GiB or more");
    std::filesystem::remove(huge);
    Wav.Load(TempPath("absent").c_str());
    EXPECT_STREQ(Reason_Get(), "cannot be opened: No such file or directory");
    Wav.SetSoundNumber(32);
    Wav.Load(TempPath("sound").c_str());
    EXPECT_STREQ(Reason_Get(), "32 sounds of its format are loaded already");
}
