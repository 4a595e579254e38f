#include <thread>

#include <gtest/gtest.h>

#include "tests/pictures.h"
#include "tools/common/text.h"
#include "tools/viewer/ahead.h"
#include "tools/viewer/encode.h"
#include "tools/viewer/exif.h"
#include "tools/viewer/files.h"
#include "tools/viewer/sheet.h"
#include "tools/viewer/shown.h"

TEST(Text, IsMadeHarmless)
{
    const struct {
        const char *what, *text, *harmless, *json;
    } rows[] = {
        {"letters", "a\u0151\u4E2D\U0001F600", "a\u0151\u4E2D\U0001F600",
         "\"a\u0151\u4E2D\U0001F600\""},
        {"C0 and DEL", "a\x1B[2J\n\x7F", "a [2J  ", "\"a\\u001b[2J\\u000a\\u007f\""},
        {"C1", "\u009B1m", " 1m", "\"\\u009b1m\""},
        {"C1 as a byte", "\x9B", "\uFFFD", "\"\uFFFD\""},
        {"overlong", "\xC0\x9B", "\uFFFD\uFFFD", "\"\uFFFD\uFFFD\""},
        {"a surrogate", "\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD", "\"\uFFFD\uFFFD\uFFFD\""},
        {"cut", "\xE4\xB8", "\uFFFD\uFFFD", "\"\uFFFD\uFFFD\""},
        {"beyond Unicode", "\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD",
         "\"\uFFFD\uFFFD\uFFFD\uFFFD\""},
        {"quotes", "\"\\", "\"\\", R"("\"\\")"},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(Text_Harmless(r.text), r.harmless) << r.what;
        EXPECT_EQ(Text_JSON(r.text), r.json) << r.what;
    }
    EXPECT_EQ(Text_FromEither("caf\xE9"), "caf\u00E9");
    EXPECT_EQ(Text_FromEither("caf\u00E9"), "caf\u00E9");
    EXPECT_TRUE(Text_EndsWith("A.PnG", ".png"));
    EXPECT_FALSE(Text_EndsWith("png", ".png"));
}

TEST(Viewer, NumbersInNamesAreInOrder)
{
    const char *names[] = {"a", "a1", "A2", "a02", "a2", "a2b", "a10", "B1", "b1x9", "b1x10"};
    for (size_t i = 0; i < std::size(names); i++)
        for (size_t k = 0; k < std::size(names); k++)
            EXPECT_EQ(Files_Before(names[i], names[k]), i < k) << names[i] << ' ' << names[k];
}

// An image whose pixels are letters.
static VIEWER_IMAGE ImageOf(const std::vector<std::string> &rows)
{
    VIEWER_IMAGE image{
        static_cast<uint32_t>(rows[0].size()), static_cast<uint32_t>(rows.size()), {}};
    for (const std::string &row : rows)
        for (const char c : row)
            image.Pixels.insert(image.Pixels.end(), 4, static_cast<uint8_t>(c));
    return image;
}

static std::string TextOf(const VIEWER_IMAGE &image)
{
    std::string text;
    for (size_t i = 0; i < image.Pixels.size(); i += 4) {
        text += static_cast<char>(image.Pixels[i]);
        if ((i / 4 + 1) % image.Width == 0)
            text += '/';
    }
    return text;
}

TEST(Viewer, OrientationsAreMadeUpright)
{
    const char *expected[] = {"FGH/..J/",  "HGF/J../",  "J../HGF/",  "..J/FGH/",
                              "F./G./HJ/", ".F/.G/JH/", "JH/.G/.F/", "HJ/G./F./"};
    for (int orientation = 1; orientation <= 8; orientation++)
        EXPECT_EQ(TextOf(Viewer_Upright(Viewer_Pixels(ImageOf({"FGH", "..J"})), orientation)),
                  expected[orientation - 1])
            << orientation;
}

TEST(Viewer, HalvesAreMeansWeightedByAlpha)
{
    // 3 by 2: opaque grey levels, a transparent white pixel beside black, an odd last column.
    const std::vector<uint8_t> pixels = {
        10, 10, 10, 255, 20, 20, 20, 255, 0,   0,   0,   255,
        30, 30, 30, 255, 41, 41, 41, 255, 255, 255, 255, 0,
    };
    const VIEWER_IMAGE half = Viewer_Halve({3, 2, 3, pixels.data()});
    EXPECT_EQ(Viewer_Size(half.Width, half.Height), "2x1");
    EXPECT_EQ(BYTES(half.Pixels.begin(), half.Pixels.end()),
              (BYTES{25, 25, 25, 255, 0, 0, 0, 128}));
    // The left half of the middle column goes to the left one.
    const VIEWER_IMAGE fit = Viewer_Fit({3, 2, 3, pixels.data()}, 2);
    EXPECT_EQ(Viewer_Size(fit.Width, fit.Height), "2x1");
    EXPECT_EQ(BYTES(fit.Pixels.begin(), fit.Pixels.end()),
              (BYTES{24, 24, 24, 255, 15, 15, 15, 170}));
}

TEST(Viewer, CaptionsAreCutAtTheName)
{
    const struct {
        const char *what, *name, *expected;
        size_t room;
    } rows[] = {
        {"whole", "a.png", "a.png  PNG, 1x1", 80},
        {"just fits", "abcdefghijklm.png", "abcdefghijklm.png  PNG, 1x1", 27},
        {"its middle goes", "abcdefghijklm.png", "abcdefg...lm.png  PNG, 1x1", 26},
        {"never all of it", "abcdefghijklm.png", "abcde....png  P...", 18},
        {"no room", "a.png", "", 0},
        {"Latin-2", "\u0151z\u017E.png", "\xF5z\xBE.png  PNG, 1x1", 80},
        {"others", "\u00F1\u4E2D\n", "n{4E2D}?  PNG, 1x1", 80},
        {"substitutes", "\u2018\u2013\u201E\u2026\u00A0\u2019\u201C\u201D\u2010\u2014",
         "'-\"... '\"\"--  PNG, 1x1", 80},
        {"no UTF-8", "\x9E\xC5", "??  PNG, 1x1", 80},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Sheet_Caption(r.name, "PNG, 1x1", r.room), r.expected) << r.what;
}

// A GIF with a row of three pixels, red or blue, in frames of one pixel: left, disposal, colour.
static BYTES MakeGIF(const std::vector<std::array<uint8_t, 3>> &frames)
{
    BYTES file = Text("GIF89a\3\0\1\0\x80\0\0\xFF\0\0\0\0\xFF");
    for (const auto &[left, disposal, colour] : frames) {
        // 3-bit codes: clear, the colour, end. The index 3, which is transparent, is not used.
        file = file + Text("!\xF9\4") + Number(disposal << 2 | 1, 1) + Text("\xA\0\3\0,") +
               Number(left, 1) + Text("\0\0\0\1\0\1\0\0\2\2") +
               Number(4 | colour << 3 | 5 << 6, -2) + Number(0, 1);
    }
    return file + Text(";");
}

TEST(Viewer, FramesAreComposedOrAlone)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    const std::string path =
        WriteTemp("frames.gif", MakeGIF({{0, 1, 0}, {1, 2, 1}, {2, 3, 1}, {1, 0, 0}}));
    const auto file = Viewer_Open(path, VIEWER_HALVED);
    ASSERT_TRUE(file->Record) << file->Reason;
    ASSERT_EQ(file->Frames, 4u);
    EXPECT_EQ(Viewer_Facts(*file), "GIF, 3x1, 1 bit");
    EXPECT_NEAR(file->Ends.back(), 0.4, 1e-9);
    EXPECT_EQ(file->Rounds, 1u);
    GIF_CANVAS canvas, lone;
    const auto look = [](const VIEWER_PIXELS &pixels) {
        std::string seen;
        for (size_t i = 0; i < 4 * size_t{pixels.Width}; i += 4)
            seen += pixels.Pixels[i + 3] == 0 ? '-' : pixels.Pixels[i] ? 'r' : 'b';
        return seen;
    };
    const struct {
        uint32_t n;
        const char *composed, *alone;
    } rows[] = {
        // clang-format off
        {0, "r--", "r--"}, {1, "rb-", "-b-"}, {2, "r-b", "--b"}, {3, "rr-", "-r-"},
        {1, "rb-", "-b-"},  // back again
        // clang-format on
    };
    for (const auto &r : rows) {
        EXPECT_EQ(look(Viewer_Frame(*file, r.n, canvas)), r.composed) << r.n;
        lone = {};
        EXPECT_EQ(look(Viewer_LoneFrame(*file, r.n, lone)), r.alone) << r.n;
    }
}

using ENCODER = std::string(const VIEWER_PIXELS &, FILE *);

static void Write(const std::string &path, ENCODER *encode, const VIEWER_IMAGE &image)
{
    FILE *out = std::fopen(path.c_str(), "wb");
    EXPECT_EQ(encode(Viewer_Pixels(image), out), "");
    std::fclose(out);
}

// Pixels of every kind through each writable format and back.
TEST(Viewer, WhatIsWrittenIsReadBack)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    const struct {
        const char *what, *name;
        ENCODER *encode;
        uint32_t bits[4];  // of grey, colour, either with alpha
    } formats[] = {
        {"PAM", "a.pam", Encode_PAM, {32, 32, 32, 32}},
        {"PNG", "a.png", Encode_PNG, {8, 24, 16, 32}},
        {"BMP", "a.bmp", Encode_BMP, {24, 24, 32, 32}},
    };
    for (const auto &format : formats)
        for (uint32_t kind = 0; kind < 4; kind++)
            for (const uint32_t width : {1u, 3u, 5u, 250u}) {
                SCOPED_TRACE(format.what + std::to_string(kind) + "/" + std::to_string(width));
                VIEWER_IMAGE image{width, 70, BYTES_BUFFER(size_t{width} * 70 * 4)};
                uint32_t noise = 1;
                for (size_t i = 0; i < image.Pixels.size(); i++) {
                    noise = noise * 1664525 + 1013904223;  // a part of it, so that filters differ
                    const size_t x = i / 4 % width, y = i / 4 / width, c = i % 4;
                    const size_t value =
                        c == 3 ? x + 1 : x * (c + 1) + y * 3 + (y % 7 == 0) * noise;
                    image.Pixels[i] = c == 3 && kind < 2 ? 255
                                      : c % 3 != 0 && kind % 2 == 0
                                          ? image.Pixels[i - c]
                                          : static_cast<uint8_t>(value >> (y % 3 == 2));
                }
                const std::string path = TempPath(format.name);
                Write(path, format.encode, image);
                const auto file = Viewer_Open(path, VIEWER_PLAIN);
                ASSERT_TRUE(file->Record) << file->Reason;
                EXPECT_EQ(file->Bits, format.bits[kind]);
                EXPECT_TRUE(Viewer_Copy(Viewer_Pixels(*file)).Pixels == image.Pixels);
            }
}

TEST(Viewer, FactsOfPhotographs)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    using ENTRIES = std::vector<std::array<uint32_t, 4>>;  // tag, type, count, value
    const struct {
        ENTRIES entries;  // values of 10 and more lie so many bytes into what follows
        std::array<std::pair<uint32_t, uint32_t>, 3> fractions;
        int orientation;
        const char *facts;
    } rows[] = {
        {{{274, 3, 1, 6},
          {306, 2, 20, 34},
          {33434, 5, 1, 10},
          {33437, 5, 1, 18},
          {34855, 3, 1, 9},
          {37386, 5, 1, 26}},
         {{{1, 250}, {28, 10}, {50, 1}}},
         6,
         "date=2026:11:22 12:34:56, exposure=1/250 s, f/2.8, ISO 9, 50 mm, "},
        {{{274, 3, 1, 9},
          {36867, 2, 20, 34},
          {33434, 5, 1, 10},
          {33437, 5, 1, 18},
          {37386, 5, 1, 26}},
         {{{5, 2}, {0, 1}, {1, 0}}},
         1,
         "date=2026:11:22 12:34:56, exposure=2.5 s, "},
        {{{274, 3, 1, 0}, {306, 2, 5, 34}, {33434, 3, 1, 10}, {37386, 5, 1, 9999}}, {}, 1, ""},
    };
    for (const auto &r : rows)
        for (const bool big : {false, true}) {
            const auto number = [big](uint32_t value, int count) {
                return Number(value, big ? count : -count);
            };
            const auto rest = static_cast<uint32_t>(14 + 12 * r.entries.size());
            BYTES data = Text("Exif\0\0") + BYTES(2, big ? 'M' : 'I') + number(42, 2) +
                         number(8, 4) + number(static_cast<uint32_t>(r.entries.size()), 2);
            for (const auto &[tag, type, count, value] : r.entries) {
                const uint32_t v = value < 10 ? value : value - 10 + rest;
                data = data + number(tag, 2) + number(type, 2) + number(count, 4) +
                       (type == 3 ? number(v, 2) + BYTES(2) : number(v, 4));
            }
            data = data + BYTES(4);
            for (const auto &[above, below] : r.fractions)
                data = data + number(above, 4) + number(below, 4);
            data = data + Text("2026:11:22 12:34:56\0");
            const BYTES grey = ReadFile(TEST_DATA "jpg/grey.jpg");
            const BYTES file = Prefix(grey, 20) + Text("\xFF\xE1") +
                               Number(std::ssize(data) + 2, 2) + data +
                               BYTES(grey.begin() + 20, grey.end());
            Picture_UnLoad(Picture_LoadBytes(file, 0, 0));
            EXPECT_EQ(Exif_Orientation(), r.orientation) << big;
            std::string facts;
            for (const VIEWER_FACT &fact : Exif_Camera(BYTES_OPEN(std::span(file))))
                facts += fact.Name + '=' + fact.Text + ", ";
            EXPECT_EQ(facts, r.facts) << big;
        }
}

static std::shared_ptr<const VIEWER_FILE> Await(const AHEAD_KEY &key)
{
    for (int i = 0; i < 1000; i++) {
        if (auto file = Ahead_Find(key))
            return file;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return nullptr;
}

TEST(Viewer, DecodesAheadByTheCallersRules)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    // 12 rows of 3 bytes are padded by the format's rules; a GIF carries its frames.
    const VIEWER_IMAGE image = ImageOf(std::vector<std::string>(400, std::string(300, 'x')));
    const std::string bmp = TempPath("ahead.bmp");
    Write(bmp, Encode_BMP, image);
    const std::string gif = WriteTemp("ahead.gif", MakeGIF({{0, 1, 0}, {1, 1, 1}}));
    const AHEAD_KEY large{bmp}, small{bmp, VIEWER_SMALL}, animated{gif}, absent{"absent"};
    Ahead_Start();
    std::shared_ptr<const VIEWER_FILE> kept;
    for (int round = 0; round < 20; round++) {
        Ahead_Want({animated, large, small, absent});
        EXPECT_EQ(Ahead_Find({gif, VIEWER_SMALL}), nullptr);
        ASSERT_TRUE((kept = Await(animated)) && kept->Record);
        GIF_CANVAS canvas;
        EXPECT_EQ(Viewer_Frame(*kept, 1, canvas).Pixels[4 + 2], 255);
        Ahead_Want({small, absent});
        const auto thumbnail = Await(small);
        ASSERT_TRUE(thumbnail && !thumbnail->Record);
        EXPECT_EQ(Viewer_Size(thumbnail->Thumbnail.Width, thumbnail->Thumbnail.Height), "120x160");
        const auto nothing = Await(absent);
        ASSERT_TRUE(nothing && !nothing->Record);
        EXPECT_NE(nothing->Reason, "");
        Ahead_Want({large});
        EXPECT_EQ(Ahead_Find(small), nullptr);
        const auto whole = Await(large);
        ASSERT_TRUE(whole && whole->Record);
        EXPECT_EQ(whole->Halves.size(), 1u);
    }
    Ahead_Stop();
    EXPECT_TRUE(kept->Record);
}
