// The player's sounds where the file fails, moved in, and made quieter.
#include <cmath>
#include <filesystem>
#include <random>

#include <fcntl.h>
#include <unistd.h>

#include "tests/files.h"
#include "tools/player/convert.h"
#include "tools/player/sound.h"

// 16-bit stereo noise.
static BYTES Wave(size_t bytes)
{
    std::minstd_rand random(1);
    BYTES data(bytes);
    for (uint8_t &byte : data)
        byte = static_cast<uint8_t>(random() >> 8);
    const auto size = static_cast<int64_t>(bytes);
    return Text("RIFF") + Number(size + 36, -4) + Text("WAVEfmt ") + Number(16, -4) +
           Number(1, -2) + Number(2, -2) + Number(44100, -4) + Number(176400, -4) + Number(4, -2) +
           Number(16, -2) + Text("data") + Number(size, -4) + data;
}

TEST(Player, AFailedReadLeavesNoFile)
{
    PLAYER_SOUND sound;
    ASSERT_EQ(Player_Open(WriteTemp("in.wav", Wave(1 << 20)), {}, sound), "");
    const int folder = open(TempPath("").c_str(), O_RDONLY);
    ASSERT_GE(dup2(folder, fileno(sound.Track->File.get())), 0);  // which reads EISDIR
    close(folder);
    for (const char *name : {"out.wav", "out.raw"})
        EXPECT_EQ(Player_Convert(sound, 1, Player_Format(sound), TempPath(name)),
                  "it cannot be read to its end: Is a directory");
    EXPECT_EQ(sound.Track->Error, EISDIR);
    for (const auto &left : std::filesystem::directory_iterator(TempPath("")))
        EXPECT_EQ(left.path().filename(), "in.wav");
}

// What follows a seek is what stands there when all is decoded.
TEST(Player, SeeksToTheFrame)
{
    const std::string files[] = {WriteTemp("noise.wav", Wave(1 << 20)), TEST_DATA "mp3_joint.mp3"};
    for (const std::string &path : files) {
        PLAYER_SOUND sound;
        ASSERT_EQ(Player_Open(path, {}, sound), "");
        const double total = Player_Seconds(sound, sound.Bytes);
        uint32_t passes = 1;
        BYTES whole(2 << 20), part(4000);
        Player_Start(sound);
        whole.resize(Player_Take(sound, passes, whole));
        for (const double seconds : {total / 2, total / 3, 0.0, total * 0.8, total / 10}) {
            const size_t start = static_cast<size_t>(seconds * sound.Hz) * Player_FrameBytes(sound);
            Player_Seek(sound, seconds);
            EXPECT_EQ(Player_Take(sound, passes, part), part.size());
            ASSERT_LE(start + part.size(), whole.size());
            EXPECT_TRUE(std::equal(part.begin(), part.end(), &whole[start])) << path << seconds;
        }
        Player_Seek(sound, total + 1);
        EXPECT_EQ(Player_Take(sound, passes, part), 0u);
        EXPECT_EQ(sound.Track->Ended, 1);
    }
}

TEST(Player, Scales)
{
    const struct {
        uint32_t Bits;
        BYTES Samples, Half;
    } rows[] = {
        {8, {0, 128, 255}, {64, 128, 191}},
        {16, {0, 0x80, 0xFE, 0x7F}, {0, 0xC0, 0xFF, 0x3F}},
        {24, {0, 0, 0x80, 2, 0, 0}, {0, 0, 0xC0, 1, 0, 0}},
        {32, {0, 0, 0, 0x80, 2, 0, 0, 0}, {0, 0, 0, 0xC0, 1, 0, 0, 0}},
    };
    for (const auto &row : rows) {
        BYTES samples = row.Samples;
        Samples_Scale(samples, row.Bits, 0.5);
        EXPECT_EQ(samples, row.Half) << row.Bits;
    }
}
