#include <gtest/gtest.h>

#include "tests/files.h"
#include "tools/viewer/sheet.h"
#include "tools/viewer/shown.h"

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
        EXPECT_EQ(TextOf(Viewer_Upright(ImageOf({"FGH", "..J"}), orientation)),
                  expected[orientation - 1])
            << orientation;
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
        {"never all of it", "abcdefghijklm.png", "abcde....png  PNG,", 18},
        {"no room", "a.png", "", 0},
        {"Latin-2", "\u0151z\u017E.png", "\xF5z\xBE.png  PNG, 1x1", 80},
        {"others, once each", "\u00F1\u4E2D\n", "???  PNG, 1x1", 80},
        {"no UTF-8", "\x9E\xC5", "??  PNG, 1x1", 80},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Viewer_Caption(r.name, "PNG, 1x1", r.room), r.expected) << r.what;
}

// A GIF of a row of three pixels, red or blue, in frames of one pixel: left, disposal, colour.
// Flags: 64 interlaced.
static std::vector<uint8_t> MakeGIF(const std::vector<std::array<uint8_t, 3>> &frames,
                                    uint8_t flags)
{
    std::vector<uint8_t> file = Text("GIF89a\3\0\1\0\x80\0\0\xFF\0\0\0\0\xFF");
    for (const auto &[left, disposal, colour] : frames) {
        // Codes of 3 bits: clear, the colour, end.
        const uint16_t codes = static_cast<uint16_t>(4 | colour << 3 | 5 << 6);
        std::vector<uint8_t> frame = Text("!\xF9\4d\xA\0\0\0,l\0\0\0\1\0\1\0\0\2\2cc\0");
        frame[3] = static_cast<uint8_t>(disposal << 2);
        frame[9] = left;
        frame[17] = flags;
        frame[20] = static_cast<uint8_t>(codes);
        frame[21] = static_cast<uint8_t>(codes >> 8);
        file.insert(file.end(), frame.begin(), frame.end());
    }
    file.push_back(0x3B);
    return file;
}

TEST(Viewer, FramesAreLaidDownAndDisposedOf)
{
    for (const uint8_t flags : {uint8_t{0}, uint8_t{64}}) {
        const std::string path =
            WriteTemp("frames.gif", MakeGIF({{0, 1, 0}, {1, 2, 1}, {2, 3, 1}, {1, 0, 0}}, flags));
        const VIEWER_FILE file = Viewer_Open(path);
        ASSERT_EQ(file.Frames, 4u);
        EXPECT_EQ(file.Facts, "GIF, 3x1, 1 bit");
        EXPECT_NEAR(file.Ends.back(), 0.4, 1e-9);
        const auto look = [](uint32_t frame) {
            std::string seen;
            const VIEWER_IMAGE &screen = Viewer_Screen(frame);
            for (size_t i = 0; i < screen.Pixels.size(); i += 4)
                seen += screen.Pixels[i + 3] == 0 ? '-' : screen.Pixels[i] ? 'r' : 'b';
            return seen;
        };
        SCOPED_TRACE(flags == 0 ? "in place" : "interlaced");
        EXPECT_EQ(look(0), "r--");
        EXPECT_EQ(look(1), "rb-");
        EXPECT_EQ(look(2), "r-b");
        EXPECT_EQ(look(3), "rr-");
        EXPECT_EQ(look(1), "rb-");  // again from the start
        Viewer_Close();
    }
}
