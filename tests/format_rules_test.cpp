// BMP, TGA, PCX, PNM, XBM and ILBM by the formats' own rules, and how files are matched to decoders
// there.
#include <gtest/gtest.h>

#include "tests/pixels.h"

namespace
{

struct ROW {
    const char *what;
    BYTES file;
    const char *pixels;  // in the notation of Show
};

}  // namespace

static void Check(uint8_t format, const std::vector<ROW> &rows)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    for (const ROW &r : rows) {
        EXPECT_EQ(Show(r.file), r.pixels) << r.what << ": " << Picture_Reason();
        if (*r.pixels)
            EXPECT_EQ(LOADED(r.file).Record.Format, format) << r.what;
        else
            EXPECT_STRNE(Picture_Reason(), "") << r.what;
    }
}

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

TEST(FormatRules, BMP)
{
    const char *greys = "01010100 02020200 03030300 04040400";
    const char *fields565 = "00F80000 E0070000 1F000000";
    const char *argb = "0000FF00 00FF0000 FF000000 000000FF";
    BYTES noOffset = Bmp(40, 1, 1, 2, 0, "", greys, "40000000");
    noOffset[10] = 0;
    Check(PICTURE_BMP,
          {
              {"OS/2's first header, entries of 3 bytes",
               Bmp(12, 3, 2, 1, 0, "", "0A0A0A 141414", "A0000000 40000000"), "0A 14 0A 14 0A 14"},
              {"its second with such entries", Bmp(64, 3, 1, 1, 0, "", "0A0A0A 141414", "A0000000"),
               "14 0A 14"},
              {"pixels that follow the palette unsaid", noOffset, "02"},
              {"2 bits, rows of 4 bytes", Bmp(40, 5, 2, 2, 0, "", greys, "1B400000 E4C00000"),
               "04 03 02 01 04 01 02 03 04 02"},
              {"4 bits", Bmp(40, 3, 2, 4, 0, "", greys, "01200000 30100000"), "04 01 02 01 02 03"},
              {"8 bits, top-down", Bmp(40, 1, -2, 8, 0, "", greys, "01000000 02000000"), "02 03"},
              {"16 bits, 5 each", Bmp(40, 2, 1, 16, 0, "", "", "0F3E 0080"), "7B847BFF 00"},
              {"16 bits, 5-6-5 after the header", Bmp(40, 1, 1, 16, 3, fields565, "", "2008 0000"),
               "080400FF"},
              {"32 bits: no alpha", Bmp(40, 1, 1, 32, 0, "", "", "01020304"), "030201FF"},
              {"fields with alpha in the header",
               Bmp(56, 2, 1, 32, 3, argb, "", "01020380 00000000"), "03020180 -"},
              {"an alpha that is 0 everywhere", Bmp(56, 1, 1, 32, 3, argb, "", "01020300"),
               "030201FF"},
              {"fields of 10 bits keep their high 8",
               Bmp(40, 1, 1, 32, 3, "0000F03F 00FC0F00 FF030000", "", "FF03F03F"), "FF00FFFF"},
              {"runs of 8 bits: ends, literals, a delta",
               Bmp(40, 4, 3, 8, 1, "", greys, "0201 0000 0003010203 00 0002 0101 0103 0001"),
               "01 01 01 01 02 03 04 01 02 02 01 01"},
              {"a run past its row's end is cut",
               Bmp(40, 2, 2, 8, 1, "", greys, "0902 0000 0201 0001"), "02 02 03 03"},
              {"runs of 4 bits", Bmp(40, 3, 2, 4, 2, "", greys, "0312 0000 0003 1230 0001"),
               "02 03 04 02 03 02"},
              {"an index beyond the palette is black", Bmp(40, 1, 1, 8, 0, "", greys, "FF000000"),
               "00"},
              {"rows missing", Bmp(40, 1, 2, 24, 0, "", "", "01020300"), "- 030201FF"},
              {"a JPEG inside", Bmp(40, 1, 1, 0, 4, "", "", "FFD8FFE0"), ""},
              {"OS/2's Huffman runs", Bmp(64, 8, 1, 1, 3, "", "", "FFFFFFFF"), ""},
          });
}

static BYTES Tga(int type, int map, int depth, int descriptor, int width, int height,
                 const char *data)
{
    // An image ID of 2 bytes; a colour map of 2 entries from index 1 on.
    BYTES head = {2, static_cast<uint8_t>(map != 0), static_cast<uint8_t>(type), 1, 0, 2, 0};
    if (map == 0)
        head = {2, 0, static_cast<uint8_t>(type), 0, 0, 0, 0};
    for (const int v : {map, 0, 0, 0, 0, width, 0, height, 0, depth, descriptor, 1, 2})
        head.push_back(static_cast<uint8_t>(v));
    return head + Hex(data);
}

TEST(FormatRules, TGA)
{
    BYTES three = Tga(1, 24, 8, 0x20, 2, 1, "010101 020202 030303 0301");
    three[5] = 3;  // entries
    Check(PICTURE_TGA,
          {
              {"a map of 24 bits, index 0 not in it",
               Tga(1, 24, 8, 0x20, 3, 1, "010101 020304 010200"), "01 040302FF 00"},
              {"a map of three entries", three, "03 01"},
              {"a map of 16 bits in runs", Tga(9, 16, 8, 0x20, 3, 1, "FF7F 1F00 8201"), "FF FF FF"},
              {"a map of 32 bits", Tga(1, 32, 8, 0x20, 1, 1, "01020304 05060708 01"), "03020104"},
              {"grey", Tga(3, 0, 8, 0, 2, 2, "01020304"), "03 04 01 02"},
              {"grey in runs, from the right", Tga(11, 0, 8, 0x30, 3, 1, "8101 0002"), "02 01 01"},
              {"grey and alpha", Tga(3, 0, 16, 0x28, 1, 1, "0140"), "01010140"},
              {"15 bits", Tga(2, 0, 15, 0x20, 2, 1, "1F00 0004"), "0000FFFF 080000FF"},
              {"16 bits in runs, their highest left out", Tga(10, 0, 16, 0x21, 2, 1, "811080"),
               "000084FF 000084FF"},
              {"bottom right", Tga(2, 0, 24, 0x10, 1, 2, "010101 020202"), "02 01"},
              {"every fourth row first", Tga(3, 0, 8, 0xA0, 1, 5, "0105020304"), "01 02 03 04 05"},
              {"a row cut short", Tga(3, 0, 8, 0x20, 2, 2, "010203"), "01 02 03 -"},
          });
}

static BYTES Pcx(int bits, int planes, int width, int line, const char *palette, const char *data)
{
    BYTES file = {10, 5, 1, static_cast<uint8_t>(bits), 0, 0, 0, 0, static_cast<uint8_t>(width - 1),
                  0,  0, 0};
    file.resize(16);
    file = file + Hex(palette);
    file.resize(128);
    file[65] = static_cast<uint8_t>(planes);
    file[66] = static_cast<uint8_t>(line);
    return file + Hex(data);
}

TEST(FormatRules, PCX)
{
    const char *greys = "000000 010101 020202 030303 040404 050505 060606 070707";
    Check(PICTURE_PCX, {
                           {"2 bits", Pcx(2, 1, 5, 2, greys, "1B 80"), "00 01 02 03 02"},
                           {"4 bits", Pcx(4, 1, 3, 2, greys, "12 30"), "01 02 03"},
                           {"3 planes", Pcx(1, 3, 2, 2, greys, "8000 C100C100 4000"), "01 04"},
                           {"4 planes of 4 bits", Pcx(4, 4, 1, 1, greys, "10 20 30 40"), ""},
                           {"3 planes of 2 bits", Pcx(2, 3, 1, 1, greys, "40 40 40"), ""},
                           {"2 planes of 2 bits", Pcx(2, 2, 2, 1, greys, "60 10"), "01 06"},
                           {"4 planes of 8 bits", Pcx(8, 4, 1, 1, "", "01 02 03 04"), "01020304"},
                           {"no palette of 256: greys", Pcx(8, 1, 2, 2, "", "0520"), "05 20"},
                           {"two equal colours are black and white",
                            Pcx(1, 1, 2, 2, "050505 050505", "4000"), "00 FF"},
                       });
}

TEST(FormatRules, PNM)
{
    Check(PICTURE_PNM,
          {
              {"P1 with comments", Text("P1 #c\n2#x\n1\n0#1\n1"), "FF 00"},
              {"P2 of 15, rounded", Text("P2 3 1 15 1 7 15"), "11 77 FF"},
              {"P3 of 2 bytes", Text("P3 1 1 65535 256 511 65535"), "0101FFFF"},
              {"P4 of 9 columns", Text("P4 9 2\n\0\0\xFF\x80"),
               "FF FF FF FF FF FF FF FF FF 00 00 00 00 00 00 00 00 00"},
              {"P5 of 16 bits", Text("P5\n# c\n2 1 65535\n\x12\x34\xFE\xFF"), "12 FE"},
              {"P6, a comment before the maximum", Text("P6 1 1\n#\n255\n\1\2\3"), "010203FF"},
              {"PAM with alpha",
               Text("P7\nWIDTH 1\n# c\nHEIGHT 2\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\n"
                    "ENDHDR\n\1\2\3\4\5\6\7\x08"),
               "01020304 05060708"},
              {"PAM of bits", Text("P7\nWIDTH 2\nHEIGHT 1\nDEPTH 1\nMAXVAL 1\nENDHDR\n\0\1"),
               "00 FF"},
              {"PAM of grey and alpha",
               Text("P7\nHEIGHT 1\nWIDTH 1\nMAXVAL 255\nDEPTH 2\nENDHDR\n\x20\x30"), "20202030"},
              {"samples missing", Text("P2 2 2 255 1 2 3"), "01 02 03 -"},
              {"five samples a pixel",
               Text("P7\nWIDTH 1\nHEIGHT 1\nDEPTH 5\nMAXVAL 255\nENDHDR\n....."), ""},
          });
}

TEST(FormatRules, XBM)
{
    const auto xbm = [](const char *type, const char *data, const char *size = "[]") {
        const std::string text = std::string("#define a_width 8\n#define a_height 2\nstatic ") +
                                 type + " a_bits" + size + " = {" + data;
        return BYTES(text.begin(), text.end());
    };
    const char *bits = "00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF 00";
    Check(PICTURE_XBM, {
                           {"bytes", xbm("unsigned char", "0x01, 0x80}"), bits},
                           {"each row a word", xbm("short", "0x0001, 0xFF80}"), bits},
                           {"numbers of any base", xbm("char", "1, 0200};"), bits},
                           {"a digit", xbm("char", "0x1, 0x80};"), bits},
                           {"an array that tells its size", xbm("char", "1, 128};", "[2]"), bits},
                       });
}

static BYTES Chunk(const char *id, const BYTES &data)
{
    return BYTES(id, id + 4) + Number(std::ssize(data), 4) + data + BYTES(data.size() % 2);
}

static BYTES Iff(const char *type, int height, int planes, int masking, const char *palette,
                 const char *body)
{
    BYTES header = Number(8, 2) + Number(height, 2) + BYTES(4);
    for (const int v : {planes, masking, 0, 0, 0, 1, 1, 1, 0, 8, 0, 8})
        header.push_back(static_cast<uint8_t>(v));
    return Chunk("FORM", BYTES(type, type + 4) + Chunk("BMHD", header) +
                             Chunk("CMAP", Hex(palette)) +
                             Chunk(std::string(type) == "ACBM" ? "ABIT" : "BODY", Hex(body)));
}

TEST(FormatRules, ILBM)
{
    const char *greys = "010101 020202 030303 040404";
    const std::string rgba =
        Repeat("2000", 8) + Repeat("0000", 8) + Repeat("8000", 8) + Repeat("4000", 8);
    Check(PICTURE_ILBM,
          {
              {"a mask plane", Iff("ILBM", 1, 1, 1, greys, "8000 C000"),
               "02 01 01010100 01010100 01010100 01010100 01010100 01010100"},
              {"a transparent colour", Iff("ILBM", 1, 1, 2, greys, "C000"),
               "02020200 02020200 01 01 01 01 01 01"},
              {"whole planes", Iff("ACBM", 2, 2, 0, greys, "8000 4000 4000 C000"),
               "02 03 01 01 01 01 01 01 03 04 01 01 01 01 01 01"},
              {"entries of 4 bits", Iff("ILBM", 1, 1, 0, "F0F0F0 102030", "8000"),
               "112233FF FF FF FF FF FF FF FF"},
              {"no palette", Iff("ILBM", 1, 2, 0, "", "8000 C000"), "FF AA 00 00 00 00 00 00"},
              {"32 planes", Iff("ILBM", 1, 32, 0, "", rgba.c_str()),
               "0000FF00 00 FF000000 - - - - -"},
          });
}

// If several signatures match, the most reliable one is tried first, and the next if it refuses.
TEST(FormatRules, Detection)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    const struct {
        const char *what;
        BYTES file;
        uint8_t format;
    } rows[] = {
        {"a TGA with image ID", Tga(3, 0, 8, 0x20, 1, 1, "42"), PICTURE_TGA},
        {"a TGA of no kind", BYTES(18) + BYTES(9), PICTURE_UNKNOWN},
        {"any JPEG", Text("\xFF\xD8\xFF\xDB.."), PICTURE_JPEG},
        {"letters that begin like TIFF", Text("IInvented"), PICTURE_UNKNOWN},
        {"TIFF of 64 bits", Text("MM\0+\0\0\0\0"), PICTURE_TIFF},
        {"PAM", Text("P7\n"), PICTURE_PNM},
        {"P and a digit", Text("P5letters"), PICTURE_UNKNOWN},
        {"a line feed and no header", Text("\nHello, world"), PICTURE_UNKNOWN},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Picture_CheckBytes(r.file, 0), r.format) << r.what;

    const BYTES both = Text("P1\n#define a_width 8\n#define a_height 1\nchar a_bits[] = {0x01};");
    EXPECT_EQ(Picture_CheckBytes(both, 0), PICTURE_PNM);
    EXPECT_EQ(LOADED(both).Record.Format, PICTURE_XBM);
}
