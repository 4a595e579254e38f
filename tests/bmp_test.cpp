#include "picture/bmp.h"

#include <gtest/gtest.h>

#include "tests/pixels.h"

// A file with a 40-byte header. Palette entry i is the grey i, except the first.
static BYTES MakeFile(int width, int height, int bits, int compression, const std::string &masks,
                      const BYTES &data)
{
    BYTES table = Hex(masks);
    for (size_t i = 0; bits <= 8 && i < size_t{1} << bits; i++)
        table = table + (i == 0 ? Hex("1E 14 0A 77") : BYTES(4, static_cast<uint8_t>(i)));
    BYTES file = Hex("42 4D 00000000 00000000") + Number(std::ssize(table) + 54, -4) +
                 Number(40, -4) + Number(width, -4) + Number(height, -4) + Number(1, -2) +
                 Number(bits, -2) + Number(compression, -4);
    file.resize(54);
    return file + table + data;
}

TEST(BMP, PixelsOfEveryDepth)
{
    const struct {
        const char *what;
        int width, height, bits, compression;
        const char *masks, *data, *pixels;
        const char *reason = "";
    } rows[] = {
        {"1 bit, whole bytes: no padding", 8, 2, 1, 0, "", "7F FD",
         "01 01 01 01 01 01 0A141EFF 01 0A141EFF 01 01 01 01 01 01 01"},
        {"1 bit, others: 3 bytes of padding", 9, 2, 1, 0, "", "FFFF 000000 FF80",
         "01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01"},
        {"4 bits, odd: 3 bytes of padding", 3, 2, 4, 0, "", "123F 090909 456F",
         "04 05 06 01 02 03"},
        {"8 bits, width 5: 1 byte of padding", 5, 2, 8, 0, "", "0102030405 09 060708090A",
         "06 07 08 09 0A 01 02 03 04 05"},
        {"16 bits", 2, 1, 16, 0, "", "FF7F 4184", "F8 081008FF"},
        {"16 bits, 5-6-5", 2, 1, 16, 3, "00F80000 E0070000 1F000000", "2008 FFFF",
         "080400FF F8FCF8FF"},
        {"16 bits, a field wider than a byte", 1, 1, 16, 3, "00000000 00000000 FF030000", "0402",
         "000081FF"},
        {"24 bits, rows of 9 bytes and 3", 3, 2, 24, 0, "", "010203 040506 070707 000000 0B0C0D",
         "0D0C0BFF - - 030201FF 060504FF 07", "cut after 1 of 2 rows"},
        {"24 bits, top-down", 1, -2, 24, 0, "", "010203 00 040506", "030201FF 060504FF"},
        {"32 bits, alpha first", 1, 1, 32, 0, "", "0A 14 1E 28", "281E140A"},
        {"32 bits, fields from the highest byte", 1, 1, 32, 3, "000000FF 0000FF00 00FF0000",
         "0A 14 1E 28", "281E14FF"},
        {"2 bits", 1, 1, 2, 0, "", "01020304", "", "2 bits a pixel with compression 0"},
        {"no bits", 1, 1, 0, 0, "", "01020304", "", "0 bits a pixel with compression 0"},
        {"16 bits in runs", 1, 1, 16, 1, "", "01020304", "", "16 bits a pixel with compression 1"},
        {"an eighth of the bytes", 8, 1, 24, 0, "", "070707", "07 - - - - - - -",
         "cut after 0 of 1 rows"},
        {"less than an eighth", 8, 1, 24, 0, "", "0707", "", "56 bytes cannot hold 8 x 1 pixels"},
        {"runs may leave pixels out", 3, 1, 8, 1, "", "0107", "07 - -", "cut after 0 of 1 rows"},
        {"no width", 0, 1, 24, 0, "", "01020304", "", "a side of 0 pixels"},
        {"65536 rows", 1, 65536, 24, 0, "", "01020304", "", "a side of 0 pixels"},
        {"no byte of pixels", 1, 1, 8, 1, "", "", "", "the pixels are missing"},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(Show(MakeFile(r.width, r.height, r.bits, r.compression, r.masks, Hex(r.data))),
                  r.pixels)
            << r.what;
        EXPECT_STREQ(Picture_Reason(), r.reason) << r.what;
    }
}

TEST(BMP, MasksInsideALongHeader)
{
    // the header's 108 bytes reach to the data: the masks are in it, after its first 40
    BYTES file = MakeFile(1, 1, 16, 3, "000F0000 F0000000 0F000000", {});
    file[10] = 14 + 108;
    file[14] = 108;
    file.resize(14 + 108);
    EXPECT_EQ(Show(file + Hex("5A03")), "3050A0FF");
    BMP_HEADER h;
    EXPECT_EQ(BMP_GetHeader(&h)->HeaderSize, 108u);
}

TEST(BMP, RunsExpand)
{
    const struct {
        const char *what;
        int compression, width, height;
        const char *packed, *plain;
    } rows[] = {
        {"a run and literals", 1, 8, 1, "0307 0003 010203 00 0209", "07070701020309 09"},
        {"ends of line and bitmap do nothing", 1, 4, 1, "0105 0000 0001 0206", "050606"},
        {"a delta skips bytes of the file", 1, 4, 1, "0105 0002 0101 0909090909 0206", "050606"},
        {"a run beyond the picture", 1, 2, 2, "FF03", "03030303"},
        {"literals cut short", 1, 4, 2, "0006 0102", "0102"},
        {"nibbles in pairs", 2, 4, 2, "0412 0004 3456", "12123456"},
        {"a byte of padding after 3 nibbles", 2, 4, 1, "0003 1234 99 0150", "1270"},
        {"an odd last nibble", 2, 3, 1, "0312", "1210"},
        {"pairs up to the width squared", 2, 2, 4, "0812", "1212100210021002"},
    };
    for (const auto &r : rows) {
        const BYTES file = MakeFile(r.width, r.height, r.compression == 1 ? 8 : 4, r.compression,
                                    "", Hex(r.packed));
        BMP_Load(WriteTemp("bmp", file).c_str());
        ASSERT_GE(BMP_File.size(), BMP_Header.DataOffset) << r.what;
        EXPECT_EQ(BYTES(BMP_File.begin() + BMP_Header.DataOffset, BMP_File.end()), Hex(r.plain))
            << r.what;
        BMP_UnLoad();
    }
}

TEST(BMP, MaskLengths)
{
    for (const auto &[mask, length] :
         {std::pair(0x7C00u, 5), {1u, 1}, {~0u, 32}, {0xF0F0u, 4}, {0u, 0}})
        EXPECT_EQ(BMP_BitCounter(mask), length) << mask;
}

TEST(BMP, RealFiles)
{
    ExpectFiles({
        {"bmp/bmp_1bpp.bmp", 96, 73, 1, 4117537754156108141u},
        {"bmp/bmp_4bpp.bmp", 96, 73, 4, 4958021424052708144u},
        {"bmp/pal8w124.bmp", 124, 61, 8, 13478426149005549193u},
        // sheared: 3 bytes are skipped where the file has no padding, or 1 byte
        {"bmp/pal1.bmp", 127, 64, 1, 10989306678378096453u},
        {"bmp/pal4rle.bmp", 127, 64, 4, 10606109773487905350u},
    });
}

TEST(BMP, PrefixesHold)
{
    ExpectPrefixesHold(MakeFile(3, 4, 24, 0, "", BYTES(45, 3)), 0, 0);
    // a run without its value is one of zeros
    ExpectPrefixesHold(MakeFile(8, 4, 4, 2, "", Hex("1012 0004 0102 0C34")), 0, 16);
}
