#include "picture/bmp.h"

#include <gtest/gtest.h>

#include "tests/pixels.h"

struct BITMAP {
    int Width, Height; // negative: top-down
    int Bits, Compression;
    BYTES Table; // palette or masks, behind a header of 40 bytes
    BYTES Data;
};

static BYTES MakeFile(const BITMAP &b)
{
    const auto offset = static_cast<uint32_t>(54 + b.Table.size());
    BYTES file = {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0};
    for (const uint32_t v :
         {offset, 40u, static_cast<uint32_t>(b.Width), static_cast<uint32_t>(b.Height)})
        AppendNumber(file, v, 4, false);
    AppendNumber(file, 1, 2, false);
    AppendNumber(file, static_cast<uint32_t>(b.Bits), 2, false);
    AppendNumber(file, static_cast<uint32_t>(b.Compression), 4, false);
    file.resize(54);
    Append(file, b.Table);
    Append(file, b.Data);
    return file;
}

// Entry i is the colour i0 i1 i2.
static BYTES Palette(int count)
{
    BYTES palette;
    for (int i = 0; i < count; i++)
        for (const int v : {i * 16 + 2, i * 16 + 1, i * 16, 77})
            palette.push_back(static_cast<uint8_t>(v));
    return palette;
}

static uint32_t Entry(uint32_t i)
{
    return i << 28 | (i * 16 + 1) << 16 | (i * 16 + 2) << 8 | 255;
}

TEST(BMP, PixelsOfEveryDepth)
{
    const uint32_t a = Entry(1), o = Entry(0);
    const BYTES fields565 = {0, 0xF8, 0, 0, 0xE0, 7, 0, 0, 0x1F, 0, 0, 0};
    const BYTES fields888 = {0, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0};
    const struct {
        const char *what;
        BITMAP bitmap;
        PIXELS pixels;
    } rows[] = {
        {"1 bit, whole bytes: no padding",
         {8, 2, 1, 0, Palette(2), {0x80, 0x01}},
         {o, o, o, o, o, o, o, a, a, o, o, o, o, o, o, o}},
        {"1 bit, others: 3 bytes of padding",
         {9, 2, 1, 0, Palette(2), {0, 0x80, 9, 9, 9, 0x80, 0}},
         {a, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, a}},
        {"4 bits, an odd width: 3 bytes of padding",
         {3, 2, 4, 0, Palette(16), {0x12, 0x3F, 9, 9, 9, 0x45, 0x6F}},
         {Entry(4), Entry(5), Entry(6), Entry(1), Entry(2), Entry(3)}},
        {"8 bits, width 5: 1 byte of padding",
         {5, 2, 8, 0, Palette(256), {1, 2, 3, 4, 5, 9, 6, 7, 8, 9, 10}},
         {Entry(6), Entry(7), Entry(8), Entry(9), Entry(10), Entry(1), Entry(2), Entry(3), Entry(4),
          Entry(5)}},
        {"16 bits", {2, 1, 16, 0, {}, {0xFF, 0x7F, 0x41, 0x84}}, {0xF8F8F8FF, 0x081008FF}},
        {"16 bits, 5-6-5",
         {2, 1, 16, 3, fields565, {0x20, 0x08, 0xFF, 0xFF}},
         {0x080400FF, 0xF8FCF8FF}},
        {"16 bits, a field wider than a byte keeps its high bits",
         {1, 1, 16, 3, {0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0x03, 0, 0}, {0x04, 0x02}},
         {0x000081FF}},
        {"24 bits, rows of 9 bytes and 3 of padding",
         {3, 2, 24, 0, {}, {1, 2,  3,  4,  5,  6,  7,  8,  9,  0, 0,
                            0, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
         {0x0D0C0BFF, 0x100F0EFF, 0x131211FF, 0x030201FF, 0x060504FF, 0x090807FF}},
        {"24 bits, top-down", {1, -2, 24, 0, {}, {1, 2, 3, 0, 4, 5, 6}}, {0x030201FF, 0x060504FF}},
        {"32 bits, alpha first", {1, 1, 32, 0, {}, {10, 20, 30, 40}}, {0x281E140A}},
        {"32 bits, fields from the highest byte",
         {1, 1, 32, 3, fields888, {10, 20, 30, 40}},
         {0x281E14FF}},
        {"2 bits", {1, 1, 2, 0, Palette(4), {1, 2, 3, 4}}, {}},
        {"no bits", {1, 1, 0, 0, {}, {1, 2, 3, 4}}, {}},
        {"16 bits in runs", {1, 1, 16, 1, {}, {1, 2, 3, 4}}, {}},
    };
    for (const auto &r : rows)
        EXPECT_EQ(DecodeBytes(MakeFile(r.bitmap)).Pixels, r.pixels) << r.what;
}

TEST(BMP, MasksInsideALongHeader)
{
    // the header's 108 bytes end where the data start: the masks are in it, behind its first 40
    BYTES file = MakeFile({1, 1, 16, 3, {0, 0x0F, 0, 0, 0xF0, 0, 0, 0, 0x0F, 0, 0, 0}, {}});
    file[10] = 14 + 108;
    file[14] = 108;
    file.resize(14 + 108);
    Append(file, {0x5A, 0x03});
    EXPECT_EQ(DecodeBytes(file).Pixels, PIXELS{0x3050A0FF});
}

TEST(BMP, RunsExpand)
{
    const struct {
        const char *what;
        int compression, width, height;
        BYTES packed, plain;
    } rows[] = {
        {"a run and literals", 1, 8, 1, {3, 7, 0, 3, 1, 2, 3, 0, 2, 9}, {7, 7, 7, 1, 2, 3, 9, 9}},
        {"ends of line and bitmap do nothing", 1, 4, 1, {1, 5, 0, 0, 0, 1, 2, 6}, {5, 6, 6}},
        {"a delta skips bytes of the file",
         1,
         4,
         1,
         {1, 5, 0, 2, 1, 1, 9, 9, 9, 9, 9, 2, 6},
         {5, 6, 6}},
        {"a run beyond the picture", 1, 2, 2, {255, 3}, {3, 3, 3, 3}},
        {"literals cut short", 1, 4, 2, {0, 6, 1, 2}, {1, 2}},
        {"nibbles in pairs", 2, 4, 2, {4, 0x12, 0, 4, 0x34, 0x56}, {0x12, 0x12, 0x34, 0x56}},
        {"3 literal nibbles are followed by a byte of padding",
         2,
         4,
         1,
         {0, 3, 0x12, 0x34, 99, 1, 0x50},
         {0x12, 0x70}},
        {"pairs up to the width squared",
         2,
         2,
         4,
         {8, 0x12},
         {0x12, 0x12, 0x10, 2, 0x10, 2, 0x10, 2}},
    };
    for (const auto &r : rows) {
        const int bits = r.compression == 1 ? 8 : 4;
        BMP_Load(WriteTemp("bmp", MakeFile({r.width, r.height, bits, r.compression, {}, r.packed}))
                     .c_str());
        ASSERT_GE(BMP_File.size(), 54u) << r.what;
        EXPECT_EQ(BYTES(BMP_File.begin() + 54, BMP_File.end()), r.plain) << r.what;
        BMP_UnLoad();
    }
}

TEST(BMP, MaskLengths)
{
    const struct {
        uint32_t mask;
        int length;
    } rows[] = {{0x7C00, 5}, {1, 1}, {0xFFFFFFFF, 32}, {0x80000000, 1}, {0xF0F0, 4}, {0, 0}};
    for (const auto &r : rows)
        EXPECT_EQ(BMP_BitCounter(r.mask), r.length) << r.mask;
}

TEST(BMP, SizesThatCannotBe)
{
    const struct {
        const char *what;
        BITMAP bitmap;
        bool null;
    } rows[] = {
        {"an eighth of the pixels is there", {8, 8, 24, 0, {}, BYTES(24)}, false},
        {"less than an eighth is there", {8, 8, 24, 0, {}, BYTES(23)}, true},
        {"runs may leave pixels out", {500, 500, 8, 1, {}, {1, 1}}, false},
        {"no width", {0, 8, 24, 0, {}, BYTES(24)}, true},
        {"65536 rows", {8, 65536, 24, 0, {}, BYTES(24)}, true},
        {"no byte of pixels", {1, 1, 8, 1, {}, {}}, true},
    };
    for (const auto &r : rows)
        EXPECT_EQ(DecodeBytes(MakeFile(r.bitmap)).Null, r.null) << r.what;
}

TEST(BMP, RealFiles)
{
    const struct {
        const char *file; // what it probes
        int width, height, bits;
        uint64_t digest;
    } rows[] = {
        {"bmp_1bpp", 96, 73, 1, 0x39246ec591bc096d},
        {"bmp_4bpp", 96, 73, 4, 0x44ce6e3769702330},
        {"pal8w124", 124, 61, 8, 0xbb0cfd2bb6cfde89},
        {"pal1", 127, 64, 1,
         0x9881dc333c8de745}, // sheared: 3 bytes of padding are skipped where 0 are
        {"pal4rle", 127, 64, 4, 0x933078a5398b9a46}, // sheared likewise
    };
    for (const auto &r : rows) {
        const DECODED d = DecodeFile(std::string(TEST_DATA "bmp/") + r.file + ".bmp");
        EXPECT_EQ(std::tuple(d.Width, d.Height, d.Bits), std::tuple(r.width, r.height, r.bits));
        EXPECT_EQ(Digest(d.Pixels), r.digest) << r.file;
    }
}

TEST(BMP, PrefixesHold)
{
    ExpectPrefixesHold(MakeFile({3, 4, 24, 0, {}, BYTES(45, 3)}), 0, 0);
    // the run whose value is cut off is of zeros
    ExpectPrefixesHold(MakeFile({8, 4, 4, 2, Palette(16), {16, 0x12, 0, 4, 1, 2, 12, 0x34}}), 0,
                       16);
}
