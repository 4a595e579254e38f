// The player's sounds: read errors, seeking, and volume.
#include <cmath>
#include <cstring>
#include <numbers>

#include "tests/sound_files.h"
#include "tools/player/list.h"
#include "tools/player/open.h"
#include "tools/player/screen.h"

// What follows a seek is what lies there in a full decoding.
TEST(Player, SeeksToTheFrame)
{
    PLAYER_SOUND sound;
    ASSERT_EQ(Player_Open(TEST_DATA "mp3_joint.mp3", {}, sound), "");
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
        EXPECT_TRUE(std::equal(part.begin(), part.end(), &whole[start])) << seconds;
    }
    Player_Seek(sound, total + 1);
    EXPECT_EQ(Player_Take(sound, passes, part), 0u);
    EXPECT_EQ(sound.Track->Ended, 1);
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

TEST(Player, ConvertsBits)
{
    const SAMPLES_FORMAT eight = {8, 1, 8000}, word = {16, 1, 8000}, deep = {24, 1, 8000},
                         real = {32, 1, 8000, true};
    const struct {
        SAMPLES_FORMAT From, To;
        BYTES Samples, Expected;
    } rows[] = {
        {eight, word, {0, 128, 255}, {0, 0x80, 0, 0, 0, 0x7F}},
        {word, eight, {0x80, 0, 0x7F, 0, 0xFF, 0x7F, 0, 0x80}, {129, 128, 255, 0}},
        {word, deep, {1, 0x80}, {0, 1, 0x80}},
        {deep, word, {0x80, 0, 0, 0x7F, 0, 0, 0xFF, 0xFF, 0x7F}, {1, 0, 0, 0, 0xFF, 0x7F}},
        {word, real, {0, 0x80, 0, 0x40}, {0, 0, 0x80, 0xBF, 0, 0, 0, 0x3F}},
    };
    for (const auto &row : rows) {
        BYTES out;
        Samples_Convert(row.Samples, row.From, row.To, out);
        EXPECT_EQ(out, row.Expected) << row.From.Bits << " to " << row.To.Bits;
    }
}

// Levels below a step survive, and the noise's power does not depend on them: a quarter of a
// step's.
TEST(Player, Dithers)
{
    for (const uint8_t level : BYTES{0, 64, 128, 255}) {  // in 1/256
        BYTES out, samples;
        for (int i = 0; i < 40000; i++)
            samples.insert(samples.end(), {level, 0, 0});
        Samples_Convert(samples, {24, 1, 8000}, {16, 1, 8000, false, true}, out);
        double sum = 0, squares = 0;
        for (size_t i = 0; i < out.size(); i += 2) {
            const double error = static_cast<int16_t>(out[i] | out[i + 1] << 8) - level / 256.0;
            sum += error / 40000;
            squares += error * error / 40000;
        }
        EXPECT_NEAR(sum, 0, 0.015) << +level;
        EXPECT_NEAR(squares, 0.25, 0.015) << +level;
    }
}

// A sine stays a sine without aliases, and keeps its duration.
TEST(Player, Resamples)
{
    const struct {
        uint32_t From, To;
        double Hz, MinDecibels;
    } rows[] = {{44100, 48000, 997, 100}, {48000, 44100, 15000, 100}, {96000, 8000, 3000, 100}};
    for (const auto &row : rows) {
        const uint32_t frames = row.From / 5;
        BYTES samples, out;
        const auto at = [&](uint32_t i, uint32_t rate) {
            return std::lround(0.9 * 0x1p31 * std::sin(2 * std::numbers::pi * row.Hz * i / rate));
        };
        for (uint32_t i = 0; i < frames; i++)
            samples = samples + Number(at(i, row.From), -4);
        const SAMPLES_FORMAT from = {32, 1, row.From}, to = {32, 1, row.To};
        SAMPLES_RESAMPLER resampler(from, to);
        for (size_t i = 0; i < samples.size(); i += 4000)
            resampler.Resample(
                std::span(samples).subspan(i).first(std::min<size_t>(4000, samples.size() - i)),
                out);
        resampler.Resample({}, out);
        const uint32_t count = (frames * row.To + row.From - 1) / row.From, edge = row.To / 50;
        ASSERT_EQ(out.size(), count * 4);
        double signal = 0, error = 0;
        for (uint32_t i = edge; i < count - edge; i++) {
            int32_t heard;
            std::memcpy(&heard, &out[i * 4], 4);
            const auto wanted = static_cast<double>(at(i, row.To));
            signal += wanted * wanted;
            error += (wanted - heard) * (wanted - heard);
        }
        EXPECT_GT(10 * std::log10(signal / error), row.MinDecibels) << row.From << ' ' << row.To;
    }
}

TEST(Player, ShowsItAtAnyWidth)
{
    SCREEN screen = {"paused: ", "p: ", "A rather long title", "(2 of 5)", 83, 247, 0.25};
    using LINES = std::vector<std::string>;
    EXPECT_EQ(Screen_Lines(screen, 20, 24, false),
              (LINES{"p: A rather long ti", "1:23/4:07 [=  ] ||."}));
    EXPECT_EQ(Screen_Lines(screen, 41, 24, false),
              (LINES{"paused: A rather long title (2 of 5)",
                     "1:23 / 4:07 [======            ] |||||.."}));
    EXPECT_EQ(Screen_Lines(screen, 10, 1, false), LINES{"1:23/4:07"});
    EXPECT_EQ(Screen_Lines(screen, 8, 24, false), (LINES{"p: A ra", "1:23"}));
    const std::vector<uint8_t> levels(32, 40);
    for (size_t columns = 2; columns < 140; columns++) {
        screen.View = Screen_Channels(levels, columns, false);
        EXPECT_LE(screen.View.size(), 8u);
        for (const std::string &line : Screen_Lines(screen, columns, 24, false))
            EXPECT_LT(line.size(), columns) << line;
    }
}

// The bytes that the headers promise are those that come.
TEST(Player, PromisesWhatItPlays)
{
    const FORMAT_RULES rules;
    const BYTES noise = Noise(2400), three = Prefix(noise, 7);
    const auto voc = [](const BYTES &blocks) {
        return Text("Creative Voice File\x1A\x1A\0\x0A\1\x29\x11") + blocks;
    };
    const auto svx = [](uint8_t packing) {
        return Text("FORM\0\0\0\0008SVXVHDR\0\0\0\x14") + BYTES(12) + Text("\x1F\x40\1") +
               BYTES{packing} + Text("\0\1\0\0BODY") + Number(100, 4) + BYTES(100, 0x18);
    };
    const std::pair<const char *, BYTES> rows[] = {
        {"floating point", WaveFile(3, 1, 64, noise)},
        {"linear", WaveFile(1, 3, 16, noise)},
        {"A-law", WaveFile(6, 2, 8, noise)},
        {"mu-law", WaveFile(7, 1, 8, noise)},
        {"linear", svx(0)},
        {"Fibonacci delta", svx(1)},
        {"exponential delta", svx(2)},
        {"linear", voc(Text("\1\x9\0\0\x9C\0") + three)},
    };
    std::vector<std::pair<std::string, std::string>> files;
    for (const auto &[codec, file] : rows)
        files.emplace_back(WriteTemp("made" + std::to_string(files.size()), file), codec);
    for (const auto &entry : std::filesystem::recursive_directory_iterator(TEST_DATA))
        if (entry.is_regular_file() && Audio_Check(entry.path().c_str()) > AUDIO_RAW)
            files.emplace_back(entry.path(), "");
    int played = 0;
    for (const auto &[path, codec] : files) {
        PLAYER_SOUND sound;
        const std::string reason = Player_Open(path, {}, sound);
        if (!reason.empty()) {
            EXPECT_EQ(codec, "") << reason;
            continue;
        }
        EXPECT_TRUE(codec.empty() || codec == sound.Codec) << path << sound.Codec;
        BYTES all(1 << 20);
        uint64_t taken = 0;
        uint32_t passes = 1;
        Player_Start(sound);
        while (!Player_HasEnded(sound))
            taken += Player_Take(sound, passes, all);
        EXPECT_EQ(taken, sound.Plays ? sound.Bytes : 0) << path << ' ' << sound.Codec;
        played += taken != 0;
    }
    EXPECT_GT(played, 20);
}

TEST(Player, ListsFilesAsOtherSystemsNameThem)
{
    const std::string folder = TempPath("lists");
    std::filesystem::create_directories(folder + "/sub");
    const auto write = [&](const char *name, const std::string &text) {
        std::ofstream(folder + '/' + name, std::ios::binary) << text;
    };
    for (const char *name : {"a b.au", "sub/c.au", "caf\u00E9.au"})
        write(name, "");
    write("one.m3u", "\xEF\xBB\xBF#EXTM3U\r\na b.au "
                     "\r\n\r\nsub\\c.au\ncaf\xE9.au\nhttp://x/y\nfile://host\nnone\n");
    write("two.pls", "[playlist]\nFile1=a b.au\nTitle1=x\nfile2=file://host" + folder +
                         "/a%20b%2x.au\nFile3\nFile4=one.m3u8\n");
    write("one.m3u8", "two.pls\nsub/c.au");
    std::vector<std::string> reports;
    const auto list = [&](const char *name) {
        std::string names;
        for (const std::string &path :
             List_Files({folder + '/' + name}, false,
                        [&](const std::string &word, const std::string &reason) {
                            reports.push_back(word.substr(folder.size()) + ": " + reason);
                        }))
            names += (path.starts_with(folder) ? path.substr(folder.size() + 1) : path) + '|';
        return names;
    };
    EXPECT_EQ(list("one.m3u"), "a b.au|sub/c.au|caf\u00E9.au|http://x/y|file://host|none|");
    EXPECT_EQ(list("two.pls"), "a b.au|a b%2x.au|sub/c.au|");
    EXPECT_EQ(reports,
              (std::vector<std::string>{"/two.pls: a playlist in itself, or too deep in others"}));
    EXPECT_EQ(list("no.m3u"), "");
    EXPECT_EQ(reports.back(), "/no.m3u: No such file or directory");
}
