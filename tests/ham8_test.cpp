#include "tools/art/ham8.h"

#include <gtest/gtest.h>

#include "picture/picture.h"
#include "tests/files.h"

constexpr uint16_t Width = 64, Height = 16;

static uint8_t Low(size_t v)
{
    return static_cast<uint8_t>(v);
}

TEST(HAM8, DecodedAsItWasMeant)
{
    const std::tuple<const char *, HAM8_RGB (*)(size_t x, size_t y), bool> rows[] = {
        {"64 odd colours",
         [](size_t x, size_t y) {
             const size_t k = (x * x + 5 * y) % 64;
             return HAM8_RGB{Low(255 - k), Low(k * 37 + 1), Low(k * k)};
         },
         true},
        {"a thousand colours, one component at a time",
         [](size_t x, size_t y) {
             return HAM8_RGB{Low(x / 3 * 4), Low((x + 1) / 3 * 4 + 8 * y), Low((x + 2) / 3 * 4)};
         },
         true},
        {"too much for the format",
         [](size_t x, size_t y) {
             return HAM8_RGB{Low(x * x * 7), Low(x * y * 11), Low(x * 99)};
         },
         false},
    };
    for (const auto &[what, colour, exact] : rows) {
        std::vector<HAM8_RGB> pixels;
        for (size_t i = 0; i < Width * Height; i++)
            pixels.push_back(colour(i % Width, i / Width));
        const HAM8_IMAGE image = HAM8_Encode(pixels, Width, 20);
        const Picture picture = Picture_Load(WriteTemp("ham8", HAM8_File(image)).c_str(), 0, 0);
        ASSERT_TRUE(picture.Pixels && picture.Width == Width && picture.Height == Height) << what;
        uint64_t squares = 0;
        for (size_t i = 0; i < pixels.size() * 3; i++) {
            const int error = picture.Pixels[i / 3 * 4 + i % 3] - pixels[i / 3][i % 3];
            squares += static_cast<uint64_t>(error * error);
        }
        Picture_UnLoad(picture);
        EXPECT_EQ(squares, image.Cost) << what;
        EXPECT_EQ(squares == 0, exact) << what;
    }
}
