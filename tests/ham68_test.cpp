#include "picture/ham68.h"

#include "tests/pixels.h"

// A file with a header: its planes follow a palette of numbered entries.
static BYTES MakeFile(int planes, int bytesPerRow, int height, int compression, const BYTES &body)
{
    BYTES file = Text(planes == 6 ? "HAM6" : "HAM8") + Number(bytesPerRow, 2) + Number(height, 2) +
                 Number(planes, 1) + Number(compression, 1);
    file.resize(100, ' ');
    for (int i = 0; planes == 6 && i < 16; i++)
        file = file + Number(0xF00F + i * 0x100 + i * 15, 2);
    for (int i = 0; planes == 8 && i < 64; i++)
        file = file + Number(i << 16 | (100 + i) << 8 | (200 + i % 50), 3);
    return file + body;
}

// Eight pixels' codes, one byte per plane.
static BYTES Planes(int planes, const BYTES &codes)
{
    BYTES bytes;
    for (int p = 0; p < planes; p++) {
        int bits = 0;
        for (const uint8_t code : codes)
            bits = bits << 1 | (code >> p & 1);
        bytes.push_back(static_cast<uint8_t>(bits));
    }
    return bytes;
}

TEST(HAM68, PixelsHoldAndModify)
{
    // palette, blue, red, green, held for the next pixels; each row starts black
    const BYTES codes6 = {0x05, 0x1F, 0x2E, 0x3D, 0, 0x11, 0, 0x0F};
    const BYTES codes8 = {7 << 2, 63 << 2 | 1, 32 << 2 | 2, 16 << 2 | 3, 0, 0, 0, 63 << 2};
    const BYTES second = {8 << 2 | 2, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(Show(MakeFile(6, 1, 1, 0, Planes(6, codes6))),
              "5050A0FF 5050F0FF E050F0FF E0D0F0FF 0000F0FF 000010FF 0000F0FF F0F000FF");
    const BYTES rows = Planes(8, codes8) + Planes(8, second);
    EXPECT_EQ(Show(MakeFile(8, 1, 2, 0, rows)).substr(0, 80),
              "076BCFFF 076BFCFF 806BFCFF 8040FCFF 0064C8FF 0064C8FF 0064C8FF 3FA3D5FF 200000FF");
}

TEST(HAM68, RunsExpand)
{
    const std::tuple<const char *, BYTES, BYTES> rows[] = {
        {"bytes and a run", {9, 1, 0, 5, 7, 8}, {9, 7, 7, 7, 7, 7, 8}},
        {"the escape itself", {1, 255, 1, 255, 2}, {1, 1, 2}},
        {"an empty run", {1, 0, 0, 7, 3}, {3}},
        {"a run longer than the picture", {1, 200, 0, 4}, {4, 4, 4, 4, 4, 4, 4, 4}},
        {"cut in the escape", {5, 1}, {5}},
        {"cut in the count", {5, 1, 0}, {5}},
    };
    for (const auto &[what, packed, plain] : rows) {
        HAM68_Load(WriteTemp("ham68", MakeFile(8, 1, 1, 1, packed)).c_str(), 0, 0);
        EXPECT_EQ(BYTES(HAM68_File.begin() + 292, HAM68_File.end()), plain) << what;
        HAM68_UnLoad();
    }
}

TEST(HAM68, DumpsAreMeasured)
{
    const struct {
        const char *what;
        size_t size;
        uint16_t hint;
        uint8_t planes;
        int width, height;
    } rows[] = {
        {"width 320 by default", 192 + 3 * 320, 0, 8, 320, 2},
        {"rows after the palette, less one", 6 * 48 + 1, 64, 6, 64, 5},
        {"no row left", 2 * 320, 0, 8, 320, 0},
        {"narrower than a byte", 5000, 7, 8, 7, 0},
        {"shorter than a row", 100, 0, 8, 320, 0},
    };
    for (const auto &r : rows) {
        const LOADED dump(BYTES(r.size, 0x55), r.hint, r.planes);
        EXPECT_EQ(dump.Record.Width, r.width) << r.what;
        EXPECT_EQ(dump.Record.Height, r.height) << r.what;
        EXPECT_EQ(dump.Record.Pixels != nullptr, r.height != 0) << r.what;
    }
    // Numbers of planes other than 6 and 8 are rejected.
    const BYTES file = MakeFile(8, 1, 1, 0, Planes(8, BYTES(8, 99)));
    EXPECT_EQ(Cropped(LOADED(file, 0, 7).Record), PixelsOf(file));
    // The palette is the beginning of the dump.
    EXPECT_EQ(Prefix(Cropped(LOADED(BYTES(32 + 4 * 6, 0xA7), 8, 6).Record), 8),
              (BYTES{0, 0xF0, 0, 255, 0x70, 0xA0, 0x70, 255}));
}

TEST(HAM68, AnySizeAndPrefix)
{
    const char *impossible = "a header that cannot be";
    const std::tuple<const char *, BYTES, const char *> rows[] = {
        {"no width", MakeFile(8, 0, 4, 0, BYTES(99)), impossible},
        {"no height", MakeFile(8, 4, 0, 0, BYTES(99)), "a side of 0 pixels"},
        {"a width beyond 16 bits", MakeFile(8, 8192, 4, 0, BYTES(99)), impossible},
        {"less than an eighth", MakeFile(6, 8, 40, 0, BYTES(40 * 6 - 33)),
         "339 bytes cannot hold 64 x 40 pixels"},
        {"less than an eighth of no planes", MakeFile(0, 8, 400, 0, BYTES(399)),
         "499 bytes cannot hold 64 x 400 pixels"},
        {"more than runs can give", MakeFile(8, 4000, 1000, 1, {}),
         "292 bytes cannot hold 32000 x 1000 pixels"},
        {"runs of unknown planes", MakeFile(7, 4, 4, 1, BYTES(99)), impossible},
        {"a header and nothing else", Prefix(MakeFile(8, 1, 1, 0, {}), 100), impossible},
        {"a signature and nothing else", Text("HAM8"), impossible},
    };
    for (const auto &[what, file, reason] : rows) {
        EXPECT_EQ(LOADED(file).Record.Pixels, nullptr) << what;
        EXPECT_STREQ(Picture_Reason(), reason) << what;
    }
    for (const int compression : {0, 1}) {
        const BYTES file = MakeFile(8, 2, 4, compression, BYTES(64, 1));
        for (size_t size = compression ? 101 : 108; size <= file.size(); size++)
            ASSERT_EQ(PixelsOf(Prefix(file, size)).size(), 16 * 4 * 4u) << size;
    }
}

// The encoder's codes of the first row, recovered from its planes.
static BYTES EncodedCodes(const BYTES &rgb, uint16_t code)
{
    BYTES pixels(8 * 2 * 4);  // the lost last byte is in the second row
    for (size_t i = 0; i < rgb.size(); i++)
        pixels[i / 3 * 4 + i % 3] = rgb[i];
    const std::string path = TempPath("encoded.ham");
    EXPECT_EQ(HAM68_Encoding(pixels.data(), 8, 2, path.c_str(), code), 0);
    const BYTES file = ReadFile(path);
    BYTES codes(rgb.size() / 3);
    for (size_t i = 0; i < codes.size(); i++)
        for (size_t p = 0; p < code; p++)
            codes[i] |=
                static_cast<uint8_t>((file.at((code == 6 ? 132u : 292u) + p) >> (7 - i) & 1) << p);
    return codes;
}

TEST(HAM68, EncoderChangesOneComponent)
{
    const std::tuple<const char *, BYTES, uint16_t, BYTES> rows[] = {
        {"the greatest change", {200, 10, 10, 200, 90, 10, 200, 90, 91}, 8, {202, 91, 89}},
        {"red on a tie, then green", {50, 50, 0, 50, 50, 0}, 8, {48 | 2, 48 | 3}},
        {"a held colour repeats its code", {200, 0, 0, 200, 0, 0}, 8, {200 | 2, 200 | 2}},
        {"black is in the palette", {0, 0, 0}, 8, {0}},
        {"grey only when it is reached exactly", BYTES(12, 80), 8, {82, 83, 81, 80}},
        {"HAM6 controls on top", {200, 10, 10, 200, 90, 10, 200, 90, 240}, 6, {44, 53, 31}},
        {"HAM6 grey", BYTES(12, 80), 6, {37, 53, 21, 5}},
    };
    for (const auto &[what, rgb, code, codes] : rows)
        EXPECT_EQ(EncodedCodes(rgb, code), codes) << what;
}

TEST(HAM68, WrittenFiles)
{
    const std::string path = TempPath("written.ham");
    BYTES pixels(20 * 3 * 4);
    for (size_t i = 0; i < pixels.size(); i++)
        pixels[i] = static_cast<uint8_t>(i * 7);
    Picture picture{};
    picture.Width = 20, picture.Height = 3, picture.Pixels = pixels.data();
    BYTES plain[2];  // the results of modes 1 and 2 without compression
    for (uint8_t mode = 1; mode <= 4; mode++) {
        const bool runs = mode > 2;
        const int planes = mode % 2 == 1 ? 6 : 8;
        ASSERT_EQ(Picture_Converter(mode, path.c_str(), picture), 0);
        const BYTES file = ReadFile(path);
        const BYTES head = Prefix(MakeFile(planes, 2, 3, runs, {}), 10);
        EXPECT_EQ(Prefix(file, 26), head + Text("Hold-And-Modify\n"));
        EXPECT_EQ(file[99], 0);
        EXPECT_TRUE(runs || file.size() == 100 + (planes == 6 ? 32u : 192u) +
                                               static_cast<size_t>(6 * planes) - 1);
        const LOADED loaded(file);
        EXPECT_EQ(loaded.Record.Width, 16);  // pixels beyond a multiple of 8 are not stored
        const BYTES decoded =
            Prefix(Cropped(loaded.Record), 16 * 2 * 4);  // the last row loses its end
        if (!runs)
            plain[mode - 1u] = decoded;
        EXPECT_EQ(decoded, plain[(mode - 1u) % 2]);
    }
    EXPECT_EQ(Picture_Converter(5, path.c_str(), picture), 0);
    EXPECT_NE(Picture_Converter(1, path.c_str(), {}), 0);
    EXPECT_NE(Picture_Converter(2, "no such folder/file", picture), 0);

    // 5 equal bytes are a run; 65280 are one more than the longest.
    EXPECT_EQ(HAM68_CompressRuns(BYTES(4, 7)), BYTES(4, 7));
    EXPECT_EQ(HAM68_CompressRuns(BYTES(5, 7)), (BYTES{1, 0, 5, 7}));
    EXPECT_EQ(HAM68_CompressRuns(BYTES{1, 1, 2}), (BYTES{1, 255, 1, 255, 2}));
    const BYTES black(8 * 255 * 32 * 4);
    HAM68_Encoding(black.data(), 8 * 255, 32, path.c_str(), 8 << 8);
    EXPECT_EQ(ReadFile(path).size(), 292u + 5);
    EXPECT_NE(LOADED(ReadFile(path)).Record.Pixels, nullptr);
}
