#include "picture/ham68.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "picture/picture.h"
#include "tests/files.h"

using BYTES = std::vector<uint8_t>;

// A file with header: its planes follow a palette of numbered entries.
static BYTES MakeFile(int planes, int bytesPerRow, int height, int compression, const BYTES &body)
{
    BYTES file = {'H', 'A', 'M', static_cast<uint8_t>('0' + planes)};
    for (const int v : {bytesPerRow >> 8, bytesPerRow, height >> 8, height, planes, compression})
        file.push_back(static_cast<uint8_t>(v));
    file.resize(100, ' ');
    for (int i = 0; planes == 6 && i < 16; i++)
        file.insert(file.end(),
                    {static_cast<uint8_t>(0xF0 | i), static_cast<uint8_t>(i << 4 | (15 - i))});
    for (int i = 0; planes == 8 && i < 64; i++)
        for (const int v : {i, 100 + i, 200 + i % 50})
            file.push_back(static_cast<uint8_t>(v));
    file.insert(file.end(), body.begin(), body.end());
    return file;
}

// Eight pixels' codes as one byte a plane.
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

struct LOADED {
    Picture Record;
    explicit LOADED(const BYTES &file, uint16_t hint = 0, uint16_t rawPlanes = 0)
        : Record(Picture_Load(WriteTemp("ham68", file).c_str(), hint, rawPlanes))
    {
    }
    ~LOADED()
    {
        Picture_UnLoad(Record);
    }
    BYTES Pixel(size_t x, size_t y) const
    {
        const uint8_t *p = Record.Pixels + (y * Record.BufferWidth + x) * 4;
        return {p, p + 4};
    }
};

TEST(HAM68, PixelsHoldAndModify)
{
    // palette, blue, red, green, then held into the next pixels; a new row starts black
    const LOADED ham6(
        MakeFile(6, 1, 1, 0, Planes(6, {0x05, 0x1F, 0x2E, 0x3D, 0x00, 0x11, 0x00, 0x0F})));
    ASSERT_NE(ham6.Record.Pixels, nullptr);
    EXPECT_EQ(ham6.Record.Bits, 6);
    EXPECT_EQ(ham6.Pixel(0, 0), (BYTES{5 << 4, 5 << 4, 10 << 4, 255}));
    EXPECT_EQ(ham6.Pixel(1, 0), (BYTES{5 << 4, 5 << 4, 15 << 4, 255}));
    EXPECT_EQ(ham6.Pixel(2, 0), (BYTES{14 << 4, 5 << 4, 15 << 4, 255}));
    EXPECT_EQ(ham6.Pixel(3, 0), (BYTES{14 << 4, 13 << 4, 15 << 4, 255}));
    EXPECT_EQ(ham6.Pixel(5, 0), (BYTES{0, 0, 1 << 4, 255}));

    BYTES rows = Planes(8, {7 << 2, 0x3F << 2 | 1, 0x20 << 2 | 2, 0x10 << 2 | 3, 0, 0, 0, 63 << 2});
    const BYTES second = Planes(8, {0x08 << 2 | 2, 0, 0, 0, 0, 0, 0, 0});
    rows.insert(rows.end(), second.begin(), second.end());
    const LOADED ham8(MakeFile(8, 1, 2, 0, rows));
    ASSERT_NE(ham8.Record.Pixels, nullptr);
    EXPECT_EQ(ham8.Pixel(0, 0), (BYTES{7, 107, 207, 255}));
    EXPECT_EQ(ham8.Pixel(1, 0), (BYTES{7, 107, 252, 255}));
    EXPECT_EQ(ham8.Pixel(2, 0), (BYTES{128, 107, 252, 255}));
    EXPECT_EQ(ham8.Pixel(3, 0), (BYTES{128, 64, 252, 255}));
    EXPECT_EQ(ham8.Pixel(7, 0), (BYTES{63, 163, 213, 255}));
    EXPECT_EQ(ham8.Pixel(0, 1), (BYTES{32, 0, 0, 255}));
}

TEST(HAM68, RunsExpand)
{
    const struct {
        const char *what;
        BYTES packed, plain;
    } rows[] = {
        {"bytes and a run", {9, 1, 0, 5, 7, 8}, {9, 7, 7, 7, 7, 7, 8}},
        {"the escape itself", {1, 255, 1, 255, 2}, {1, 1, 2}},
        {"an empty run", {1, 0, 0, 7, 3}, {3}},
        {"a run longer than the picture", {1, 200, 0, 4}, {4, 4, 4, 4, 4, 4, 4, 4}},
        {"cut in the escape", {5, 1}, {5}},
        {"cut in the count", {5, 1, 0}, {5}},
    };
    for (const auto &r : rows) {
        HAM68_Load(WriteTemp("ham68", MakeFile(8, 1, 1, 1, r.packed)).c_str(), 0, 0);
        EXPECT_EQ(BYTES(HAM68_File.begin() + 292, HAM68_File.end()), r.plain) << r.what;
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
        {"rows behind the palette, less one", 32 + 5 * 48, 64, 6, 64, 4},
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
    // The palette is the start of the dump.
    const LOADED dump(BYTES(32 + 4 * 6, 0xA7), 8, 6);
    EXPECT_EQ(dump.Pixel(0, 0), (BYTES{0, 0xF0, 0, 255}));
    EXPECT_EQ(dump.Pixel(1, 0), (BYTES{0x70, 0xA0, 0x70, 255}));
}

TEST(HAM68, ImpossibleSizesAreNull)
{
    BYTES headerOnly = MakeFile(8, 1, 1, 0, {});
    headerOnly.resize(100);
    const struct {
        const char *what;
        BYTES file;
    } rows[] = {
        {"no width", MakeFile(8, 0, 4, 0, BYTES(99))},
        {"no height", MakeFile(8, 4, 0, 0, BYTES(99))},
        {"a width beyond 16 bits", MakeFile(8, 8192, 4, 0, BYTES(99))},
        {"runs of unknown planes", MakeFile(7, 4, 4, 1, BYTES(99))},
        {"a header and nothing else", headerOnly},
        {"a signature and nothing else", Text("HAM8")},
    };
    for (const auto &r : rows)
        EXPECT_EQ(LOADED(r.file).Record.Pixels, nullptr) << r.what;
}

TEST(HAM68, EveryPrefixDecodes)
{
    for (const int compression : {0, 1}) {
        const BYTES file = MakeFile(8, 2, 3, compression, BYTES(48, 1));
        for (size_t size = 101; size <= file.size(); size++) {
            const LOADED prefix(BYTES(file.begin(), file.begin() + static_cast<ptrdiff_t>(size)));
            ASSERT_NE(prefix.Record.Pixels, nullptr) << size;
            EXPECT_EQ(prefix.Pixel(15, 2)[3], 255);
        }
    }
}

// The codes that the encoder gives to the first row, by undoing its planes.
static BYTES EncodedCodes(const BYTES &rgb, uint16_t code)
{
    BYTES pixels;
    for (size_t i = 0; i < rgb.size(); i += 3)
        pixels.insert(pixels.end(), {rgb[i], rgb[i + 1], rgb[i + 2], 255});
    pixels.resize(8 * 2 * 4, 0); // a second row, so that the lost last byte is not in the first
    const std::string path = TempPath("encoded.ham");
    EXPECT_EQ(HAM68_Encoding(pixels.data(), 8, 2, path.c_str(), code), 0);
    const BYTES file = Bytes_LoadFile(path.c_str());
    const size_t planes = code, offset = code == 6 ? 132 : 292;
    BYTES codes(rgb.size() / 3);
    for (size_t i = 0; i < codes.size(); i++)
        for (size_t p = 0; p < planes; p++)
            codes[i] = static_cast<uint8_t>(codes[i] | (file.at(offset + p) >> (7 - i) & 1) << p);
    return codes;
}

TEST(HAM68, EncoderChangesOneComponent)
{
    const struct {
        const char *what;
        BYTES rgb;
        uint16_t code;
        BYTES codes;
    } rows[] = {
        {"the greatest change",
         {200, 10, 10, 200, 90, 10, 200, 90, 91},
         8,
         {200 | 2, 88 | 3, 88 | 1}},
        {"red on a tie, then green", {50, 50, 0, 50, 50, 0}, 8, {48 | 2, 48 | 3}},
        {"a held colour repeats its code", {200, 0, 0, 200, 0, 0}, 8, {200 | 2, 200 | 2}},
        {"black is in the palette", {0, 0, 0}, 8, {0}},
        {"grey only when it is reached exactly",
         {80, 80, 80, 80, 80, 80, 80, 80, 80, 80, 80, 80},
         8,
         {80 | 2, 80 | 3, 80 | 1, 80}},
        {"HAM6 has its controls on top",
         {200, 10, 10, 200, 90, 10, 200, 90, 240},
         6,
         {32 + 12, 48 + 5, 16 + 15}},
        {"HAM6 grey", {80, 80, 80, 80, 80, 80, 80, 80, 80, 80, 80, 80}, 6, {37, 53, 21, 5}},
    };
    for (const auto &r : rows)
        EXPECT_EQ(EncodedCodes(r.rgb, r.code), r.codes) << r.what;
}

TEST(HAM68, WrittenFiles)
{
    const std::string path = TempPath("written.ham");
    BYTES pixels(20 * 3 * 4);
    for (size_t i = 0; i < pixels.size(); i++)
        pixels[i] = static_cast<uint8_t>(i * 7);
    Picture picture{};
    picture.Width = 20;
    picture.Height = 3;
    picture.Pixels = pixels.data();
    const struct {
        uint8_t mode;
        size_t planes, palette;
        bool compressed;
    } rows[] = {{1, 6, 32, false}, {2, 8, 192, false}, {3, 6, 32, true}, {4, 8, 192, true}};
    BYTES plain[2]; // rows that lose nothing
    for (const auto &r : rows) {
        ASSERT_EQ(Picture_Converter(r.mode, path.c_str(), picture), 0);
        const BYTES file = Bytes_LoadFile(path.c_str());
        const BYTES head = {'H', 'A', 'M', static_cast<uint8_t>('0' + r.planes), 0,
                            2,   0,   3,   static_cast<uint8_t>(r.planes),       r.compressed};
        EXPECT_EQ(BYTES(file.begin(), file.begin() + 10), head);
        EXPECT_EQ(std::string(file.begin() + 10, file.begin() + 26), "Hold-And-Modify\n");
        EXPECT_EQ(file[99], 0);
        EXPECT_EQ(file[98], ' ');
        if (!r.compressed) {
            EXPECT_EQ(file.size(), 100 + r.palette + 2 * r.planes * 3 - 1);
        }
        const LOADED loaded(file);
        ASSERT_NE(loaded.Record.Pixels, nullptr);
        EXPECT_EQ(loaded.Record.Width, 16); // pixels beyond a multiple of 8 are not stored
        const BYTES decoded(loaded.Record.Pixels, loaded.Record.Pixels + 16 * 2 * 4);
        if (!r.compressed)
            plain[r.mode - 1u] = decoded;
        EXPECT_EQ(decoded, plain[(r.mode - 1u) % 2]);
    }
    EXPECT_EQ(Picture_Converter(5, path.c_str(), picture), 0);
    EXPECT_NE(Picture_Converter(2, "no such folder/file", picture), 0);
}

TEST(HAM68, RunsOfFiveAndMoreArePacked)
{
    const std::string path = TempPath("runs.ham");
    const struct {
        const char *what;
        uint16_t width, height;
        size_t size;
    } rows[] = {
        {"8 equal bytes", 8, 1, 292 + 4},
        {"65280 bytes, one more than the longest run", 8 * 255, 32, 292 + 4 + 1},
    };
    for (const auto &r : rows) {
        const BYTES black(size_t{r.width} * r.height * 4, 0);
        ASSERT_EQ(HAM68_Encoding(black.data(), r.width, r.height, path.c_str(), 8 << 8), 0);
        EXPECT_EQ(Bytes_LoadFile(path.c_str()).size(), r.size) << r.what;
    }
}
