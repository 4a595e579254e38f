#include "picture/bmp.h"

#include <gtest/gtest.h>

#include "tests/pixels.h"

// A BMP whose info header of `size` bytes ends with `extra`, which includes any masks.
static BYTES Bmp(int size, int width, int height, int bits, int compression, const char *extra,
                 const char *palette, const char *data)
{
    const bool core = size == 12;
    BYTES info = Number(size, -4) + Number(width, core ? -2 : -4) + Number(height, core ? -2 : -4) +
                 Number(1, -2) + Number(bits, -2);
    if (!core)
        info = info + Number(compression, -4) + BYTES(20);
    info = info + Hex(extra);
    info.resize(std::max(info.size(), static_cast<size_t>(size)));
    const BYTES table = Hex(palette), pixels = Hex(data);
    return Text("BM") + BYTES(8) + Number(std::ssize(info) + std::ssize(table) + 14, -4) + info +
           table + pixels;
}

// With a header of 40 bytes. Palette entry i is the grey i, except the first.
static BYTES MakeFile(int width, int height, int bits, int compression, const char *masks,
                      const BYTES &data)
{
    BYTES file = Bmp(40, width, height, bits, compression, masks, "", ""), table;
    for (size_t i = 0; bits <= 8 && i < size_t{1} << bits; i++)
        table = table + (i == 0 ? Hex("1E 14 0A 77") : BYTES(4, static_cast<uint8_t>(i)));
    std::ranges::copy(Number(std::ssize(file) + std::ssize(table), -4), file.begin() + 10);
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
        {"16 bits", 2, 2, 16, 0, "", "FF7F 4184 0000 4184 FF7F", "081008FF F8 F8 081008FF"},
        {"16 bits, 5-6-5", 2, 1, 16, 3, "00F80000 E0070000 1F000000", "2008 FFFF",
         "080400FF F8FCF8FF"},
        {"16 bits, a field wider than a byte", 1, 1, 16, 3, "00000000 00000000 FF030000", "0402",
         "000081FF"},
        {"24 bits, rows of 9 bytes and 3", 3, 2, 24, 0, "", "010203 040506 070707 000000 0B0C0D",
         "0D0C0BFF - - 030201FF 060504FF 07", "cut after 1 of 2 rows"},
        {"24 bits, top-down", 1, -2, 24, 0, "", "010203 00 040506", "030201FF 060504FF"},
        {"32 bits, alpha first", 1, 2, 32, 0, "", "0A141E28 00 01020304", "04030201 281E140A"},
        {"32 bits, fields from the highest byte", 1, 2, 32, 3, "000000FF 0000FF00 00FF0000",
         "0A141E28 00 01020304", "040302FF 281E14FF"},
        {"2 bits", 1, 1, 2, 0, "", "01020304", "", "2 bits a pixel with compression 0"},
        {"no bits", 1, 1, 0, 0, "", "01020304", "", "0 bits a pixel with compression 0"},
        {"16 bits in runs", 1, 1, 16, 1, "", "01020304", "", "16 bits a pixel with compression 1"},
        {"an eighth of the bytes", 8, 1, 24, 0, "", "070707", "07 - - - - - - -",
         "cut after 0 of 1 rows"},
        {"less than an eighth", 8, 1, 24, 0, "", "0707", "", "56 bytes cannot hold 8 x 1 pixels"},
        {"runs may leave pixels out", 3, 1, 8, 1, "", "0107", "07 - -", "cut after 0 of 1 rows"},
        {"runs of more than 1024", 129, 8, 8, 1, "", "01", "",
         "1079 bytes cannot hold 129 x 8 pixels"},
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

TEST(BMP, FormatsOwnRules)
{
    const char *greys = "01010100 02020200 03030300 04040400";
    const char *fields565 = "00F80000 E0070000 1F000000";
    const char *abgr = "FF000000 00FF0000 0000FF00 000000FF";
    BYTES noOffset = Bmp(40, 1, 1, 2, 0, "", greys, "40000000");
    BYTES noPalette = Bmp(40, 1, 1, 24, 0, "", "", "010203");
    noOffset[10] = noPalette[10] = 0;
    BYTES endless = noPalette;
    std::fill_n(&endless[14], 4, uint8_t{255});
    const std::vector<FORMAT_ROW> rows = {
        {"OS/2's first header, entries of 3 bytes",
         Bmp(12, 3, 2, 1, 0, "", "0A0A0A 141414", "A0000000 40000000"), "0A 14 0A 14 0A 14"},
        {"its second with such entries", Bmp(64, 3, 1, 1, 0, "", "0A0A0A 141414", "A0000000"),
         "14 0A 14"},
        {"pixels that follow the palette unsaid", noOffset, "02"},
        {"or the header", noPalette, "030201FF"},
        {"nothing follows 4 GB of it", endless, "", "the pixels are missing"},
        {"2 bits, rows of 4 bytes", Bmp(40, 5, 2, 2, 0, "", greys, "1B400000 E4C00000"),
         "04 03 02 01 04 01 02 03 04 02"},
        {"4 bits", Bmp(40, 3, 2, 4, 0, "", greys, "01200000 30100000"), "04 01 02 01 02 03"},
        {"8 bits, top-down", Bmp(40, 1, -2, 8, 0, "", greys, "01000000 02000000"), "02 03"},
        {"16 bits, 5 each", Bmp(40, 2, 2, 16, 0, "", "", "0F3E 0080 0080 0F3E"),
         "00 7B847BFF 7B847BFF 00"},
        {"16 bits, 5-6-5 after the header", Bmp(40, 1, 1, 16, 3, fields565, "", "2008 0000"),
         "080400FF"},
        {"32 bits: no alpha", Bmp(40, 1, 1, 32, 0, "", "", "01020304"), "030201FF"},
        {"fields with alpha in the header", Bmp(56, 2, 1, 32, 3, abgr, "", "01020380 00000000"),
         "01020380 -"},
        {"an alpha that is 0 everywhere", Bmp(56, 2, 1, 32, 3, abgr, "", "01020300 01020300"),
         "010203FF 010203FF"},
        {"fields of 10 bits keep their high 8",
         Bmp(40, 1, 1, 32, 3, "0000F03F 00FC0F00 FF030000", "", "FF03F03F"), "FF00FFFF"},
        {"runs of 8 bits: ends, literals, a delta",
         Bmp(40, 6, 3, 8, 1, "", greys, "0201 0102 0000 0003010203 00 0101 0002 0101 0103 0001"),
         "01 01 01 01 01 04 02 03 04 02 01 01 02 02 03 01 01 01"},
        {"a run past its row's end is cut", Bmp(40, 2, 2, 8, 1, "", greys, "0902 0000 0201 0001"),
         "02 02 03 03"},
        {"runs of 4 bits", Bmp(40, 3, 2, 4, 2, "", greys, "0312 0000 0003 1230 0001"),
         "02 03 04 02 03 02"},
        {"literals cut short", Bmp(40, 4, 1, 4, 2, "", greys, "0004 12"), "02 03 01 01",
         "cut after 0 of 1 rows"},
        {"an index beyond the palette is black", Bmp(40, 1, 1, 8, 0, "", greys, "FF000000"), "00"},
        {"rows missing", Bmp(40, 1, 2, 24, 0, "", "", "01020300"), "- 030201FF",
         "cut after 1 of 2 rows"},
        {"a JPEG inside", Bmp(40, 1, 1, 0, 4, "", "", "FFD8FFE0"), "", "an embedded JPEG picture"},
        {"a PNG inside", Bmp(40, 1, 1, 0, 5, "", "", "89504E47"), "", "an embedded PNG picture"},
        {"OS/2's runs of 24 bits", Bmp(64, 1, 1, 24, 4, "", "", "01010203"), "",
         "RLE24 compression"},
        {"fields of 24 bits", Bmp(40, 1, 1, 24, 3, "", "", "010203"), "",
         "24 bits a pixel with compression 3"},
        {"a width of 17 bits", Bmp(40, 65536, 1, 24, 0, "", "", "010203"), "",
         "a side of more than 65535 pixels"},
        {"a height of 17 bits", Bmp(40, 1, -65536, 24, 0, "", "", "010203"), "",
         "a side of more than 65535 pixels"},
        {"no pixels", Bmp(40, 1, 1, 24, 0, "", "", ""), "", "the pixels are missing"},
        {"fields with alpha after the header", Bmp(40, 1, 1, 32, 6, abgr, "", "01020380"),
         "01020380"},
        {"a delta past the last row", Bmp(40, 1, 2, 8, 1, "", greys, "0101 0002 0005 0102"),
         "01 02"},
        {"OS/2's Huffman runs", Bmp(64, 8, 1, 1, 3, "", "", "FFFFFFFF"), "", "Huffman compression"},
    };
    CheckByFormat(PICTURE_BMP, rows);
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
    BMP_Load(OwnFile(MakeFile(3, -2, 24, 0, "", BYTES(20))).c_str());
    EXPECT_EQ(BMP_Header.OutputSize, 3u * 2 * 4);
    BMP_UnLoad();
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

TEST(BMP, PrefixesHold)
{
    ExpectPrefixesHold(MakeFile(3, 4, 24, 0, "", BYTES(45, 3)), 0, 0);
    // a run without its value is one of zeros
    ExpectPrefixesHold(MakeFile(8, 4, 4, 2, "", Hex("1012 0004 0102 0C34")), 0, 16);
}
