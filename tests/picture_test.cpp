#include "picture/picture.h"

#include <vector>

#include <gtest/gtest.h>

#include "extra/reason.h"
#include "tests/files.h"

TEST(PictureCheck, TheLastSignatureThatMatchesWins)
{
    const std::tuple<const char *, BYTES, uint8_t> rows[] = {
        {"empty", {}, PICTURE_UNKNOWN},
        {"HAM6", Text("HAM6"), PICTURE_HAM68},
        {"BMP", Text("BM"), PICTURE_BMP},
        {"PCX, whatever follows", Text("\x0A..."), PICTURE_PCX},
        {"P6", Text("P6"), PICTURE_PNM},
        {"Exif", Text("\xFF\xD8\xFF\xE1..Exif"), PICTURE_JPEG},
        {"Exif in the JFIF segment", Text("\xFF\xD8\xFF\xE0..Exif"), PICTURE_UNKNOWN},
        {"TGA", Text("\0\0\2.............\x18"), PICTURE_TGA},
        {"TGA of an invalid depth", Text("\0\0\2.............\x0F"), PICTURE_UNKNOWN},
        {"short TGA: the depth reads as 0", Text("\0\0\2"), PICTURE_TGA},
        {"PNG", Text("\x89PNG\r\n\x1A\n"), PICTURE_PNG},
        {"ILBM", Text("FORM....ILBM"), PICTURE_ILBM},
        {"8SVX is no picture", Text("FORM....8SVX"), PICTURE_UNKNOWN},
        {"XBM", Text("#define a_width 8\n#define a_height 8\nchar a_bits[]"), PICTURE_XBM},
        {"XBM in capitals", Text("A_WIDTH A_HEIGHT A_BITS"), PICTURE_XBM},
        {"XBM names after a NUL", Text("a_width a_height\0a_bits"), PICTURE_UNKNOWN},
        {"TIFF", Text("II*"), PICTURE_TIFF},
        {"TIFF that names XBM's parts", Text("MM _bits _height _width"), PICTURE_TIFF},
        {"GIF", Text("GIF89a"), PICTURE_GIF},
        {"sprites", Text("SPRITES"), PICTURE_SPRITES},
    };
    for (const auto &[what, bytes, format] : rows)
        EXPECT_EQ(Picture_Check(WriteTemp("check", bytes).c_str(), 0), format) << what;

    const BYTES late = BYTES(236, '.') + Text("_width _height _bits");  // 256 bytes are read
    EXPECT_EQ(Picture_Check(WriteTemp("check", late).c_str(), 0), PICTURE_XBM);
    const BYTES later = BYTES{'.'} + late;
    EXPECT_EQ(Picture_Check(WriteTemp("check", later).c_str(), 0), PICTURE_UNKNOWN);
}

TEST(PictureCheck, RawPlanesAreTakenAtTheCallersWord)
{
    const std::string path = WriteTemp("check", Text("BM"));
    EXPECT_EQ(Picture_Check(path.c_str(), 6), PICTURE_HAM68);
    EXPECT_EQ(Picture_Check(path.c_str(), 7), PICTURE_BMP);
    EXPECT_EQ(Picture_Check("no such file", 8), PICTURE_UNKNOWN);
    EXPECT_EQ(Picture_Check(testing::TempDir().c_str(), 8), PICTURE_UNKNOWN);
}

TEST(PictureLoad, WhatCannotBeReadIsTheNullPicture)
{
    for (const auto &[path, reason] :
         {std::pair(std::string("none"), "cannot be opened: No such file or directory"),
          {WriteTemp("load", Text("nothing known")), "not a picture of a known format"}}) {
        const Picture picture = Picture_Load(path.c_str(), 0, 0);
        EXPECT_EQ(picture.Format, PICTURE_UNKNOWN);
        EXPECT_EQ(picture.Pixels, nullptr);
        EXPECT_EQ(picture.Width + picture.Height + picture.Bits, 0);
        EXPECT_STREQ(Picture_Reason(), reason);
        Picture_UnLoad(picture);
    }
}

TEST(PictureLoad, SizesAreBounded)
{
    EXPECT_EQ(Picture_NewPixels(0, 5), nullptr);
    EXPECT_EQ(Picture_NewPixels(0xFFFFFFFF, 0xFFFFFFFF), nullptr);
    const size_t limit = Picture_MaxBytes;
    Picture_MaxBytes = 400;
    uint8_t *pixels = Picture_NewPixels(10, 10);
    EXPECT_NE(pixels, nullptr);
    std::free(pixels);
    EXPECT_EQ(Picture_NewPixels(10, 11), nullptr);
    Picture_MaxBytes = limit;
    const std::tuple<const char *, PICTURE_CLAIM, const char *> rows[] = {
        {"an eighth of the pixels", {100, 80, 1000, 10}, ""},
        {"less", {100, 80, 999, 10}, "10 bytes cannot hold 100 x 80 pixels"},
        {"no height", {100, 0, 1000, 10}, "a side of 0 pixels"},
        {"no width", {0, 100, 1000, 10}, "a side of 0 pixels"},
        {"the memory that any file gets", {4096, 3072, 1 << 30, 0}, ""},
        {"a page more",
         {4096, 3072, 1 << 30, 0, 4096},
         "0 bytes are not worth the memory of 4096 x 3072 pixels"},
        {"a page more for another byte", {4096, 3072, 1 << 30, 1, 4096}, ""},
        {"the largest picture", {16384, 8192, 1 << 30, 1 << 20}, ""},
        {"a larger one",
         {16384, 8193, 1 << 30, 1 << 20},
         "16384 x 8193 pixels are more than 512 MiB"},
    };
    for (const auto &[what, claim, reason] : rows) {
        Reason_Clear();
        EXPECT_EQ(Picture_Believes(claim), *reason == 0) << what;
        EXPECT_STREQ(Picture_Reason(), reason) << what;
    }
    EXPECT_STREQ(Picture_FormatName(PICTURE_PNG), "PNG");
    EXPECT_STREQ(Picture_FormatName(200), Picture_FormatName(PICTURE_UNKNOWN));
}

TEST(PictureSprites, LeaveOnlyTheirSizes)
{
    const std::string path = TempPath("sprite.ham8");
    BYTES pixels(16 * 2 * 4, 100);
    Picture picture{};
    picture.Width = picture.BufferWidth = 16;
    picture.Height = picture.BufferHeight = 2;
    picture.Pixels = pixels.data();
    ASSERT_EQ(Picture_Converter(4, path.c_str(), picture), 0);
    const Picture sprite = Sprite_Load(path.c_str(), 0, 0);
    EXPECT_EQ(sprite.Width, 16);
    EXPECT_EQ(sprite.Bits, 8);
    EXPECT_EQ(sprite.Format, PICTURE_HAM68);
}
