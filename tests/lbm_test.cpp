#include "picture/lbm.h"
#include "picture/packbits.h"

#include <gtest/gtest.h>

#include "tests/pixels.h"

static BYTES Chunk(const char *id, const BYTES &data)
{
    return BYTES(id, id + 4) + Number(std::ssize(data), 4) + data + BYTES(data.size() % 2);
}

// Palette entry i is the grey i, except the first; half-bright pictures have 32.
static BYTES MakeFile(const char *type, int width, int height, int planes, int masking,
                      int compression, int viewMode, const BYTES &body)
{
    BYTES header;
    for (const int v : {width, height, 3, 4})
        header = header + Number(v, 2);
    for (const int v : {planes, masking, compression, 0, 0, 7, 10, 11, 1, 64, 0, 200})
        header.push_back(static_cast<uint8_t>(v));
    BYTES palette = Hex("0A141E");
    for (size_t i = 1; i < (viewMode == 0x80 ? 32 : 256); i++)
        palette = palette + BYTES(3, static_cast<uint8_t>(i));
    const BYTES form = BYTES(type, type + 4) + Chunk("ANNO", Text("12345")) +  // an odd size
                       Chunk("BMHD", header) + Chunk("CMAP", palette) +
                       (viewMode != 0 ? Chunk("CAMG", Number(viewMode, 4)) : BYTES{}) +
                       Chunk("BODY", body) + Chunk("JUNK", Hex("01020304"));
    return Chunk("FORM", form);
}

TEST(LBM, PixelsOfEveryKind)
{
    const struct {
        const char *what;
        int width, height, planes, masking, viewMode;
        const char *body, *pixels;
        const char *reason = "";
    } rows[] = {
        {"1 plane", 2, 1, 1, 0, 0, "4000", "0A141EFF 01"},
        {"4 planes, rows of words", 2, 2, 4, 0, 0, "8000 0000 8000 4000 4000 8000 8000 0000",
         "05 08 06 01"},
        {"4 planes, rows of bytes", 2, 2, 4, 0, 0, "80008040 40808000", "05 08 06 01"},
        {"a mask is skipped", 1, 2, 2, 1, 0, "8000 0000 FFFF 0000 8000 0000", "01 02"},
        {"a transparent colour is not applied", 1, 2, 3, 2, 0, "8000 8000 8000 8000 0000 0000",
         "07 01"},
        {"8 planes are planes", 1, 1, 8, 0, 0, "8000 0000 0000 0000 0000 0000 0000 8000", "81"},
        {"PBM's bytes, rows of words", 3, 2, 8, 0, 0, "0102C809 040506", "01 02 C8 04 05 06"},
        {"half-bright", 2, 1, 6, 0, 0x80, "C000 4000 4000 0000 0000 4000", "01 03"},
        {"HAM6: an entry, blue, red, green", 4, 1, 6, 0, 0x800, "F000 A000 1000 0000 5000 3000",
         "03 030311FF 330311FF 335511FF"},
        {"HAM6: a row starts from entry 0", 1, 1, 6, 0, 0x800, "0000 0000 0000 0000 0000 8000",
         "00141EFF"},
        {"HAM8: an entry, then red", 2, 1, 8, 0, 0x800, "8000 8000 0000 0000 0000 4000 0000 4000",
         "03 820303FF"},
        {"24 planes", 1, 1, 24, 0, 0,
         "80000000000000000000000000008000 00008000000000000000000000000000 "
         "00000000800000000000000000000000",
         "810204FF"},
        {"9 planes", 1, 1, 9, 0, 0, "8000 8000 8000 8000 8000 8000 8000 8000 8000", "",
         "9 planes with compression 0"},
        {"no planes", 1, 1, 0, 0, 0, "8000", "", "0 planes with compression 0"},
        {"a buffer width of 17 bits", 65530, 1, 1, 0, 0, "8000", "", "a side of 0 pixels"},
        {"a size that its bytes cannot carry", 80, 80, 1, 0, 0, "8000", "",
         "852 bytes cannot hold 80 x 80 pixels"},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(Show(MakeFile(r.what[0] == 'P' ? "PBM " : "ILBM", r.width, r.height, r.planes,
                                r.masking, 0, r.viewMode, Hex(r.body))),
                  r.pixels)
            << r.what;
        EXPECT_STREQ(Picture_Reason(), r.reason) << r.what;
    }
}

// `masking` may have a compression in its second byte.
static BYTES Iff(const char *type, int height, int planes, int masking, const char *palette,
                 const char *body)
{
    BYTES header = Number(8, 2) + Number(height, 2) + BYTES(4);
    for (const int v : {planes, masking & 255, masking >> 8, 0, 0, 1, 1, 1, 0, 8, 0, 8})
        header.push_back(static_cast<uint8_t>(v));
    return Chunk("FORM", BYTES(type, type + 4) + Chunk("BMHD", header) +
                             Chunk("CMAP", Hex(palette)) +
                             Chunk(std::string(type) == "ACBM" ? "ABIT" : "BODY", Hex(body)));
}

TEST(LBM, FormatsOwnRules)
{
    const char *greys = "010101 020202 030303 040404";
    const std::string rgba =
        Repeat("2000", 8) + Repeat("0000", 8) + Repeat("8000", 8) + Repeat("4000", 8);
    const std::vector<FORMAT_ROW> rows = {
        {"a mask plane", Iff("ILBM", 1, 1, 1, greys, "8000 C000"),
         "02 01 01010100 01010100 01010100 01010100 01010100 01010100"},
        {"a transparent colour", Iff("ILBM", 1, 1, 2, greys, "C000"),
         "02020200 02020200 01 01 01 01 01 01"},
        {"whole planes", Iff("ACBM", 2, 2, 0, greys, "8000 4000 4000 C000"),
         "02 03 01 01 01 01 01 01 03 04 01 01 01 01 01 01"},
        {"entries of 4 bits", Iff("ILBM", 1, 1, 0, "F0F0F0 102030", "8000"),
         "112233FF FF FF FF FF FF FF FF"},
        {"a mask of 8 planes",
         Iff("ILBM", 1, 8, 1, "", "0000 0000 0000 0000 0000 0000 0000 8000 8000"),
         "80 - - - - - - -"},
        {"half-bright unsaid",
         Iff("ILBM", 1, 6, 0, Repeat("202020", 32).c_str(), "0000 0000 0000 0000 0000 8000"),
         "11 22 22 22 22 22 22 22"},
        {"32 planes of bytes", Iff("PBM ", 1, 32, 0, "", "01"), "", "32 planes with compression 0"},
        {"another compression", Iff("ILBM", 1, 1, 0x200, "", "8000"), "",
         "1 planes with compression 2"},
        {"runs of more than 128 pixels a byte", Iff("ILBM", 1025, 1, 0x100, greys, "0000"), "",
         "70 bytes cannot hold 8 x 1025 pixels"},
        {"no body", Chunk("FORM", Text("ILBM") + Chunk("CMAP", Hex(greys))), "",
         "the pixels are missing"},
        {"no palette", Iff("ILBM", 1, 2, 0, "", "8000 C000"), "FF AA 00 00 00 00 00 00"},
        {"32 planes", Iff("ILBM", 1, 32, 0, "", rgba.c_str()), "0000FF00 00 FF000000 - - - - -"},
    };
    CheckByFormat(PICTURE_ILBM, rows);
}

TEST(LBM, HeaderAndBuffer)
{
    const BYTES file = MakeFile("ILBM", 20, 2, 4, 0, 1, 0, Hex("E9FF 80"));
    LBM_Load(WriteTemp("lbm", file).c_str());
    LBM_HEADER h;
    EXPECT_EQ(LBM_GetHeader(&h)->BufferWidth, 24);
    EXPECT_EQ(h.OutputSize, 24u * 2 * 4);
    EXPECT_STREQ(h.Annotation.data(), "12345");
    EXPECT_EQ(
        std::tuple(h.X, h.Y, h.TransparentColor, h.XAspect, h.YAspect, h.PageWidth, h.PageHeight),
        std::tuple(3, 4, 7, 10, 11, 320, 200));
    uint8_t *pixels = LBM_Decoding();  // 24 bytes: 2 rows of 4 planes of 3 bytes
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels[(24 + 19) * 4], 15);
    std::free(pixels);
    LBM_UnLoad();
    EXPECT_EQ(LBM_Decoding(), nullptr);
}

TEST(LBM, ByteRunsExpand)
{
    const struct {
        const char *what, *packed, *plain;
        size_t room;
    } rows[] = {
        {"copies, runs and nothing", "02010203 80 FE09", "010203090909", 99},
        {"a run beyond the room", "8107", "070707", 3},
        {"a copy beyond the room", "05010203040506 0007", "0102", 2},
        {"a copy cut short", "640102", "0102", 99},
        {"a run without its value", "FF", "0000", 99},
    };
    for (const auto &r : rows) {
        BYTES out(r.room);
        out.resize(PackBits_Expand(Hex(r.packed), out));
        EXPECT_EQ(out, Hex(r.plain)) << r.what;
    }
}

TEST(LBM, PrefixesHold)
{
    // a truncated row is 0 from there on
    ExpectPrefixesHold(ReadFile(TEST_DATA "ilbm/ham6.iff"), 0, 26);
}
