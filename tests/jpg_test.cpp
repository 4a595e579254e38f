#include "picture/jpg.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <sstream>
#include <utility>

#include "extra/reason.h"
#include "picture/jpg_block.h"
#include "picture/jpg_colour.h"
#include "tests/pixels.h"

static BYTES Read(const std::string &name)
{
    return ReadFile(TEST_DATA "jpg/" + name);
}

static std::string Traced;  // by the last decoding

// The picture's own pixels without alpha; empty without a picture.
static BYTES Decode(const BYTES &file)
{
    testing::internal::CaptureStdout();
    Reason_Clear();
    JPG_Load(WriteTemp("test.jpg", file).c_str());
    uint8_t *pixels = JPG_Decoding();
    std::fflush(stdout);
    Traced = testing::internal::GetCapturedStdout();
    BYTES rgb;
    for (size_t y = 0; pixels && y < JPG_Header.Height; y++)
        for (size_t x = 0; x < JPG_Header.Width; x++) {
            const uint8_t *pixel = pixels + 4 * (y * JPG_Decoder.PaddedWidth + x);
            EXPECT_EQ(pixel[3], 255);
            rgb.insert(rgb.end(), pixel, pixel + 3);
        }
    std::free(pixels);
    JPG_UnLoad();
    return rgb;
}

static int Greatest(const BYTES &a, const BYTES &b, size_t first = 0)
{
    int greatest = a.size() == b.size() ? 0 : 256;
    for (size_t i = first; i < std::min(a.size(), b.size()); i++)
        greatest = std::max(greatest, std::abs(a[i] - b[i]));
    return greatest;
}

TEST(JPG, FilesAsAnotherDecoderSeesThem)
{
    const struct {
        const char *name;
        int greatest;  // difference; large where the other one repeats chroma and the framework's
                       // rules interpolate it
    } rows[] = {{"grey", 1},         {"progressive_444", 2}, {"progressive_420", 2},
                {"420_restarts", 2}, {"422_scans", 2},       {"440", 2},
                {"411", 40},         {"2x2_odd", 40},        {"3x2", 40}};
    for (const auto &r : rows)
        for (const bool format : {false, true}) {
            const RULES rules(format ? PICTURE_RULES_FORMAT : PICTURE_RULES_FRAMEWORK);
            EXPECT_LE(Greatest(Decode(Read(std::string(r.name) + ".jpg")),
                               SamplesOfPNM(TEST_DATA "jpg/" + std::string(r.name) + ".ppm")),
                      format ? 2 : r.greatest)
                << r.name;
        }
}

TEST(JPG, LargeFilesAreDecodedAlike)
{
    std::srand(1);
    const BYTES tail(1 << 14);  // after the picture; from this size on coefficients come in pairs
    for (const char *name : {"grey", "420_restarts", "2x2_odd"})
        for (int n = 0; n < 100; n++) {
            const RULES rules(n % 2 ? PICTURE_RULES_FORMAT : PICTURE_RULES_FRAMEWORK);
            BYTES file = Read(std::string(name) + ".jpg");
            const size_t bits = file.size() * 2 / 3, count = file.size() - 2 - bits;
            for (int k = 0; k < n / 10; k++)
                file[bits + static_cast<size_t>(std::rand()) % count] =
                    static_cast<uint8_t>(std::rand());
            EXPECT_EQ(Decode(file + tail), Decode(file)) << name << ' ' << n;
        }
}

TEST(JPG, ColoursAreRoundedAsTheyShould)
{
    JPG_PLANE planes[3];
    for (JPG_PLANE &plane : planes)
        plane = JPG_MakePlane(0x11, 0x11, 256, 8, JPG_STRETCH_LINEAR);
    JPG_PLANE *const all[] = {&planes[0], &planes[1], &planes[2]};
    double most[3] = {};
    for (int y : {0, 100, 255})
        for (int cb = 0; cb < 256; cb++) {
            std::fill_n(planes[0].Row(0), 256, static_cast<uint8_t>(y));
            std::fill_n(planes[1].Row(0), 256, static_cast<uint8_t>(cb));
            for (size_t cr = 0; cr < 256; cr++)
                planes[2].Row(0)[cr] = static_cast<uint8_t>(cr);
            std::array<uint8_t, 256 * 4> pixels;
            JPG_MakeRows(all, JPG_COLOURS_YCBCR, 0, 1, pixels.data());
            for (int cr = 0; cr < 256; cr++) {
                const double b = cb - 128, r = cr - 128;
                const double rgb[] = {y + 1.402 * r, y - 0.34414 * b - 0.71414 * r, y + 1.772 * b};
                for (size_t c = 0; c < 3; c++)
                    most[c] = std::max(most[c], std::abs(pixels[static_cast<size_t>(4 * cr) + c] -
                                                         std::clamp(rgb[c], 0.0, 255.0)));
            }
        }
    EXPECT_LE(most[0], 0.5);
    EXPECT_LE(most[1], 0.51);
    EXPECT_LE(most[2], 0.5);
}

TEST(JPG, InverseDCTIsTheTextbooks)
{
    std::srand(1);
    for (int n = 0; n < 200; n++) {
        const size_t ends[] = {64, 1, 2, 10, 11}, end = n < 64 ? 64 : ends[n % 5];
        std::array<int16_t, 64> coefficients{};
        std::array<float, 64> scale;
        for (size_t i = 0; i < 64; i++) {  // column by column
            const bool within = JPG_ZigZag2[i % 8 * 8 + i / 8] < end;
            if (n < 64 ? i == static_cast<size_t>(n) : within && std::rand() % 3 == 0)
                coefficients[JPG_PlaceOf(i % 8, i / 8)] =
                    static_cast<int16_t>(std::rand() % 200 - 100);
            scale[i] = JPG_ScaleFactor[i / 8] * JPG_ScaleFactor[i % 8] / JPG_ScaleUnit;
        }
        std::array<uint8_t, 64> samples;
        JPG_InverseDCT(coefficients.data(), scale.data(), end, samples.data(), 8);
        for (size_t y = 0; y < 8; y++)
            for (size_t x = 0; x < 8; x++) {
                double sum = 0;  // ITU-T T.81, A.3.3
                for (size_t u = 0; u < 8; u++)
                    for (size_t v = 0; v < 8; v++) {
                        const auto cosine = [](size_t at, size_t frequency) {
                            return std::cos(static_cast<double>((2 * at + 1) * frequency) *
                                            std::numbers::pi / 16) *
                                   (frequency == 0 ? std::numbers::sqrt2 / 2 : 1);
                        };
                        sum += coefficients[JPG_PlaceOf(v, u)] * cosine(x, u) * cosine(y, v) / 4;
                    }
                EXPECT_NEAR(samples[8 * y + x], std::clamp(sum + 128, 0.0, 255.0), 0.51);
            }
    }
}

// Offset of a marker in the file.
static size_t Find(const BYTES &file, uint8_t marker, size_t from = 0)
{
    for (size_t i = from; i + 1 < file.size(); i++)
        if (file[i] == 0xFF && file[i + 1] == marker)
            return i;
    ADD_FAILURE() << "no such marker";
    return 0;
}

static BYTES With(BYTES file, size_t at, const BYTES &bytes)
{
    file.insert(file.begin() + static_cast<ptrdiff_t>(at), bytes.begin(), bytes.end());
    return file;
}

static BYTES Changed(BYTES file, size_t at, uint8_t value)
{
    file[at] = value;
    return file;
}

static BYTES Segment(uint8_t marker, const BYTES &data)
{
    return BYTES{0xFF, marker} + Number(std::ssize(data) + 2, 2) + data;
}

// A file without its segments of one marker.
static BYTES Without(BYTES file, uint8_t marker)
{
    for (size_t i = 2; i + 3 < file.size() && file[i + 1] != 0xDA;) {
        const auto at = file.begin() + static_cast<ptrdiff_t>(i);
        const ptrdiff_t size = 2 + at[2] * 256 + at[3];
        if (at[1] == marker)
            file.erase(at, at + size);
        else
            i += static_cast<size_t>(size);
    }
    return file;
}

TEST(JPG, TracesWhatItPassesOverAndRefusesTheRest)
{
    const BYTES good = Read("420_restarts.jpg"), whole = Decode(good);
    const size_t frame = Find(good, 0xC0), scan = Find(good, 0xDA);
    const auto changed = [&](size_t offset, uint8_t value) {
        return Changed(good, frame + offset, value);
    };
    const BYTES huge = Changed(changed(5, 32), frame + 7, 32);
    const BYTES wide = Changed(Changed(good, frame + 7, 255), frame + 8, 255) + BYTES(5000);
    const struct {
        const char *what;
        BYTES file;
        const char *traced, *reason;
        bool decoded = false;
    } rows[] = {
        {"as it is", good, "", "", true},
        {"extended sequential", changed(1, 0xC1), "\n-->(SOF1)\n", "extended sequential coding"},
        {"lossless", changed(1, 0xC3), "\n\n-->(SOF3)\n\n", "lossless coding"},
        {"hierarchical", changed(1, 0xC5), "\n\n-->(SOF5)\n\n", "hierarchical coding"},
        {"arithmetic", changed(1, 0xC9), "\n\n-->(SOF9)\n\n", "arithmetic coding"},
        {"Adobe's segment", With(good, 2, Segment(0xEE, {1, 2, 3})), "\n\n-->(APP14)\n\n", "",
         true},
        {"another's APP0", With(good, 2, Segment(0xE0, Text("AVI1") + BYTES(14, 9))), "", "", true},
        {"fill bytes", With(good, frame, {0xFF, 0xFF, 0xFF}), "", "", true},
        {"a segment FF", With(good, 2, Segment(0xFF, {1, 2})), "\n\n-->(STUFF)\n\n", "", true},
        {"tables of no number",
         With(good, scan, Segment(0xC4, {4}) + Segment(0xC4, {0x14}) + Segment(0xDB, {4})), "", "",
         true},
        {"more symbols than there are bytes",
         With(good, scan, Segment(0xC4, BYTES{2} + BYTES(16, 20) + BYTES(320))), "", "", true},
        {"bytes between segments", With(good, scan, {0, 1, 0xFF, 1, 0xFF, 0}), "", "", true},
        {"five components in a scan", With(good, scan, Segment(0xDA, BYTES{5} + BYTES(13))), "",
         "scan 1 has a header that makes no sense", true},
        {"12 bits", changed(4, 12), "", "12 bits a sample"},
        {"two components", changed(9, 2), "", "2 components"},
        {"no width", changed(8, 0), "", "no frame header"},
        {"no scan", Prefix(good, Find(good, 0xDA)), "", "no scan"},
        {"a second that is larger", changed(14, 0x32), "", "sampling factors that make no sense"},
        {"a factor of 0", changed(14, 0x10), "", "sampling factors that make no sense"},
        {"larger than it can be", huge, "", "1061 bytes cannot hold 8240 x 8224 pixels"},
        {"padded beyond 16 bits", wide, "", "a padded side of more than 65535 pixels"},
        {"nothing", {}, "", "no frame header"},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(Decode(r.file), r.decoded ? whole : BYTES{}) << r.what;
        EXPECT_EQ(Traced, r.traced) << r.what;
        EXPECT_STREQ(Reason_Get(), r.reason) << r.what;
    }
}

TEST(JPG, HeaderFacts)
{
    BYTES file = Read("progressive_420.jpg");
    std::ranges::copy(BYTES{2, 1, 4, 3, 5}, file.begin() + 13);
    file = With(file, Find(file, 0xDB), Segment(0xFE, BYTES(300, 'c')));
    file = With(file, Find(file, 0xDB), Segment(0xED, Text("Photoshop\0rest")));
    file = With(file, Find(file, 0xDB), Segment(0xDD, {1, 2}));
    JPG_Load(WriteTemp("facts.jpg", file).c_str());
    JPG_HEADER h;
    EXPECT_EQ(JPG_GetHeader(&h)->Width * 100 + h.Height, 3327);
    EXPECT_EQ(JPG_Decoder.PaddedWidth * 100 + JPG_Decoder.PaddedHeight, 4832u);
    EXPECT_EQ(h.OutputSize, 48u * 32 * 4);
    EXPECT_EQ(h.Comment.data(), std::string(127, 'c'));
    EXPECT_STREQ(h.Identifier.data(), "Photoshop");  // the last one
    EXPECT_EQ(std::tuple(h.MajorVersion, h.MinorVersion, h.Units, h.XDensity, h.YDensity),
              std::tuple(1, 1, 2, 0x104, 0x305));
    EXPECT_EQ(std::tuple(h.ScanComponentCount, h.Ss, h.Se, h.AhAl), std::tuple(3, 0, 0, 1));
    EXPECT_EQ(h.RestartInterval, 258);
    EXPECT_STREQ(JPG_Modes[h.ScanMode], "Progressive DCT [1stDC]");
    EXPECT_TRUE(h.Quantisation[0].Defined && h.Quantisation[1].Defined);
    const auto six = [](const auto &codes) {
        return std::vector(codes.begin(), codes.begin() + 6);
    };
    EXPECT_EQ(six(h.DC[0].First), (std::vector<uint16_t>{65535, 0, 6, 14, 30, 65535}));
    EXPECT_EQ(six(h.DC[0].Last), (std::vector<uint16_t>{0, 2, 6, 14, 30, 0}));
    JPG_UnLoad();
    constexpr uint8_t scans[][4] = {{0, 63, 0, 1}, {0, 63, 1, 0},   {0, 0, 0x10, 3},
                                    {1, 5, 2, 4},  {1, 5, 0x21, 5}, {1, 0, 0, 0},
                                    {0, 5, 0, 0},  {1, 63, 0, 4},   {0, 0, 0, 2}};
    for (const auto &[first, last, bits, mode] : scans) {
        JPG_Load(OwnFile(With(file, Find(file, 0xDA) + 11, {first, last, bits})).c_str());
        EXPECT_EQ(JPG_Header.ScanMode, mode) << int{first} << ' ' << int{last} << ' ' << int{bits};
        JPG_UnLoad();
    }
    for (const auto &[text, name] : {std::pair(Text("ab"), "a"), {BYTES{}, ""}}) {
        JPG_Load(OwnFile(With(file, Find(file, 0xDB), Segment(0xED, text))).c_str());
        EXPECT_STREQ(JPG_Header.Identifier.data(), name) << "without a NUL";
        JPG_UnLoad();
    }
}

TEST(JPG, DamageStaysWhereItIs)
{
    const BYTES file = Read("420_restarts.jpg"), whole = Decode(file);
    const size_t rowOfMcus = 33 * 16 * 3, interval = 16 * 3;  // bytes of the picture
    const size_t second = Find(file, 0xD0), third = Find(file, 0xD1, second);
    ASSERT_GT(third, second + 4);

    EXPECT_EQ(Decode(file + Read("progressive_444.jpg")), whole) << "nothing follows the end";
    const BYTES scans = Read("progressive_420.jpg");
    Decode(scans);
    EXPECT_STREQ(Reason_Get(), "");
    for (size_t size = scans.size() - 2; size > scans.size() / 2; size -= 11) {
        Decode(Prefix(scans, size));
        EXPECT_TRUE(std::string_view(Reason_Get()).starts_with("cut ")) << Reason_Get();
    }

    BYTES two = Read("422_scans.jpg");
    Decode(Prefix(two, two.size() - 40));
    EXPECT_TRUE(std::string_view(Reason_Get()).starts_with("cut in scan 3 ")) << Reason_Get();
    const size_t one = Find(two, 0xDA);
    two.erase(two.begin() + static_cast<ptrdiff_t>(one),
              two.begin() + static_cast<ptrdiff_t>(
                                std::min(Find(two, 0xC4, one + 2), Find(two, 0xDA, one + 2))));
    Decode(two);
    EXPECT_STREQ(Reason_Get(), "no scan of component 1");

    // Truncated: what precedes is there, what follows is grey.
    for (const bool format : {false, true}) {
        const RULES rules(format ? PICTURE_RULES_FORMAT : PICTURE_RULES_FRAMEWORK);
        const BYTES cut = Decode(Prefix(file, second));
        EXPECT_STREQ(Reason_Get(), "cut after 0 of 27 rows");
        ASSERT_EQ(cut.size(), whole.size());
        EXPECT_EQ(cut[0], Decode(file)[0]);
        EXPECT_EQ(cut[cut.size() - 1], 128);
    }

    BYTES spoilt = file;
    std::fill(&spoilt[second + 2], &spoilt[third], uint8_t{0xFE});
    Decode(spoilt);
    EXPECT_STREQ(Reason_Get(), "damaged after 0 of 27 rows");
    const BYTES after(file.begin() + static_cast<ptrdiff_t>(third), file.end());
    const std::pair<const char *, BYTES> rows[] = {
        {"an interval's bits, all ones", spoilt},
        {"an interval missing with its marker", Prefix(file, second) + after},
        {"a code that is no marker", With(file, second + 4, {0xFF, 0x41})},
        {"a marker seen before", With(file, second + 4, {0xFF, 0xD7})},
    };
    for (const auto &[what, damaged] : rows)
        EXPECT_EQ(Greatest(Decode(damaged), whole, rowOfMcus + interval * 3), 0) << what;
}

// Exif data: an IFD of these entries after the TIFF header, and a second one, in either byte order.
static BYTES Exif(bool big, const std::vector<std::array<uint32_t, 4>> &entries, uint32_t next,
                  const BYTES &rest)
{
    const auto number = [big](uint32_t value, int count) {
        return Number(value, big ? count : -count);
    };
    BYTES data = Text("Exif\0\0") + BYTES(2, big ? 'M' : 'I') + number(42, 2) + number(8, 4) +
                 number(static_cast<uint32_t>(entries.size()), 2);
    for (const auto &[tag, type, count, value] : entries)
        data = data + number(tag, 2) + number(type, 2) + number(count, 4) + number(value, 4);
    return data + number(next, 4) + rest;
}

TEST(JPG, ExifFactsAndThumbnails)
{
    const BYTES picture = Read("progressive_420.jpg"), grey = Read("grey.jpg");
    const BYTES small = With(grey, 2, Segment(0xE1, Exif(false, {}, 0, {})));  // a thumbnail file
    for (const bool big : {false, true}) {
        // Six entries end at 8 + 2 + 6 * 12 + 4 = 86, where the maker is stored, followed by the
        // thumbnail.
        const BYTES data = Exif(big,
                                {{271, 2, 5, 86},
                                 {1, 2, 2, 0x4E000000},
                                 {259, 4, 1, 6},
                                 {513, 4, 1, 91},
                                 {514, 4, 1, static_cast<uint32_t>(small.size())},
                                 {34665, 4, 1, 8}},  // back to itself
                                8, Text("Maker") + small);
        const BYTES other = Segment(0xE1, Text("http://other/\0<data>"));
        const BYTES file = With(Without(picture, 0xE0), 2, Segment(0xE1, data) + other);
        const Picture loaded = Picture_Load(WriteTemp("exif.jpg", file).c_str(), 0, 0);
        EXPECT_EQ(JPG_Exif.LatitudeReference, 'N');
        EXPECT_EQ(loaded.Format * 100 + loaded.Bits, PICTURE_JPEG * 100 + 24);
        EXPECT_EQ(loaded.ThumbWidth * 100 + loaded.ThumbHeight, 3327);
        EXPECT_EQ(loaded.ThumbBufferWidth * 100 + loaded.ThumbBufferHeight, 4032);
        ASSERT_NE(loaded.ThumbPixels, nullptr);
        EXPECT_EQ(loaded.ThumbPixels[0], Decode(small)[0]);
        EXPECT_STREQ(JPG_Exif.Make.data(), "");
        Picture_UnLoad(loaded);
        Decode(file);
        JPG_EXIF exif;
        EXPECT_STREQ(JPG_GetExif(&exif)->Make.data(), "Maker");
        EXPECT_EQ(exif.LongitudeReference, '0');
        EXPECT_EQ(exif.ByteOrder, big ? 'M' : 'I');
        EXPECT_EQ(exif.IFDs[15].Count, 6) << "the chain goes round";
    }
}

TEST(JPG, ExifTags)
{
    for (const bool format : {false, true})
        for (const bool big : {false, true}) {
            const RULES rules(format ? PICTURE_RULES_FORMAT : PICTURE_RULES_FRAMEWORK);
            const auto field = [big](uint32_t v) { return big ? v : __builtin_bswap32(v); };
            BYTES rest;  // the entries end at 8 + 2 + 8 * 12 + 4 = 110
            for (const int64_t number : {10, 1, 30, 2, 36, 5, 20, 1, 30, 0, 0, 1})
                rest = rest + Number(number, big ? 4 : -4);
            const BYTES data = Exif(big,
                                    {{1, 2, 2, field('N' << 24 | 'S')},
                                     {2, 5, 3, 110},
                                     {3, 2, 2, field('W' << 24 | 'E')},
                                     {4, 5, 3, 134},
                                     {259, 3, 1, big ? 5u << 16 : 5u},
                                     {270, 2, 4, field(0x74657874)},
                                     {271, 2, 4, field(0x6D616B65)},
                                     {272, 2, 5, 158}},
                                    0, rest + Text("Model"));
            Decode(With(Read("grey.jpg"), 2, Segment(0xE1, data)));
            const JPG_EXIF &exif = JPG_Exif;
            const bool fourth = !format && !big;
            EXPECT_EQ(exif.LatitudeReference, fourth ? 'S' : 'N');
            EXPECT_EQ(exif.LongitudeReference, fourth ? 'E' : 'W');
            EXPECT_NEAR(exif.Latitude, 10 + 15 / 60.0 + 7.2 / 3600, 1e-5);
            EXPECT_EQ(exif.Longitude, 20) << "a denominator of 0";
            EXPECT_EQ(exif.ThumbCompression, 5);
            EXPECT_STREQ(exif.Description.data(), format ? "text" : "");
            EXPECT_STREQ(exif.Make.data(), "make");
            EXPECT_STREQ(exif.Model.data(), "Model");
        }
}

TEST(JPG, ThumbnailsThatNoTagPlaces)
{
    // The search covers as many bytes of the file as the segment has, which begins after 6 bytes.
    const BYTES small = Read("grey.jpg");
    for (const size_t behind : {6u, 5u}) {
        const BYTES data = Exif(true, {}, 0, small + BYTES(behind));
        const LOADED loaded(With(Read("progressive_420.jpg"), 2, Segment(0xE1, data)));
        EXPECT_EQ(loaded.Record.ThumbWidth, behind == 6 ? 33 : 0) << behind;
    }
}

// Huffman coded bits, filled up with ones, with byte stuffing.
static BYTES Stuffed(std::string bits)
{
    std::erase(bits, ' ');
    bits.append((8 - bits.size() % 8) % 8, '1');
    BYTES bytes;
    for (const uint8_t byte : Bits(bits)) {
        bytes.push_back(byte);
        bytes.resize(bytes.size() + (byte == 0xFF));
    }
    return bytes;
}

// A picture of flat blocks in a hand-made code: 4 bits for the size of a difference (12 to 15 are
// no codes), its bits, and a 0 for the end of the block.
struct FLAT {
    int Width, Height;
    BYTES Factors;  // of each component, horizontal * 16 + vertical
    int Interval = 0;
    bool Interleaved = true;

    int Part(size_t c, bool down) const
    {
        return down ? Factors[c] & 15 : Factors[c] >> 4;
    }
    int Full(bool down) const
    {
        int full = 0;
        for (size_t c = 0; c < Factors.size(); c++)
            full = std::max(full, Part(c, down));
        return full;
    }
    int Samples(size_t c, bool down) const
    {
        return ((down ? Height : Width) * Part(c, down) + Full(down) - 1) / Full(down);
    }
    static int Level(size_t c, int bx, int by)
    {
        return (static_cast<int>(c) * 37 + bx * 91 + by * 53) % 120 - 60;
    }

    BYTES Scan(const std::vector<size_t> &components) const
    {
        BYTES out;
        std::string bits;
        const size_t c0 = components[0];
        const bool alone = components.size() == 1;
        const auto blocks = [&](bool down) {
            const int unit = 8 * (alone ? 1 : Full(down));
            return ((alone ? Samples(c0, down) : down ? Height : Width) + unit - 1) / unit;
        };
        const int across = blocks(false), down = blocks(true);
        int last[4] = {};
        for (int mcu = 0; mcu < across * down; mcu++) {
            if (Interval != 0 && mcu != 0 && mcu % Interval == 0) {
                out = out + Stuffed(std::exchange(bits, "")) +
                      Number(0xFFD0 + (mcu / Interval - 1) % 8, 2);
                std::fill_n(last, 4, 0);
            }
            for (const size_t c : components) {
                const int h = alone ? 1 : Part(c, false), v = alone ? 1 : Part(c, true);
                for (int i = 0; i < h * v; i++) {
                    const int dc = Level(c, mcu % across * h + i % h, mcu / across * v + i / h);
                    const int difference = dc - std::exchange(last[c], dc);
                    size_t size = 0;
                    while (std::abs(difference) >> size)
                        size++;
                    bits += Digits(size, 4);
                    bits += Digits(static_cast<size_t>(difference - (difference < 0)), size) + '0';
                }
            }
        }
        BYTES header = {static_cast<uint8_t>(components.size())};
        for (const size_t c : components)
            header = header + BYTES{static_cast<uint8_t>(c + 1), 0};
        return Segment(0xDA, header + BYTES{0, 63, 0}) + out + Stuffed(bits);
    }

    BYTES File() const
    {
        BYTES quantisation(65, 8), dc(29), ac(18);
        quantisation[0] = 0;
        dc[4] = 12;
        for (size_t i = 0; i < 12; i++)
            dc[17 + i] = static_cast<uint8_t>(i);
        ac[0] = 0x10;
        ac[1] = 1;
        BYTES header =
            BYTES{8} + Number(Height, 2) + Number(Width, 2) + Number(std::ssize(Factors), 1);
        std::vector<size_t> all;
        for (size_t c = 0; c < Factors.size(); c++) {
            header = header + BYTES{static_cast<uint8_t>(c + 1), Factors[c], 0};
            all.push_back(c);
        }
        BYTES file = BYTES{0xFF, 0xD8} + Segment(0xDB, quantisation) + Segment(0xC0, header) +
                     Segment(0xC4, dc + ac);
        if (Interval)
            file = file + Segment(0xDD, Number(Interval, 2));
        if (Interleaved)
            file = file + Scan(all);
        else
            for (const size_t c : all)
                file = file + Scan({c});
        return file + BYTES{0xFF, 0xD9};
    }
};

// A component's value at a pixel, linearly interpolated between the centres of its samples.
static double Textbook(const FLAT &flat, size_t c, int x, int y)
{
    const auto place = [&](int at, bool down) {
        return (at + 0.5) * flat.Part(c, down) / flat.Full(down) - 0.5;
    };
    const auto block = [&](double at, bool down) {
        return std::clamp(static_cast<int>(at), 0, flat.Samples(c, down) - 1) / 8;
    };
    const auto at = [&](double column, double row) {
        return FLAT::Level(c, block(column, false), block(row, true));
    };
    const double sx = place(x, false), sy = place(y, true);
    const double x0 = std::floor(sx), y0 = std::floor(sy), dx = sx - x0, dy = sy - y0;
    return (at(x0, y0) * (1 - dx) + at(x0 + 1, y0) * dx) * (1 - dy) +
           (at(x0, y0 + 1) * (1 - dx) + at(x0 + 1, y0 + 1) * dx) * dy;
}

enum COLOURS { GREY, YCBCR, RGB, CMYK, YCCK };

// The greatest difference from the textbook's colours.
static double Deviation(const FLAT &flat, const BYTES &pixels, COLOURS colours)
{
    double most = pixels.size() == static_cast<size_t>(flat.Width * flat.Height * 3) ? 0 : 256;
    for (size_t i = 0; most < 256 && i < pixels.size(); i++) {
        const int x = static_cast<int>(i) / 3 % flat.Width,
                  y = static_cast<int>(i) / 3 / flat.Width;
        double s[4] = {};
        for (size_t c = 0; c < flat.Factors.size(); c++)
            s[c] = Textbook(flat, c, x, y) + 128;
        const double b = s[1] - 128, r = s[2] - 128;
        const double rgb[] = {s[0] + 1.402 * r, s[0] - 0.344136 * b - 0.714136 * r,
                              s[0] + 1.772 * b};
        const bool plain = colours == RGB || colours == CMYK;
        double light = std::clamp(colours == GREY ? s[0]
                                  : plain         ? s[i % 3]
                                                  : rgb[i % 3],
                                  0.0, 255.0);
        if (colours >= CMYK)
            light = (colours == YCCK ? 255 - light : light) * s[3] / 255;
        most = std::max(most, std::abs(pixels[i] - light));
    }
    return most;
}

TEST(JPG, ChromaOfAnyFactorsIsInterpolated)
{
    for (const char *factors :
         {"11", "22", "111111", "211111", "121111", "221111", "222222", "411111", "141112",
          "441122", "312111", "131211", "332232", "433212", "422131", "241324"})
        for (const bool interleaved : {true, false}) {
            const FLAT flat = {75, 61, Hex(factors), interleaved ? 2 : 0, interleaved};
            EXPECT_LT(Deviation(flat, Decode(flat.File()), factors[2] ? YCBCR : GREY), 2)
                << factors;
            EXPECT_EQ(JPG_Decoder.PaddedWidth % (8u * JPG_Decoder.H), 0u) << factors;
        }
}

TEST(JPG, QuantisationOfSixteenBits)
{
    const auto widened = [](BYTES file, int factor) {
        const auto table = file.begin() + static_cast<ptrdiff_t>(Find(file, 0xDB)) + 4;
        BYTES wide = {0x10};
        for (ptrdiff_t i = 1; i <= 64; i++)
            wide = wide + Number(table[i] * factor, 2);
        table[-1] = static_cast<uint8_t>(2 + wide.size());
        file.insert(file.erase(table, table + 65), wide.begin(), wide.end());
        return file;
    };
    const BYTES grey = Read("grey.jpg");
    EXPECT_EQ(Decode(widened(grey, 1)), Decode(grey));

    // The greatest numbers and coefficients, whose waves all peak in the first corner.
    BYTES steep = widened(FLAT{8, 8, {0x11}}.File(), 8191);
    steep[Find(steep, 0xC4) + 4 + 29 + 17] = 15;  // the end of the block becomes 15 bits
    const std::string bits = Digits(0x5FFF, 15) + Repeat(Digits(0x7FFF, 16), 63);
    const BYTES pixels = Decode(Prefix(steep, steep.size() - 4) + Stuffed(bits));
    ASSERT_EQ(pixels.size(), 8u * 8 * 3);
    EXPECT_EQ(pixels[0], 255);
}

// The framework's rules lose an interval at codes that make no sense; the format's go on.
TEST(JPG, CodesThatMakeNoSense)
{
    // A block's DC is the code 0000. AC codes: 00 puts a 1 after 15 zeros, 01 after 14 if a 1
    // follows them, 10 ends the block, 110 two blocks or, if a 1 follows it, three; 111 is no code.
    const BYTES whole = FLAT{8, 8, {0x11}}.File(), end = {0xFF, 0xD9};
    const BYTES table =
        Segment(0xC4, BYTES{0x10, 0, 3, 1} + BYTES(13) + BYTES{0xF1, 0xE1, 0, 0x10});
    const auto scan = [](uint8_t first, uint8_t last, const std::string &codes) {
        return Segment(0xDA, {1, 1, 0, first, last, 0}) + Stuffed(codes);
    };
    const BYTES head = Prefix(whole, Find(whole, 0xDA)) + table;
    const BYTES progressive = Changed(head, Find(head, 0xC0) + 1, 0xC2) + scan(0, 0, "0000");
    const std::string ones = Repeat("001", 3), all = Repeat("1", 17);
    const struct {
        const char *what;
        BYTES file, same;  // as the format's rules read it
        const char *reason;
    } rows[] = {
        {"a run past the block", head + scan(0, 63, "0000" + ones + "001"),
         head + scan(0, 63, "0000" + ones + "011"), "damaged after 0 of 8 rows"},
        {"no code", head + scan(0, 63, "0000001" + all), head + scan(0, 63, "000000110"),
         "damaged after 0 of 8 rows"},
        {"a run past the band", progressive + scan(1, 40, ones),
         progressive + scan(1, 63, ones + "10"), "damaged in scan 2 after 0 of 8 rows"},
        {"no code in a band", progressive + scan(1, 63, ones + all),
         progressive + scan(1, 63, ones + "10"), "damaged in scan 2 after 0 of 8 rows"},
    };
    for (const auto &r : rows) {
        Decode(r.file + end);
        EXPECT_STREQ(Reason_Get(), r.reason) << r.what;
        const RULES rules(PICTURE_RULES_FORMAT);
        EXPECT_EQ(Decode(r.file + end), Decode(r.same + end)) << r.what;
        EXPECT_STREQ(Reason_Get(), "") << r.what;
    }
    // The end of three blocks, the last of them in the next row.
    BYTES wide = head;
    const size_t frame = Find(head, 0xC0);
    wide[frame + 1] = 0xC2, wide[frame + 6] = 16, wide[frame + 8] = 24;
    wide = wide + scan(0, 0, Repeat("0000", 6));
    EXPECT_EQ(Decode(wide + scan(1, 63, "00110 1101 00110 10") + end),
              Decode(wide + scan(1, 63, "00110 10 10 10 00110 10") + end));
    // Bands that make no sense are left out.
    const BYTES flat = Decode(progressive + end);
    EXPECT_NE(Decode(progressive + scan(1, 63, ones + "10") + end), flat);
    for (const auto &[first, last] : {std::pair(1, 64), {33, 32}, {1, 0}})
        EXPECT_EQ(
            Decode(progressive +
                   scan(static_cast<uint8_t>(first), static_cast<uint8_t>(last), ones + "10") +
                   end),
            flat);
}

TEST(JPG, ScansWithoutEnd)
{
    const FLAT flat = {8, 8, {0x11, 0x11, 0x11}, 0, false};
    const BYTES whole = flat.File(), pixels = Decode(whole);
    const BYTES other = Changed(flat.Scan({1}), 5, 1);  // for the first component
    for (const int scans : {4, 1001}) {
        BYTES file = Prefix(whole, whole.size() - 2);
        for (int i = 4; i < scans; i++)
            file = file + flat.Scan({0});
        EXPECT_EQ(Decode(file + other) == pixels, scans > 1000) << scans;
    }
}

TEST(JPG, FormatsOwnRulesReadMore)
{
    const BYTES good = Read("420_restarts.jpg"), whole = Decode(good);
    const size_t frame = Find(good, 0xC0), scan = Find(good, 0xDA);
    const BYTES noLines = Changed(good, frame + 6, 0);  // 27 of them
    const struct {
        const char *what;
        BYTES file;
    } rows[] = {
        {"as it is", good},
        {"extended sequential", Changed(good, frame + 1, 0xC1)},
        {"the number of lines after the scan",
         With(noLines, noLines.size() - 2, {0xFF, 0xDC, 0, 4, 0, 27})},
        {"the usual Huffman tables", Without(good, 0xC4)},
        {"a band of no meaning", Changed(good, scan + 11, 0)},
        {"segments in any order",
         With(good, 2, Segment(0xED, Text("Photoshop")) + Segment(0xE2, {}))},
        {"a thumbnail, not first",
         With(good, 2,
              Segment(0xFE, {1}) +
                  Segment(0xE0, Text("JFIF\0\1\2\0\0\1\0\1\1\2") + BYTES{7, 8, 9, 10, 11, 12}))},
    };
    for (const auto &r : rows) {
        const RULES rules(PICTURE_RULES_FORMAT);
        EXPECT_EQ(Decode(r.file), whole) << r.what;
        EXPECT_EQ(Traced, "") << r.what;
        EXPECT_STREQ(Reason_Get(), "") << r.what;
        EXPECT_TRUE(JPG_Detected(r.file)) << r.what;
        if (&r == std::end(rows) - 1) {
            const LOADED loaded(r.file);
            EXPECT_EQ(loaded.Record.ThumbWidth * 10 + loaded.Record.ThumbHeight, 12);
            ASSERT_NE(loaded.Record.ThumbPixels, nullptr);
            EXPECT_EQ(BYTES(loaded.Record.ThumbPixels, loaded.Record.ThumbPixels + 8),
                      (BYTES{7, 8, 9, 255, 10, 11, 12, 255}));
        }
    }
    EXPECT_FALSE(JPG_Detected(rows[5].file));
    const RULES rules(PICTURE_RULES_FORMAT);
    EXPECT_TRUE(Decode(noLines).empty());
    EXPECT_STREQ(Reason_Get(), "a side of 0 pixels");
    EXPECT_EQ(JPG_Header.Thumbnail, nullptr) << "freed where nobody takes it";
}

TEST(JPG, FormatsOwnColours)
{
    const BYTES jfif = Segment(0xE0, Text("JFIF\0\1\1\0\0\1\0\1\0\0"));
    const auto adobe = [](uint8_t transform) {
        return Segment(0xEE, Text("Adobe\0\144\0\0\0\0") + BYTES{transform});
    };
    const struct {
        const char *what, *factors;
        BYTES segments;
        COLOURS colours;
        const char *ids = "\1\2\3\4";
    } rows[] = {
        {"grey", "11", {}, GREY},
        {"two components", "1111", {}, GREY},
        {"nothing tells", "111111", {}, YCBCR},
        {"ids tell", "111111", {}, RGB, "RGB"},
        {"JFIF against ids", "111111", jfif, YCBCR, "RGB"},
        {"ids like those", "111111", {}, YCBCR, "RGX"},
        {"or those", "111111", {}, YCBCR, "RXB"},
        {"CMYK unsaid", "11111111", {}, CMYK},
        {"a segment of another", "111111", Segment(0xEE, Text("Other\0\144\0\0\0\0\0")), YCBCR},
        {"a segment too short", "111111", Segment(0xEE, Text("Adobe\0\144\0")), YCBCR},
        {"no transform", "221121", adobe(0), RGB},
        {"a transform", "111111", adobe(1), YCBCR, "RGB"},
        {"the first is smaller", "112122", adobe(0), RGB},
        {"fractions", "213132", adobe(0), RGB},
        {"CMYK", "11111111", adobe(0), CMYK},
        {"YCCK", "22111122", adobe(2), YCCK},
        {"the same id twice", "11111111", adobe(0), CMYK, "\1\2\3\1"},
    };
    const RULES rules(PICTURE_RULES_FORMAT);
    for (const auto &r : rows) {
        const FLAT flat = {45, 37, Hex(r.factors)};
        BYTES file = flat.File();
        const size_t frame = Find(file, 0xC0), scan = Find(file, 0xDA);
        for (size_t c = 0; c < flat.Factors.size(); c++)
            file[frame + 10 + 3 * c] = file[scan + 5 + 2 * c] = static_cast<uint8_t>(r.ids[c]);
        EXPECT_LT(Deviation(flat, Decode(With(file, 2, r.segments)), r.colours), 2) << r.what;
    }
}

TEST(JPG, StreamsOfOtherFiles)
{
    const BYTES good = Read("progressive_420.jpg"), whole = Decode(good);
    const BYTES file = Read("420_restarts.jpg"), stream = Without(Without(file, 0xDB), 0xC4);
    const BYTES tables =
        Without(Without(Prefix(file, Find(file, 0xDA)), 0xE0), 0xC0) + BYTES{0xFF, 0xD9};
    const BYTES expected = Decode(file);
    JPG_Load(WriteTemp("outer.jpg", good).c_str());  // while another file is being decoded
    const JPG_STREAM rgb = JPG_DecodeStream(tables, stream, true, 1000);
    const JPG_STREAM stored = JPG_DecodeStream(tables, stream, false, 1000);
    EXPECT_EQ(BYTES(rgb.Samples.begin(), rgb.Samples.end()), expected);
    EXPECT_EQ(rgb.Width * 100 + rgb.Height, 3327u);
    ASSERT_EQ(stored.Samples.size(), rgb.Samples.size());
    for (size_t i = 0; i < stored.Samples.size(); i += 3) {
        const double red = stored.Samples[i] + 1.402 * (stored.Samples[i + 2] - 128);
        ASSERT_NEAR(rgb.Samples[i], std::clamp(red, 0.0, 255.0), 0.5);
    }
    EXPECT_EQ(JPG_DecodeStream({}, Read("grey.jpg"), true, 1 << 20).Components, 1u);
    EXPECT_TRUE(JPG_DecodeStream(tables, {}, true, 1000).Samples.empty());
    EXPECT_EQ(JPG_Header.Width, 33);
    EXPECT_TRUE(JPG_Decoder.Progressive);
    uint8_t *pixels = JPG_Decoding();
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(BYTES(pixels, pixels + 3), Prefix(whole, 3));
    std::free(pixels);
    JPG_UnLoad();
}

// Small files that ask for hours of work. What is not bounded by a count would not end here.
TEST(JPG, CostIsBoundedByTheFile)
{
    const BYTES jfif = Segment(0xE0, Text("JFIF\0\1\1\0\0\1\0\1\0\0"));
    const auto head = [&jfif](int width, int height, uint8_t type) {
        const BYTES whole = FLAT{width, height, {0x11}}.File();
        const BYTES part = With(Prefix(whole, Find(whole, 0xDA)), 2, jfif);
        return Changed(part, Find(part, 0xC0) + 1, type);
    };
    const auto repeated = [](BYTES file, const BYTES &more, size_t size) {
        while (file.size() < size)
            file.insert(file.end(), more.begin(), more.end());
        return file;
    };
    // A scan without coefficients: 60 bits end all 120,000 blocks of the large picture.
    const BYTES table = Segment(0xC4, BYTES{0x10, 1} + BYTES(15) + BYTES{0xE0});
    const BYTES empty =
        Segment(0xDA, {1, 1, 0, 1, 63, 0}) + Stuffed(Repeat("0" + Repeat("1", 14), 4));
    // A tag that refers to its own IFD, repeatedly.
    const BYTES loop = Segment(
        0xE1, Exif(true, std::vector<std::array<uint32_t, 4>>(250, {34665, 4, 1, 8}), 8, {}));
    const struct {
        const char *what;
        BYTES file;
        const char *reason;
    } rows[] = {
        {"blocks", repeated(head(3200, 2400, 0xC2) + table, empty, 10000),
         "scan 39 and on: more work than its bytes are worth"},
        {"scans", repeated(head(8, 8, 0xC2) + table, empty, 30000), "more than 1000 scans"},
        {"restarts without bits",
         repeated(With(head(3200, 2400, 0xC0), 2 + jfif.size(), {0xFF, 0xDD, 0, 4, 0, 1}) +
                      FLAT{3200, 2400, {0x11}}.Scan({0}),
                  {0xFF, 0xD3}, 100000),
         "cut after 0 of 2400 rows"},
        {"directories without end",
         repeated(BYTES{0xFF, 0xD8} + loop, Segment(0xE1, Text("Exif\0\0MM\0*\0\0\0\10")), 100000),
         "no frame header"},
    };
    for (const auto &r : rows)
        for (const bool format : {false, true}) {
            const RULES rules(format ? PICTURE_RULES_FORMAT : PICTURE_RULES_FRAMEWORK);
            const LOADED loaded(r.file);
            EXPECT_STREQ(Picture_Reason(), r.reason)
                << r.what << (format ? ", the format's rules" : "");
        }
}
