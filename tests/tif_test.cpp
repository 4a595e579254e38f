#include "picture/tif.h"

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "picture/fax.h"
#include "tests/pixels.h"

// The header, the pixels right after it, then a directory of tags written as "256=5 258=8,8,8".
// Values are words, or double words if larger; after "529:5=" they have that type, and a fraction
// is two of them. Width and height are 1 unless stated. With offsets of 64 bits the pixels begin at
// 16 instead of 8.
static BYTES MakeFile(const BYTES &data, std::string tags, bool bigEndian = false,
                      int offsetBytes = 4)
{
    for (const char *side : {"256=", "257="})
        tags += tags.find(side) == std::string::npos ? std::string(" ") + side + "1" : "";
    BYTES entries, lists;
    const auto number = [bigEndian](size_t value, int bytes) {
        return Number(static_cast<int64_t>(value), bigEndian ? bytes : -bytes);
    };
    const auto offset = [&](size_t value) { return number(value, offsetBytes); };
    const bool wide = offsetBytes == 8;
    const size_t directory = (wide ? 16 : 8) + data.size();
    const auto count = static_cast<size_t>(std::count(tags.begin(), tags.end(), '='));
    const size_t end = directory + (wide ? 16 + 20 * count : 6 + 12 * count);
    std::istringstream in(tags);
    char separator;
    for (size_t tag; in >> tag >> separator;) {
        std::vector<size_t> list;
        size_t value, type = 0, most = 0;
        if (separator == ':')
            in >> type >> separator;
        for (separator = ','; separator == ',' && in >> value;
             separator = static_cast<char>(in.get())) {
            list.push_back(value);
            most = std::max(most, value);
        }
        type = type != 0 ? type : most > 0xFFFF ? 4 : 3;
        BYTES values;
        for (const size_t v : list)
            values = values + number(v, type < 3 ? 1 : type == 3 ? 2 : type == 16 ? 8 : 4);
        entries = entries + number(tag, 2) + number(type, 2) +
                  offset(type == 5 ? list.size() / 2 : list.size());
        const auto room = static_cast<size_t>(offsetBytes);
        if (values.size() > room) {
            entries = entries + offset(end + lists.size());
            lists = lists + values;
        } else {
            values.resize(room);
            entries = entries + values;
        }
    }
    const BYTES head = BYTES(2, bigEndian ? 'M' : 'I') + number(wide ? 43 : 42, 2);
    return head + (wide ? number(8, 2) + number(0, 2) : BYTES{}) + offset(directory) + data +
           number(count, wide ? 8 : 2) + entries + offset(0) + lists;
}

// A tag of values that are all 0 except one in each third.
static std::string Palette(const std::string &r, const std::string &g, const std::string &b)
{
    std::string text = "320=";
    for (const std::string &value : {r, g, b})
        for (int i = 0; i < 256; i++)
            text += (i == 3 ? value : "0") + ",";
    text.back() = ' ';
    return text;
}

// The result for a file under the format's rules.
static std::string ShowByFormat(const BYTES &file)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    return Show(file);
}

TEST(TIF, PixelsOfEveryKind)
{
    const std::string wide = Palette("4660", "22271", "65280"), narrow = Palette("18", "86", "255");
    const struct {
        const char *what, *data;
        std::string tags;
        const char *pixels;
    } rows[] = {
        {"RGB after the header", "010203 040506", "256=2 258=8,8,8", "010203FF 040506FF"},
        {"a single 8", "010203", "258=8", "010203FF"},
        {"an uneven list counts as 8", "010203", "258=5,6,5", "010203FF"},
        {"black is 0", "0304", "256=2 258=8 262=1 273=8", "03 04"},
        {"white is 0", "0304", "257=2 258=8 262=0 273=8", "FC FB"},
        {"a palette of 16 bits", "03", "258=8 262=3 273=8 " + wide, "1256FFFF"},
        {"a palette of 8 bits", "03", "258=8 262=3 273=8 " + narrow, "1256FFFF"},
        {"grey with alpha", "0309", "258=8 262=1 273=8 277=2 338=2", "03030309"},
        {"grey with alpha, as differences", "7801 01 0400FBFF 0309 0101",
         "256=2 258=8 259=8 262=1 273=8 277=2 317=2 338=2", "03030309 0404040A"},
        {"a fourth sample of no kind is alpha", "01020304", "258=8 262=2 273=8 277=4", "01020304"},
        {"RGB, alpha multiplied in", "32640064 07000000", "256=2 258=8 262=2 273=8 277=4 338=1",
         "80FF0064 07000000"},
        {"RGB and something else", "01020304", "258=8 262=2 273=8 277=4 338=0", "010203FF"},
        {"strips in any order, planar", "010203040506",
         "257=2 258=8 262=2 273=12,13,10,11,9,8 277=3 278=1 279=1,1,1,1,1,1 284=2",
         "050302FF 060401FF"},
        {"a strip that the file lacks", "0102", "257=3 258=8 262=1 273=9,9999,8 278=1 279=1,1,1",
         "02 - 01"},
        {"bits the other way round", "80C0", "256=2 258=8 262=1 266=2 273=8", "01 03"},
    };
    for (const auto &r : rows)
        for (const bool bigEndian : {false, true})
            EXPECT_EQ(Show(MakeFile(Hex(r.data), r.tags, bigEndian)), r.pixels)
                << r.what << (bigEndian ? ", highest byte first" : "");
    for (const char *refused : {"258=16,16,16", "257=1", "258=8 259=4 273=8", "258=8 273=8 322=16",
                                "258=8 262=5 273=8 277=4", "258=8 262=2 273=8 277=2",
                                "256=65537 258=8", "256=50 257=50 258=8"})
        EXPECT_EQ(Show(MakeFile(Hex("010203040506"), refused)), "") << refused;
}

TEST(TIF, PixelsByTheFormatsRules)
{
    const std::string codes = "01" + Repeat("00", 16);  // one, of a bit, for 0
    const std::string jpeg = "FFD8 FFDB004300" + Repeat("01", 64) + "FFC0000B080001000101011100" +
                             "FFC4001400" + codes + "FFC4001410" + codes +
                             "FFDA0008010100003F00 3F FFD9";
    const std::string yCbCr = "258=8,8,8 262=6 273=8 530=1,1 ";
    const struct {
        const char *what;
        std::string tags, data;
        const char *pixels, *reason = "";
        bool bothOrders = true;
        int offsetBytes = 4;
    } rows[] = {
        {"a bit", "256=9 262=1 273=8", "A080", "FF 00 FF 00 00 00 00 00 FF"},
        {"2 bits, white is 0", "256=4 258=2 262=0 273=8", "1B", "FF AA 55 00"},
        {"4 bits", "256=3 257=2 258=4 262=1 273=8", "0F80 1230", "00 FF 88 11 22 33"},
        {"3 bits", "256=3 258=3 262=1 273=8", "0F00", "00 6D DB"},
        {"12 bits, their high 8", "256=2 258=12 262=1 273=8", "123FED", "12 FE"},
        {"4 bits, RGB, planar", "256=2 258=4,4,4 262=2 273=8,9,10 277=3 284=2", "0F F0 88",
         "00FF88FF FF0088FF"},
        {"a row of one pixel", "257=2 262=1 273=8", "80 00", "FF 00"},
        {"CMYK", "256=2 258=8,8,8,8 262=5 273=8 277=4", "00FF0000 10203040", "FF00FFFF B3A79BFF"},
        {"YCbCr of 2 by 2 and a half", "256=3 258=8,8,8 262=6 273=8 277=3 530=2,2",
         "102030408080 506070804090", "10 20 665B00FF"},
        {"16 bits as differences", "256=3 258=16 259=8 262=1 273=8 317=2",
         "7801 01 0600F9FF F0F0 2020 E8E8", "F0 11 F9"},
        {"associated alpha as stored", "258=8 262=2 273=8 277=4 338=1", "32640064", "32640064"},
        {"the alpha of five samples", "258=8 262=2 273=8 277=5 338=2,0", "0102030405", "01020304"},
        {"an extra sample of no kind", "258=8 262=1 273=8 277=2 338=0", "0309", "03030309"},
        {"tiles, the last ones cut",
         "256=3 257=3 258=8 262=1 322=2 323=2 324=8,12,16,20 325=4,4,4,4",
         "01020405 03000600 07080000 09000000", "01 02 03 04 05 06 07 08 09"},
        {"a tile that is not listed", "256=3 258=8 262=1 322=2 323=1 324=8 325=2", "0102",
         "01 02 -", "1 of 2 tiles are cut short or missing"},
        {"old-style LZW", "256=4 258=8 259=5 262=1 273=8", "000F083C1010", "07 07 07 07", "",
         false},
        {"modified Huffman", "256=4 257=2 259=2 273=8", "B0 3560", "FF FF FF FF 00 00 00 00"},
        {"a short palette counts for nothing", "256=2 258=8 262=3 273=8 320=1,2,3", "0705",
         "07 05"},
        {"strips of 0 bytes go to the end", "256=2 258=8 262=1 273=8 279=0", "0705", "07 05"},
        {"JPEG", "258=8 259=7 262=1 273=8", jpeg, "80"},
        {"JPEG of another width", "256=2 258=8 259=7 262=1 273=8", jpeg, "80 00"},
        {"no JPEG", "257=2 258=8 259=7 262=1 278=1 273=8,9999", "01", "- -", "no frame header"},
        {"offsets of 64 bits", "256=2 258=8 262=1 273:16=16 279:4=2 320:1=9", "0705", "07 05", "",
         true, 8},
        {"Group 4", "256=8 257=2 259=4 262=0 273=8", "2FC0",
         "FF FF 00 00 FF FF FF FF FF FF FF FF FF FF FF FF", "CCITT Group 4 data cut, 1 of 2 rows"},
        {"Group 4, damaged", "256=8 259=4 273=8", "0100", "FF FF FF FF FF FF FF FF",
         "CCITT Group 4 data damaged, 0 of 1 rows"},
        {"modified Huffman by words", "256=8 259=32771 262=0 273=8", "7EC0",
         "FF FF 00 00 FF FF FF FF"},
        {"Group 3 in 2 dimensions", "256=4 259=3 273=8 292=1", "001BF6", "FF FF 00 00"},
        {"Group 3", "256=4 259=3 273=8 292=0", "0017EC", "FF FF 00 00"},
        {"YCbCr of other weights", yCbCr + "529:5=1,4,1,2,1,4", "40A0A0", "701070FF"},
        {"YCbCr of another range", yCbCr + "532:5=16,1,235,1,128,1,240,1,128,1,240,1", "408080",
         "37"},
        {"neither makes sense", yCbCr + "529:5=1,0,0,1,1,4 532:5=9,1,9,1,8,1,7,1,8,1,7,1", "408080",
         "40"},
        {"no weight of green", yCbCr + "529:5=1,4,0,1,1,4", "40A0A0", "6D1E79FF"},
        {"a range of blue without width", yCbCr + "532:5=0,1,255,1,8,1,8,1,128,1,240,1", "408080",
         "40"},
        {"of red", yCbCr + "532:5=0,1,255,1,128,1,255,1,7,1,7,1", "408080", "40"},
        {"planes of one sample", "256=2 258=8 262=1 273=8 284=2", "0705", "07 05"},
        {"a JPEG of one component for three", "258=8,8,8 259=7 262=2 273=8", jpeg, "800000FF"},
        {"CMYK as differences", "256=2 258=8 259=8 262=5 273=8 277=4 317=2",
         "7801 01 0800F7FF 00FF0000 01020304", "FF00FFFF FAFAF8FF"},
        {"five samples as differences", "256=2 258=8 259=8 262=1 273=8 277=5 317=2",
         "7801 01 0A00F5FF 0102030405 0102030405", "01010102 02020204"},
        {"eight", "258=8,8,8,8,8,8,8,8 262=1 273=8", "0102030405060708", "01010102"},
    };
    for (const auto &r : rows)
        for (const bool bigEndian : {false, true}) {
            if (bigEndian && !r.bothOrders)
                continue;
            const BYTES file = MakeFile(Hex(r.data), r.tags, bigEndian, r.offsetBytes);
            EXPECT_EQ(ShowByFormat(file), r.pixels) << r.what;
            EXPECT_STREQ(Picture_Reason(), r.reason) << r.what;
        }
}

TEST(TIF, WhatIsNotDecodedIsNamed)
{
    const std::pair<std::string, std::string> rows[] = {
        {"258=300 262=1 273=8", "0 bits a sample"},
        {"258=32 262=1 273=8", "32 bits a sample"},
        {"258=16 262=3 273=8", "16 bits a sample of a palette"},
        {"258=5,6,5 262=2 273=8 277=3", "samples of different sizes"},
        {"258=16 262=1 273=8 339=3", "floating point"},
        {"258=8 262=2 273=8 277=2", "2 samples a pixel"},
        {"258=8 262=1 273=8 277=9", "9 samples a pixel"},
        {"256=3 258=8,8,8 262=6 273=8 530=3,1", "chroma subsampling of 3 by 1"},
        {"256=3 258=8,8,8 262=6 273=8 530=1,3", "chroma subsampling of 1 by 3"},
        {"258=8,8,8,8 262=6 273=8 530=2,1", "subsampled chroma that is planar or of 8 bits"},
        {"258=8,8,8 262=6 273=8,9,10 284=2", "subsampled chroma that is planar or of 8 bits"},
        {"258=16,16,16 262=6 273=8 530=2,1", "subsampled chroma that is planar or of 16 bits"},
        {"258=8 262=1 322=0 323=1 324=8", "tiles of no size"},
        {"258=8 262=1 322=1 323=0 324=8", "tiles of no size"},
        {"256=0 258=8 262=1 273=8", "a side of 0 pixels, or more than 65535"},
        {"257=0 258=8 262=1 273=8", "a side of 0 pixels, or more than 65535"},
        {"258=8 262=1", "no pixels stored"},
        {"258=8 259=4 262=1 273=8", "CCITT Group 4 compression of more than a bit a pixel"},
        {"258=1,1,1 259=4 262=2 273=8", "CCITT Group 4 compression of more than a bit a pixel"},
        {"258=16 259=7 262=1 273=8", "JPEG of 16 bits"},
        {"258=4 259=8 262=1 273=8 317=2", "differences of 4 bits"},
        {"258=8 259=8 262=1 273=8 317=3", "predictor 3"},
        {"258=8 259=50000 262=1 273=8", "zstd compression"},
        {"258=8 259=99 262=1 273=8", "compression 99"},
        {"258=8 262=7 273=8", "photometric interpretation 7"},
        {"258=8,8,8 262=8 273=8 277=3", "CIE L*a*b* colours"},
        {"258=8 262=9 273=8", "ICC L*a*b* colours"},
        {"258=8 262=10 273=8", "ITU L*a*b* colours"},
        {"258=8 262=32803 273=8", "colour filter array colours"},
        {"258=8 262=32844 273=8", "LogLuv colours"},
        {"256=168 257=131 258=8 259=5 262=1 273=8 279=1", "99 bytes cannot hold 168 x 131 pixels"},
        {"256=5000 257=5000 258=8 262=1 322=1 323=1 324=8",
         "99 bytes cannot hold 5000 x 5000 pixels"},
        {"257=99 258=8 259=8 262=1 278=1 273=8" + Repeat(",8", 98), "strips that overlap"},
    };
    for (const auto &[tags, reason] : rows) {
        EXPECT_EQ(ShowByFormat(MakeFile({1}, tags)), "") << tags;
        EXPECT_EQ(Picture_Reason(), reason) << tags;
    }
    const std::pair<std::string, std::vector<int>> packings[] = {
        {"old-style JPEG", {6}},  {"JBIG", {9, 10, 34661}},   {"NeXT", {32766}},
        {"ThunderScan", {32809}}, {"LogLuv", {34676, 34677}}, {"JPEG 2000", {34712}},
        {"LZMA", {34925}},        {"WebP", {50001}}};
    for (const auto &[name, numbers] : packings)
        for (const int n : numbers) {
            ShowByFormat(MakeFile({1}, "258=8 262=1 273=8 259=" + std::to_string(n)));
            EXPECT_EQ(Picture_Reason(), name + " compression") << n;
        }
}

// Codes as LZW writes them, highest bit first, longer as the table fills.
static BYTES PackCodes(const std::vector<uint32_t> &codes)
{
    std::string bits;
    uint32_t next = 258;
    for (const uint32_t code : codes) {
        bits += Digits(code, next < 511 ? 9 : next < 1023 ? 10 : next < 2047 ? 11 : 12);
        next = code == 256 ? 257 : next + 1;  // the first code after a clear adds no string
    }
    return Bits(bits);
}

// A row of greys from an LZW strip.
static BYTES MakeLZW(const std::vector<uint32_t> &codes, size_t width, int predictor)
{
    const BYTES data = PackCodes(codes);
    return MakeFile(data, "257=1 258=8 259=5 262=1 273=8 256=" + std::to_string(width) + " 279=" +
                              std::to_string(data.size()) + " 317=" + std::to_string(predictor));
}

TEST(TIF, LZWStrings)
{
    const struct {
        const char *what;
        int predictor;
        std::vector<uint32_t> codes;
        const char *pixels;  // missing pixels are left out
    } rows[] = {
        {"its own start at the end", 1, {256, 7, 258, 259, 257}, "07 07 07 07 07 07 - -"},
        {"strings of strings", 1, {256, 1, 2, 258, 3, 260, 257}, "01 02 01 02 03 01 02 03"},
        {"a clear forgets", 1, {256, 1, 2, 256, 5, 6, 258, 257}, "01 02 05 06 05 06 - -"},
        {"no clear at first", 1, {1, 2, 258}, "01 02 01 02 - - - -"},
        {"an undefined code ends it", 1, {256, 1, 260, 2}, "01 - - - - - - -"},
        {"a string first", 1, {256, 258, 1, 1, 1}, "- - - - - - - -"},
        {"differences", 2, {256, 1, 255, 3, 1, 257}, "01 00 03 04 - - - -"},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Show(MakeLZW(r.codes, 8, r.predictor)), r.pixels) << r.what;

    // strings longer than a copy's chunk: each is the one before it and a 1
    std::vector<uint32_t> growing = {256, 1, 2, 258};
    std::string shown = "01 02 01 02";
    for (uint32_t i = 0; i < 20; i++) {
        growing.push_back(260 + i);
        shown += " 01 02 01" + Repeat(" 01", static_cast<int>(i));
    }
    EXPECT_EQ(Show(MakeLZW(growing, 4 + 3 * 20 + 190, 1)), shown);

    // a table that fills up and keeps its strings: code 258 + i is the pair from byte i
    std::vector<uint32_t> codes = {256};
    for (uint32_t i = 0; i < 5000; i++)
        codes.push_back(i % 251);
    codes.insert(codes.end(), {258, 4095});
    const BYTES pixels = PixelsOf(MakeLZW(codes, 5004, 1));
    ASSERT_EQ(pixels.size(), 5004u * 4);
    for (size_t i = 0; i < 5004; i++) {
        const size_t from = i < 5000 ? i : i < 5002 ? i - 5000 : i - 5002 + 4095 - 258;
        EXPECT_EQ(pixels[4 * i], from % 251);
    }
}

TEST(TIF, FaxRows)
{
    const std::string eol = "000000000001", white2 = "0111", white4 = "1011", black2 = "11";
    const std::string whole = white2 + black2 + white4;
    const struct {
        const char *what;
        FAX_SCHEME scheme;
        std::string bits;
        const char *rows;
        bool damaged = false;
    } rows[] = {
        {"a run of each colour", FAX_Group4, "001" + white2 + black2 + "1", "..##...."},
        {"all shifts from the row before", FAX_Group4,
         "001 0111 10 1  011 010 1  0001 1  001 00110101 000101  1 1  0000011 1  0000010 1"
         "000011 1  000010 1" +
             eol + eol,
         "..###... ...#.... ........ ######## ######## ...##### ######## ..###### ########"},
        {"an invalid mode", FAX_Group4, "1  001 0111 11 0000001", "........ ..##....", true},
        {"a pass to the end, in black", FAX_Group4, "010 0001  1 1", ".......# .......#"},
        {"a shift left of the picture", FAX_Group4, "001 00110101 000101  010", "########", true},
        {"a run beyond the row", FAX_Group4, "1  001 0111 000101", "........ ........", true},
        {"rows that begin on bytes", FAX_Bytes, "10011 000" + whole, "........ ..##...."},
        {"rows that begin on words", FAX_Words, "10011" + Repeat("0", 11) + whole,
         "........ ..##...."},
        {"rows without an end", FAX_Group3, whole + whole, "..##.... ..##...."},
        {"rows after an end, filled up", FAX_Group3,
         eol + whole + "0000" + eol + whole + eol + eol + eol + eol, "..##.... ..##...."},
        {"a damaged row, and on", FAX_Group3, eol + white2 + "0000000001" + eol + whole,
         "........ ..##....", true},
        {"rows of both dimensions", FAX_Group3TwoD,
         eol + "1" + whole + eol + "0" + "011 1 1" + eol + "1" + white2 + "000101" + eol,
         "..##.... ...#.... ........", true},
    };
    for (const auto &r : rows) {
        BYTES out(16);
        const FAX_RESULT result = FAX_Expand(Bits(r.bits), r.scheme, 8, out);
        std::string text;
        for (size_t y = 0; y < result.Rows; y++)
            for (size_t x = 0; x < 8; x++)
                text += std::string(x == 0 && y != 0, ' ') + (out[y] >> (7 - x) & 1 ? '#' : '.');
        EXPECT_EQ(text, r.rows) << r.what;
        EXPECT_EQ(result.Damaged, r.damaged) << r.what;
    }
    // 2560 white by one code, 64 and 1 black, 1 white
    BYTES out(329);
    FAX_Expand(Bits("000000011111 00110101  0000001111 010  000111"), FAX_Bytes, 2626, out);
    for (size_t x = 0; x < 2626; x++)
        ASSERT_EQ(out[x / 8] >> (7 - x % 8) & 1, x >= 2560 && x < 2625) << x;
}

TEST(TIF, HeaderKeepsDirectories)
{
    BYTES file = MakeFile(Hex("010203"), "256=1 257=1 258=8,8,8 269=25185,99");
    file[8 + 3 + 2 + 3 * 12 + 2] = 2;  // the name is a text of 2 bytes
    file[8 + 3 + 2 + 4 * 12] = 11;     // the next directory is this one again
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
    TIF_Load(OwnFile(MakeFile({1}, "258=8 269:1=97" + Repeat(",97", 199))).c_str());
    EXPECT_EQ(TIF_Header.DocumentName.data(), std::string(127, 'a'));
    TIF_UnLoad();
}

TEST(TIF, Pages)
{
    // The second directory is a copy of the first, but a pixel wide; the first follows it again.
    BYTES file = MakeFile(Hex("0102"), "256=2 258=8 262=1 273=8"),
          second(file.begin() + 10, file.end());
    second[2 + 8] = 1;
    second[second.size() - 4] = 10;
    file[file.size() - 4] = static_cast<uint8_t>(file.size());
    file = file + second;
    for (const auto &[page, pixels] : {std::pair(0, "01 02"), {1, "01"}, {2, ""}}) {
        TIF_Page = static_cast<uint32_t>(page);
        EXPECT_EQ(ShowByFormat(file), pixels);
        EXPECT_STREQ(Picture_Reason(), page == 2 ? "page 3 of 2" : "");
        EXPECT_EQ(TIF_PageCount, 2u);
        EXPECT_EQ(TIF_Header.DirectoryCount == 0, page == 2);
    }
    TIF_Page = 0;
}

TEST(TIF, PrefixesHold)
{
    // the directory, then a plain or an LZW strip
    const BYTES plain(18, 5), codes = PackCodes({256, 7, 258, 259, 260, 8, 9, 10, 259, 257});
    for (const char *tags :
         {"256=6 257=3 258=8 262=1 273=74", "256=6 257=3 258=8 262=1 259=5 273=86"}) {
        const BYTES head = MakeFile({}, tags);
        ExpectPrefixesHold(head + (head.size() == 74 ? plain : codes), head.size(), 0);
    }
}
