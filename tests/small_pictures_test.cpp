// PCX, TGA, PNM, XBM and sprite files.
#include <algorithm>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "picture/spr.h"
#include "picture/tga.h"
#include "picture/xbm.h"
#include "tests/pixels.h"

struct ROW {
    const char *what;
    BYTES file;
    int bits;
    const char *pixels;  // of the whole buffer, in the notation of Show
    const char *reason = "";
};

static void Check(uint8_t format, const std::vector<ROW> &rows)
{
    for (const ROW &r : rows) {
        const LOADED loaded(r.file);
        const Picture &p = loaded.Record;
        const size_t size = p.Pixels ? size_t{p.BufferWidth} * p.BufferHeight * 4 : 0;
        EXPECT_EQ(std::tuple(p.Format, p.Bits), std::tuple(format, r.bits)) << r.what;
        EXPECT_EQ(ShowPixels({p.Pixels, p.Pixels + size}), r.pixels) << r.what;
        EXPECT_STREQ(Picture_Reason(), r.reason) << r.what;
    }
}

// A picture of width x height; its palette of 16 has the entries (n, n + 1, n + 2).
static BYTES Pcx(uint8_t encoding, uint8_t bits, uint8_t planes, uint8_t width, uint8_t height,
                 uint8_t bytesPerLine, const BYTES &body)
{
    BYTES file = {10, 5, encoding, bits, 2, 0, 1, 0, static_cast<uint8_t>(width + 1), 0, height, 0};
    file.resize(128);
    for (uint8_t i = 0; i < 48; i++)
        file[16u + i] = static_cast<uint8_t>(i / 3 + i % 3);
    file[65] = planes;
    file[66] = bytesPerLine;
    return file + body;
}

static BYTES Palette256()
{
    BYTES palette = {12};
    for (int i = 0; i < 256; i++)
        palette = palette + BYTES{static_cast<uint8_t>(i), 0, static_cast<uint8_t>(255 - i)};
    return palette;
}

TEST(PCX, PlanesAndRuns)
{
    const BYTES colours = Palette256();
    const std::vector<ROW> rows = {
        {"two colours", Pcx(1, 1, 1, 4, 2, 1, {0x50, 0xC1, 0xA0}), 1,
         "000102FF 010203FF 000102FF 010203FF 010203FF 000102FF 010203FF 000102FF"},
        {"two colours, padded", Pcx(0, 1, 1, 2, 2, 2, {0x40, 0, 0x80, 0}), 1,
         "000102FF 010203FF 010203FF 000102FF"},
        {"sixteen colours", Pcx(0, 1, 4, 2, 1, 2, {0x40, 0, 0x80, 0, 0xC0, 0, 0xC0, 0}), 4,
         "0E0F10FF 0D0E0FFF"},
        {"256 colours", Pcx(0, 8, 1, 2, 1, 2, BYTES{1, 254} + colours), 8, "0100FEFF FE0001FF"},
        {"runs over row ends", Pcx(1, 8, 1, 2, 2, 2, BYTES{0xC3, 9, 7} + colours), 8,
         "0900F6FF 0900F6FF 0900F6FF 0700F8FF"},
        {"192 is itself", Pcx(1, 8, 1, 2, 1, 2, BYTES{0xC0, 0xC1, 0xC1} + colours), 8,
         "C0003FFF C1003EFF"},
        {"a run beyond the end", Pcx(1, 8, 1, 1, 1, 1, BYTES{0xFF, 5} + colours), 8, "0500FAFF"},
        {"true colour, padded", Pcx(1, 8, 3, 1, 1, 2, {1, 99, 2, 99, 3, 99}), 24, "010203FF"},
        {"too short a line", Pcx(0, 8, 3, 2, 1, 0, {1, 2, 3, 4, 5, 6}), 24, "010305FF 020406FF"},
        {"a row missing", Pcx(1, 8, 3, 1, 2, 1, {1, 2, 3, 4, 5}), 24, "010203FF -",
         "cut after 1 of 2 rows"},
        {"the first row missing", Pcx(1, 8, 3, 1, 2, 1, {1, 2}), 24, "", "cut in its first row"},
        {"24 bits in one plane", Pcx(0, 24, 1, 1, 1, 9, {1, 2, 3, 4, 5, 6, 7, 8, 9}), 24, "",
         "1 planes of 24 bits"},
        {"no width", Pcx(0, 8, 3, 0, 1, 1, {1, 2, 3}), 24, "", "a side of 0 pixels"},
        {"no width, and lines of no bytes", Pcx(0, 8, 3, 0, 1, 0, {1, 2, 3}), 24, "",
         "a side of 0 pixels"},
    };
    Check(PICTURE_PCX, rows);
}

static BYTES Tga(uint8_t type, uint8_t depth, uint8_t descriptor, uint8_t width, uint8_t height,
                 const BYTES &body)
{
    return BYTES{0, 0, type, 0, 0, 0, 0, 0, 0, 0, 0, 0, width, 0, height, 0, depth, descriptor} +
           body;
}

TEST(TGA, OriginsAndPackets)
{
    const BYTES two = {1, 2, 3, 4, 5, 6};
    const std::vector<ROW> rows = {
        {"from the top", Tga(2, 24, 0x20, 1, 2, two), 24, "030201FF 060504FF"},
        {"from the bottom", Tga(2, 24, 0, 1, 2, two), 24, "060504FF 030201FF"},
        {"from the right", Tga(2, 24, 0x10, 2, 1, two), 24, "030201FF 060504FF"},
        {"with alpha", Tga(2, 32, 0x28, 1, 1, {1, 2, 3, 4}), 32, "03020104"},
        {"runs over rows", Tga(10, 24, 0x20, 1, 3, {0x81, 1, 2, 3, 0, 7, 8, 9}), 24,
         "030201FF 030201FF 090807FF"},
        {"a run with alpha", Tga(10, 32, 0x28, 2, 1, {0x81, 1, 2, 3, 4}), 32, "03020104 03020104"},
        {"a run too long", Tga(10, 24, 0x20, 2, 1, {0xFF, 1, 2, 3}), 24, "030201FF 030201FF"},
        {"too many as they are", Tga(10, 24, 0x20, 1, 1, BYTES{1} + two), 24, "030201FF"},
        {"a packet cut short", Tga(10, 24, 0, 1, 2, BYTES{3} + two), 24, "060504FF 030201FF"},
        {"pixels missing", Tga(2, 24, 0x20, 1, 3, {1, 2, 3, 4, 5}), 24, "030201FF - -",
         "cut after 1 of 3 rows"},
        {"the first row missing", Tga(2, 24, 0, 2, 2, {1, 2, 3, 4, 5}), 24, "",
         "cut in its first row"},
        {"less than an eighth", Tga(2, 24, 0, 1, 24, {1, 2, 3, 4, 5, 6}), 24, "",
         "24 bytes cannot hold 1 x 24 pixels"},
        {"16 bits", Tga(2, 16, 0, 1, 1, {1, 2, 3, 4}), 16, "", "image type 2 of 16 bits a pixel"},
        {"grey", Tga(3, 8, 0, 1, 1, {1, 2, 3, 4}), 8, "", "image type 3 of 8 bits a pixel"},
    };
    Check(PICTURE_TGA, rows);
    const BYTES footer(26, 'f');
    TGA_Load(OwnFile(Tga(10, 24, 7, 1, 1, BYTES{0, 1, 2, 3} + footer)).c_str());
    const BYTES expanded(TGA_File.begin(), TGA_File.end());
    EXPECT_EQ(expanded, Tga(10, 24, 7, 1, 1, BYTES{1, 2, 3} + footer));
    EXPECT_EQ(TGA_Header.ImageType, 2);
    TGA_UnLoad();
}

TEST(PNM, TextsAndBytes)
{
    const std::vector<ROW> rows = {
        {"P1 in lines and with blanks", Text("P1\n\n2 2\n0 1\n\n1 x"), 1, "FF 00 00 00"},
        {"P2", Text("P2\n#\n2 1\n15\n7 15\n"), 8, "77 FF"},
        {"P2 of two digits and three", Text("P2\n#\n3 1\n255\n12 123 45 0 0 0"), 8, "0C 7B 2D"},
        {"P2 of four digits", Text("P2\n#\n1 1\n255\n1027 0 0"), 8, "03"},
        {"P2 with a low byte", Text("P2\n#\n1 1\n255\n258"), 8, "02"},
        {"P2 with blanks about", Text("P2\n#\n2  1 \n 10\r\n  1\n\n\t10"), 8, "19 FF"},
        {"P3", Text("P3\n#\n1 2\n255\n1 2 3 4 5 6"), 24, "010203FF 040506FF"},
        {"P3 cut short", Text("P3\n#\n1 2\n255\n1 2 3 4 5 "), 24, "010203FF -",
         "cut after 1 of 2 rows"},
        {"P4", Text("P4\n#\n8 2\n\x81\x0F"), 1, "00 FF FF FF FF FF FF 00 FF FF FF FF 00 00 00 00"},
        {"P4 of 9", Text("P4\n#\n9 2\n\0\xFF"), 1,
         "FF FF FF FF FF FF FF FF 00 00 00 00 00 00 00 00 00 00"},
        {"P5 of 15", Text("P5\n#\n3 1\n15\n\x0F\x07\x1E"), 8, "FF 77 FE"},
        {"P5 of 16 bits", Text("P5\n#\n1 1\n65535\nzz"), 8, "00"},
        {"P6", Text("P6\n#\n1 2\n255\n\1\2\3\n\r "), 24, "010203FF 0A0D20FF"},
        {"no line after the magic", Text("P6\n1 1\n255\n\1\2\3"), 24, "010203FF"},
        {"any line after the magic", Text("P6\nabc\n1 1\n255\n\1\2\3"), 24, "010203FF"},
        {"further comments", Text("P6\n#\n# c\n1 1\n# 9\n#\n255\n\1\2\3"), 24, "010203FF"},
        {"the first row missing", Text("P6\n#\n2 2\n255\n\1\2\3\4\5"), 24, "",
         "cut in its first row"},
        {"less than an eighth", Text("P5\n#\n1 24\n255\n\1\2"), 8, "",
         "16 bytes cannot hold 1 x 24 pixels"},
        {"no width", Text("P5\n#\n0 9\n255\n..."), 8, "", "a header that says nothing of use"},
        {"magic only", Text("P5"), 8, "", "a header that says nothing of use"},
    };
    Check(PICTURE_PNM, rows);
    EXPECT_EQ(LOADED(Text("P4\n#\n65535 1\n") + BYTES(8192)).Record.Width, 65535);
}

TEST(XBM, BytesAndWords)
{
    const auto xbm = [](const char *width, const char *data) {
        const std::string text = std::string("#define a_width ") + width +
                                 "\n#define a_height 2\nstatic char a_bits[] = {" + data;
        return BYTES(text.begin(), text.end());
    };
    const char *bits = "00 FF 00 FF FF FF FF FF 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
                       "FF FF FF FF FF FF 00";
    const std::vector<ROW> rows = {
        {"bytes", xbm("10", "0x05, 0x01,\n0x00, 0x80};"), 1, bits},
        {"words", xbm("10", "0x0105,0x8000};"), 1, bits},
        {"words, an odd number of bytes", xbm("8", "0x8001"), 1,
         "00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF 00"},
        {"capitals", Text("A_WIDTH 1\nA_HEIGHT 1\nA_BITS 0XfE"), 1, "FF 00 00 00 00 00 00 00"},
        {"bytes missing", xbm("8", "0x01 0"), 1, "00 FF FF FF FF FF FF FF - - - - - - - -",
         "cut before its last row"},
        {"nothing after a NUL", Text("_width 8\n_height 2\n_bits 0x01 \0 0x80"), 1,
         "00 FF FF FF FF FF FF FF - - - - - - - -", "cut before its last row"},
        {"no bits", xbm("8", ""), 1, "", "no bits, or too few for a row"},
        {"the first row missing", xbm("4000", "0x00"), 1, "", "no bits, or too few for a row"},
    };
    Check(PICTURE_XBM, rows);
    EXPECT_EQ(LOADED(xbm("65530", "0x00")).Record.Pixels, nullptr);
    const std::string hot = "_width 9\n_height 1\n_hot_x 3\n_HOT_Y   4 _bits 0x1234";
    XBM_Load(OwnFile(BYTES(hot.begin(), hot.end())).c_str());
    EXPECT_EQ(XBM_Header.HotX, 3);
    EXPECT_EQ(XBM_Header.HotY, 4);
    EXPECT_EQ(hot.substr(XBM_Header.DataOffset), "0x1234");
    XBM_UnLoad();
    LOADED(xbm("8", "0x01"));
    EXPECT_EQ(XBM_Header.HotX, 0);  // nothing remains of an earlier file
}

TEST(Sprites, AllImages)
{
    const BYTES head = Text("SPRITES") + BYTES{3, 2, 1};
    const std::vector<ROW> rows = {
        {"the first image", head + BYTES{1, 2, 3, 4, 5, 6, 7}, 24, "030201FF 060504FF",
         "cut in image 2 of 3"},
        {"no image", Text("SPRITES") + BYTES{0, 1, 1, 1, 2, 3}, 24, "", "no images"},
        {"no first row", Text("SPRITES") + BYTES{1, 0, 1} + BYTES(767), 24, "",
         "cut in image 1 of 1"},
    };
    Check(PICTURE_SPRITES, rows);
    const BYTES file = head + BYTES{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
    const LOADED first(file);
    {
        const LOADED second(file);
        EXPECT_EQ(ShowPixels({SPR_Header.Images[1], SPR_Header.Images[1] + 8}),
                  "090807FF 0C0B0AFF");
        EXPECT_EQ(SPR_Header.Images[2], nullptr);
    }
    EXPECT_EQ(SPR_Header.Images[0], nullptr);
    LOADED(Text("SPRITES") + BYTES{0, 1, 1, 1, 2, 3});
    EXPECT_STREQ(Picture_Reason(), "no images");
    EXPECT_EQ(ShowPixels({first.Record.Pixels, first.Record.Pixels + 8}), "030201FF 060504FF")
        << "outlives the later file";
    Picture picture;
    SPR_HEADER header;
    std::thread([&] {
        picture = Picture_LoadBytes(file, 0, 0);
        SPR_GetHeader(&header);
    }).join();
    EXPECT_EQ(ShowPixels({header.Images[1], header.Images[1] + 8}), "090807FF 0C0B0AFF")
        << "outlives its thread";
    Picture_UnLoad(picture);
}

TEST(SmallPictures, RealFilesAndTheirPrefixes)
{
    CheckFile("pcx/pil184.pcx", 0xd12cb0b4c2029f64, 29);
    CheckFile("tga/rgb24_bottom_left_rle.tga", 0x83602f4a6918f23d, 7);
    CheckFile("tga/rgb32_top_left_rle.tga", 0xc7a217ebd0c85077, 7);
    CheckFile("pnm/hippopotamus.ppm", 0x19af49f898522702, 7);
    CheckFile("xbm/spiral.xbm", 0xe0df60d5b1a64bb1, 1, {}, 8);  // truncation alters a number
    CheckFile("xbm/hotspot.xbm", 0x95f08cdd9e048c18, 1, {}, 8);
}
