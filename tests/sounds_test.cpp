// VOC, AU, IFF and AIFF, and what all sound modules have in common.
#include "audio/g711.h"
#include "tests/sound_files.h"

namespace
{

using BYTES = std::vector<uint8_t>;

BYTES operator+(BYTES a, const BYTES &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

BYTES Big(uint32_t value, int count = 4)
{
    BYTES bytes;
    for (int i = count; i-- > 0;)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return bytes;
}

BYTES Chunk(const char (&id)[5], const BYTES &contents)
{
    return Text(id) + Big(static_cast<uint32_t>(contents.size())) + contents;
}

BYTES Voc(const BYTES &blocks)
{
    return Text("Creative Voice File\x1A\x1A\0\x0A\x01\x29\x11") + blocks;
}

BYTES Au(uint32_t encoding, uint32_t start, const BYTES &data)
{
    BYTES file = Text(".snd") + Big(start) + Big(0) + Big(encoding) + Big(11025) + Big(2);
    file.resize(start);
    return file + data;
}

BYTES Iff(const char (&type)[5], const BYTES &chunks)
{
    return Chunk("FORM", Text(type) + chunks);
}

BYTES Vhdr()
{
    return Chunk("VHDR", Big(100) + Big(20) + Big(32) + Big(8363, 2) + BYTES{3, 1} + Big(65536));
}

// 44100 Hz, or half of that with the next exponent.
BYTES Comm(uint16_t bits, const BYTES &compression = {}, uint8_t exponent = 14)
{
    return Chunk("COMM", Big(2, 2) + Big(500) + Big(bits, 2) + BYTES{0x40, exponent, 0xAC, 0x44} +
                             BYTES(6) + compression);
}

BYTES Aiff(const BYTES &chunks)
{
    return Chunk("FORM", Text("AIFC") + chunks);
}

FACTS LoadBytes(const MODULE &module, const BYTES &file)
{
    return LoadFirst(module, WriteTemp("sounds.bin", file));
}

} // namespace

TEST(Voc, Headers)
{
    const BYTES data = {1, 8, 9};
    const BYTES block1 = {1, 9, 0, 0, 0xA6, 0}, block8 = {8, 4, 0, 0, 0x54, 0xE9, 4, 1};
    const BYTES block9 = {9, 15, 0, 0, 0x44, 0xAC, 0, 0, 16, 2, 4, 0, 0, 0, 0, 0};
    const struct {
        const char *what;
        BYTES blocks;
        uint32_t channels, rate, bits, start, codec;
    } rows[] = {
        {"block 1", block1 + data, 1, 11111, 8, 32, 0},
        {"block 8, then block 1's rate", block8 + block1 + data, 2, 11111, 8, 40, 0},
        {"block 8 alone", block8, 2, 22053, 8, 0, 4},
        {"block 9", block9 + data, 2, 44100, 16, 42, 4},
        {"block 1 of A-law", BYTES{1, 9, 0, 0, 0xA6, 6} + data, 1, 11111, 16, 32, 6},
        {"other bytes in front", BYTES{5, 5, 5} + block1 + data, 1, 11111, 8, 35, 0},
        {"at the end of the scan", BYTES(997) + block9 + data, 2, 44100, 16, 1039, 4},
        {"behind it", BYTES(998) + block9 + data, 1, 0, 8, 0, 0},
        {"no block", {}, 1, 0, 8, 0, 0},
        {"a block cut short", {1, 9}, 1, 3906, 8, 32, 0},
    };
    const MODULE &voc = *ModuleOf("voc");
    for (const auto &r : rows) {
        const BYTES file = Voc(r.blocks);
        EXPECT_EQ(LoadBytes(voc, file),
                  (FACTS{static_cast<uint32_t>(file.size()), r.channels, r.rate, r.bits, r.start}))
            << r.what;
        EXPECT_EQ(VOC_GetHeader(0)->Codec, r.codec) << r.what;
        EXPECT_EQ(VOC_GetHeader(0)->Version, 0x010A) << r.what;
        EXPECT_EQ(VOC_GetHeader(0)->Validation, 0x1129u) << r.what;
    }
}

TEST(Iff, Headers)
{
    const BYTES body = Chunk("BODY", {1, 2, 3});
    const BYTES odd = Chunk("NAME", {'a', 'b', 'c'});
    const struct {
        const char *what;
        BYTES file;
        uint32_t rate, bits, start;
        std::string text;
    } rows[] = {
        {"8SVX", Iff("8SVX", Vhdr() + body), 8363, 8, 48, ""},
        {"16SV", Iff("16SV", Vhdr() + Chunk("ANNO", Text("hello")) + body), 8363, 16, 61, "hello"},
        {"a text to cut", Iff("8SVX", Chunk("ANNO", BYTES(300, 'x')) + body), 0, 8, 328,
         std::string(127, 'x')},
        {"odd chunks have no padding", Iff("8SVX", odd + body), 0, 8, 31, ""},
        {"with it no body is found", Iff("8SVX", odd + BYTES{0} + body), 0, 8, 0, ""},
        {"far behind the start", Iff("8SVX", Chunk("NAME", BYTES(5000)) + Vhdr() + body), 8363, 8,
         5056, ""},
        {"no form", body, 0, 0, 8, ""},
        {"nothing", {}, 0, 0, 0, ""},
    };
    const MODULE &iff = *ModuleOf("8svx");
    for (const auto &r : rows) {
        EXPECT_EQ(LoadBytes(iff, r.file),
                  (FACTS{static_cast<uint32_t>(r.file.size()), 1, r.rate, r.bits, r.start}))
            << r.what;
        EXPECT_EQ(IFF_GetHeader(0)->Annotation.data(), r.text) << r.what;
    }
    LoadBytes(iff, rows[0].file);
    const IFF_HEADER &record = *IFF_GetHeader(0);
    EXPECT_EQ(record.OneShotCount, 100u);
    EXPECT_EQ(record.RepeatCount, 20u);
    EXPECT_EQ(record.SamplesPerCycle, 32u);
    EXPECT_EQ(record.Octaves, 3);
    EXPECT_EQ(record.Compression, 1);
}

TEST(Aiff, Headers)
{
    const BYTES sound = Chunk("SSND", BYTES(20)), odd = Chunk("NAME", {'a', 'b', 'c'});
    const struct {
        const char *what;
        BYTES chunks;
        uint32_t channels, rate, bits, start, codec;
        std::string text;
    } rows[] = {
        {"44100 Hz", Comm(16) + sound, 2, 44100, 16, 46, 0, ""},
        {"22050 Hz is taken for 44100", Comm(8, {}, 13) + sound, 2, 44100, 8, 46, 0, ""},
        {"raw", Comm(8, Text("raw ")) + sound, 2, 44100, 8, 50, 1, "raw "},
        {"alaw in capitals", Comm(8, Text("ALAW")) + sound, 2, 44100, 16, 50, 2, "ALAW"},
        {"the last name wins", Comm(8, Text("uLaw alaw")) + sound, 2, 44100, 16, 55, 3,
         "uLaw alaw"},
        {"none of the names", Comm(16, Text("sowt")) + sound, 2, 44100, 16, 50, 0, "sowt"},
        {"a text to cut", Comm(16, BYTES(300, 'x')) + sound, 2, 44100, 16, 346, 0,
         std::string(17, 'x')},
        {"a name behind the cut", Comm(16, BYTES(15, 'x') + Text("alaw")) + sound, 2, 44100, 16, 65,
         0, std::string(15, 'x') + "al"},
        {"an odd chunk without padding", odd + Comm(16) + sound, 2, 44100, 16, 57, 0, ""},
        {"and with it", Comm(16) + odd + BYTES{0} + sound, 2, 44100, 16, 58, 0, ""},
        {"far behind the start", Chunk("FVER", BYTES(5000)) + Comm(16) + sound, 2, 44100, 16, 5054,
         0, ""},
        {"no sound", Comm(16), 2, 44100, 16, 0, 0, ""},
        {"no common chunk", sound, 1, 0, 0, 20, 0, ""},
    };
    const MODULE &aiff = *ModuleOf("aiff");
    for (const auto &r : rows) {
        const BYTES file = Aiff(r.chunks);
        EXPECT_EQ(LoadBytes(aiff, file),
                  (FACTS{static_cast<uint32_t>(file.size()), r.channels, r.rate, r.bits, r.start}))
            << r.what;
        EXPECT_EQ(AIFF_GetHeader(0)->Codec, r.codec) << r.what;
        EXPECT_EQ(AIFF_GetHeader(0)->Compression.data(), r.text) << r.what;
    }
}

TEST(Au, Headers)
{
    const struct {
        uint32_t encoding, bits;
    } rows[] = {{1, 16}, {2, 8}, {3, 16}, {4, 24}, {5, 32}, {6, 8}, {27, 16}, {65536 + 3, 16}};
    for (const auto &r : rows)
        EXPECT_EQ(LoadBytes(*ModuleOf("au"), Au(r.encoding, 64, {})),
                  (FACTS{64, 2, 11025, r.bits, 64}))
            << r.encoding;
}

// What each codec makes of bytes 0x01 0x02 ..., and by how much the length falls short.
TEST(Sounds, Codecs)
{
    const BYTES data = {1, 2, 3, 4, 5, 6, 7};
    const BYTES turned = {127, 126, 125, 124, 123, 122, 121};
    const BYTES swapped16 = {2, 1, 4, 3, 6, 5}, swapped32 = {4, 3, 2, 1};
    const auto g711 = [&](int16_t (*expand)(uint8_t)) {
        BYTES bytes;
        for (const uint8_t byte : data)
            for (const int shift : {0, 8})
                bytes.push_back(static_cast<uint8_t>(expand(byte) >> shift));
        return bytes;
    };
    const auto voc = [&](uint8_t codec) { return Voc({1, 9, 0, 0, 0xA6, codec}) + data; };
    const auto au = [&](uint32_t encoding) { return Au(encoding, 24, data); };
    const auto aiff = [&](uint16_t bits, const BYTES &compression = {}) {
        return Aiff(Comm(bits, compression) + Text("SSND") + Big(7) + data);
    };
    const struct {
        const char *what, *module;
        BYTES file, expected;
        uint32_t given, reported;
    } rows[] = {
        {"VOC 8 bits", "voc", voc(0), data, 100, 6},
        {"VOC 16 bits, half a sample at the end", "voc", voc(4), data, 100, 6},
        {"VOC A-law", "voc", voc(6), g711(Audio_Alaw), 100, 12},
        {"VOC mu-law", "voc", voc(7), g711(Audio_Ulaw), 100, 12},
        {"VOC mu-law, a buffer's end", "voc", voc(7), g711(Audio_Ulaw), 6, 4},
        {"VOC ADPCM", "voc", voc(1), {}, 100, 100},
        {"AU mu-law", "au", au(1), g711(Audio_Ulaw), 100, 12},
        {"AU 8 bits", "au", au(2), turned, 100, 6},
        {"AU 16 bits goes on", "au", au(3), swapped16 + BYTES{255, 7, 255, 255}, 100, 99},
        {"AU 16 bits, an odd buffer", "au", au(3), {2, 1, 4}, 3, 3},
        {"AU 24 bits", "au", au(4), {3, 2, 1, 6, 5, 4}, 100, 6},
        {"AU 24 bits, a buffer's end", "au", au(4), {3, 2, 1}, 5, 3},
        {"AU 32 bits goes on", "au", au(5), swapped32 + BYTES{255, 7, 6, 5, 255, 255}, 100, 99},
        {"AU A-law", "au", au(27), g711(Audio_Alaw), 100, 12},
        {"AU floating point", "au", au(6), {}, 100, 100},
        {"8SVX", "8svx", Iff("8SVX", Text("BODY") + Big(7) + data), turned, 100, 6},
        {"16SV, half a sample at the end", "8svx", Iff("16SV", Text("BODY") + Big(7) + data),
         swapped16, 100, 5},
        {"16SV, an odd buffer", "8svx", Iff("16SV", Text("BODY") + Big(7) + data), {2, 1, 4}, 3, 3},
        {"IFF without a form", "8svx", Text("BODY") + Big(7) + data, {}, 100, 100},
        {"AIFF 8 bits", "aiff", aiff(8), turned, 100, 6},
        {"AIFF 16 bits", "aiff", aiff(16), swapped16, 100, 5},
        {"AIFF 24 bits in the file's order", "aiff", aiff(24), data, 100, 6},
        {"AIFF 32 bits", "aiff", aiff(32), swapped32, 100, 4},
        {"AIFF 12 bits", "aiff", aiff(12), {}, 100, 100},
        {"AIFF raw", "aiff", aiff(16, Text("raw ")), data, 100, 6},
        {"AIFF A-law", "aiff", aiff(16, Text("alaw")), g711(Audio_Alaw), 100, 12},
        {"AIFF mu-law", "aiff", aiff(16, Text("ulaw")), g711(Audio_Ulaw), 100, 12},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const MODULE &module = *ModuleOf(r.module);
        const FACTS facts = LoadBytes(module, r.file);
        EXPECT_EQ(facts.DataStart, r.file.size() - data.size());
        const REFILL refill = Refill(module, TempPath("sounds.bin"), facts.DataStart, r.given);
        EXPECT_EQ(refill.Length, r.reported);
        const size_t compared = std::min<size_t>(r.reported, r.expected.size());
        EXPECT_TRUE(std::equal(r.expected.begin(),
                               r.expected.begin() + static_cast<ptrdiff_t>(compared),
                               refill.Bytes.begin()));
        if (r.expected.empty()) {
            EXPECT_EQ(refill.Bytes, BYTES(r.given, 0xEE));
            continue;
        }
        const bool endless = r.reported == 99;
        if (r.given == 100) {
            EXPECT_EQ(Refill(module, TempPath("sounds.bin"), refill.Position, 100).Length,
                      endless ? 99u : 0u);
        }
    }
}

// Of every module a file that shows most of its header.
static BYTES FileOf(const MODULE &module)
{
    if (module.Name == "voc")
        return Voc(BYTES{8, 4, 0, 0, 0x54, 0xE9, 4, 1, 1, 9, 0, 0, 0xA6, 6} + BYTES(20, 1));
    if (module.Name == "au")
        return Au(4, 32, BYTES(20, 1));
    if (module.Name == "8svx")
        return Iff("16SV", Vhdr() + Chunk("ANNO", Text("hello")) + Chunk("BODY", BYTES(20, 1)));
    if (module.Name == "aiff")
        return Aiff(Comm(16, Text("alaw")) + Chunk("NAME", {1, 2}) + Chunk("SSND", BYTES(20, 1)));
    return Bytes_LoadFile(TEST_DATA "sounds/wav/waveformatextensible-24bit-192kHz-mono.wav");
}

TEST(Sounds, Records)
{
    for (const MODULE &module : Modules) {
        SCOPED_TRACE(module.Name);
        const std::string path = WriteTemp("sounds.bin", FileOf(module));
        const FACTS facts = LoadFirst(module, path);
        EXPECT_EQ(*module.SoundNumber, 1);
        EXPECT_EQ(module.Facts(1), FACTS{});
        module.Load(TempPath("absent").c_str());
        module.Load(testing::TempDir().c_str());
        EXPECT_EQ(*module.SoundNumber, 1) << "what cannot be opened takes no slot";
        for (int i = 0; i < 40; i++)
            module.Load(path.c_str());
        EXPECT_EQ(*module.SoundNumber, 32) << "all slots are used";
        EXPECT_EQ(module.Facts(31), facts);
        EXPECT_EQ(module.Facts(32), FACTS{});
        module.SetSoundNumber(3);
        module.Load(WriteTemp("sounds.bin", {}).c_str());
        EXPECT_EQ(module.Facts(3).FileSize, 0u) << "a slot is filled anew";
        EXPECT_EQ(*module.SoundNumber, 4);
        module.Destroy();
        for (const uint8_t n : std::array<uint8_t, 3>{0, 31, 255}) {
            EXPECT_EQ(module.Facts(n), FACTS{});
            uint32_t length = 100;
            module.Decoding(nullptr, nullptr, &length, n);
            EXPECT_EQ(length, 0u) << "no record, no sound";
        }
    }
}

// A file cut anywhere gives no more than a whole one, in refills of any length.
TEST(Sounds, Prefixes)
{
    for (const MODULE &module : Modules) {
        const BYTES file = FileOf(module);
        const uint32_t start = LoadBytes(module, file).DataStart;
        for (size_t size = 0; size < file.size(); size++) {
            const BYTES prefix(file.begin(), file.begin() + static_cast<ptrdiff_t>(size));
            const FACTS facts = LoadBytes(module, prefix);
            EXPECT_EQ(facts.FileSize, size) << module.Name;
            if (size > start + 8) {
                EXPECT_EQ(facts.DataStart, start) << module.Name << " " << size;
            }
            for (const uint32_t length : {0u, 1u, 2u, 3u, 5u, 64u})
                Refill(module, TempPath("sounds.bin"), facts.DataStart, length);
        }
    }
}
