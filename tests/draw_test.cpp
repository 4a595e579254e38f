#include "picture/draw.h"

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/canvas.h"

// A picture from text, '/' between its rows: a letter is the red of a pixel with green 1, blue 2
// and alpha 3, of a blank 0. It is its own thumbnail. Columns past `width` belong to the buffer
// only. The bytes end at an allocation's end, so that the address sanitizer sees reads past it.
struct SAMPLE : Picture {
    std::vector<uint8_t> Bytes;

    explicit SAMPLE(const std::string &text, size_t width) : Picture{}
    {
        for (const char letter : text)
            if (letter != '/')
                Bytes.insert(Bytes.end(), {static_cast<uint8_t>(letter), 1, 2,
                                           static_cast<uint8_t>(letter == ' ' ? 0 : 3)});
        Bytes.shrink_to_fit();
        Width = static_cast<uint16_t>(width);
        BufferWidth = static_cast<uint16_t>(text.find('/'));
        Height = BufferHeight = static_cast<uint16_t>(Bytes.size() / 4 / BufferWidth);
        ThumbWidth = Width, ThumbHeight = Height, ThumbBufferWidth = BufferWidth;
        Pixels = ThumbPixels = Bytes.data();
    }
};

TEST(Drawing, Points)
{
    Picture_SetColor('-', 1, 2, 3);
    const SAMPLE abc("ab-/-cd/", 3), wide("ab##/cd##/", 2), hole("1234/5 78/", 3),
        keys("--/--/", 2), letters("abcd/efgh/ijkl/", 4);
    SAMPLE cut("ab/cd/", 2), none("ab/", 2);
    cut.BufferHeight = 1;
    none.Pixels = nullptr;
    const auto otherKey = [&] {
        Picture_SetColor('-', 1, 2, 4);
        Picture_Draw(0, 1, 2, 2, keys);
        Picture_SetColor('-', 1, 2, 3);
    };
    const auto inverted = [&] {
        Picture_Inverse(0, 1, 3, 2, abc);
        EXPECT_EQ(Graphics_GetPixel(0, 1), 0x03FDFE9Eu);
    };
    const auto replaced = [&] {
        Picture_CDraw(0, 1, 3, 2, abc, 'K', 9, 9, 9);
        EXPECT_EQ(Graphics_GetPixel(0, 1), 0x03020161u);
    };
    const std::tuple<const char *, std::function<void()>, const char *> rows[] = {
        // Rows go upwards from y.
        {"its own size", [&] { Picture_Draw(1, 2, 3, 2, abc); }, "/..cd/.ab"},
        {"not mirrored across", [&] { Picture_HDraw(1, 2, 3, 2, abc); }, "/..cd/.ab"},
        {"nor upside down", [&] { Picture_VDraw(1, 2, 3, 2, abc); }, "/..cd/.ab"},
        {"twice the size", [&] { Picture_Draw(0, 3, 6, 4, abc); }, "..ccdd/..ccdd/aabb/aabb"},
        {"uneven", [&] { Picture_Draw(0, 2, 5, 3, abc); }, "..ccd/aabb/aabb"},
        {"over the edges", [&] { Picture_Draw(-2, 0, 9, 2, abc); }, "abbb"},
        {"a wider buffer", [&] { Picture_Draw(0, 1, 4, 2, wide); }, "ccdd/aabb"},
        {"a buffer cut short", [&] { Picture_Draw(0, 1, 2, 2, cut); }, "/ab"},
        {"nothing but key", [&] { Picture_Draw(0, 3, 6, 4, keys); }, ""},
        {"another alpha is no key", otherKey, "--/--"},
        {"key replaced", replaced, "Kcd/abK"},
        {"all replaced", [&] { Picture_CDraw(0, 1, 4, 2, keys, 'K', 9, 9, 9); }, "KKKK/KKKK"},
        {"inverted", inverted, "\xD2\x9C\x9B/\x9E\x9D\xD2"},
        {"no pixels", [&] { Picture_Draw(0, 3, 6, 4, none); }, ""},
        {"a pixel", [&] { Picture_PutPixel(2, 1, &abc, 4); }, "/..b"},
        {"the last one", [&] { Picture_PutPixel(0, 0, &abc, 20); }, "d"},
        {"beyond it", [&] { Picture_PutPixel(0, 0, &abc, 21); }, ""},
        {"a line into the next row", [&] { Picture_Line(0, 0, 5, 0, &abc, 0, 1); }, "ab..c"},
        {"half a pixel a point", [&] { Picture_Line(0, 2, 2, 0, &abc, 0, 0.5f); }, "/.a/a"},
        {"two, to the buffer's end", [&] { Picture_Line(0, 0, 9, 0, &letters, 4, 2); }, "bdfhjl"},
        {"backwards, to its start", [&] { Picture_Line(0, 0, 9, 0, &letters, 12, -1); }, "dcba"},
        {"a step without bounds", [&] { Picture_Line(0, 0, 9, 0, &abc, 0, INFINITY); }, "a"},
        {"less than a pixel left", [&] { Picture_Line(0, 0, 9, 0, &abc, 21, 0); }, ""},
        // The expected rotations come from an independent program in another language.
        {"turned by nothing", [&] { Picture_Rotate(1, 5, 7, 4, 0, letters); },
         "//....hhi/..ffgdde/eeebbc/.aaa"},
        {"by 90 degrees", [&] { Picture_Rotate(1, 4, 7, 4, 90, letters); },
         "/...ee/..idd/..hhcc/...gbb/...ffaa/....eaa/....ee"},
        {"by 200 degrees", [&] { Picture_Rotate(-3, 3, 8, 6, 200, letters); },
         "....aae/...aaeii/..bbfii/.ccgjj/.ccgk/ddhkk/eill"},
        {"turned from a wider buffer", [&] { Picture_Rotate(1, 4, 7, 4, -30, wide); },
         "//.######c/.aaaabb#/.aaaabb#"},
        {"two corners in the middle", [&] { Picture_Rotate(1, 5, 1, 6, 0, letters); },
         "//ii/ee/ee/aa/.aa"},
        {"put", [&] { Picture_Put(2, 3, hole); }, "//..5.7/..123"},
        {"put, the thumbnail", [&] { Picture_PutThumbnail(2, 3, hole); }, "//..5.7/..123"},
        {"put over the edges", [&] { Picture_Put(7, 0, hole); }, ".......12"},
        {"put, no pixels", [&] { Picture_Put(2, 3, none), Picture_PutThumbnail(2, 3, {}); }, ""},
        {"put half round", [&] { Picture_PutRotate(4, 4, -180, 3, 2, hole); }, "///...321/...7.5"},
        {"and twice the size", [&] { Picture_PutRotate(4, 4, -180, 6, 4, hole); },
         "//..332211/..332211/..77..55/..77..55"},
        // In double precision a half turn is slightly less, and offsets truncate toward zero.
        {"put, turned by nothing", [&] { Picture_PutRotate(4, 4, 0, 3, 2, hole); },
         "////...5.7/....3"},
        {"put, no width", [&] { Picture_PutRotate(4, 4, 45, 0, 5, hole); }, ""},
        {"put, no such picture", [&] { Picture_PutRotate(4, 4, 0, 3, 2, {}); }, ""},
        {"no angle", [&] { Picture_Rotate(1, 5, 7, 4, NAN, letters); }, ""},
        {"nor here", [&] { Picture_PutRotate(4, 4, INFINITY, 4, 3, letters); }, ""},
    };
    for (const auto &[what, draw, drawn] : rows)
        EXPECT_EQ(Drawn(9, 8, draw), drawn) << what;
}

TEST(Drawing, PointsOfALine)
{
    using POINTS = std::vector<uint16_t>;
    const struct {
        int16_t x1, y1, x2, y2;
        int last;
        POINTS xs, ys;
    } rows[] = {
        {0, 0, 3, 0, 2, {0, 1, 2, 7, 7}, {0, 0, 0, 7, 7}},
        {0, 0, -1, 4, 3, {0, 0, 0, 65535, 7}, {0, 1, 2, 3, 7}},
        {0, 0, 5, 2, 4, {0, 1, 2, 3, 4}, {0, 0, 1, 1, 2}},
        {3, 1, 3, 1, 65535, {7, 7, 7, 7, 7}, {7, 7, 7, 7, 7}},
        {32767, 0, -32768, 0, 0, {32767, 7, 7, 7, 7}, {0, 7, 7, 7, 7}},  // 1 apart in 16 bits
    };
    for (const auto &r : rows) {
        POINTS xs(5, 7), ys(5, 7);
        EXPECT_EQ(Picture_GetLineXY(r.x1, r.y1, r.x2, r.y2, xs.data(), ys.data()), r.last);
        EXPECT_EQ(std::pair(xs, ys), std::pair(r.xs, r.ys)) << "to " << r.x2;
    }
}

// Whatever the sizes: only the picture's own pixels are drawn, and every call ends.
TEST(Drawing, ExtremeSizes)
{
    constexpr int16_t sizes[] = {-32768, -32767, -2, -1, 0, 1, 2, 3, 231, 32767};
    SAMPLE sample("abc/def/", 3);
    for (const uint16_t claimed : {uint16_t{3}, uint16_t{65535}})
        for (const int16_t width : sizes)
            for (const int16_t height : sizes) {
                if (std::abs(width * height) > 1000000)
                    continue;  // slow, otherwise harmless
                sample.Width = sample.Height = claimed;
                const std::string scaled =
                    Drawn(9, 8, [&] { Picture_Draw(4, 4, width, height, sample); });
                EXPECT_EQ(scaled.find('a') != std::string::npos, width > 0 && height > 0);
                std::string turned;
                if (std::abs(width) > 3 || std::abs(height) < 1000)  // slow, otherwise harmless
                    turned = Drawn(9, 8, [&] { Picture_Rotate(-3, 7, width, height, 77, sample); });
                EXPECT_EQ((scaled + turned).find_first_not_of("./abcdef"), std::string::npos)
                    << width << 'x' << height;
            }
}
