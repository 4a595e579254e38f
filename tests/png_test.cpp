#include "picture/png.h"

#include <cstdlib>

#include "picture/inflate.h"
#include "tests/pixels.h"

using namespace std::string_literals;

TEST(PNG, TextsAndGamma)
{
    const LOADED loaded(ReadFile(TEST_DATA "png/ct1n0g04.png"));
    PNG_HEADER header;
    EXPECT_EQ(PNG_GetHeader(&header)->TextCount, 6);
    EXPECT_STREQ(header.Texts[0].Keyword.data(), "Title");
    EXPECT_STREQ(header.Texts[0].Text.data(), "PngSuite");
    EXPECT_EQ(header.Gamma, 100000u);
}

// The checksum is 0: it is not verified.
static BYTES Chunk(const char *type, const BYTES &data)
{
    return Number(std::ssize(data), 4) + BYTES{type, type + 4} + data + BYTES(4);
}

// A stream of one stored block per row.
static BYTES Stored(const std::vector<BYTES> &rows)
{
    BYTES stream = {0x78, 1};
    for (size_t i = 0; i < rows.size(); i++) {
        const auto size = static_cast<uint8_t>(rows[i].size());
        stream = stream + BYTES{i + 1 == rows.size(), size, 0, static_cast<uint8_t>(~size), 255} +
                 rows[i];
    }
    return stream;
}

static BYTES File(uint32_t width, uint32_t height, uint8_t depth, uint8_t type, const BYTES &chunks)
{
    const BYTES header = Number(width, 4) + Number(height, 4) + BYTES{depth, type, 0, 0, 0};
    return Text("\x89PNG\r\n\x1A\n") + Chunk("IHDR", header) + chunks;
}

// A chunk of rows, with "/" between them.
static BYTES Image(const std::string &text)
{
    std::vector<BYTES> rows;
    std::istringstream in(text + '/');
    for (std::string row; std::getline(in, row, '/');)
        rows.push_back(Hex(row));
    return Chunk("IDAT", Stored(rows));
}

static BYTES Key(const char *values)
{
    return Chunk("tRNS", Hex(values));
}

TEST(PNG, Rules)
{
    const BYTES palette = Chunk("PLTE", Hex("010203 040506 070809 0A0B0C"));
    BYTES narrow = File(1, 5, 8, 0, Image("0001/0005/0003/0002/0004"));
    narrow[28] = 1;
    const struct {
        const char *what;
        BYTES file;
        const char *pixels;
        bool format = false;
    } rows[] = {
        {"alphas for the first indices", File(4, 1, 2, 3, palette + Key("323C") + Image("00 1B")),
         "01020332 0405063C 070809FF 0A0B0CFF"},
        {"passes without columns", narrow, "01 02 03 04 05"},
        {"without a palette the last one stays", File(1, 1, 8, 3, Image("00 01")), "0405063C"},
        {"RGB and alpha of 16 bits", File(1, 1, 16, 6, Image("00 0109020903090409")), "01020304"},
        {"grey and alpha of 16 bits", File(1, 1, 16, 4, Image("00 01090209")), "01010102"},
        {"a grey key is not applied", File(1, 1, 8, 0, Key("0009") + Image("00 09")), "09"},
        {"no such filter leaves the row", File(1, 3, 8, 0, Image("0009/0508/0203")), "09 00 03"},
        {"Paeth rows by twos, and one left", File(1, 3, 8, 2, Image("04010203/04010101/04FF0101")),
         "010203FF 020304FF 010405FF"},
        {"Paeth rows by twos, the second cut short",
         File(2, 2, 8, 2, Image("04010203010101/04090909")), "010203FF 020304FF 0A0B0CFF -"},
        {"what is missing is transparent", File(1, 3, 8, 0, Image("0009")), "09 - -"},
        {"half a row", File(3, 1, 8, 0, Image("000908")), "09 08 -"},
        {"an empty block is skipped", File(1, 1, 8, 0, Image("/0007")), "07"},
        {"more than the picture", File(1, 1, 8, 0, Image("00070605")), "07"},
        {"unknown chunks, even critical ones",
         File(1, 1, 8, 0, Chunk("ABCD", {1, 2}) + Image("0007")), "07"},
        {"colours of kind 9", File(1, 1, 8, 9, Image("0007")), ""},
        {"no width", File(0, 1, 8, 0, Image("0007")), ""},
        {"no header", Text("\x89PNG\r\n\x1A\n") + Image("0007"), ""},
        {"nothing", {}, ""},
        {"two colours for the next",
         File(1, 1, 8, 3, Chunk("PLTE", Hex("010203 040506")) + Key("0708")), ""},
        {"a grey key", File(2, 1, 8, 0, Key("0209") + Image("000908")), "09090900 08", true},
        {"of 2 bits", File(3, 1, 2, 0, Key("0002") + Image("0024")), "00 AAAAAA00 55", true},
        {"of 16 bits, all of which count", File(2, 1, 16, 0, Key("0901") + Image("0009010902")),
         "09090900 09", true},
        {"a colour key, in rows that others refer to",
         File(2, 2, 8, 2, Key("000100020003") + Image("00010203010204/020000000000FF")),
         "01020300 010204FF 01020300 01020300", true},
        {"of 16 bits", File(2, 1, 16, 2, Key("010102020303") + Image("00010102020303010102020304")),
         "01020300 010203FF", true},
        {"none", File(1, 1, 8, 0, Image("0000")), "00", true},
        {"beyond the palette", File(2, 1, 8, 3, Chunk("PLTE", {1, 2, 3}) + Image("000001")),
         "010203FF 00", true},
        {"no palette", File(1, 1, 8, 3, Image("0000")), "00", true},
    };
    for (const auto &r : rows) {
        const RULES rules(r.format ? PICTURE_RULES_FORMAT : PICTURE_RULES_FRAMEWORK);
        EXPECT_EQ(Show(r.file), r.pixels) << r.what;
    }
}

// A byte of a line, filtered as in the standard's 9.2; a pixel has `step` bytes.
static uint8_t Filtered(uint8_t filter, const BYTES &line, const BYTES &above, size_t i,
                        size_t step)
{
    const int b = above[i], a = i < step ? 0 : line[i - step], c = i < step ? 0 : above[i - step];
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    const int paeth = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
    const int predictions[] = {0, a, b, (a + b) / 2, paeth};
    return static_cast<uint8_t>(line[i] - predictions[filter]);
}

// The colour of a pixel's samples in a line.
static BYTES PixelIn(const BYTES &line, size_t x, size_t samples, size_t depth)
{
    BYTES values;
    for (size_t i = 0; i < samples; i++) {
        const size_t bit = (x * samples + i) * depth, max = (size_t{1} << depth) - 1;
        const size_t value = line[bit / 8] >> (8 - std::min<size_t>(depth, 8) - bit % 8);
        values.push_back(static_cast<uint8_t>(depth < 8 ? (value & max) * 255 / max : value));
    }
    const BYTES alpha = {samples % 2 == 0 ? values.back() : uint8_t{255}};
    return samples < 3 ? BYTES(3, values[0]) + alpha : Prefix(values, 3) + alpha;
}

// Each filter on the first row, and after each other one.
TEST(PNG, FiltersOfEveryPixelSize)
{
    const struct {
        uint8_t type, samples, depth;
    } rows[] = {{0, 1, 1}, {0, 1, 4}, {0, 1, 8},  {0, 1, 16}, {4, 2, 8},
                {2, 3, 8}, {6, 4, 8}, {4, 2, 16}, {2, 3, 16}, {6, 4, 16}};
    uint32_t random = 1;
    for (const auto &r : rows)
        for (const uint32_t width : {1u, 2u, 3u, 4u, 5u, 7u, 13u, 18u}) {
            const size_t bits = size_t{r.samples} * r.depth, bytes = (width * bits + 7) / 8;
            for (uint8_t first = 0; first < 5; first++) {
                BYTES filters = {first}, above(bytes), expected;
                for (uint8_t i = 0; i < 50; i++)
                    filters.push_back(i % 2 == 0 ? i / 10 : i / 2 % 5);
                std::vector<BYTES> stored;
                for (const uint8_t filter : filters) {
                    BYTES line(bytes), data = {filter};
                    for (uint8_t &byte : line)
                        byte = static_cast<uint8_t>((random = random * 1664525 + 1013904223) >> 24);
                    for (size_t i = 0; i < bytes; i++)
                        data.push_back(Filtered(filter, line, above, i, (bits + 7) / 8));
                    for (size_t x = 0; x < width; x++)
                        expected = expected + PixelIn(line, x, r.samples, r.depth);
                    stored.push_back(data);
                    above = line;
                }
                const auto height = static_cast<uint32_t>(filters.size());
                ASSERT_EQ(
                    PixelsOf(File(width, height, r.depth, r.type, Chunk("IDAT", Stored(stored)))),
                    expected)
                    << int{r.type} << ' ' << int{r.depth} << ' ' << width << ' ' << int{first};
            }
        }
}

TEST(PNG, Reasons)
{
    const auto grey = [](const BYTES &stream, uint32_t height = 3) {
        return File(1, height, 8, 0, Chunk("IDAT", stream));
    };
    const BYTES whole = Stored({{0, 1}, {0, 2}, {0, 3}});
    const struct {
        BYTES file;
        const char *reason;
    } rows[] = {
        {grey(whole), ""},
        {grey(Prefix(whole, whole.size() - 3)), "cut after 2 of 3 rows"},
        {grey(Prefix(whole, 9) + BYTES{7} + BYTES(9)), "damaged after 1 of 3 rows"},
        {grey(whole, 65535), "cut after 3 of 65535 rows"},
        {grey(whole, 65536), "a side of more than 65535 pixels"},
        {File(30000, 30000, 8, 0, Chunk("IDAT", whole)),
         "68 bytes cannot hold 30000 x 30000 pixels"},
        {File(1, 1, 8, 0, {}), "no picture data"},
        {File(1, 1, 8, 1, Chunk("IDAT", whole)), "no PNG header of a known kind"},
        {File(1, 3, 8, 0, Chunk("acTL", BYTES{0, 0, 0, 2}) + Chunk("IDAT", whole)),
         "an animation, of which only the default picture is read"},
    };
    const size_t limit = std::exchange(Picture_MaxBytes, SIZE_MAX);
    for (const auto &r : rows) {
        Picture_UnLoad(Picture_LoadBytes(r.file, 0, 0));
        EXPECT_STREQ(Picture_Reason(), r.reason);
    }
    Picture_MaxBytes = limit;
}

TEST(PNG, HeaderFacts)
{
    BYTES chunks;
    for (const auto &[type, data] : std::vector<std::pair<const char *, BYTES>>{
             {"tEXt", Text("Title\0A text")},
             {"tEXt", BYTES(400, 'k')},  // a key of 79, the rest its text, of 255
             {"iTXt", Text("Key\0\0\0hu\0Kulcs\0Sz\xC3\xB6veg")},
             {"iTXt", Text("Key\0\1\0\0\0packed")},
             // Fields truncated to their limits; the rest of one is not taken for the next.
             {"iTXt",
              BYTES(80, 'k') + Text("\0") + BYTES(17, 'l') + BYTES(80, 't') + BYTES(300, 'x')},
             {"bKGD", {1, 2, 3, 4, 5, 6}},
             {"pHYs", {0, 0, 1, 0, 0, 0, 2, 0, 1}},
             {"tIME", {7, 0xEA, 11, 21, 9, 30, 59}},
             {"tRNS", {0, 1, 0, 2, 0, 3}}})
        chunks = chunks + Chunk(type, data);
    for (int i = 0; i < 10; i++)
        chunks = chunks + Chunk("tEXt", Text("more\0text")) + Chunk("iTXt", Text("more"));
    const BYTES file = File(1, 1, 8, 2, chunks + Image("00010203"));
    PixelsOf(file);
    const PNG_HEADER &h = PNG_Header;
    EXPECT_EQ(std::tuple(h.FileSize, h.DataOffset, h.IHDRHeight, h.BitsPerPixel, h.OutputSize),
              std::tuple(file.size(), 33 + chunks.size(), 1u, 24, 4u));
    EXPECT_EQ(h.TextCount, 10);
    EXPECT_STREQ(h.Texts[0].Text.data(), "A text");
    EXPECT_EQ(h.Texts[1].Keyword.data(), std::string(79, 'k'));
    EXPECT_EQ(h.Texts[1].Text.data(), std::string(255, 'k'));
    EXPECT_EQ(h.InternationalTextCount, h.InternationalTexts.size());
    EXPECT_STREQ(h.InternationalTexts[0].Language.data(), "hu");
    EXPECT_STREQ(h.InternationalTexts[0].TranslatedKeyword.data(), "Kulcs");
    EXPECT_STREQ(h.InternationalTexts[0].Text.data(), "Sz\xC3\xB6veg");
    EXPECT_STREQ(h.InternationalTexts[1].Text.data(), "");
    EXPECT_EQ(std::tuple(h.InternationalTexts[0].Keyword.data() + std::string(),
                         h.InternationalTexts[1].CompressionFlag),
              std::tuple("Key", 1));
    EXPECT_EQ(std::tuple(h.BackgroundRed, h.BackgroundGreen, h.BackgroundBlue),
              std::tuple(0x102, 0x304, 0x506));
    EXPECT_EQ(std::tuple(h.PixelsPerUnitX, h.PixelsPerUnitY, h.Unit), std::tuple(256u, 512u, 1));
    EXPECT_EQ(std::tuple(h.Year, h.Month, h.Day, h.Hour, h.Minute, h.Second),
              std::tuple(2026, 11, 21, 9, 30, 59));
    EXPECT_EQ(std::tuple(h.KeyRed, h.KeyGreen, h.KeyBlue), std::tuple(1, 2, 3));
    for (const auto &[type, grey, index] : {std::array{0, 0x102, 0}, {3, 0, 1}, {4, 0x102, 0}}) {
        PixelsOf(File(1, 1, 8, static_cast<uint8_t>(type), Chunk("bKGD", {1, 2})));
        EXPECT_EQ(h.BackgroundGrey * 1000 + h.BackgroundIndex, grey * 1000 + index) << type;
    }
}

// The code lengths of a dynamic block: each symbol of the code-length code has 5 bits. The codes
// after its 19 are undefined; one bit of them is dropped.
static std::string Length(size_t length)
{
    return Digits(length, 5, true);
}

static std::string Zeros(size_t count)  // 11 to 138
{
    return Length(18) + Digits(count - 11, 7, false);
}

// The start of a final block with dynamic codes (RFC 1951, 3.2.7), with so many of either kind.
static std::string Dynamic(size_t literals, size_t distances)
{
    std::string bits = "101" + Digits(literals - 257, 5, false) + Digits(distances - 1, 5, false) +
                       Digits(19 - 4, 4, false);
    for (int i = 0; i < 19; i++)
        bits += Digits(5, 3, false);
    return bits;
}

// What a stream expands to, and whether it ends.
static std::pair<BYTES, bool> Inflated(const BYTES &stream)
{
    BYTES out(40000);
    const INFLATE_RESULT result = Inflate_All(stream, out);
    return {Prefix(out, result.Size), result.Ended};
}

constexpr const char *Zlib = "00011110 10000000 ";

TEST(Inflate, Streams)
{
    const std::string fixed = "1 10 ", end = "0000000", a = "10010001 ";
    const struct {
        const char *what;
        std::string bits, out;
        bool ended;
    } rows[] = {
        {"fixed codes", fixed + a + a + end, "aa", true},
        {"a distance of 1 repeats", fixed + a + "11000101 00000" + end, std::string(259, 'a'),
         true},
        {"codes 286 and 287 are skipped", fixed + a + "11000110 11000111" + a + end, "aa", true},
        {"further back than there is", fixed + a + "0000001 00001" + a + end, "a", false},
        {"no such distance", fixed + a + "0000001 11110" + a + end, "a", false},
        {"cut short", fixed + a + "1", "a", false},
        {"no such block", "1 11", "", false},
        {"a repeat from the literals' lengths to the distances'",
         Dynamic(258, 2) + Zeros(97) + Length(2) + Zeros(138) + Zeros(20) + Length(2) + Length(16) +
             "00" + "00 00 10 01 01",
         "aaaaa", true},
        {"no such code length",
         Dynamic(257, 1) + "1" + Zeros(97) + Length(1) + Zeros(138) + Zeros(19) + Length(1) +
             Length(0) + "0 0 1",
         "bb", true},
        {"more codes than their bits tell apart",
         Dynamic(257, 1) + Zeros(97) + Length(1) + Length(1) + Zeros(138) + Zeros(19) + Length(1) +
             Length(0) + "0",
         "", false},
        {"more distances than their bits tell apart",
         Dynamic(257, 3) + Zeros(128) + Zeros(128) + Repeat(Length(1), 4) + "0", "", false},
        {"more lengths of lengths than their bits tell apart",
         "101 00000 00000 0000" + Repeat("100", 4), "", false},
        {"a repeat past the end", Dynamic(257, 1) + Zeros(138) + Zeros(121), "", false},
        {"a repeat of nothing", Dynamic(257, 1) + Length(16) + "00", "", false},
        {"cut in the lengths", Dynamic(257, 1) + Zeros(138), "", false},
        {"an end and no literals",
         Dynamic(257, 1) + Zeros(138) + Zeros(118) + Length(1) + Length(0) + "0", "", true},
        {"an undefined code",
         Dynamic(257, 1) + Zeros(97) + Length(2) + Zeros(138) + Zeros(20) + Length(2) + Length(0) +
             "00 11",
         "a", false},
        {"stored bytes cut short",
         "1 00 00000" + Digits(3, 16, false) + Digits(0xFFFC, 16, false) + "10000110 01000110",
         "ab", false},
        {"a block that is not the last", "0 10 " + a + end + fixed + a + end, "aa", true},
    };
    for (const auto &r : rows)
        for (const size_t after : {0u, 64u}) {  // bytes, enough for the loop without checks
            if (after != 0 && std::string_view(r.what).find("cut") != std::string_view::npos)
                continue;
            testing::internal::CaptureStdout();
            const auto [out, ended] = Inflated(Bits(Zlib + r.bits, false) + BYTES(after));
            std::fflush(stdout);
            EXPECT_EQ(testing::internal::GetCapturedStdout(),
                      r.what == std::string("no such code length") ? "Unexisting code!\n" : "")
                << r.what;
            EXPECT_EQ(std::string(out.begin(), out.end()), r.out) << r.what << ' ' << after;
            EXPECT_EQ(ended, r.ended) << r.what << ' ' << after;
        }
    const BYTES byte = {0x40};
    Inflate_Begin(byte);
    for (const auto &[position, bit] : {std::pair(0, 0), {1, 1}, {2, 0}, {8, 0}}) {
        PNG_BitPointer = static_cast<size_t>(position);
        EXPECT_EQ(PNG_ReadReversedBit(), static_cast<uint32_t>(bit)) << position;
    }
}

// Canonical codes from their lengths (RFC 1951, 3.2.2).
static std::vector<std::string> CodesOf(const std::vector<size_t> &lengths)
{
    std::vector<std::string> codes(lengths.size());
    for (size_t n = 1, code = 0; n <= 15; n++, code *= 2)
        for (size_t i = 0; i < lengths.size(); i++)
            if (lengths[i] == n)
                codes[i] = Digits(code++, n, true);
    return codes;
}

TEST(Inflate, CodesOfUpTo15Bits)
{
    // Letters have 3 to 15 bits, matches of 3 and the end fewer; near distances the most.
    constexpr size_t letters[] = {3, 4, 5, 6, 7, 8, 9, 10, 12, 12, 12, 13, 14, 15, 15};
    std::vector<size_t> literals(258), distances;
    std::copy(std::begin(letters), std::end(letters), literals.begin() + 'a');
    literals[256] = 2;
    literals[257] = 1;
    for (size_t i = 0; i < 8; i++)
        distances.push_back(std::min<size_t>(16 - i, 15));
    std::string bits = Digits(0, 16, false) + Dynamic(258, 8);
    for (const auto &lengths : {literals, distances})
        for (const size_t length : lengths)
            bits += Length(length);
    const auto codes = CodesOf(literals), distanceCodes = CodesOf(distances);
    BYTES expected;
    for (int round = 0; round < 3; round++) {  // the last one near the stream's end
        for (size_t i = 0; i < std::size(letters); i++) {
            bits += codes['a' + i];
            expected.push_back(static_cast<uint8_t>('a' + i));
        }
        for (size_t i = 0; i < 8; i++) {
            constexpr size_t least[] = {1, 2, 3, 4, 5, 7, 9, 13};
            bits += codes[257] + distanceCodes[i] + std::string(i < 4 ? 0 : i / 2 - 1, '0');
            for (int k = 0; k < 3; k++)
                expected.push_back(expected[expected.size() - least[i]]);
        }
    }
    // The end after a literal, with enough bytes after it for the fast path.
    bits += codes['a'] + codes[256] + std::string(512, '0');
    expected.push_back('a');
    EXPECT_EQ(Inflated(Bits(bits, false)), std::pair(expected, true));
}

TEST(Inflate, ExactRoomIsNotOverrun)
{
    const std::string stream = "00011110 10000000 1 10 10010001 11000101 00000 0000000";
    for (const size_t room : {259u, 258u, 100u, 1u, 0u}) {
        BYTES out(room + 64, '-');
        const INFLATE_RESULT result = Inflate_All(Bits(stream, false), std::span(out).first(room));
        EXPECT_EQ(result.Size, room);
        EXPECT_EQ(result.Ended, room == 259);
        EXPECT_EQ(std::string(out.begin(), out.end()),
                  std::string(room, 'a') + std::string(64, '-'));
    }
}

// A number by its class and its place there: `classBits` gives a class's extra bits; the first
// class starts at `least`.
static std::string InClass(size_t value, size_t least, size_t (*classBits)(size_t),
                           std::string (*code)(size_t))
{
    size_t number = 0;
    for (; value >= least + (size_t{1} << classBits(number)); number++)
        least += size_t{1} << classBits(number);
    return code(number) + Digits(value - least, classBits(number), false);
}

// Length and distance in the fixed codes of RFC 1951, 3.2.5 and 3.2.6.
static std::string Match(size_t length, size_t distance)
{
    return (length == 258 ? Digits(0xC5, 8, true)
                          : InClass(
                                length, 3, [](size_t i) { return i < 8 ? 0 : i / 4 - 1; },
                                [](size_t i) {
                                    return i < 23 ? Digits(i + 1, 7, true)
                                                  : Digits(0xC0 + i - 23, 8, true);
                                })) +
           InClass(
               distance, 1, [](size_t i) { return i < 4 ? 0 : i / 2 - 1; },
               [](size_t i) { return Digits(i, 5, true); });
}

TEST(Inflate, CopiesByteByByte)
{
    std::vector<size_t> distances = {63, 64, 65, 500, 32768};
    for (size_t d = 1; d <= 40; d++)
        distances.push_back(d);
    for (const size_t distance : distances) {
        std::string literals;
        BYTES start;
        for (size_t i = 0; i < distance; i++) {
            start.push_back(static_cast<uint8_t>(i * 37 % 131));
            literals += Digits(0x30u + start.back(), 8, true);
        }
        // A match, and what is left of the stream after it, since the end is decoded by another
        // path.
        for (const size_t length : {3u, 8u, 15u, 16u, 17u, 31u, 32u, 33u, 64u, 65u, 257u, 258u})
            for (const size_t after : {0u, 100u}) {
                BYTES expected = start;
                for (size_t i = 0; i < length; i++)
                    expected.push_back(expected[expected.size() - distance]);
                expected.insert(expected.end(), after, 1);
                std::string bits =
                    Digits(0, 16, false) + "110" + literals + Match(length, distance);
                for (size_t i = 0; i < after; i++)
                    bits += Digits(0x31, 8, true);
                EXPECT_TRUE(Inflated(Bits(bits + "0000000", false)) == std::pair(expected, true))
                    << distance << ' ' << length;
            }
    }
}

// Rows that repeat data from as far back as possible, in a picture that the decoder holds only in
// part; a row may be longer than that distance.
TEST(PNG, LargePictures)
{
    for (const auto &[bytes, height] : {std::pair<size_t, size_t>{1001, 500}, {60001, 9}}) {
        BYTES first(Inflate_History);
        for (size_t i = 0; i < first.size(); i++)
            first[i] = static_cast<uint8_t>(i * i / 7);
        for (size_t y = 0; y < height; y++)
            first[y * bytes % first.size()] = 2;
        std::string bits = "110";
        for (size_t i = first.size(); i < bytes * height; i += 256)
            bits += Match(256, Inflate_History);
        const BYTES stream = BYTES{0x78, 1, 0} + Number(std::ssize(first), -2) +
                             Number(~std::ssize(first), -2) + first + Bits(bits + "0000000", false);
        const auto width = static_cast<uint32_t>(bytes - 1), rows = static_cast<uint32_t>(height);
        const BYTES pixels = PixelsOf(File(width, rows, 8, 0, Chunk("IDAT", stream)));
        ASSERT_EQ(pixels.size(), (bytes - 1) * height * 4);
        BYTES row(bytes);
        for (size_t y = 0, i = 0; y < height; y++)
            for (size_t x = 1; x < bytes; x++, i += 4) {
                row[x] = static_cast<uint8_t>(row[x] + first[(y * bytes + x) % first.size()]);
                ASSERT_EQ(pixels[i] * 256 + pixels[i + 3], row[x] * 256 + 255) << x << ' ' << y;
            }
    }
}
