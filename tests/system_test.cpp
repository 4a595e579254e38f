#include "platform/system.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

TEST(System, RandomNumbersFollowTheRecurrence)
{
    System_RND = System_RND2 = 0;
    using STEP = std::array<uint16_t, 3>;
    for (const STEP &step : {STEP{3, 4726, 22083}, {1, 53720, 52751}, {0, 33279, 44090}}) {
        const uint16_t result = System_RaNDom(10);
        EXPECT_EQ((STEP{result, System_RND, System_RND2}), step);
    }
}

TEST(System, NumbersOfTexts)
{
    const std::pair<const char *, uint32_t> rows[] = {
        {"007", 7},        {"  12", 12},
        {"", 0},           {"000", 0},
        {" 0 10", 10},     {"4294967295", 4294967295u},
        {"4294967296", 0}, {"-5", 4294967271u},  // the minus sign counts -3 tens
        {"1a", 59},        {"99999999999999999999999", 0},
    };
    for (const auto &[text, value] : rows)
        EXPECT_EQ(System_StrToInt(text), value) << text;
}

TEST(System, TextsOfNumbers)
{
    char text[12];
    System_IntToStr(0, text);
    EXPECT_STREQ(text, "0");
    System_IntToStr(4294967295u, text);
    EXPECT_STREQ(text, "4294967295");
    EXPECT_STREQ(System_itoa(-2147483647 - 1, text, 16), "-2147483648");
}

TEST(System, SearchFindsWithCaseOffset)
{
    const struct {
        const char *text, *pattern;
        uint32_t from;
        int8_t offset;
        int found;
        uint32_t at;
    } rows[] = {
        {"speaker Output", "Output", 0, 0, 1, 8},
        {"speaker output", "OUTPUT", 0, 32, 1, 8},
        {"#define X_WIDTH 8", "_width", 0, -32, 1, 9},
        {"abab", "ab", 1, 0, 1, 2},
        {"ab", "abc", 0, 0, 0, 0},
        {"ab", "b ", 0, -32, 0, 0},  // a blank less 32 does not match the end
        {"ab", "", 1, 0, 1, 1},
        {"", "", 0, 0, 0, 0},
    };
    for (const auto &r : rows) {
        uint32_t position = r.from;
        EXPECT_EQ(System_StrSearch(r.text, r.pattern, &position, r.offset), r.found)
            << r.text << " / " << r.pattern;
        EXPECT_EQ(position, r.found ? r.at : r.from) << r.text << " / " << r.pattern;
    }
}

TEST(System, FieldsOfTexts)
{
    const std::tuple<const char *, uint32_t, uint32_t> rows[] = {
        {"123 45", 123, 4},
        {"9\n\0\0\0\0\0", 9, 2},
        {"\r\0\0\0\0\0\0\0", 0, 1},
        {"123456789", 1234567, 8},  // seven characters, and the eighth is consumed with them
    };
    for (const auto &[text, value, end] : rows) {
        uint32_t position = 0;
        EXPECT_EQ(System_ReadNumber(text, &position), value) << text;
        EXPECT_EQ(position, end) << text;
    }
    for (const auto &[text, value] :
         {std::pair(std::string("1A2b"), 6699), {"PY", 9}, {"12345", 0x2345}}) {
        uint32_t position = 0;
        const auto digits = static_cast<uint8_t>(text.size());
        EXPECT_EQ(System_ReadHexNumber(text.c_str(), &position, digits), value) << text;
        EXPECT_EQ(position, digits) << text;
    }
    uint32_t position = 1;
    System_StrSkipSpace("x  \ty", &position);
    EXPECT_EQ(position, 3u);
}

TEST(System, BytesAndBounds)
{
    EXPECT_EQ(System_MakeWord(255, 127), 32767);
    EXPECT_EQ(System_MakeUDWord(0x178, 0x56, 0x34, 0xFF12), 0x12345678u);
    EXPECT_EQ(System_Clamp(5, 10, 0), 0);  // the upper bound wins when they cross
}

TEST(System, TextFilesAreCutToTheirBuffer)
{
    const std::string path = testing::TempDir() + "system_test.txt";
    std::ofstream(path) << "0123456789";
    char buffer[16] = "xxxxxxxxxxxxxxx";
    EXPECT_EQ(System_LoadTextFile(path.c_str(), buffer), 0);
    EXPECT_STREQ(buffer, "0123456789");
    System_LoadTextFile(path.c_str(), std::span(buffer).first(5));
    EXPECT_STREQ(buffer, "0123");
    EXPECT_EQ(buffer[5], '5');
    std::ofstream(path) << std::string(65536 + 3, 'y');
    System_LoadTextFile(path.c_str(), buffer);
    EXPECT_STREQ(buffer, "yyy");  // sizes count modulo 65536
    EXPECT_TRUE(System_FileExists(path.c_str()));
    std::remove(path.c_str());
    EXPECT_FALSE(System_FileExists(path.c_str()));
    System_LoadTextFile(path.c_str(), buffer);
    EXPECT_STREQ(buffer, "yyy");
    EXPECT_TRUE(System_DirectoryExists(testing::TempDir().c_str()));
    EXPECT_FALSE(System_DirectoryExists(path.c_str()));
}
