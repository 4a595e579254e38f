#include "picture/jpg.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <numbers>

#include "picture/jpg_block.h"
#include "picture/jpg_scan.h"
#include "picture/picture.h"
#include "tests/files.h"

using BYTES = std::vector<uint8_t>;

static void Append(BYTES &out, const BYTES &more)
{
    out.insert(out.end(), more.begin(), more.end());
}

static BYTES Segment(int marker, const BYTES &data)
{
    const size_t length = data.size() + 2;
    BYTES segment = {0xFF, static_cast<uint8_t>(marker), static_cast<uint8_t>(length >> 8),
                     static_cast<uint8_t>(length)};
    Append(segment, data);
    return segment;
}

// Huffman coded bits, with their stuffing.
struct WRITER {
    BYTES Bytes;
    int Pending = 1; // a 1, then the bits not yet written
    void Put(int value, int count)
    {
        for (int i = count - 1; i >= 0; i--) {
            Pending = Pending << 1 | (value >> i & 1);
            if (Pending < 256)
                continue;
            Bytes.push_back(static_cast<uint8_t>(Pending));
            if (Bytes.back() == 0xFF)
                Bytes.push_back(0);
            Pending = 1;
        }
    }
    void Finish()
    {
        while (Pending != 1)
            Put(1, 1);
    }
};

// A picture of flat blocks, in a code that anyone can write: 4 bits for the size of a difference
// (12 to 15 are no codes), its bits, and a 0 for the end of the block.
struct FLAT {
    int Width, Height;
    std::vector<int> Factors; // of each component, horizontal * 16 + vertical
    int Interval = 0;
    bool Interleaved = true;

    int H(size_t c) const
    {
        return Factors[c] >> 4;
    }
    int V(size_t c) const
    {
        return Factors[c] & 15;
    }
    int SamplesAcross(size_t c) const
    {
        return (Width * H(c) + H(0) - 1) / H(0);
    }
    int SamplesDown(size_t c) const
    {
        return (Height * V(c) + V(0) - 1) / V(0);
    }
    static int Level(size_t c, int bx, int by)
    {
        return (static_cast<int>(c) * 37 + bx * 91 + by * 53) % 120 - 60;
    }

    BYTES Scan(const std::vector<size_t> &components) const
    {
        WRITER out;
        const size_t c0 = components[0];
        const bool alone = components.size() == 1;
        const int across =
            alone ? (SamplesAcross(c0) + 7) / 8 : (Width + 8 * H(0) - 1) / (8 * H(0));
        const int down = alone ? (SamplesDown(c0) + 7) / 8 : (Height + 8 * V(0) - 1) / (8 * V(0));
        int last[3] = {};
        for (int mcu = 0; mcu < across * down; mcu++) {
            if (Interval != 0 && mcu != 0 && mcu % Interval == 0) {
                out.Finish();
                Append(out.Bytes, {0xFF, static_cast<uint8_t>(0xD0 + (mcu / Interval - 1) % 8)});
                std::fill_n(last, 3, 0);
            }
            for (const size_t c : components) {
                const int h = alone ? 1 : H(c), v = alone ? 1 : V(c);
                for (int i = 0; i < h * v; i++) {
                    const int dc = Level(c, mcu % across * h + i % h, mcu / across * v + i / h);
                    const int difference = dc - std::exchange(last[c], dc);
                    int size = 0;
                    while (std::abs(difference) >> size)
                        size++;
                    out.Put(size, 4);
                    out.Put(difference < 0 ? difference - 1 : difference, size);
                    out.Put(0, 1);
                }
            }
        }
        out.Finish();
        BYTES header = {static_cast<uint8_t>(components.size())};
        for (const size_t c : components)
            Append(header, {static_cast<uint8_t>(c + 1), 0});
        Append(header, {0, 63, 0});
        BYTES scan = Segment(0xDA, header);
        Append(scan, out.Bytes);
        return scan;
    }

    BYTES File(int frame = 0xC0, uint8_t precision = 8) const
    {
        BYTES quantisation(65, 8), dc(29), ac(18);
        quantisation[0] = 0;
        dc[4] = 12;
        for (size_t i = 0; i < 12; i++)
            dc[17 + i] = static_cast<uint8_t>(i);
        ac[0] = 0x10;
        ac[1] = 1;
        BYTES header = {precision,
                        static_cast<uint8_t>(Height >> 8),
                        static_cast<uint8_t>(Height),
                        static_cast<uint8_t>(Width >> 8),
                        static_cast<uint8_t>(Width),
                        static_cast<uint8_t>(Factors.size())};
        std::vector<size_t> all;
        for (size_t c = 0; c < Factors.size(); c++) {
            Append(header, {static_cast<uint8_t>(c + 1), static_cast<uint8_t>(Factors[c]), 0});
            all.push_back(c);
        }
        BYTES file = {0xFF, 0xD8};
        Append(file, Segment(0xDB, quantisation));
        Append(file, Segment(frame, header));
        Append(dc, ac);
        Append(file, Segment(0xC4, dc));
        if (Interval)
            Append(file, Segment(0xDD, {static_cast<uint8_t>(Interval >> 8),
                                        static_cast<uint8_t>(Interval)}));
        if (Interleaved)
            Append(file, Scan(all));
        else
            for (const size_t c : all)
                Append(file, Scan({c}));
        Append(file, {0xFF, 0xD9});
        return file;
    }
};

struct DECODED {
    uint8_t *Pixels;
    explicit DECODED(const BYTES &file)
    {
        JPG_Load(WriteTemp("jpg", file).c_str());
        Pixels = JPG_Decoding();
    }
    ~DECODED()
    {
        std::free(Pixels);
        JPG_UnLoad();
    }
    const uint8_t *At(int x, int y) const
    {
        return Pixels +
               4 * (static_cast<size_t>(y) * JPG_Decoder.PaddedWidth + static_cast<size_t>(x));
    }
};

TEST(JPEG, RealFilesAsAnotherDecoderSeesThem)
{
    const struct {
        const char *name;
        int width, height, bits, most; // levels that a sample may differ by
    } rows[] = {
        {"grey", 32, 32, 8, 1},
        {"420", 17, 17, 24, 2},
        {"restarts", 33, 33, 24, 2},
        {"progressive", 32, 32, 24, 2},
        {"progressive-422", 31, 23, 24, 3},
        {"scans-440", 31, 23, 24, 3},
    };
    for (const auto &r : rows) {
        const std::string path = std::string(TEST_DATA "jpg/") + r.name;
        const Picture picture = Picture_Load((path + ".jpg").c_str(), 0, 0);
        ASSERT_NE(picture.Pixels, nullptr) << r.name;
        EXPECT_EQ(picture.Width, r.width) << r.name;
        EXPECT_EQ(picture.Height, r.height) << r.name;
        EXPECT_EQ(picture.Bits, r.bits) << r.name;
        const BYTES pnm = Bytes_LoadFile((path + ".pnm").c_str());
        const auto channels = static_cast<size_t>(r.bits / 8);
        const size_t pixels = static_cast<size_t>(r.width * r.height);
        int most = 0;
        for (size_t i = 0; i < pixels; i++)
            for (size_t c = 0; c < 3; c++) {
                const size_t x = i % picture.Width, y = i / picture.Width;
                const int ours = picture.Pixels[(y * picture.BufferWidth + x) * 4 + c];
                const int theirs = pnm[pnm.size() + (i - pixels) * channels + c % channels];
                most = std::max(most, std::abs(ours - theirs));
            }
        EXPECT_LE(most, r.most) << r.name;
        Picture_UnLoad(picture);
    }
}

TEST(JPEG, InverseDCTIsTheTextbooks)
{
    uint32_t random = 1;
    const auto next = [&random] { return static_cast<int>((random = random * 69069 + 1) >> 16); };
    for (const size_t end : {1, 2, 3, 10, 11, 36, 64}) {
        int16_t coefficients[64] = {};
        float scale[64];
        double expected[64] = {};
        for (size_t i = 0; i < 64; i++) {
            const size_t u = i / 8, v = i % 8; // column by column
            scale[i] = JPG_ScaleFactor[u] * JPG_ScaleFactor[v] / 8;
            if (JPG_ZigZag2[8 * v + u] >= end)
                continue;
            coefficients[i] = static_cast<int16_t>(next() % 400 - 200);
            for (size_t k = 0; k < 64; k++) {
                const auto wave = [](size_t at, size_t f) {
                    return std::cos(static_cast<double>((2 * at + 1) * f) * std::numbers::pi / 16) *
                           (f == 0 ? std::numbers::sqrt2 / 2 : 1);
                };
                expected[k] += coefficients[i] * wave(k % 8, u) * wave(k / 8, v) / 4;
            }
        }
        uint8_t samples[80];
        JPG_InverseDCT(coefficients, scale, end, samples, 10);
        for (size_t k = 0; k < 64; k++)
            EXPECT_NEAR(samples[k / 8 * 10 + k % 8], std::clamp(expected[k] + 128, 0.0, 255.0),
                        0.51)
                << end;
    }
}

// A component's value at a pixel, in a straight line between the centres of its samples.
static double Textbook(const FLAT &flat, size_t c, int x, int y)
{
    const double sx = (x + 0.5) * flat.H(c) / flat.H(0) - 0.5;
    const double sy = (y + 0.5) * flat.V(c) / flat.V(0) - 0.5;
    const auto at = [&](double column, double row) {
        return FLAT::Level(c,
                           std::clamp(static_cast<int>(column), 0, flat.SamplesAcross(c) - 1) / 8,
                           std::clamp(static_cast<int>(row), 0, flat.SamplesDown(c) - 1) / 8);
    };
    const double x0 = std::floor(sx), y0 = std::floor(sy), dx = sx - x0, dy = sy - y0;
    return (at(x0, y0) * (1 - dx) + at(x0 + 1, y0) * dx) * (1 - dy) +
           (at(x0, y0 + 1) * (1 - dx) + at(x0 + 1, y0 + 1) * dx) * dy;
}

TEST(JPEG, ChromaOfAnyFactorsIsInterpolated)
{
    const std::vector<int> rows[] = {
        {0x11},
        {0x22},
        {0x11, 0x11, 0x11},
        {0x21, 0x11, 0x11},
        {0x12, 0x11, 0x11},
        {0x22, 0x11, 0x11},
        {0x22, 0x22, 0x22},
        {0x41, 0x11, 0x11},
        {0x14, 0x11, 0x12},
        {0x44, 0x11, 0x22},
        {0x31, 0x21, 0x11},
        {0x13, 0x12, 0x11},
        {0x33, 0x22, 0x32},
        {0x43, 0x32, 0x12},
        {0x42, 0x21, 0x31},
        {0x24, 0x13, 0x24},
    };
    for (const auto &factors : rows)
        for (const bool interleaved : {true, false}) {
            const FLAT flat = {75, 61, factors, interleaved ? 2 : 0, interleaved};
            const DECODED decoded(flat.File());
            std::string what = interleaved ? "one scan" : "a scan each";
            for (const int f : factors)
                what.append(
                    {' ', static_cast<char>('0' + f / 16), 'x', static_cast<char>('0' + f % 16)});
            ASSERT_NE(decoded.Pixels, nullptr) << what;
            EXPECT_EQ(JPG_Decoder.PaddedWidth % (8u * JPG_Decoder.H), 0u) << what;
            double most = 0;
            for (int y = 0; y < flat.Height; y++)
                for (int x = 0; x < flat.Width; x++) {
                    const double level = Textbook(flat, 0, x, y) + 128;
                    const double cb = factors.size() == 1 ? 0 : Textbook(flat, 1, x, y);
                    const double cr = factors.size() == 1 ? 0 : Textbook(flat, 2, x, y);
                    const double rgba[] = {level + 1.402 * cr,
                                           level - 0.344136 * cb - 0.714136 * cr,
                                           level + 1.772 * cb, 255};
                    for (size_t i = 0; i < 4; i++)
                        most = std::max(
                            most, std::abs(decoded.At(x, y)[i] - std::clamp(rgba[i], 0.0, 255.0)));
                }
            EXPECT_LT(most, 2) << what;
        }
}

// Which of the eight blocks of a row are there ('.': grey, '?': another's stands there).
static std::string BlocksOf(const BYTES &file)
{
    const DECODED decoded(file);
    std::string blocks;
    for (int i = 0; i < 8 && decoded.Pixels; i++) {
        const int level = decoded.At(8 * i + 4, 4)[0] - 128;
        blocks += level == FLAT::Level(0, i, 0) ? static_cast<char>('0' + i) : level ? '?' : '.';
    }
    return blocks;
}

TEST(JPEG, DamageEndsAtTheNextRestartMarker)
{
    const BYTES good = FLAT{64, 8, {0x11}, 2}.File();
    std::vector<size_t> starts; // of the four intervals, then what ends the last
    const BYTES scan = Segment(0xDA, {1, 1, 0, 0, 63, 0});
    starts.push_back(
        static_cast<size_t>(std::search(good.begin(), good.end(), scan.begin(), scan.end()) -
                            good.begin()) +
        scan.size());
    for (size_t i = starts[0]; i < good.size(); i++)
        if (good[i - 2] == 0xFF && good[i - 1] >= 0xD0 && good[i - 1] <= 0xD3)
            starts.push_back(i);
    ASSERT_EQ(starts.size(), 4u);
    const auto at = [](BYTES &file, size_t i) { return file.begin() + static_cast<ptrdiff_t>(i); };
    const struct {
        const char *what;
        std::function<void(BYTES &)> damage;
        const char *blocks;
    } rows[] = {
        {"none", [](BYTES &) {}, "01234567"},
        {"cut behind an interval", [&](BYTES &f) { f.resize(starts[2] - 2); }, "0123...."},
        {"cut behind a marker", [&](BYTES &f) { f.resize(starts[2]); }, "0123...."},
        {"no code", [&](BYTES &f) { f[starts[1]] = 0xC0; }, "01..4567"},
        {"no marker",
         [&](BYTES &f) {
             f.insert(at(f, starts[1]), {0xFF, 0x41});
         },
         "01..4567"},
        {"a lost interval", [&](BYTES &f) { f.erase(at(f, starts[1]), at(f, starts[2])); },
         "01??..67"},
        {"two lost intervals", [&](BYTES &f) { f.erase(at(f, starts[0]), at(f, starts[2])); },
         "??....67"},
        {"a spare marker",
         [&](BYTES &f) {
             f.insert(at(f, starts[1]), {0xFF, 0xD0});
         },
         "01..4567"},
        {"fill bytes",
         [&](BYTES &f) {
             f.insert(at(f, starts[1]) - 2, {0xFF, 0xFF});
         },
         "01234567"},
        {"no end", [](BYTES &f) { f.resize(f.size() - 2); }, "01234567"},
        {"another picture behind the end",
         [](BYTES &f) {
             Append(f, FLAT{64, 8, {0x11, 0x11, 0x11}}.File());
         },
         "01234567"},
    };
    for (const auto &r : rows) {
        BYTES file = good;
        r.damage(file);
        EXPECT_EQ(BlocksOf(file), r.blocks) << r.what;
    }
}

TEST(JPEG, WhatCannotBeDecodedIsNull)
{
    const FLAT colour = {16, 16, {0x22, 0x11, 0x11}};
    const struct {
        const char *what;
        BYTES file;
        const char *trace;
    } rows[] = {
        {"extended sequential", colour.File(0xC1), "\n-->(SOF1)\n"},
        {"lossless", colour.File(0xC3), "\n\n-->(SOF3)\n\n"},
        {"arithmetic", colour.File(0xC9), "\n\n-->(SOF9)\n\n"},
        {"12 bits", colour.File(0xC0, 12), ""},
        {"2 components", FLAT{16, 16, {0x11, 0x11}}.File(), ""},
        {"4 components", FLAT{16, 16, {0x11, 0x11, 0x11, 0x11}, 0, false}.File(), ""},
        {"a first component that is not the widest", FLAT{16, 16, {0x11, 0x21, 0x11}}.File(), ""},
        {"a factor of 0", FLAT{16, 16, {0x11, 0x11, 0x11}}.File(), ""},
        {"a padded width beyond 16 bits", FLAT{65535, 1, {0x21, 0x11, 0x11}}.File(), ""},
        {"no width", FLAT{0, 16, {0x11}}.File(), ""},
        {"more blocks than bytes can hold", FLAT{16, 16, {0x11}}.File(), ""},
        {"no frame", Segment(0xFE, Text("comment")), ""},
        {"nothing", {}, ""},
    };
    for (const auto &r : rows) {
        BYTES file = r.file;
        const auto frame = std::find(file.begin(), file.end(), 0xC0);
        if (r.what == std::string("a factor of 0"))
            *(frame + 13) = 0x01;
        if (r.what == std::string("more blocks than bytes can hold"))
            *(frame + 4) = *(frame + 6) = 0xFF;
        testing::internal::CaptureStdout();
        const DECODED decoded(file);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), r.trace) << r.what;
        EXPECT_EQ(decoded.Pixels, nullptr) << r.what;
    }
}

TEST(JPEG, SegmentsFillTheHeader)
{
    BYTES file = {0xFF, 0xD8}, tables(65 + 129, 2), huffman = {0x11, 0, 2, 1};
    huffman.resize(17);
    Append(huffman, {5, 6, 7});
    tables[0] = 0x01;
    tables[65] = 0x13;
    Append(file, Segment(0xE0, Text("JFIF\0\1\2\1\0\x48\0\x49\0\0")));
    Append(file, Segment(0xED, Text("Photoshop 3.0\0xyz")));
    Append(file, Segment(0xEE, Text("Adobe")));
    Append(file, Segment(0xFE, BYTES(300, 'c')));
    Append(file, Segment(0xDB, tables));
    Append(file, Segment(0xC4, huffman));
    Append(file, Segment(0xF7, {}));
    testing::internal::CaptureStdout();
    const DECODED decoded(file);
    JPG_HEADER header;
    JPG_GetHeader(&header);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n\n-->(APP14)\n\n\n\n-->(JPG7_SOF48)\n\n");
    EXPECT_EQ(header.FileSize, file.size());
    EXPECT_STREQ(header.Identifier.data(), "Photoshop 3.0"); // the last one's
    EXPECT_EQ(header.MinorVersion, 2);
    EXPECT_EQ(header.Units, 1);
    EXPECT_EQ(header.YDensity, 0x49);
    EXPECT_EQ(std::string(header.Comment.data()), std::string(127, 'c'));
    EXPECT_TRUE(header.Quantisation[1].Defined && header.Quantisation[3].Defined);
    EXPECT_FALSE(header.Quantisation[0].Defined);
    EXPECT_FLOAT_EQ(header.Quantisation[1].Values[8 + 2], 2 * 1.387039845F * 1.306562965F);
    EXPECT_EQ(header.Quantisation[3].Wide[63], 0x0202);
    const JPG_HUFFMAN &codes = header.AC[1];
    EXPECT_EQ(codes.Total, 3);
    EXPECT_EQ(codes.First[0], 65535);
    EXPECT_EQ(codes.Last[0], 0);
    EXPECT_EQ(codes.First[1], 0);
    EXPECT_EQ(codes.Last[1], 1);
    EXPECT_EQ(codes.First[2], 4);
}

TEST(JPEG, ThumbnailsAndExif)
{
    const struct {
        const char *name;
        int width, height, bufferWidth;
        char order;
    } rows[] = {
        {"thumb-jfif", 8, 6, 8, 0},
        {"exif-ii", 17, 17, 24, 'I'},
        {"exif-mm", 17, 17, 32, 'M'},
    };
    for (const auto &r : rows) {
        const std::string path = std::string(TEST_DATA "jpg/") + r.name + ".jpg";
        const Picture picture = Picture_Load(path.c_str(), 0, 0);
        ASSERT_NE(picture.Pixels, nullptr) << r.name;
        ASSERT_NE(picture.ThumbPixels, nullptr) << r.name;
        EXPECT_EQ(picture.ThumbWidth, r.width) << r.name;
        EXPECT_EQ(picture.ThumbHeight, r.height) << r.name;
        EXPECT_EQ(picture.ThumbBufferWidth, r.bufferWidth) << r.name;
        if (r.order) {
            JPG_EXIF exif;
            JPG_GetExif(&exif);
            EXPECT_EQ(exif.ByteOrder, r.order);
            EXPECT_STREQ(exif.Description.data(), "A test picture") << r.name;
            EXPECT_STREQ(exif.Make.data(), "Makers") << r.name;
            EXPECT_STREQ(exif.Model.data(), "Model 7") << r.name;
            EXPECT_EQ(exif.ThumbCompression, 6) << r.name;
            EXPECT_FLOAT_EQ(exif.Latitude, 51.51F) << r.name;
            EXPECT_FLOAT_EQ(exif.Longitude, 7.255F) << r.name;
            // The highest byte of the field: the letter in big-endian files only, on purpose.
            EXPECT_EQ(exif.LatitudeReference, r.order == 'M' ? 'N' : '\0');
        } else { // the bytes of the segment
            const BYTES file = Bytes_LoadFile(path.c_str());
            for (size_t i = 0; i < 48 * 3; i++)
                ASSERT_EQ(picture.ThumbPixels[i / 3 * 4 + i % 3], file[20 + i]);
        }
        Picture_UnLoad(picture);
    }
    JPG_Exif.ByteOrder = 'x';
    JPG_Position = 7;
    EXPECT_EQ(JPG_GetExifWord() + JPG_GetExifDWord(), 0u);
    EXPECT_EQ(JPG_Position, 13u);
}

TEST(JPEG, DirectoriesThatBiteTheirTailsEnd)
{
    // 250 entries that lead back to their own directory, which says that it follows itself.
    BYTES exif = Text("Exif\0\0MM\0\x2A\0\0\0\x08\0\xFA");
    for (int i = 0; i < 250; i++)
        Append(exif, Text("\x87\x69\0\4\0\0\0\1\0\0\0\x08"));
    Append(exif, {0, 0, 0, 8});
    BYTES file = {0xFF, 0xD8};
    Append(file, Segment(0xE1, exif));
    const DECODED decoded(file);
    EXPECT_EQ(decoded.Pixels, nullptr);
    EXPECT_EQ(JPG_Exif.IFDs[15].Count, 250);
}

TEST(JPEG, EveryPrefixAndEveryFlipIsHarmless)
{
    testing::internal::CaptureStdout();
    for (const char *name : {"progressive-422.jpg", "scans-440.jpg", "exif-ii.jpg"}) {
        const BYTES file = Bytes_LoadFile((std::string(TEST_DATA "jpg/") + name).c_str());
        for (size_t i = 0; i < file.size(); i += 2) {
            BYTES flipped = file;
            flipped[i] ^= static_cast<uint8_t>(1 + i % 255);
            for (const BYTES &bytes :
                 {flipped, BYTES(file.begin(), file.begin() + static_cast<ptrdiff_t>(i))}) {
                const DECODED decoded(bytes);
                if (decoded.Pixels) {
                    EXPECT_EQ(decoded.At(0, 0)[3], 255) << name << " " << i;
                }
                std::free(JPG_GetThumbnail());
            }
        }
    }
    testing::internal::GetCapturedStdout();
}
