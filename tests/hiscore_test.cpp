#include "game/hiscore.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "game/minefield.h"
#include "game/moves.h"
#include "tests/files.h"

// Tables of an 8 by 9 field with 10 mines, in a folder of their own.
class Hiscore : public testing::Test
{
protected:
    std::string folder = TempPath("folder");
    std::filesystem::path before = std::filesystem::current_path();

    void SetUp() override
    {
        std::filesystem::create_directories(folder + "/datas");
        std::filesystem::current_path(folder);
        xDim = 8;
        yDim = 9;
        nMines = 10;
        NameHiscoreFile();
    }
    void TearDown() override
    {
        std::filesystem::current_path(before);
        std::filesystem::remove_all(folder);
    }
    static void WriteText(const std::string &text)
    {
        std::ofstream(fnHiscore.data(), std::ios::binary) << text;
    }
    static std::string ReadText()
    {
        std::ostringstream text;
        text << std::ifstream(fnHiscore.data(), std::ios::binary).rdbuf();
        return text.str();
    }
};

constexpr char defaultEntry[] = "NoName\n59:59:59:1000, 10000\n";

static std::string Repeat(const std::string &text, int count)
{
    return count == 0 ? "" : text + Repeat(text, count - 1);
}

TEST_F(Hiscore, FileNameTellsTheField)
{
    EXPECT_STREQ(fnHiscore.data(), "datas/topten_8x9_10.txt");
    xDim = yDim = 64;
    nMines = 255;
    NameHiscoreFile();
    EXPECT_STREQ(fnHiscore.data(), "datas/topten_64x64_255.txt");
}

TEST_F(Hiscore, WhatTheFileLacksIsDefault)
{
    const std::string good = "Anna 2\n00:00:12:0340, 00013\n", empty = "\n00:01:00:0000, 00020\n";
    const struct {
        const char *what;
        std::string file, table;
    } rows[] = {
        {"as the game writes it", good + empty + Repeat(defaultEntry, 8),
         good + empty + Repeat(defaultEntry, 8)},
        {"empty", "", Repeat(defaultEntry, 10)},
        {"cut in a record", good + "Bob\n00:00:1", good + Repeat(defaultEntry, 9)},
        {"carriage returns, no last line feed", "Bob\r\n00:00:12:0340, 00013",
         "Bob\n00:00:12:0340, 00013\n" + Repeat(defaultEntry, 9)},
        {"a name too long", std::string(300, 'x') + "\n00:00:12:0340, 00013\n",
         std::string(19, 'x') + "\n00:00:12:0340, 00013\n" + Repeat(defaultEntry, 9)},
        {"a record that is none", "Bob\nfast\n" + good,
         defaultEntry + good + Repeat(defaultEntry, 8)},
        {"a hundred hours and steps", "Bob\n255:59:59:0990, 123456\n",
         "Bob\n255:59:59:0990, 123456\n" + Repeat(defaultEntry, 9)},
        {"more than ten", Repeat(good, 12), Repeat(good, 10)},
    };
    for (const auto &r : rows) {
        WriteText(r.file);
        ReadHiscore();
        WriteHiscore();
        EXPECT_EQ(ReadText(), r.table) << r.what;
    }
}

TEST_F(Hiscore, AFileThatCannotBeReplacedStays)
{
    WriteText("old");
    HiScore = {};
    const std::string beside = std::string(fnHiscore.data()) + ".new";
    std::filesystem::create_directory(beside);
    testing::internal::CaptureStderr();
    WriteHiscore();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "datas/topten_8x9_10.txt: cannot be written: Is a directory\n");
    EXPECT_EQ(ReadText(), "old");
}

TEST_F(Hiscore, AFileThatCannotBeReadStays)
{
    const std::string refusal = std::string(fnHiscore.data()) + ": cannot be read: ";
    ASSERT_TRUE(std::freopen("/dev/null", "r", stdin));
    const auto play = [](uint8_t end) {
        mb = end;
        testing::internal::CaptureStderr();
        Destroy();
        return testing::internal::GetCapturedStderr();
    };
    std::filesystem::create_directory(fnHiscore.data());
    EXPECT_EQ(play(GAME_WON), refusal + "Is a directory\n");
    std::filesystem::remove(fnHiscore.data());
    std::filesystem::create_symlink("topten_8x9_10.txt", fnHiscore.data());  // to itself
    EXPECT_EQ(play(GAME_WON), refusal + "Too many levels of symbolic links\n");
    EXPECT_EQ(play(GAME_SPINNING), refusal + "Too many levels of symbolic links\n") << "still so";
}
