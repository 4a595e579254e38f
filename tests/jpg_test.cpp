#include "picture/jpg.h"

#include <cstdlib>

#include "picture/jpg_scan.h"
#include "tests/pictures.h"

static BYTES Read(const std::string &name)
{
    return Bytes_LoadFile((TEST_DATA "jpg/" + name).c_str());
}

static std::string Traced; // by the last decoding

// The picture's own pixels without alpha; empty without a picture.
static BYTES Decode(const BYTES &file)
{
    testing::internal::CaptureStdout();
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
        int greatest; // difference; large where the other one repeats chroma instead of
                      // interpolating
    } rows[] = {{"grey", 1},         {"progressive_444", 2}, {"progressive_420", 2},
                {"420_restarts", 2}, {"422_scans", 2},       {"440", 2},
                {"411", 40},         {"2x2_odd", 40},        {"3x2", 40}};
    for (const auto &r : rows)
        EXPECT_LE(Greatest(Decode(Read(std::string(r.name) + ".jpg")),
                           SamplesOfPNM(TEST_DATA "jpg/" + std::string(r.name) + ".ppm")),
                  r.greatest)
            << r.name;
}

// Where a marker stands in the file.
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

static BYTES Segment(uint8_t marker, const BYTES &data)
{
    return BYTES{0xFF, marker} + Number(static_cast<int64_t>(data.size()) + 2, 2) + data;
}

TEST(JPG, TracesWhatItPassesOverAndRefusesTheRest)
{
    const BYTES good = Read("420_restarts.jpg");
    const size_t frame = Find(good, 0xC0);
    const auto changed = [&](size_t offset, uint8_t value) {
        BYTES file = good;
        file[frame + offset] = value;
        return file;
    };
    BYTES huge = changed(5, 255);
    huge[frame + 7] = 255;
    const struct {
        const char *what;
        BYTES file;
        const char *traced;
        bool decoded;
    } rows[] = {
        {"as it is", good, "", true},
        {"extended sequential", changed(1, 0xC1), "\n-->(SOF1)\n", false},
        {"lossless", changed(1, 0xC3), "\n\n-->(SOF3)\n\n", false},
        {"arithmetic", changed(1, 0xC9), "\n\n-->(SOF9)\n\n", false},
        {"Adobe's segment", With(good, 2, Segment(0xEE, {1, 2, 3})), "\n\n-->(APP14)\n\n", true},
        {"12 bits", changed(4, 12), "", false},
        {"two components", changed(9, 2), "", false},
        {"no width", changed(8, 0), "", false},
        {"a second that is larger", changed(14, 0x32), "", false},
        {"a factor of 0", changed(14, 0x10), "", false},
        {"larger than it can be", huge, "", false},
        {"nothing", {}, "", false},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(!Decode(r.file).empty(), r.decoded) << r.what;
        EXPECT_EQ(Traced, r.traced) << r.what;
    }
}

TEST(JPG, HeaderFacts)
{
    BYTES file = Read("progressive_420.jpg");
    file = With(file, Find(file, 0xDB), Segment(0xFE, BYTES(300, 'c')));
    file = With(file, Find(file, 0xDB), Segment(0xED, Text("Photoshop\0rest")));
    file = With(file, Find(file, 0xDB), Segment(0xDD, {1, 2}));
    JPG_Load(WriteTemp("facts.jpg", file).c_str());
    const JPG_HEADER &h = JPG_Header;
    EXPECT_EQ(h.Width * 100 + h.Height, 3327);
    EXPECT_EQ(JPG_Decoder.PaddedWidth * 100 + JPG_Decoder.PaddedHeight, 4832u);
    EXPECT_EQ(h.OutputSize, 48u * 32 * 4);
    EXPECT_EQ(h.Comment.data(), std::string(127, 'c'));
    EXPECT_STREQ(h.Identifier.data(), "Photoshop"); // the last one
    EXPECT_EQ(h.MajorVersion * 10 + h.MinorVersion, 11);
    EXPECT_EQ(h.RestartInterval, 258);
    EXPECT_EQ(h.ScanMode, 2);
    EXPECT_STREQ(JPG_Modes[h.ScanMode], "Progressive DCT [1stDC]");
    EXPECT_TRUE(h.Quantisation[0].Defined && h.Quantisation[1].Defined);
    EXPECT_EQ(h.DC[0].First[0], 65535); // no codes of one bit
    EXPECT_EQ(h.DC[0].Last[0], 0);
    JPG_UnLoad();
}

TEST(JPG, DamageStaysWhereItIs)
{
    const BYTES file = Read("420_restarts.jpg"), whole = Decode(file);
    const size_t rowOfMcus = 33 * 16 * 3, interval = 16 * 3; // bytes of the picture
    const size_t second = Find(file, 0xD0), third = Find(file, 0xD1, second);
    ASSERT_GT(third, second + 4);

    // Cut: what stands before is there, what follows is grey.
    const BYTES cut = Decode(Prefix(file, second));
    ASSERT_EQ(cut.size(), whole.size());
    EXPECT_EQ(cut[0], whole[0]);
    EXPECT_EQ(cut[cut.size() - 1], 128);

    // The second interval's bits, all ones: the others are as before.
    BYTES spoilt = file;
    for (size_t i = second + 2; i < third; i++)
        spoilt[i] = 0xFE;
    EXPECT_LE(Greatest(Decode(spoilt), whole, rowOfMcus + interval * 3), 0);

    // It is gone with its marker: what follows keeps its place.
    BYTES lost = file;
    lost.erase(lost.begin() + static_cast<ptrdiff_t>(second),
               lost.begin() + static_cast<ptrdiff_t>(third));
    EXPECT_LE(Greatest(Decode(lost), whole, rowOfMcus + interval * 3), 0);
}

// Exif data: an IFD of these entries behind the TIFF header, and a second one, in either byte
// order.
static BYTES Exif(bool big, const std::vector<std::array<uint32_t, 4>> &entries, uint32_t next,
                  const BYTES &rest)
{
    const int sign = big ? 1 : -1;
    BYTES data = Text("Exif\0\0") + (big ? Text("MM") : Text("II")) + Number(42, 2 * sign) +
                 Number(8, 4 * sign) + Number(std::ssize(entries), 2 * sign);
    for (const auto &[tag, type, count, value] : entries)
        data = data + Number(tag, 2 * sign) + Number(type, 2 * sign) + Number(count, 4 * sign) +
               Number(value, 4 * sign);
    return data + Number(next, 4 * sign) + rest;
}

TEST(JPG, ExifFactsAndThumbnails)
{
    const BYTES picture = Read("progressive_420.jpg"), small = Read("grey.jpg");
    for (const bool big : {false, true}) {
        // Six entries end at 8 + 2 + 6 * 12 + 4 = 86, where the maker stands, and then the
        // thumbnail.
        const BYTES data = Exif(big,
                                {{271, 2, 5, 86},
                                 {1, 2, 2, 0x4E000000},
                                 {259, 4, 1, 6},
                                 {513, 4, 1, 91},
                                 {514, 4, 1, static_cast<uint32_t>(small.size())},
                                 {34665, 4, 1, 8}}, // back to itself
                                8, Text("Maker") + small);
        BYTES file = With(picture, 2, Segment(0xE1, data));
        file.erase(file.begin() + static_cast<ptrdiff_t>(4 + data.size() + 2),
                   file.begin() + static_cast<ptrdiff_t>(4 + data.size() + 2 + 18)); // JFIF's
        const Picture loaded = Picture_Load(WriteTemp("exif.jpg", file).c_str(), 0, 0);
        EXPECT_EQ(loaded.Format, PICTURE_JPEG);
        EXPECT_EQ(loaded.Width * 100 + loaded.Height, 3327);
        EXPECT_EQ(loaded.ThumbWidth * 100 + loaded.ThumbHeight, 3327);
        EXPECT_EQ(loaded.ThumbBufferWidth * 100 + loaded.ThumbBufferHeight, 4032);
        ASSERT_NE(loaded.ThumbPixels, nullptr);
        EXPECT_EQ(loaded.ThumbPixels[0], Decode(small)[0]);
        EXPECT_STREQ(JPG_Exif.Make.data(), "");
        Picture_UnLoad(loaded);
        Decode(file);
        JPG_EXIF exif;
        EXPECT_STREQ(JPG_GetExif(&exif)->Make.data(), "Maker");
        EXPECT_EQ(exif.LatitudeReference, 'N');
        EXPECT_EQ(exif.LongitudeReference, '0');
        EXPECT_EQ(exif.ByteOrder, big ? 'M' : 'I');
    }
    // JFIF: raw RGB behind the segment's fields.
    const BYTES jfif = Text("JFIF\0\1\2\0\0\1\0\1") + BYTES{2, 1, 10, 20, 30, 40, 50, 60};
    const BYTES file = With(picture, 2, Segment(0xE0, jfif));
    const Picture loaded = Picture_Load(WriteTemp("jfif.jpg", file).c_str(), 0, 0);
    EXPECT_EQ(loaded.ThumbWidth * 10 + loaded.ThumbHeight, 21);
    ASSERT_NE(loaded.ThumbPixels, nullptr);
    EXPECT_EQ(BYTES(loaded.ThumbPixels, loaded.ThumbPixels + 8),
              (BYTES{10, 20, 30, 255, 40, 50, 60, 255}));
    Picture_UnLoad(loaded);
}
