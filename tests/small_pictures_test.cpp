// PCX, TGA, PNM, XBM and sprite files.
#include <algorithm>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "picture/pcx.h"
#include "picture/pxm.h"
#include "picture/spr.h"
#include "picture/tga.h"
#include "picture/xbm.h"
#include "tests/pixels.h"

constexpr const char *useless = "a header that says nothing of use";

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
        const uint32_t stated = format == PICTURE_PCX   ? PCX_Header.Size
                                : format == PICTURE_TGA ? TGA_Header.Size
                                : format == PICTURE_PNM ? PXM_Header.Size
                                : format == PICTURE_XBM ? XBM_Header.Size
                                                        : SPR_Header.Size;
        EXPECT_TRUE(size == 0 || stated == size) << r.what;
    }
}

// A picture of width x height; its palette of 16 has the entries (n, n + 1, n + 2).
static BYTES Pcx(uint8_t encoding, uint8_t bits, uint8_t planes, uint8_t width, uint8_t height,
                 uint8_t bytesPerLine, const BYTES &body, const std::string &palette = "none")
{
    BYTES file = {10, 5, encoding, bits, 2, 0, 1, 0, static_cast<uint8_t>(width + 1), 0, height, 0};
    file.resize(128);
    for (uint8_t i = 0; i < 48; i++)
        file[16u + i] = static_cast<uint8_t>(i / 3 + i % 3);
    if (palette != "none") {
        const BYTES colours = Hex(palette);
        std::fill_n(file.begin() + 16, 48, uint8_t{0});
        std::ranges::copy(colours, file.begin() + 16);
    }
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
        {"65 bits a plane", Pcx(1, 65, 8, 2, 1, 2, BYTES{1, 2} + colours), 8, "0100FEFF 0200FDFF"},
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

TEST(PCX, FormatsOwnRules)
{
    const char *greys = "000000 010101 020202 030303 040404 050505 060606 070707";
    const std::vector<FORMAT_ROW> rows = {
        {"2 bits", Pcx(1, 2, 1, 5, 1, 2, Hex("1B 80"), greys), "00 01 02 03 02"},
        {"4 bits", Pcx(1, 4, 1, 3, 1, 2, Hex("12 30"), greys), "01 02 03"},
        {"3 planes", Pcx(1, 1, 3, 2, 1, 2, Hex("8000 C100C100 4000"), greys), "01 04"},
        {"2 planes of 2 bits", Pcx(1, 2, 2, 2, 1, 1, Hex("60 10"), greys), "01 06"},
        {"4 planes of 8 bits", Pcx(1, 8, 4, 1, 1, 1, Hex("01 02 03 04"), ""), "01020304"},
        {"no palette of 256: greys", Pcx(1, 8, 1, 2, 1, 2, Hex("0520"), ""), "05 20"},
        {"two equal colours are black and white",
         Pcx(1, 1, 1, 2, 1, 2, Hex("4000"), "050505 050505"), "00 FF"},
    };
    CheckByFormat(PICTURE_PCX, rows);
    const RULES rules(PICTURE_RULES_FORMAT);
    constexpr uint8_t refused[][2] = {{2, 8}, {5, 1}, {4, 4}, {3, 2}};
    for (const auto &[planes, bits] : refused) {
        EXPECT_EQ(Show(Pcx(1, bits, planes, 1, 1, 1, BYTES(8, 1))), "");
        EXPECT_EQ(Picture_Reason(),
                  std::to_string(planes) + " planes of " + std::to_string(bits) + " bits");
    }
}

// With a `map` of at least 0 bits an entry an image ID of 2 bytes and, above 0, a colour map of 2
// entries from index 1 on.
static BYTES Tga(uint8_t type, uint8_t depth, uint8_t descriptor, uint8_t width, uint8_t height,
                 const BYTES &body, int map = -1)
{
    const bool mapped = map > 0;
    BYTES head(18);
    head[0] = map < 0 ? 0 : 2;
    head[1] = head[3] = mapped;
    head[2] = type;
    head[5] = mapped ? 2 : 0;
    head[7] = static_cast<uint8_t>(mapped ? map : 0);
    head[12] = width, head[14] = height, head[16] = depth, head[17] = descriptor;
    return head + BYTES(head[0]) + body;
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
    const TGA_HEADER &h = TGA_Header;
    EXPECT_EQ(std::tuple(h.ImageType, h.AlphaBits, h.Origin, h.Size), std::tuple(2, 7, 0, 4u));
    TGA_UnLoad();
}

TEST(TGA, FormatsOwnRules)
{
    BYTES three = Tga(1, 8, 0x20, 2, 1, Hex("010101 020202 030303 0301"), 24);
    three[5] = 3;  // entries
    const std::vector<FORMAT_ROW> rows = {
        {"a map of 24 bits, index 0 not in it",
         Tga(1, 8, 0x20, 3, 1, Hex("010101 020304 010200"), 24), "01 040302FF 00"},
        {"a map of three entries", three, "03 01"},
        {"a map of 16 bits in runs", Tga(9, 8, 0x20, 3, 1, Hex("FF7F 1F00 8201"), 16), "FF FF FF"},
        {"a map of 32 bits", Tga(1, 8, 0x20, 1, 1, Hex("01020304 05060708 01"), 32), "03020104"},
        {"grey", Tga(3, 8, 0, 2, 2, Hex("01020304"), 0), "03 04 01 02"},
        {"grey in runs, from the right", Tga(11, 8, 0x30, 3, 1, Hex("8101 0002"), 0), "02 01 01"},
        {"grey and alpha", Tga(3, 16, 0x28, 1, 1, Hex("0140"), 0), "01010140"},
        {"15 bits", Tga(2, 15, 0x20, 2, 1, Hex("1F00 0004"), 0), "0000FFFF 080000FF"},
        {"16 bits in runs, their highest left out", Tga(10, 16, 0x21, 2, 1, Hex("811080"), 0),
         "000084FF 000084FF"},
        {"bottom right", Tga(2, 24, 0x10, 1, 2, Hex("010101 020202"), 0), "02 01"},
        {"indexes of 16 bits", Tga(1, 16, 0x20, 2, 1, Hex("010101 020304 0200 0100"), 24),
         "040302FF 01"},
        {"every fourth row first", Tga(3, 8, 0xA0, 1, 5, Hex("0105020304"), 0), "01 02 03 04 05"},
        {"a row cut short", Tga(3, 8, 0x20, 2, 2, Hex("010203"), 0), "01 02 03 -",
         "cut after 1 of 2 rows"},
    };
    CheckByFormat(PICTURE_TGA, rows);
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
        {"no width", Text("P5\n#\n0 9\n255\n..."), 8, "", useless},
        {"magic only", Text("P5"), 8, "", useless},
    };
    Check(PICTURE_PNM, rows);
    EXPECT_EQ(LOADED(Text("P4\n#\n65535 1\n") + BYTES(8192)).Record.Width, 65535);
}

TEST(PNM, FormatsOwnRules)
{
    const auto pam = [](const std::string &header, const std::string &samples) {
        const std::string file = "P7\n" + header + "\nENDHDR\n" + samples;
        return BYTES(file.begin(), file.end());
    };
    const std::vector<FORMAT_ROW> rows = {
        {"P1 with comments", Text("P1 #c\n2#x\n1\n0#1\n1"), "FF 00"},
        {"P2 of 15, rounded", Text("P2 3 1 15 1 7 15"), "11 77 FF"},
        {"P2 of 7", Text("P2 2 1 7 1 6"), "24 DB"},
        {"P2 of 700", Text("P2 3 1 700 41 175 350"), "0E 40 80"},
        {"P3 of 2 bytes", Text("P3 1 1 65535 256 511 65535"), "0101FFFF"},
        {"P4 of 9 columns", Text("P4 9 2\n\0\0\xFF\x80"),
         "FF FF FF FF FF FF FF FF FF 00 00 00 00 00 00 00 00 00"},
        {"P5 of 16 bits", Text("P5\n# c\n2 1 65535\n\x12\x34\xFE\xFF"), "12 FE"},
        {"P6, a comment before the maximum", Text("P6 1 1\n#\n255\n\1\2\3"), "010203FF"},
        {"PAM with alpha",
         pam("WIDTH 1\n# c\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE A", "\1\2\3\4"), "01020304"},
        {"PAM of bits", pam("WIDTH 2\nHEIGHT 1\nDEPTH 1\nMAXVAL 1", {0, 1}), "00 FF"},
        {"PAM of grey and alpha", pam("HEIGHT 1\nWIDTH 2\nMAXVAL 255\nDEPTH 2", " 0AB"),
         "20202030 41414142"},
        {"samples missing", Text("P2 2 2 255 1 2 3"), "01 02 03 -", "cut after 1 of 2 rows"},
        {"no maximum", pam("WIDTH 1\nHEIGHT 1\nDEPTH 1\nMAXVAL 0", "1"), "", useless},
        {"no number", pam("WIDTH x1\nHEIGHT 1\nDEPTH 1\nMAXVAL 1", "1"), "", useless},
        {"five samples", pam("WIDTH 1\nHEIGHT 1\nDEPTH 5\nMAXVAL 255", "....."), "", useless},
        {"a width of 17 bits", Text("P5 65537 1 255 ...."), "", useless},
        {"P5 of 16 bits cut in a sample", Text("P5 2 2 65535 \1\1\2\2\3"), "01 02 - -",
         "cut after 1 of 2 rows"},
    };
    CheckByFormat(PICTURE_PNM, rows);
}

static BYTES Xbm(const std::string &width, const char *data, const char *type = "char",
                 const char *size = "[]")
{
    const std::string text = "#define a_width " + width + "\n#define a_height 2\nstatic " + type +
                             " a_bits" + size + " = {" + data;
    return BYTES(text.begin(), text.end());
}

TEST(XBM, BytesAndWords)
{
    const char *bits = "00 FF 00 FF FF FF FF FF 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
                       "FF FF FF FF FF FF 00";
    const std::vector<ROW> rows = {
        {"bytes", Xbm("10", "0x05, 0x01,\n0x00, 0x80};"), 1, bits},
        {"words", Xbm("10", "0x0105,0x8000};"), 1, bits},
        {"words, an odd number of bytes", Xbm("8", "0x8001"), 1,
         "00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF 00"},
        {"capitals", Text("A_WIDTH 1\nA_HEIGHT 1\nA_BITS 0XfE"), 1, "FF 00 00 00 00 00 00 00"},
        {"bytes missing", Xbm("8", "0x01 0"), 1, "00 FF FF FF FF FF FF FF - - - - - - - -",
         "cut before its last row"},
        {"nothing after a NUL", Text("_width 8\n_height 2\n_bits 0x01 \0 0x80"), 1,
         "00 FF FF FF FF FF FF FF - - - - - - - -", "cut before its last row"},
        {"no bits", Xbm("8", ""), 1, "", "no bits, or too few for a row"},
        {"the first row missing", Xbm("4000", "0x00"), 1, "", "no bits, or too few for a row"},
    };
    Check(PICTURE_XBM, rows);
    EXPECT_EQ(LOADED(Xbm("65530", "0x00")).Record.Pixels, nullptr);
    const std::string hot = "_width 9\n_height 1\n_hot_x 3\n_HOT_Y   4 _bits 0x1234";
    XBM_Load(OwnFile(BYTES(hot.begin(), hot.end())).c_str());
    XBM_HEADER header;
    EXPECT_EQ(XBM_GetHeader(&header)->HotX, 3);
    EXPECT_EQ(XBM_Header.HotY, 4);
    EXPECT_EQ(hot.substr(XBM_Header.DataOffset), "0x1234");
    XBM_UnLoad();
    LOADED(Xbm("8", "0x01"));
    EXPECT_EQ(XBM_Header.HotX, 0);  // nothing remains of an earlier file
}

TEST(XBM, FormatsOwnRules)
{
    const char *bits = "00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF 00",
               *half = "00 FF FF FF FF FF FF FF - - - - - - - -";
    const std::vector<FORMAT_ROW> rows = {
        {"bytes", Xbm("8", "0x01, 0x80}", "unsigned char"), bits},
        {"each row a word", Xbm("8", "0x0001, 0xFF80}", "short"), bits},
        {"numbers of any base", Xbm("8", "1, 0200};"), bits},
        {"a digit", Xbm("8", "0x1, 0x80};"), bits},
        {"an array cut short", Xbm("8", "1, }; 2"), half, "cut before its last row"},
        {"nothing after the brace", Xbm("8", "1"), half, "cut before its last row"},
        {"an array that tells its size", Xbm("8", "1, 128};", "char", "[2]"), bits},
    };
    CheckByFormat(PICTURE_XBM, rows);
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
    const auto show = [](const uint8_t *pixels) { return ShowPixels({pixels, pixels + 8}); };
    const BYTES file = head + BYTES{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
    const LOADED first(file);
    {
        const LOADED second(file);
        EXPECT_EQ(show(SPR_Header.Images[1]), "090807FF 0C0B0AFF");
        EXPECT_EQ(SPR_Header.Images[2], nullptr);
    }
    EXPECT_EQ(SPR_Header.Images[0], nullptr);
    LOADED(Text("SPRITES") + BYTES{0, 1, 1, 1, 2, 3});
    EXPECT_EQ(show(first.Record.Pixels), "030201FF 060504FF") << "outlives the later file";
    Picture picture;
    SPR_HEADER header;
    std::thread([&] {
        picture = Picture_LoadBytes(file, 0, 0);
        SPR_GetHeader(&header);
    }).join();
    EXPECT_EQ(show(header.Images[1]), "090807FF 0C0B0AFF") << "outlives its thread";
    Picture_UnLoad(picture);
}

// If several signatures match, the most reliable one is tried first, and the next if it refuses.
TEST(SmallPictures, DetectionByTheFormatsRules)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    const std::pair<uint8_t, std::vector<BYTES>> rows[] = {
        // An image ID, and a map that true colour ignores.
        {PICTURE_TGA, {Tga(3, 8, 0x20, 1, 1, Hex("42"), 0), Tga(2, 24, 0x20, 1, 1, {}, 24)}},
        {PICTURE_JPEG, {Text("\xFF\xD8\xFF\xDB..")}},
        {PICTURE_TIFF, {Text("MM\0+\0\0\0\0")}},
        {PICTURE_PNM, {Text("P4#"), Text("P1 "), Text("P7\n")}},
        {PICTURE_PCX, {Text("\12\5\1\10")}},
        {PICTURE_UNKNOWN,
         {// TGA of interleaved rows, of no height, and of no kind
          Tga(2, 24, 0xC0, 1, 1, {}, 0), Tga(2, 24, 0x20, 1, 0, {}, 0), BYTES(27),
          // indexes without a map, of 3 bytes, and into a map of 8 bits; a byte of true colour
          // and 3 of grey
          Tga(1, 8, 0x20, 1, 1, {}, 0), Tga(1, 24, 0x20, 1, 1, {}, 24),
          Tga(1, 8, 0x20, 1, 1, {}, 8), Tga(2, 8, 0x20, 1, 1, {}, 0), Tga(3, 24, 0x20, 1, 1, {}, 0),
          // PCX of 3 bits, of unknown versions, and of another encoding
          Text("\12\5\1\3"), Text("\12\1\1\10"), Text("\12\6\1\10"), Text("\12\5\2\10"),
          // texts that begin like TIFF, PNM and PCX
          Text("IInvented"), Text("P1\7"), Text("P1\16"), Text("P5letters"),
          Text("\nHello, world")}},
    };
    for (const auto &[format, files] : rows)
        for (const BYTES &file : files)
            EXPECT_EQ(Picture_CheckBytes(file, 0), format) << testing::PrintToString(file);

    const BYTES both = Text("P1\n#define a_width 8\n#define a_height 1\nchar a_bits[] = {0x01};");
    EXPECT_EQ(Picture_CheckBytes(both, 0), PICTURE_PNM);
    EXPECT_EQ(LOADED(both).Record.Format, PICTURE_XBM);
    EXPECT_EQ(Show(Prefix(both, both.size() - 7)), "");
    EXPECT_STREQ(Picture_Reason(), useless) << "the first one's";
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
