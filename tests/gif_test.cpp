#include "picture/gif.h"

#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "extra/heap.h"
#include "tests/pixels.h"

// A screen with 16 global colours (10 n, 0, 0), background index 2.
static BYTES Screen(int width, int height)
{
    BYTES head = Text("GIF89a") + Number(width, -2) + Number(height, -2) + BYTES{0xBB, 2, 49};
    for (int i = 0; i < 16; i++)
        head = head + Number(10 * i, -3);
    return head;
}

// Sub-blocks of at most 255 bytes.
static BYTES SubBlocks(const BYTES &data)
{
    BYTES out;
    for (size_t i = 0; i < data.size(); i += 255) {
        const auto part = Bytes_GetSpan(data, i, 255);
        out = out + Number(std::ssize(part), 1) + BYTES(part.begin(), part.end());
    }
    return out + BYTES{0};
}

// Packed codes. Their size grows with the dictionary, which gains an entry after each code except
// the first, and none after the clear code.
static BYTES Pack(const std::vector<size_t> &codes, unsigned minimum)
{
    const size_t clear = size_t{1} << minimum;
    size_t next = clear + 1, size = minimum + 1;
    std::string bits;
    for (const size_t code : codes) {
        bits += Digits(code, size, false);
        if (code == clear) {
            next = clear + 1;
            size = minimum + 1;
        } else if (next < 4096 && ++next == size_t{1} << size && size < 12) {
            size++;
        }
    }
    return Bits(bits, false);
}

// A frame of codes packed for `minimum`.
static BYTES Image(int left, int top, int width, int height, uint8_t packed, const BYTES &palette,
                   unsigned minimum, const std::vector<size_t> &codes)
{
    BYTES out = {','};
    for (const int v : {left, top, width, height})
        out = out + Number(v, -2);
    return out + BYTES{packed} + palette + BYTES{static_cast<uint8_t>(minimum)} +
           SubBlocks(Pack(codes, minimum));
}

static BYTES Frame(int left, int top, int width, int height, std::vector<size_t> indexes,
                   uint8_t packed = 0, const BYTES &palette = {})
{
    indexes.insert(indexes.begin(), 16);
    indexes.push_back(17);
    return Image(left, top, width, height, packed, palette, 4, indexes);
}

static BYTES Control(uint8_t packed, uint8_t transparent)
{
    return {'!', 249, 4, packed, 7, 1, transparent, 0};
}

// A screen's reds as hexadecimal digits (red / 10), "." where alpha is 0; one word per row.
static std::string RedsOf(const GIF_HEADER &screen, const uint8_t *p)
{
    std::string text;
    for (size_t i = 0; p && i < size_t{screen.Width} * screen.Height; i++) {
        if (i > 0 && i % screen.Width == 0)
            text += ' ';
        text += p[4 * i + 3] == 0 ? '.' : "0123456789ABCDEF"[p[4 * i] / 10];
    }
    return text;
}

static std::string Reds(uint16_t frame = 0)
{
    return RedsOf(GIF_Header, GIF_HEADER_GetFrameData(frame));
}

// The screens of all frames by the format's rules, in order. A canvas that jumps to a frame, and
// back to it from the last, shows the same.
static std::string Screens(const BYTES &file)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    const LOADED loaded(file);
    if (!loaded.Record.Pixels)
        return "";
    const GIF_PICTURE &gif = GIF_PictureOf(loaded.Record.Pixels);
    std::string text;
    GIF_CANVAS running = GIF_CanvasOf(loaded.Record.Pixels), back;
    for (size_t n = 0; n < gif.Frames.size(); n++) {
        GIF_CANVAS jumping;
        EXPECT_TRUE(GIF_Compose(gif, n, running) && GIF_Compose(gif, n, jumping) &&
                    GIF_Compose(gif, gif.Frames.size() - 1, back) && GIF_Compose(gif, n, back));
        EXPECT_TRUE(running.Screen == jumping.Screen && running.Screen == back.Screen) << n;
        text += (n > 0 ? ", " : "") + RedsOf(gif.Header, running.Screen.data());
        if (n == 0) {
            EXPECT_EQ(text, RedsOf(gif.Header, loaded.Record.Pixels));
        }
    }
    EXPECT_FALSE(GIF_Compose(gif, gif.Frames.size(), running));
    EXPECT_EQ(Picture_Reason(),
              "no frame " + std::to_string(gif.Frames.size() + 1) + " to compose");
    return text;
}

TEST(GIF, CodesBecomeIndexes)
{
    const struct {
        const char *what;
        std::vector<size_t> codes;  // 4 clears, 5 ends, new ones from 6
        const char *reds;
    } rows[] = {
        {"clear codes in front", {4, 4, 4, 1, 2, 3, 5}, "123000000000"},
        {"no clear code", {1, 2, 3, 5}, "123000000000"},
        {"strings", {4, 1, 2, 6, 7, 3, 5}, "121221300000"},
        {"the code that is being made", {4, 1, 6, 7, 5}, "111111000000"},
        {"a larger code size", {4, 1, 6, 7, 8, 3, 9, 5}, "111111111131"},
        {"cleared half way", {4, 1, 6, 4, 2, 6, 4, 5}, "111222000000"},
        {"cleared when codes are longer", {4, 1, 2, 3, 4, 2, 6, 5}, "123222000000"},
        {"after the end", {4, 1, 5, 2, 2}, "100000000000"},
        {"a code that is not defined yet", {4, 1, 7, 2}, "100000000000"},
        {"a first code that is not defined", {4, 6, 1}, "000000000000"},
        {"no end code", {4, 3, 2, 1}, "321000000000"},
        {"more than fits", {4, 1, 2, 6, 8, 9, 10, 11, 3, 5}, "121212112111"},
        {"nothing", {}, "000000000000"},
    };
    for (const auto &r : rows) {
        const LOADED loaded(Screen(12, 1) + Image(0, 0, 12, 1, 0, {}, 2, r.codes));
        EXPECT_EQ(Reds(), r.reds) << r.what;
    }
    for (const uint8_t minimum : BYTES{0, 12})  // no size of codes
        for (const uint8_t format : BYTES{PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
            const RULES rules(format);
            const LOADED loaded(Screen(2, 1) + Image(0, 0, 2, 1, 0, {}, minimum, {1, 2, 3}));
            EXPECT_EQ(RedsOf(GIF_Header, loaded.Record.Pixels), format ? "22" : "00");
            EXPECT_STREQ(Picture_Reason(), "frame 1 ends after 0 of 2 pixels") << int{minimum};
        }
}

TEST(GIF, AFullDictionaryKeepsItsCodes)
{
    std::mt19937 random(1);
    for (unsigned minimum = 1; minimum < 12; minimum++) {
        std::vector<size_t> codes;
        BYTES expected;
        for (size_t i = 0; i < 6000; i++) {
            codes.push_back(random() & ((1u << minimum) - 1));
            expected.push_back(static_cast<uint8_t>(codes.back()));
        }
        // A string from before the dictionary was full.
        codes.push_back((size_t{1} << minimum) + 2);
        expected.insert(expected.end(), {expected[0], expected[1]});
        const size_t count = expected.size();
        const BYTES image = Image(0, 0, static_cast<int>(count), 1, 0, {}, minimum, codes);
        GIF_Load(OwnFile(Screen(1, 1) + image).c_str());
        ASSERT_EQ(GIF_Frames.size(), 1u);
        EXPECT_EQ(BYTES(GIF_Frames[0].Data, GIF_Frames[0].Data + count), expected) << minimum;
    }
}

TEST(GIF, FramesLieOnTheScreen)
{
    const BYTES full = Frame(0, 0, 4, 2, {1, 1, 1, 1, 5, 6, 7, 8}), gone = Control(1, 3);
    const BYTES local = {10, 0, 0, 150, 0, 0};
    const struct {
        const char *what;
        BYTES second;
        const char *alone, *overlaid;
    } rows[] = {
        {"in the middle", Frame(1, 1, 2, 1, {3, 4}), ".... .34.", "1111 5348"},
        {"a local palette", Frame(0, 0, 2, 2, {0, 1, 1, 0}, 0x80, local), "1F.. F1..", "1F11 F178"},
        {"shows through from its place in the frame", gone + Frame(2, 0, 2, 2, {9, 3, 3, 9}),
         "..9. ...9", "1191 5619"},
        {"beyond the right: indexes run on", Frame(3, 0, 2, 2, {9, 10, 11, 12}), "...9 ...A",
         "1119 567A"},
        {"beyond the bottom", Frame(0, 1, 1, 3, {9, 10, 11}), ".... 9...", "1111 9678"},
        {"off the screen", Frame(4, 0, 1, 1, {9}), ".... ....", "1111 5678"},
        {"interlaced: at the top left", Frame(2, 1, 1, 4, {1, 2, 3, 4}, 0x40), "1324 ....",
         "1324 ...."},
        {"interlaced and too large", Frame(0, 0, 3, 4, {1, 1, 1, 2, 2, 2, 3, 3, 3}, 0x40),
         "1113 3322", "1113 3322"},
    };
    for (const auto &r : rows)
        for (uint16_t mode = 0; mode < 2; mode++) {
            const LOADED loaded(Screen(4, 2) + full + r.second + BYTES{';'}, mode);
            EXPECT_EQ(GIF_Header.FrameCount, 2) << r.what;
            EXPECT_EQ(Reds(0), "1111 5678") << r.what;
            EXPECT_EQ(Reds(1), mode == 0 ? r.alone : r.overlaid) << r.what;
        }
}

TEST(GIF, ScreensByTheFormatsRules)
{
    const auto disposing = [](int method) { return Control(static_cast<uint8_t>(method << 2), 0); };
    const BYTES screen = Screen(4, 2), full = Frame(0, 0, 4, 2, {1, 1, 1, 1, 5, 6, 7, 8});
    const BYTES middle = Frame(1, 0, 2, 2, {9, 10, 11, 12}), gone = Control(1, 3);
    const struct {
        const char *what;
        BYTES file;
        const char *screens;
    } rows[] = {
        {"the background colour around", screen + middle, "29A2 2BC2"},
        {"with transparency nothing", screen + gone + Frame(1, 0, 2, 2, {9, 3, 11, 12}),
         ".9.. .BC."},
        {"without a palette nothing",
         Text("GIF89a\4\0\2\0\0\0\0") + Frame(0, 0, 2, 1, {0, 1}, 0x80, {10, 0, 0, 150, 0, 0}),
         "1F.. ...."},
        {"beyond the right and the bottom: clipped",
         screen + full + Frame(3, 1, 2, 2, {9, 9, 9, 9}), "1111 5678, 1111 5679"},
        {"off the screen", screen + full + Frame(4, 0, 1, 1, {9}) + Frame(0, 2, 1, 1, {9}),
         "1111 5678, 1111 5678, 1111 5678"},
        {"interlaced in its place", screen + full + Frame(2, 1, 1, 4, {1, 2, 3, 4}, 0x40),
         "1111 5678, 1111 5618"},
        {"interlaced rows", Screen(1, 5) + Frame(0, 0, 1, 5, {1, 2, 3, 4, 5}, 0x40), "1 4 3 5 2"},
        {"missing pixels are not drawn", screen + full + Frame(0, 0, 4, 2, {9, 10, 11}),
         "1111 5678, 9AB1 5678"},
        {"what is drawn stays", screen + full + disposing(1) + middle + Frame(3, 1, 1, 1, {15}),
         "1111 5678, 19A1 5BC8, 19A1 5BCF"},
        {"what is drawn is cleared",
         screen + full + disposing(2) + Frame(1, 0, 2, 1, {9, 10}) + disposing(2) +
             Frame(0, 1, 1, 1, {9}) + Frame(3, 1, 1, 1, {15}),
         "1111 5678, 19A1 5678, 1..1 9678, 1..1 .67F"},
        {"what was before is restored",
         screen + full + disposing(3) + middle + disposing(3) + Frame(0, 0, 1, 1, {14}) +
             Frame(3, 1, 1, 1, {15}),
         "1111 5678, 19A1 5BC8, E111 5678, 1111 567F"},
        {"a frame that hides all, and is taken back",
         screen + full + disposing(3) + Frame(0, 0, 4, 2, {9, 9, 9, 9, 9, 9, 9, 9}) +
             Frame(3, 1, 1, 1, {15}),
         "1111 5678, 9999 9999, 1111 567F"},
        {"a frame that hides all after one that is taken back",
         screen + full + disposing(3) + middle + full + Frame(3, 1, 1, 1, {15}),
         "1111 5678, 19A1 5BC8, 1111 5678, 1111 567F"},
        {"eight pixels at once: all hidden, none, some; and two more",
         Screen(26, 1) + Frame(0, 0, 26, 1, std::vector<size_t>(26, 1)) + gone +
             Frame(0, 0, 26, 1,
                   {3, 3, 3, 3, 3, 3, 3, 3, 2, 2, 4, 5, 6, 7, 8, 9, 3, 9, 2, 3, 3, 3, 8, 3, 3, 7}),
         "11111111111111111111111111, 11111111224567891921118117"},
        {"a screen without a size", Screen(0, 5) + Frame(0, 0, 2, 1, {1, 2}), "12"},
        {"an empty comment", screen + BYTES{'!', 254, 0} + full, "1111 5678"},
        {"extensions of any size", screen + BYTES{'!', 1, 0, '!', 1, 2, 'a', ',', 1, ',', 0} + full,
         "1111 5678"},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Screens(r.file + BYTES{';'}), r.screens) << r.what;

    BYTES many = Screen(1, 1);
    for (size_t i = 0; i < GIF_MaxFrames + 2; i++)
        many = many + Frame(0, 0, 1, 1, {i % 16});
    const std::string all = Screens(many);
    EXPECT_EQ(all.size(), 3 * (GIF_MaxFrames + 2) - 2);
    EXPECT_EQ(all.substr(all.size() - 4), "0, 1");
}

TEST(GIF, FramesTravelWithTheirPicture)
{
    const BYTES file = Screen(2, 1) + Frame(0, 0, 2, 1, {1, 2}) + Frame(0, 0, 1, 1, {3});
    for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
        std::array<Picture, 3> pictures;
        std::thread([&] {
            Picture_Rules = rules;
            for (Picture &picture : pictures)
                picture = Picture_LoadBytes(file, 0, 0);
            Picture_UnLoad(pictures[0]);
            EXPECT_TRUE(rules == PICTURE_RULES_FORMAT || Reds(1) == "3.") << "the latest stays";
            Picture_UnLoad(pictures[2]);
            EXPECT_EQ(GIF_GetFrames(), nullptr);
            GIF_Load(OwnFile(file).c_str());  // never decoded: released with its thread
        }).join();
        EXPECT_EQ(GIF_GetFrames(), nullptr);
        const GIF_PICTURE &gif = GIF_PictureOf(pictures[1].Pixels);
        ASSERT_EQ(gif.Frames.size(), 2u);
        GIF_CANVAS canvas;
        EXPECT_EQ(GIF_Compose(gif, 1, canvas), rules == PICTURE_RULES_FORMAT);
        EXPECT_EQ(RedsOf(gif.Header,
                         rules == PICTURE_RULES_FORMAT ? canvas.Screen.data() : gif.Frames[1].Data),
                  rules == PICTURE_RULES_FORMAT ? "32" : "3.");
        Picture_UnLoad(pictures[1]);
    }
}

TEST(GIF, TheFirstFrameLiesOverItsOwnIndexes)
{
    const LOADED loaded(Screen(3, 1) + Control(1, 3) + Frame(1, 0, 2, 1, {3, 9}), 1);
    const BYTES pixels(loaded.Record.Pixels, loaded.Record.Pixels + 12);
    EXPECT_EQ(pixels, (BYTES{3, 9, 0, 0, 3, 9, 0, 0, 90, 0, 0, 255}));
    const LOADED alone(Screen(2, 1) + Frame(1, 0, 1, 1, {9}));
    EXPECT_EQ(BYTES(alone.Record.Pixels, alone.Record.Pixels + 4), (BYTES{20, 0, 0, 0}));
}

TEST(GIF, BlocksBesideTheFrames)
{
    const BYTES comment = BYTES{'!', 254, 200} + BYTES(199, 'c') + BYTES{',', 0};
    const BYTES application = Text("!\xFF\x0BNETSCAPE2.0\3\1;!\0");
    const BYTES plainText = BYTES{'!', 1, 12} + BYTES(12, ',') + BYTES{2, 'a', 'b', 0};
    const LOADED loaded(Screen(1, 1) + application + Control(0, 9) + comment + plainText +
                        BYTES{77} + Control(0x0E, 5) + Frame(0, 0, 1, 1, {4}) +
                        Frame(0, 0, 1, 1, {5}, 0x20) + BYTES{';'} + Frame(0, 0, 1, 1, {6}));
    EXPECT_EQ(loaded.Record.Bits, 2);  // 4 bits a component, less 2
    EXPECT_EQ(std::string(GIF_Header.Comment.data()), std::string(127, 'c'));
    GIF_HEADER header;
    ASSERT_EQ(GIF_GetHeader(&header)->FrameCount, 2);
    EXPECT_EQ(std::tuple(header.Version, header.GlobalColors, header.GlobalSorted,
                         header.ColorResolution, header.Background, header.AspectRatio, header.Size,
                         header.BlockOffset, header.DataSize[0]),
              std::tuple('9', 16, 1, 2, 2, 49, 4u, 61u, 2u));
    const GIF_FRAME *frames = GIF_GetFrames();
    EXPECT_EQ(std::tuple(frames[0].Delay, frames[0].Disposal, frames[0].HasTransparency,
                         frames[0].TransparentIndex),
              std::tuple(263, 3, 0, 5));
    EXPECT_EQ(frames[1].Delay + frames[1].Disposal + frames[1].TransparentIndex, 0);
    EXPECT_EQ(GIF_Header.HasLoopCount * 100000 + GIF_Header.LoopCount, 100000 + 0x213B);
    EXPECT_EQ(Extra_Pointer, 0);
    EXPECT_EQ(Extra_Heap[0], nullptr);

    const BYTES longComment = BYTES{'!', 254, 2, 'a', 'b', 3, 'c', 'd', 'e', 0};
    Screens(Screen(1, 1) + comment + longComment + Frame(0, 0, 1, 1, {4}));
    EXPECT_STREQ(GIF_Header.Comment.data(), "abcde");
}

TEST(GIF, FramesAreBounded)
{
    BYTES many = Screen(2, 2);
    for (size_t i = 0; i < GIF_MaxFrames + 1; i++)
        many = many + Frame(0, 0, 1, 1, {1});
    EXPECT_NE(LOADED(many).Record.Pixels, nullptr);
    EXPECT_EQ(GIF_Header.FrameCount, GIF_MaxFrames);

    const BYTES first = Screen(2, 2) + Frame(0, 0, 2, 2, {1, 2, 3, 4});
    const struct {
        const char *what;
        BYTES file;
        uint16_t count;
        const char *reason;
    } rows[] = {
        {"as much as fits", first + Frame(0, 0, 1, 1, {1}), 2, ""},
        {"a picture too many", first + Frame(0, 0, 1, 1, {1}) + Frame(0, 0, 1, 1, {1}), 2,
         "frame 3 and on: more pixels than are believed of 108 bytes"},
        {"a frame larger than the screen", first + Frame(0, 0, 5, 1, {1}), 1,
         "frame 2 and on: more pixels than are believed of 93 bytes"},
        {"a screen too large", Screen(3, 3) + Frame(0, 0, 1, 1, {1}), 0,
         "3 x 3 pixels are more than 0 MiB"},
        {"a frame cut short in its descriptor", first + BYTES{',', 0, 0}, 1, "cut in frame 2"},
        {"no frame", Screen(2, 2), 0, "no frames"},
        {"a screen that so few bytes are not believed to need",
         Screen(65535, 65535) + Frame(0, 0, 1, 1, {1}), 0,
         "65535 x 65535 pixels are more than 0 MiB"},
    };
    const size_t limit = Picture_MaxBytes;
    Picture_MaxBytes = 32;
    for (const auto &r : rows) {
        const LOADED loaded(r.file);
        EXPECT_EQ(GIF_Header.FrameCount, r.count) << r.what;
        EXPECT_EQ(loaded.Record.Pixels != nullptr, r.count > 0) << r.what;
        EXPECT_STREQ(Picture_Reason(), r.reason) << r.what;
    }
    // A screen of 4 GiB, which the header's size cannot hold, though the caller allows it.
    Picture_MaxBytes = SIZE_MAX;
    EXPECT_TRUE(PixelsOf(Screen(32768, 32768) + Frame(0, 0, 1, 1, {1}) + BYTES(2 << 20)).empty());
    Picture_MaxBytes = limit;
    for (const int height : {1365, 1366})  // of 512 bytes, that many a file counts at least
        EXPECT_EQ(PixelsOf(Screen(2048, height) + Frame(0, 0, 1, 1, {1})).empty(), height == 1366);
}

TEST(GIF, RealFilesAndTheirPrefixes)
{
    CheckFile("gif/hippopotamus.interlaced.gif", 0x1295005ab14cbdfb, 7, {0x03, 0x1D, 0x1D, 255});
    CheckFile("gif/animated-red-blue.gif", 0x6564893daa13f911, 7, {0, 0, 0, 255});
    CheckFile("gif/transparent-index.gif", 0x7082513c4d0ed0a5, 1, {0, 0, 0, 255});
}
