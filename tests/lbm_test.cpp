#include "picture/lbm.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/pixels.h"

static BYTES Chunk(const char *id, const BYTES &data)
{
    BYTES chunk(id, id + 4);
    AppendNumber(chunk, static_cast<uint32_t>(data.size()), 4, true);
    Append(chunk, data);
    chunk.resize(chunk.size() + data.size() % 2);
    return chunk;
}

struct FORM {
    const char *Type;
    int Width, Height, Planes, Masking, Compression;
    uint32_t ViewMode; // 0: no CAMG
};

// Entry i of the palette is the colour 4i 4i+1 4i+2; half-bright pictures have the first 32.
static BYTES MakeFile(const FORM &f, const BYTES &body)
{
    BYTES header;
    for (const int v : {f.Width, f.Height, 3, 4})
        AppendNumber(header, static_cast<uint32_t>(v), 2, true);
    for (const int v : {f.Planes, f.Masking, f.Compression, 0, 0, 7, 10, 11, 1, 64, 0, 200})
        header.push_back(static_cast<uint8_t>(v));
    BYTES palette;
    for (int i = 0; i < 3 * (f.ViewMode == 0x80 ? 32 : 256); i++)
        palette.push_back(static_cast<uint8_t>(i / 3 * 4 + i % 3));
    BYTES form(f.Type, f.Type + 4);
    Append(form, Chunk("ANNO", Text("12345"))); // an odd size
    Append(form, Chunk("BMHD", header));
    Append(form, Chunk("CMAP", palette));
    if (f.ViewMode != 0)
        Append(form, Chunk("CAMG", {0, 0, static_cast<uint8_t>(f.ViewMode >> 8),
                                    static_cast<uint8_t>(f.ViewMode)}));
    Append(form, Chunk("BODY", body));
    Append(form, Chunk("JUNK", {1, 2, 3, 4}));
    return Chunk("FORM", form);
}

static uint32_t Entry(uint32_t i)
{
    return (i << 2 & 255) * 0x01010100 + 0x000102FF;
}

TEST(LBM, PixelsOfEveryKind)
{
    const struct {
        const char *what;
        FORM form;
        BYTES body;
        PIXELS pixels;
    } rows[] = {
        {"1 plane", {"ILBM", 2, 1, 1, 0, 0, 0}, {0x40, 0}, {Entry(0), Entry(1)}},
        {"4 planes, rows of words",
         {"ILBM", 2, 2, 4, 0, 0, 0},
         {0x80, 0, 0, 0, 0x80, 0, 0x40, 0, 0x40, 0, 0x80, 0, 0x80, 0, 0, 0},
         {Entry(5), Entry(8), Entry(6), Entry(1)}},
        {"4 planes, rows of bytes",
         {"ILBM", 2, 2, 4, 0, 0, 0},
         {0x80, 0, 0x80, 0x40, 0x40, 0x80, 0x80, 0},
         {Entry(5), Entry(8), Entry(6), Entry(1)}},
        {"a mask is skipped",
         {"ILBM", 1, 2, 2, 1, 0, 0},
         {0x80, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0x80, 0, 0, 0},
         {Entry(1), Entry(2)}},
        {"a transparent colour is not applied", {"ILBM", 1, 1, 1, 2, 0, 0}, {0, 0}, {Entry(0)}},
        {"8 planes are planes",
         {"ILBM", 1, 1, 8, 0, 0, 0},
         {0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0},
         {Entry(129)}},
        {"PBM's bytes, rows of words",
         {"PBM ", 3, 2, 8, 0, 0, 0},
         {1, 2, 200, 9, 4, 5, 6},
         {Entry(1), Entry(2), Entry(200), Entry(4), Entry(5), Entry(6)}},
        {"half-bright",
         {"ILBM", 2, 1, 6, 0, 0, 0x80},
         {0xC0, 0, 0, 0, 0x40, 0, 0, 0, 0, 0, 0x40, 0},
         {Entry(1), 0x0A0A0BFF}},
        {"HAM6: an entry, blue, red, green",
         {"ILBM", 4, 1, 6, 0, 0, 0x800},
         {0xF0, 0, 0xA0, 0, 0x10, 0, 0, 0, 0x50, 0, 0x30, 0},
         {Entry(3), 0x0C0D11FF, 0x330D11FF, 0x335511FF}},
        {"HAM6: a row starts from entry 0",
         {"ILBM", 1, 1, 6, 0, 0, 0x800},
         {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0},
         {0x000102FF}},
        {"HAM8: an entry, then red",
         {"ILBM", 2, 1, 8, 0, 0, 0x800},
         {0x80, 0, 0x80, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0, 0x40, 0},
         {Entry(3), 0x820D0EFF}},
        {"24 planes",
         {"ILBM", 1, 1, 24, 0, 0, 0},
         {0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0, 0,
          0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0,    0, 0, 0, 0,    0, 0, 0, 0, 0},
         {0x810204FF}},
        {"9 planes", {"ILBM", 1, 1, 9, 0, 0, 0}, BYTES(18), {}},
        {"no planes", {"ILBM", 1, 1, 0, 0, 0, 0}, BYTES(18), {}},
        {"a buffer width of 17 bits", {"ILBM", 65530, 1, 1, 0, 0, 0}, BYTES(8192), {}},
        {"a size that its bytes cannot carry", {"ILBM", 80, 80, 1, 0, 0, 0}, BYTES(80), {}},
    };
    for (const auto &r : rows)
        EXPECT_EQ(DecodeBytes(MakeFile(r.form, r.body)).Pixels, r.pixels) << r.what;
}

TEST(LBM, HeaderAndBuffer)
{
    const BYTES file = MakeFile({"ILBM", 20, 2, 4, 0, 1, 0}, {0xE9, 0xFF, 0x80});
    LBM_Load(WriteTemp("lbm", file).c_str());
    LBM_HEADER h;
    EXPECT_EQ(LBM_GetHeader(&h)->BufferWidth, 24);
    EXPECT_EQ(h.OutputSize, 24u * 2 * 4);
    EXPECT_STREQ(h.Annotation.data(), "12345");
    EXPECT_EQ(std::tuple(h.X, h.Y, h.TransparentColor, h.XAspect, h.YAspect),
              std::tuple(3, 4, 7, 10, 11));
    EXPECT_EQ(std::tuple(h.PageWidth, h.PageHeight), std::tuple(320, 200));
    uint8_t *pixels = LBM_Decoding(); // 24 bytes: 2 rows of 4 planes of 3 bytes
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels[(24 + 19) * 4], 60);
    std::free(pixels);
    LBM_UnLoad();
    EXPECT_EQ(LBM_Decoding(), nullptr);
}

TEST(LBM, ByteRunsExpand)
{
    const struct {
        const char *what;
        BYTES packed, plain;
        size_t room;
    } rows[] = {
        {"copies, runs and nothing", {2, 1, 2, 3, 128, 0xFE, 9}, {1, 2, 3, 9, 9, 9}, 99},
        {"a run beyond the room", {0x81, 7}, {7, 7, 7}, 3},
        {"a copy beyond the room", {5, 1, 2, 3, 4, 5, 6, 0, 7}, {1, 2}, 2},
        {"a copy cut short", {100, 1, 2}, {1, 2}, 99},
        {"a run without its value", {0xFF}, {0, 0}, 99},
    };
    for (const auto &r : rows) {
        BYTES out(r.room);
        out.resize(LBM_ExpandByteRuns(r.packed, out));
        EXPECT_EQ(out, r.plain) << r.what;
    }
}

TEST(LBM, RealFiles)
{
    const struct {
        const char *file;
        int width, height, bits;
        uint64_t digest;
    } rows[] = {
        {"tb_edit", 181, 31, 8, 0x20c6619029aaef18},
        {"small-24bit", 10, 10, 24, 0x3b84780161c31daf},
        {"ham6", 26, 15, 6, 0x0bf9671217cf3059},
        {"ham8", 26, 15, 8, 0x5043497de22467ba},
        {"planes7", 26, 15, 7, 0xc779ebb1c9fb2027},
    };
    for (const auto &r : rows) {
        const DECODED d = DecodeFile(std::string(TEST_DATA "ilbm/") + r.file + ".iff");
        EXPECT_EQ(std::tuple(d.Width, d.Height, d.Bits), std::tuple(r.width, r.height, r.bits));
        EXPECT_EQ(Digest(d.Pixels), r.digest) << r.file;
    }
}

TEST(LBM, PrefixesHold)
{
    // a row that is cut reads as 0 from there
    ExpectPrefixesHold(Bytes_LoadFile(TEST_DATA "ilbm/ham6.iff"), 0, 26);
}
