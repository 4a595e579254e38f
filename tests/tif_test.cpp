#include "picture/tif.h"

#include <gtest/gtest.h>

#include "tests/pixels.h"

struct TAG {
    int Tag, Type;
    std::vector<uint32_t> Values;
};

// The header, the pixels right behind it, then the directory.
static BYTES MakeFile(const BYTES &data, const std::vector<TAG> &tags, bool bigEndian = false)
{
    const auto append = [bigEndian](BYTES &out, size_t value, int count) {
        AppendNumber(out, static_cast<uint32_t>(value), count, bigEndian);
    };
    const size_t directory = 8 + data.size(), lists = directory + 2 + 12 * tags.size() + 4;
    BYTES file(2, bigEndian ? 'M' : 'I'), behind;
    append(file, 42, 2);
    append(file, directory, 4);
    Append(file, data);
    append(file, tags.size(), 2);
    for (const TAG &tag : tags) {
        append(file, static_cast<size_t>(tag.Tag), 2);
        append(file, static_cast<size_t>(tag.Type), 2);
        append(file, tag.Values.size(), 4);
        const int size = tag.Type == 3 ? 2 : tag.Type == 4 ? 4 : 1;
        BYTES values;
        for (const uint32_t v : tag.Values)
            append(values, v, size);
        if (values.size() > 4) {
            append(file, lists + behind.size(), 4);
            Append(behind, values);
        } else {
            values.resize(4);
            Append(file, values);
        }
    }
    append(file, 0, 4);
    Append(file, behind);
    return file;
}

// The tags of a picture, then those that make it special.
static std::vector<TAG> Tags(uint32_t width, uint32_t height, std::vector<TAG> more)
{
    more.insert(more.begin(), {{256, 3, {width}}, {257, 4, {height}}});
    return more;
}

TEST(TIF, PixelsOfEveryKind)
{
    std::vector<uint32_t> wide(768), narrow(768);
    wide[3] = 0x1234, wide[256 + 3] = 0x56FF, wide[512 + 3] = 0xFF00;
    narrow[3] = 0x12, narrow[256 + 3] = 0x56, narrow[512 + 3] = 0xFF;
    const TAG bits8{258, 3, {8}}, strip{273, 4, {8}};
    const struct {
        const char *what;
        BYTES data;
        std::vector<TAG> tags;
        PIXELS pixels;
    } rows[] = {
        {"RGB behind the header",
         {1, 2, 3, 4, 5, 6},
         Tags(2, 1, {{258, 3, {8, 8, 8}}}),
         {0x010203FF, 0x040506FF}},
        {"a single 8", {1, 2, 3}, Tags(1, 1, {bits8}), {0x010203FF}},
        {"an uneven list counts as 8", {1, 2, 3}, Tags(1, 1, {{258, 3, {5, 6, 5}}}), {0x010203FF}},
        {"16 bits", BYTES(6), Tags(1, 1, {{258, 3, {16, 16, 16}}}), {}},
        {"no bits", BYTES(6), Tags(1, 1, {}), {}},
        {"black is 0", {3, 4}, Tags(2, 1, {bits8, {262, 3, {1}}, strip}), {0x030303FF, 0x040404FF}},
        {"white is 0", {3, 4}, Tags(1, 2, {bits8, {262, 3, {0}}, strip}), {0xFCFCFCFF, 0xFBFBFBFF}},
        {"a palette of 16 bits",
         {3},
         Tags(1, 1, {bits8, {262, 3, {3}}, strip, {320, 3, wide}}),
         {0x1256FFFF}},
        {"a palette of 8 bits",
         {3},
         Tags(1, 1, {bits8, {262, 3, {3}}, strip, {320, 3, narrow}}),
         {0x1256FFFF}},
        {"grey with alpha",
         {3, 9},
         Tags(1, 1, {bits8, {262, 3, {1}}, strip, {277, 3, {2}}, {338, 3, {2}}}),
         {0x03030309}},
        {"RGB, alpha multiplied in",
         {50, 100, 0, 100, 7, 0, 0, 0},
         Tags(2, 1, {bits8, {262, 3, {2}}, strip, {277, 3, {4}}, {338, 3, {1}}}),
         {0x80FF0064, 0x07000000}},
        {"RGB and something else",
         {1, 2, 3, 4},
         Tags(1, 1, {bits8, {262, 3, {2}}, strip, {277, 3, {4}}, {338, 3, {0}}}),
         {0x010203FF}},
        {"strips in any order, planar",
         {1, 2, 3, 4, 5, 6},
         Tags(1, 2,
              {bits8,
               {262, 3, {2}},
               {273, 3, {12, 13, 10, 11, 9, 8}},
               {277, 3, {3}},
               {278, 3, {1}},
               {279, 3, {1, 1, 1, 1, 1, 1}},
               {284, 3, {2}}}),
         {0x050302FF, 0x060401FF}},
        {"a strip that the file lacks",
         {1, 2},
         Tags(1, 3,
              {bits8, {262, 3, {1}}, {273, 4, {9, 9999, 8}}, {278, 3, {1}}, {279, 4, {1, 1, 1}}}),
         {0x020202FF, 0, 0x010101FF}},
        {"another compression", BYTES(9), Tags(1, 1, {bits8, {259, 3, {4}}, strip}), {}},
        {"tiles", BYTES(9), Tags(1, 1, {bits8, strip, {322, 3, {16}}}), {}},
        {"CMYK", BYTES(9), Tags(1, 1, {bits8, {262, 3, {5}}, strip, {277, 3, {4}}}), {}},
        {"RGB of two samples", BYTES(9), Tags(1, 1, {bits8, {262, 3, {2}}, {277, 3, {2}}}), {}},
        {"a width of 17 bits", BYTES(9), {{256, 4, {65537}}, {257, 3, {1}}, bits8}, {}},
        {"a size that its bytes cannot carry", BYTES(9), Tags(50, 50, {bits8}), {}},
    };
    for (const auto &r : rows)
        for (const bool bigEndian : {false, true})
            EXPECT_EQ(DecodeBytes(MakeFile(r.data, r.tags, bigEndian)).Pixels, r.pixels)
                << r.what << (bigEndian ? ", highest byte first" : "");
}

// Codes as LZW writes them, the highest bit first, longer as the table fills.
static BYTES PackCodes(const std::vector<uint32_t> &codes)
{
    BYTES bytes;
    uint32_t held = 0, next = 258;
    int count = 0;
    for (const uint32_t code : codes) {
        const int width = next < 511 ? 9 : next < 1023 ? 10 : next < 2047 ? 11 : 12;
        held = held << width | code;
        for (count += width; count >= 8; count -= 8)
            bytes.push_back(static_cast<uint8_t>(held >> (count - 8)));
        next = code == 256 ? 257 : next + 1; // the first code after a clear makes no string
    }
    bytes.push_back(static_cast<uint8_t>(held << (8 - count)));
    return bytes;
}

TEST(TIF, LZWStrings)
{
    const auto greys = [](std::initializer_list<uint32_t> values) {
        PIXELS pixels;
        for (const uint32_t v : values)
            pixels.push_back(v * 0x01010100 + 255);
        return pixels;
    };
    const struct {
        const char *what;
        uint32_t predictor;
        std::vector<uint32_t> codes;
        PIXELS pixels;
    } rows[] = {
        {"a string that ends with its own start",
         1,
         {256, 7, 258, 259, 257},
         greys({7, 7, 7, 7, 7, 7})},
        {"strings of strings", 1, {256, 1, 2, 258, 3, 260, 257}, greys({1, 2, 1, 2, 3, 1, 2, 3})},
        {"a clear forgets", 1, {256, 1, 2, 256, 5, 6, 258, 257}, greys({1, 2, 5, 6, 5, 6})},
        {"no clear at first", 1, {1, 2, 258}, greys({1, 2, 1, 2})},
        {"a code that is not yet told ends it", 1, {256, 1, 260, 2}, greys({1})},
        {"a string first", 1, {256, 258, 1, 1, 1}, {}},
        {"differences", 2, {256, 1, 255, 3, 1, 257}, greys({1, 0, 3, 4})},
    };
    const auto decode = [](const std::vector<uint32_t> &codes, size_t width, uint32_t predictor) {
        const BYTES data = PackCodes(codes);
        return DecodeBytes(MakeFile(data, Tags(static_cast<uint32_t>(width), 1,
                                               {{258, 3, {8}},
                                                {259, 3, {5}},
                                                {262, 3, {1}},
                                                {273, 4, {8}},
                                                {279, 4, {static_cast<uint32_t>(data.size())}},
                                                {317, 3, {predictor}}})))
            .Pixels;
    };
    for (auto r : rows) {
        r.pixels.resize(8); // what the codes do not give is left out
        EXPECT_EQ(decode(r.codes, 8, r.predictor), r.pixels) << r.what;
    }

    // a table that fills, and keeps its strings when it is full
    std::vector<uint32_t> codes = {256};
    PIXELS pixels;
    for (uint32_t i = 0; i < 5000; i++) {
        codes.push_back(i % 251);
        pixels.push_back(i % 251 * 0x01010100 + 255);
    }
    for (const uint32_t i : {0u, 4095u}) { // 258 + i: bytes i and i + 1
        codes.push_back(i == 0 ? 258 : i);
        for (uint32_t k = i == 0 ? 0 : i - 258; k < (i == 0 ? 2 : i - 256); k++)
            pixels.push_back(k % 251 * 0x01010100 + 255);
    }
    EXPECT_TRUE(decode(codes, pixels.size(), 1) == pixels);
}

TEST(TIF, HeaderKeepsDirectories)
{
    BYTES file = MakeFile({1, 2, 3}, Tags(1, 1, {{258, 3, {8, 8, 8}}, {269, 2, {'a', 'b', 0}}}));
    file[8 + 3 + 2 + 4 * 12] = 11; // the next directory is this one again
    TIF_Load(WriteTemp("tif", file).c_str());
    TIF_HEADER h;
    EXPECT_EQ(TIF_GetHeader(&h)->DirectoryCount, 4);
    EXPECT_EQ(h.Directories[3].Entries.size(), 4u);
    EXPECT_EQ(h.Directories[0].Entries[2].ByteSize, 6u);
    EXPECT_EQ(h.NextDirectory, 11u);
    EXPECT_STREQ(h.DocumentName.data(), "ab");
    EXPECT_EQ(std::tuple(h.ByteOrder, h.Magic, h.DataPosition), std::tuple('I', 42, 8u));
    TIF_UnLoad();
    EXPECT_EQ(TIF_Decoding(), nullptr);
}

TEST(TIF, RealFiles)
{
    const struct {
        const char *file;
        int width, height;
        uint64_t digest;
    } rows[] = {
        {"hippopotamus.tiff", 36, 28, 0x19af49f898522702},
        {"seq-1c-8b-deflate-20f3db0c.tiff", 16, 16, 0x12d903f0f6e0a125},
        {"seq-3c-8b-bigendian-8743c999.tiff", 16, 16, 0x90efc2d1760b6925},
        {"seq-3c-8b-lzw-8743c999.tiff", 16, 16, 0x90efc2d1760b6925},
        {"seq-4c-8b-rgba-unassoc-50969cda.tiff", 16, 16, 0x1e5698f9d66e6f25},
        {"rgb_planar_lzw.tif", 26, 15, 0x75c51c15597c82c1},
        {"rgb_planar_zip.tif", 26, 15, 0x75c51c15597c82c1},
        {"rgba_multiplied_zip.tif", 26, 15, 0x45bac3c857991b3c},
        {"white_packbits.tif", 26, 15, 0xf9d73f734f0983b2},
        {"palette_lzw.tif", 26, 15, 0x145690843ce73e15},
    };
    for (const auto &r : rows) {
        const DECODED d = DecodeFile(std::string(TEST_DATA "tiff/") + r.file);
        EXPECT_EQ(std::tuple(d.Width, d.Height, d.Bits), std::tuple(r.width, r.height, 8));
        EXPECT_EQ(Digest(d.Pixels), r.digest) << r.file;
    }
}

TEST(TIF, PrefixesHold)
{
    // the directory, then a plain or an LZW strip
    for (const uint32_t compression : {1u, 5u}) {
        const auto file = [compression](uint32_t strip) {
            return MakeFile(
                {},
                Tags(6, 3,
                     {{258, 3, {8}}, {259, 3, {compression}}, {262, 3, {1}}, {273, 4, {strip}}}));
        };
        const size_t head = file(0).size();
        BYTES whole = file(static_cast<uint32_t>(head));
        Append(whole, compression == 1 ? BYTES(18, 5)
                                       : PackCodes({256, 7, 258, 259, 260, 8, 9, 10, 259, 257}));
        ExpectPrefixesHold(whole, head, 0);
    }
}
