#include "audio/mod.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <numbers>
#include <numeric>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "audio/audio_module.h"
#include "audio/mod_replay.h"
#include "tests/files.h"
#include "tests/mod_writer.h"
#include "tests/sound_files.h"

using namespace std::string_literals;

// Patterns between '/', orders as digits. Sample 1 loops whole, 2 plays once, 3 loops its end in
// another tuning, 4 is a quiet 1, 17 has only a volume.
static MOD_TEXT Song(const std::string &patterns, const std::string &orders = "0")
{
    MOD_TEXT song;
    std::istringstream texts(patterns + '/');
    for (std::string pattern; std::getline(texts, pattern, '/');)
        song.Patterns.push_back(pattern);
    song.Orders.clear();
    for (const char order : orders)
        song.Orders.push_back(static_cast<uint8_t>(order - '0'));
    std::vector<int8_t> wave;
    for (int i = 0; i < 1024; i++)
        wave.push_back(static_cast<int8_t>(std::lround(127 * std::sin(std::numbers::pi / 16 * i))));
    song.Samples = {{wave, 0, 1024}, {wave}, {wave, 512, 256, 48, 15}, {wave, 0, 1024, 16}};
    song.Samples.resize(16);
    song.Samples.push_back({{}, 0, 2, 16});
    return song;
}

struct PLAYING {
    MOD_SONG Song;
    MOD_PLAYER Player = {};
    MOD_LENGTH Length;
    explicit PLAYING(const MOD_TEXT &text) : Song(*MOD_ReadSong(WriteModule(text)))
    {
        Length = MOD_Measure(Song);
        MOD_Start(Player, Song, Length.Rows);
    }
    MOD_VOICE &Tick(int count = 1)
    {
        while (count-- > 0)
            EXPECT_TRUE(MOD_Tick(Player));
        return Player.Voices[0];
    }
};

struct TICKS {
    const char *what, *pattern;
    std::string ticks;  // six per row, equal ones as "VALUExTIMES"
};

// Plays each row's pattern, and compares what `see` returns for the first channel after each tick.
template <size_t N, class SEE>
static void Watch(const TICKS (&rows)[N], SEE see)
{
    for (const auto &r : rows) {
        PLAYING playing(Song(r.pattern));
        std::istringstream runs(r.ticks);
        int tick = 0;
        for (std::string run; runs >> run;) {
            const size_t x = run.find('x');
            for (int left = x != run.npos ? std::stoi(run.substr(x + 1)) : 1; left > 0; left--)
                EXPECT_EQ(see(playing.Tick()), std::stod(run.substr(0, x)))
                    << r.what << ", tick " << tick++;
        }
    }
}

TEST(MOD, Periods)
{
    const TICKS rows[] = {
        {"arpeggio", "C-2 01 037", "428 360 285 428 360 285"},
        {"above the top the next tuning", "B-3 01 012", "113.25 0 850"},
        {"slide up", "C-2 01 110\n", "428 412 396 380 364 348x2"},
        {"as far as B-3", "B-3 01 101", "113.25x2"},
        {"slide down as far as C-1", "B-1 01 2FF", "453 708 856x2"},
        {"portamento needs no new speed", "C-2 01\nD-2 00 310\nE-2 00 300",
         "428x7 412 396 381x4 365 349 339"},
        {"portamento from no note", "C-2 01 310", "0x6"},
        {"beside a volume slide", "C-2 01\nE-2 00 310\n... 00 500",
         "428x7 412 396 380 364 348x2 339x5"},
        {"in semitones", "C-2 01 E31\nD-2 00 30A", "428x7 404x2 381x3"},
        {"vibrato of a tuned note", "A#3 01 E53\n484", "117.5x8 122.5 124.5 122.5 117.5"},
        {"vibrato rests on the row", "C-2 01 484\n400",
         "428x2 433 435 433 428x2 423 421 423 428 433"},
        {"square", "C-2 01 E42\n4F2\n400", "428x7 431x3 425x2 428 431"},
        {"falling ramp", "C-2 01 E41\n4F4", "428x8 431 435 424 428"},
        {"vibrato and slide", "C-2 01 484\n604", "428x2 433 435 433 428x2 423"},
        {"fine slides", "C-2 01 E12\n\nE25", "426x12 431x3"},
        {"a note restarts the wave", "C-2 01 484\nC-2 01 484", "428x2 433 435 433 428x3 433 435"},
        {"unless told not to", "C-2 01 E44\nC-2 01 484\nC-2 01 484",
         "428x8 433 435 433 428x2 423 421"},
        {"a portamento to the note that sounds", "C-2 01\nC-2 00 310\n300", "428x18"},
        {"a slide of no note", "110", "0x3"},
        {"tuning", "C-2 01 E5F\n000\nC-2 03", "431x13"},
        {"a sample's own tuning", "C-2 03", "431x6"},
        {"an untuned note as the file has it", "B-2 01", "226x6"},
        {"a tuned note lies between periods", "A#3 01 E53\n101", "117.5x7 116.5"},
        {"in an arpeggio", "A-3 01 E53\n010", "124.5x7 117.5 124.5"},
        {"where a portamento ends", "G#3 01 E53\nA-3 00 306", "132x7 126 124.5"},
        {"and its semitones", "G#3 01 E53\nE31\nA-3 00 303", "132x13 124.5x2"},
        {"a period that a row does not set stays", "C-2 01 0FF\nC40", "428 180x2 428 180x3 428"},
        {"a delayed note", "C-2 01\nE-2 01 ED2", "428x8 339"},
        {"notes outside the table", "60 01 037\n1000 01", "60 50.5 40 60 50.5 40 1000"},
        {"tuned", "57 01 E58\n1712 01 E54", "60x6 1664"},
        {"their slides", "60 01 101\n900 01 201", "60 59 58 57 56 55 900 901"},
        {"in their songs arpeggios leave the table", "A-3 01 037\n1000", "127 106.75 84.75"},
        {"a slide of 0", "C-1 01 E58\n100\nE10\n200", "907x19 856x5"},
        {"semitones below the untuned C-1", "C#1 01 E58\nE31\nC-1 00 30A\n300", "856x18 906 907"},
    };
    Watch(rows, [](MOD_VOICE &v) { return v.Period / 4.0; });
}

TEST(MOD, Volumes)
{
    const TICKS rows[] = {
        {"set, at most 64", "C-2 01 C20\nC7F", "32x6 64"},
        {"slide", "C-2 01 A0F\nA4F", "64 49 34 19 4 0x2 4 8 12 16 20"},
        {"with portamento", "C-2 01 000\nC-3 00 502", "64x7 62 60"},
        {"with vibrato", "C-2 01 602", "64 62 60"},
        {"a sample above 15", "C-2 11", "16x6"},
        {"fine", "C-2 01 EB4\nEA2", "60x6 62x2"},
        {"no such sample", "C-2 01\n... 20", "64x6 0"},
        {"cut", "C-2 01 EC2", "64x2 0x2"},
        {"tremolo passes", "C-2 01 C20\n784\n000", "32x8 43 47 43 32x2"},
        {"a sample's own", "C-2 01 C10\n... 04\n... 03", "16x12 48"},
        {"a repeated row starts over", "C-2 01 EB1 | EE1\n", "63x6 62x7"},
    };
    Watch(rows, [](MOD_VOICE &v) { return int{v.Volume}; });
}

TEST(MOD, Starts)
{
    // Where the sample starts in this tick; -1: it does not
    const TICKS rows[] = {
        {"portamento goes on", "C-2 01\nC-3 01 310", "0 -1x7"},
        {"retrigger", "C-2 01 E92\nE93", "0 -1 0 -1 0 -1 0 -1x2 0"},
        {"retrigger never", "C-2 01 E90", "0 -1x6"},
        {"delay", "C-2 01 ED3\nED0", "-1x3 0 -1x3"},
        {"delay past the row", "C-2 01 ED6", "-1x7"},
        {"an offset counts twice for the next note", "C-2 02 901\nC-2\nC-2 02",
         "256 -1x5 512 -1x5 0"},
        {"and is remembered", "C-2 02 902\nC-2 02 900", "512 -1x5 512"},
        {"again in each repeat", "C-2 01 ED1 | EE1", "-1 0 -1x5 0"},
    };
    Watch(rows, [](MOD_VOICE &v) {
        return std::exchange(v.Started, false) ? static_cast<int>(v.Position >> 32) : -1;
    });
    PLAYING beyond(Song("C-2 03 908\n"));
    const MOD_VOICE &v = beyond.Tick();
    EXPECT_LE(v.End - (v.Position >> 32), 2u) << "past the end only the loop is left";
    EXPECT_EQ(v.LoopStart, 512u);
    PLAYING never(Song("C-2 01 ED6\n... 01\n"));
    EXPECT_EQ(never.Tick(7).LoopData, nullptr) << "no loop before the first note";
}

TEST(MOD, Lengths)
{
    const struct {
        std::string what, patterns, orders;
        uint32_t rows, milliseconds;
    } rows[] = {
        {"all orders", "/", "010", 192, 23040},
        {"jump back", "\nB00\n", "00", 2, 240},
        {"break to a decimal row", "D10\n/", "01", 55, 6600},
        {"break beyond the pattern", "D64\n/", "01", 65, 7800},
        {"jump, then break", "B01 | D62\n/", "01", 3, 360},
        {"break, then jump", "D62 | B01\n/", "01", 65, 7800},
        {"a break out of the last order", "\nD62\n", "0", 4, 480},
        {"loop", "\nE60\n\nE62\nD00\n", "0", 11, 1320},
        {"a loop starts where the last did", "\nE60\nD00\n/\nE61\nD00\n", "01", 7, 840},
        {"loops in two channels", "E60 | E60\nE61\n000 | E61\nD00\n", "0", 11, 1320},
        {"a loop that never ends", "\nE61\nE61\n", "0", 5, 600},
        {"a break out of a loop goes on with it", "E60\nD00\n\nE61\nD00\n/B00 | D02\n", "01", 11,
         1320},
        {"delay", "EE3\nD00\n", "0", 2, 600},
        {"delay and break skip a row", "EE1 | D62\n/", "01", 2, 360},
        {"speed and tempo", "F03\nFFA\nD00\n", "0", 3, 120},
        {"stop", "\nF00\n", "0", 2, 240},
    };
    for (const auto &r : rows) {
        PLAYING playing(Song(r.patterns, r.orders));
        EXPECT_EQ(std::pair(playing.Length.Rows, playing.Length.Milliseconds),
                  std::pair(r.rows, r.milliseconds))
            << r.what;
        double seconds = 0;
        while (MOD_Tick(playing.Player))
            seconds += 2.5 / playing.Player.Tempo;
        EXPECT_EQ(std::lround(seconds * 1000), r.milliseconds) << r.what << ", played";
        EXPECT_FALSE(MOD_Tick(playing.Player)) << r.what << ", it stays at the end";
    }
}

TEST(MOD, InvertLoopTurnsOneByteAfterTheOther)
{
    PLAYING playing(Song("C-2 03 EFF\nEF0\n"));
    playing.Tick(6);  // at full speed: each inverts one
    for (size_t i = 510; i < 522; i++) {
        const int before = playing.Song.Samples[3].Data[i];
        EXPECT_EQ(playing.Player.Waves[3][i], i > 512 && i < 519 ? -1 - before : before) << i;
    }
    PLAYING round(Song("C-2 03 EFF\n"));
    round.Tick(257);  // once round the loop, and the first one again
    EXPECT_EQ(round.Player.Waves[3][512], -1 - round.Song.Samples[3].Data[512]);
    EXPECT_EQ(round.Player.Waves[3][513], round.Song.Samples[3].Data[513]);
    std::vector<int> ticks;  // until the first is inverted, by speed
    for (const char digit : "123456789ABCDEF"s) {
        PLAYING slow(Song("C-2 03 EF"s + digit + "\n\n\n\n\n"));
        ticks.push_back(0);
        do
            slow.Tick(), ticks.back()++;
        while (slow.Player.Waves[3][513] == slow.Song.Samples[3].Data[513]);
    }
    EXPECT_EQ(ticks, (std::vector{26, 22, 19, 16, 13, 12, 10, 8, 7, 6, 5, 4, 3, 2, 1}));
}

// A loaded song and all that it renders.
struct RENDERED {
    MOD_HEADER *Header;
    explicit RENDERED(const BYTES &file, int channels = 2, int bits = 16, uint32_t rate = 44100)
    {
        MOD_SetSoundNumber(0);
        MOD_Load(WriteTemp("mod", file).c_str());
        Header = MOD_GetHeader(0);
        if (Header) {
            Header->Channels = static_cast<uint8_t>(channels);
            Header->BitsPerSample = static_cast<uint8_t>(bits);
            Header->SamplingRate = rate;
        }
    }
    ~RENDERED()
    {
        MOD_Destroy();
    }
    BYTES Bytes(uint32_t chunk = 65536) const
    {
        BYTES all, part(chunk);
        for (uint32_t length = chunk; length != 0;
             all.insert(all.end(), part.begin(), part.begin() + length)) {
            length = chunk;
            MOD_Decoding(part.data(), &length, 0);
        }
        return all;
    }
};

TEST(MOD, EveryFormatHoldsTheSameSound)
{
    const BYTES file = WriteModule(Song("C-2 01 | E-2 01 | G-2 01 | C-3 01\n\n\nD00\n"));
    const auto whole = SamplesOf(RENDERED(file, 2, 32).Bytes(), 32);
    ASSERT_EQ(whole.size(), 2 * 4 * 5292u);
    for (const int bits : {8, 16, 24}) {
        const auto stereo = SamplesOf(RENDERED(file, 2, bits).Bytes(), bits);
        const auto mono = SamplesOf(RENDERED(file, 1, bits).Bytes(), bits);
        const auto three = SamplesOf(RENDERED(file, 3, bits).Bytes(1000), bits);
        ASSERT_EQ((std::array{stereo.size(), mono.size() * 2, three.size() * 2}),
                  (std::array{whole.size(), whole.size(), whole.size() * 3}));
        double worst = 0;
        for (size_t i = 0; i < mono.size(); i++)
            for (const double off :
                 {stereo[2 * i] - whole[2 * i], three[3 * i + 1] - whole[2 * i + 1],
                  mono[i] - (whole[2 * i] + whole[2 * i + 1]) / 2, three[3 * i + 2]})
                worst = std::max(worst, std::abs(off));
        EXPECT_LE(worst, 1.01 / (1 << (bits - 1))) << bits;
    }
    for (const uint32_t rate : {1u, 8000u, 192000u})
        EXPECT_NEAR(static_cast<double>(RENDERED(file, 1, 8, rate).Bytes().size()), rate * 0.48, 1);
    EXPECT_TRUE(RENDERED(file, 2, 12).Bytes().empty());
    EXPECT_TRUE(RENDERED(file, 0, 16).Bytes().empty());
    EXPECT_TRUE(RENDERED(file, 2, 16, 0).Bytes().empty());
}

TEST(MOD, Sides)
{
    for (size_t channel = 0; channel < 4; channel++) {
        const RENDERED song(WriteModule(Song(std::string(channel, '|') + "C-2 01\n")));
        EXPECT_EQ(song.Header->Separation, 50);
        for (const uint8_t given : BYTES{0, 50, 100, 255}) {
            song.Header->Separation = given;
            const double percent = std::min<double>(given, 100);
            MOD_StartOver(*song.Header);
            const auto sound = SamplesOf(song.Bytes(), 16);
            const size_t near = channel == 0 || channel == 3 ? 0 : 1;
            std::array<double, 2> power{};
            for (size_t i = 0; i < sound.size(); i++)
                power[i % 2 ^ near] += sound[i] * sound[i];
            EXPECT_NEAR(std::sqrt(power[1] / power[0]), (100 - percent) / (100 + percent), 0.001)
                << channel << ", " << percent;
        }
    }
}

TEST(MOD, FullMixNeitherClipsNorClicks)
{
    for (const size_t channels : {1u, 4u, 5u, 8u, 32u}) {
        MOD_TEXT song = Song("");
        song.Channels = channels;
        song.Signature = std::to_string(channels) + (channels < 10 ? "CHN" : "CH");
        std::ranges::fill(song.Samples[0].Data, int8_t{-128});
        std::ranges::fill(song.Samples[1].Data, int8_t{127});
        for (const char *cell : {"C-2 01|", "C-2 02|", "C-2 01|"}) {
            for (size_t i = 0; i < channels; i++)
                song.Patterns[0] += cell;
            song.Patterns[0] += "\n";
        }
        const auto sound = SamplesOf(RENDERED(WriteModule(song)).Bytes(), 16);
        const auto [low, high] = std::ranges::minmax(sound);
        EXPECT_LE(low, channels % 4 == 0 ? -0.999 : -0.3) << channels;
        EXPECT_LT(high, 32767.0 / 32768) << channels << ": not cut";
        double jump = 0;
        for (size_t i = 2; i < sound.size(); i++)
            jump = std::max(jump, std::abs(sound[i] - sound[i - 2]));
        EXPECT_LT(jump, 0.06) << channels;
    }
}

TEST(MOD, PowerLightFiltersHighTones)
{
    const auto level = [](const std::string &cell) {
        const auto sound = SamplesOf(RENDERED(WriteModule(Song(cell))).Bytes(), 16);
        return std::inner_product(sound.begin(), sound.end(), sound.begin(), 0.0);
    };
    EXPECT_NEAR(level("C-2 04 E01\n") / level("C-2 04 E00\n"), 1, 0.05);  // 259 Hz
    EXPECT_NEAR(level("20 04 E01\n") / level("20 04 E00\n"), 12, 4);      // 5.5 kHz: 11 dB down
}

TEST(MOD, SongsStartOver)
{
    const RENDERED song(WriteModule(Song("C-2 03 EFF\n\nC-2 01 A01\n/C-3 01 F03\nD00\n", "01")));
    const BYTES first = song.Bytes();
    EXPECT_EQ(song.Header->SongPosition, 2);
    EXPECT_TRUE(song.Bytes().empty());
    const auto restart = [&song] { song.Header->SongPosition = song.Header->Row = 0; };
    restart();
    EXPECT_EQ(song.Bytes(), first);
    restart();
    uint32_t length = 40000;
    MOD_Decoding(BYTES(length).data(), &length, 0);
    EXPECT_EQ(song.Header->Row, 2);
    restart();
    EXPECT_EQ(song.Bytes(100), first) << "in the middle, in other pieces";

    const BYTES looped = WriteModule(Song("C-2 01 E61\nD00\n"));
    const BYTES all = RENDERED(looped).Bytes();
    const RENDERED begun(looped);
    length = 400;
    MOD_Decoding(BYTES(length).data(), &length, 0);
    EXPECT_EQ(begun.Header->Row, 0);
    MOD_StartOver(*MOD_GetHeader(0));
    EXPECT_EQ(begun.Bytes(), all) << "in the first row, which is the next one too";
}

TEST(MOD, ChangesOfSampleWaitForTheLoop)
{
    PLAYING playing(Song("C-2 03\n... 04\n... 02\n"));
    std::vector<const int8_t *> loops;
    for (int row = 0; row < 3; row++) {
        EXPECT_EQ(playing.Tick(6).Data, playing.Player.Waves[3].data());
        loops.push_back(playing.Player.Voices[0].LoopData);
    }
    const auto &waves = playing.Player.Waves;
    EXPECT_EQ(loops, (std::vector<const int8_t *>{waves[3].data(), waves[4].data(), nullptr}));
}

TEST(MOD, Signatures)
{
    // Channels by the framework's rules and by the formats'; 0: it is no module
    const std::pair<const char *, std::array<size_t, 2>> rows[] = {
        {"M.K.", {4, 4}},  {"M!K!", {4, 4}},   {"FLT4", {4, 4}},   {"FLT8", {8, 8}},
        {"CD81", {8, 8}},  {"OCTA", {8, 8}},   {"TDZ1", {1, 1}},   {"1CHN", {1, 1}},
        {"9CHN", {9, 9}},  {"10CH", {10, 10}}, {"64CH", {64, 64}}, {"", {4, 4}},
        {"0CHN", {0, 0}},  {"M.K!", {0, 0}},   {"FA05", {0, 0}},   {"N.T.", {0, 4}},
        {"M&K!", {0, 4}},  {"FEST", {0, 4}},   {"NSMS", {0, 4}},   {"LARD", {0, 4}},
        {"PATT", {0, 4}},  {"EXO4", {0, 4}},   {"EXO8", {0, 8}},   {"CD61", {0, 6}},
        {"OKTA", {0, 8}},  {"FA08", {0, 8}},   {"TDZ3", {3, 3}},   {"TDZ9", {0, 9}},
        {"12CN", {0, 12}}, {"05CH", {5, 5}},
    };
    for (const uint8_t rules : {AUDIO_RULES_FRAMEWORK, AUDIO_RULES_FORMAT})
        for (const auto &[signature, channels] : rows) {
            Audio_Rules = rules;
            MOD_TEXT text = Song("C-2 01\n/", "01");
            text.Signature = signature;
            text.Channels = std::max<size_t>(channels[rules], 4);
            text.Samples.resize(15);
            text.Samples[2].Finetune = 0;
            const BYTES file = WriteModule(text);
            const RENDERED song(file);
            ASSERT_EQ(song.Header ? song.Header->SongChannels : 0, channels[rules]) << signature;
            EXPECT_EQ(MOD_SoundNumber, channels[rules] != 0) << signature;
            EXPECT_TRUE(song.Header || Reason_Get() == "no signature of a module"s) << signature;
            EXPECT_TRUE(!song.Header || song.Header->SampleCount == (*signature ? 31 : 15));
            EXPECT_TRUE(!song.Header || song.Header->SampleNames[3].data() == "sample 4"s);
            EXPECT_TRUE(!song.Header || song.Header->Title.data() == "T"s);
            EXPECT_TRUE(rules == AUDIO_RULES_FRAMEWORK ||
                        (Audio_CheckBytes(file) == AUDIO_MOD) == (song.Header != nullptr))
                << signature;
        }
    Audio_Rules = AUDIO_RULES_FRAMEWORK;
    MOD_TEXT halves = Song("C-2 01\n/E-2 01\n/D-2 01\n/\n", "02");
    halves.Signature = "FLT8";
    const MOD_SONG song = *MOD_ReadSong(WriteModule(halves));
    EXPECT_EQ(MOD_GetCell(song, song.Orders[0], 0, 4).Period, 339);
    EXPECT_EQ(MOD_GetCell(song, song.Orders[1], 0, 0).Period, 381);

    const FORMAT_RULES rules;
    MOD_TEXT eight = Song("||||C-2 01\n");
    eight.Channels = 8;
    eight.Samples.resize(2);
    BYTES file = WriteModule(eight);
    EXPECT_EQ(MOD_ReadSong(file)->Channels, 4) << "another editor's restart byte";
    file[951] = 0;
    EXPECT_EQ(MOD_ReadSong(file)->Channels, 8);
    file.resize(file.size() + 2);
    EXPECT_EQ(MOD_ReadSong(file)->Channels, 4) << "another length";
}

TEST(MOD, DamagedFilesPlayWhatIsThere)
{
    std::set<std::string> reasons;
    for (const char *signature : {"M.K.", ""}) {
        MOD_TEXT text = Song("C-2 02\nD00\n");
        text.Signature = signature;
        BYTES file = WriteModule(text);
        const size_t needed = (*signature ? 1084 : 600) + 16;
        for (size_t size = 0;
             size<file.size(); size += size + 20> needed && size < needed + 20 ? 1 : 61) {
            const RENDERED cut(Prefix(file, size), 1, 8, 800);
            ASSERT_EQ(cut.Header != nullptr, size >= needed) << signature << size;
            if (!cut.Header)
                reasons.insert(Reason_Get());
            else
                EXPECT_EQ(Reason_Get(), "cut: " + std::to_string(file.size() - size) +
                                            " bytes of patterns and samples are missing");
            ASSERT_TRUE(!cut.Header || cut.Bytes().size() >= 2 * 96) << signature << size;
        }
    }
    EXPECT_EQ(reasons,
              (std::set<std::string>{"cut before its first row", "no signature of a module"}));
    MOD_TEXT text = Song("C-2 02\nD00\n");
    text.Signature = "";
    BYTES loud = WriteModule(text);
    loud[20 + 14 * 30 + 25] = 65;
    EXPECT_EQ(RENDERED(loud).Header, nullptr) << "the last sample's volume";
    EXPECT_EQ(RENDERED(BYTES(1000, 'a')).Header, nullptr) << "a short text";
    EXPECT_EQ(RENDERED(BYTES(700, 0)).Header, nullptr) << "no orders";
}

TEST(MOD, Interpolations)
{
    // A sine of so many samples per period, loud enough for 8 bits; decibels of nearest, linear,
    // cubic and band-limited interpolation
    const struct {
        int points;
        double amplitude;
        std::array<double, 4> least;
    } rows[] = {{16, 120.13, {18.5, 44.3, 59.6, 62.5}}, {5, 93.58, {8, 22.8, 30.1, 60}}};
    for (const auto &r : rows) {
        MOD_TEXT song = Song("C-2 01\n");
        song.Samples[0].Data.resize(static_cast<size_t>(r.points) * 128);
        for (int i = 0; int8_t & value : song.Samples[0].Data)
            value = static_cast<int8_t>(
                std::lround(r.amplitude * std::sin(2 * std::numbers::pi * i++ / r.points)));
        song.Samples[0].LoopLength = static_cast<uint32_t>(song.Samples[0].Data.size());
        const RENDERED rendered(WriteModule(song), 2, 24);
        const auto play = [&](uint8_t how, uint32_t rate) {
            rendered.Header->Interpolation = how;
            rendered.Header->SamplingRate = rate;
            MOD_StartOver(*rendered.Header);
            return SamplesOf(rendered.Bytes(), 24);
        };
        for (uint8_t how = MOD_NEAREST; how <= MOD_SINC; how++) {
            const auto sound = play(how, 44100);
            const double over = ToneOverRest(std::span(sound).subspan(8820, 70560),
                                             44100 / (MOD_Clock / 428 / r.points), 2);
            EXPECT_GT(over, r.least[how]) << r.points << " points, " << int{how};
            EXPECT_LT(over, r.least[how] + 6) << r.points << " points, " << int{how};
        }
        // Frequencies above the output's range are attenuated.
        std::array<double, 2> levels{};
        for (const uint8_t how : {MOD_LINEAR, MOD_SINC}) {
            const auto sound = play(how, 2000);  // 4.1 samples a frame
            levels[how == MOD_SINC] =
                std::inner_product(sound.begin(), sound.end(), sound.begin(), 0.0);
        }
        EXPECT_LT(levels[1], r.points == 5 ? levels[0] / 100 : levels[0] * 2) << r.points;
    }
}

// Against a mixer that computes each frame by itself, after the first note has ramped up.
TEST(MOD, SamplesAreReadWhereTheyLie)
{
    const BYTES noise = Noise(1024);
    for (const auto &[period, rate] :
         {std::pair(428, 44100u), {60, 8000}, {14, 2000}, {1712, 48000}}) {
        MOD_TEXT song = Song(std::to_string(period) + " 01\n");
        song.Samples[0] = {{noise.begin(), noise.end()}, 512, 256};
        const RENDERED rendered(WriteModule(song), 1, 24, rate);
        const auto at = [&](uint64_t i) {
            return static_cast<int8_t>(noise[i < 768 ? i : 512 + (i - 768) % 256]) / 128.0;
        };
        const auto step = static_cast<uint64_t>(3546895.0 / period / rate * 4294967296.0) | 1;
        for (const uint8_t how : {MOD_NEAREST, MOD_LINEAR}) {
            rendered.Header->Interpolation = how;
            MOD_StartOver(*rendered.Header);
            const auto sound = SamplesOf(rendered.Bytes(), 24);
            double worst = 0;
            for (size_t i = rate / 400 + 1; i < sound.size(); i++) {
                const uint64_t position = step * i, whole = position >> 32;
                const double part =
                    static_cast<uint32_t>(position) / 4294967296.0 * (how == MOD_LINEAR);
                const double exact = at(whole) * (1 - part) + at(whole + 1) * part;
                worst = std::max(worst, std::abs(sound[i] - exact / 4));
            }
            EXPECT_LT(worst, how == MOD_LINEAR ? 2.5e-5 : 2e-7)
                << period << ' ' << rate << ' ' << int{how};
        }
    }
}

TEST(MOD, ViewsOfAnyFrame)
{
    const RENDERED song(WriteModule(Song("C-2 03 037\nE-3 01 A08 | C-2 04 E93\nD00\n")));
    EXPECT_EQ(MOD_Seek(*song.Header, nullptr, 4 * 5292), 3u * 5292);
    const auto view = MOD_GetView(*song.Header, 5292 + 882);  // the second tick of row 1
    ASSERT_TRUE(view);
    EXPECT_EQ((std::array<uint64_t, 10>{view->Frame, view->Frames, view->Position, view->Pattern,
                                        view->Row, view->Speed, view->Tempo, view->Levels[0],
                                        view->Levels[1], view->Levels[2]}),
              (std::array<uint64_t, 10>{5292 + 882, 882, 0, 0, 1, 6, 125, 56, 16, 0}));
    EXPECT_TRUE(MOD_GetView(*song.Header, 3 * 5292 - 1));
    EXPECT_FALSE(MOD_GetView(*song.Header, 3 * 5292));
}

TEST(MOD, WithoutSignatureAllMustMakeSense)
{
    const FORMAT_RULES rules;
    MOD_TEXT text = Song("C-2 01\n");
    text.Signature = "";
    text.Samples.resize(5);
    text.Samples[2] = {text.Samples[2].Data, 1000, 256};
    const BYTES good = WriteModule(text);
    EXPECT_TRUE(MOD_IsModule(good));
    const MOD_SAMPLE looped = MOD_ReadSong(good)->Samples[3];
    EXPECT_EQ(looped.Data.size(), 256u) << "only the loop, from a byte on";
    EXPECT_EQ(looped.Data[0], text.Samples[2].Data[500]);
    const std::pair<size_t, uint8_t> slips[] = {{0, 7},    {25, 200},  {42, 0x90}, {44, 1},
                                                {45, 65},  {46, 255},  {470, 0},   {470, 129},
                                                {480, 64}, {600, 0x41}};
    for (const auto &[at, value] : slips) {
        BYTES bad = good;
        bad[at] = value;
        EXPECT_EQ(MOD_IsModule(bad), at == 25) << at;  // a name may contain any letter
    }
    BYTES full = good;
    std::fill_n(full.begin() + 20, 22, uint8_t{'x'});
    EXPECT_TRUE(MOD_IsModule(full)) << "a name to its last letter";
    EXPECT_FALSE(MOD_IsModule(BYTES(8192, 0)));
    EXPECT_FALSE(MOD_IsModule(BYTES(8192, 'a')));
    EXPECT_FALSE(MOD_IsModule(BYTES(good.begin(), good.begin() + 600))) << "no pattern";
}

// The original's editor and another's, by the formats' rules.
TEST(MOD, Dialects)
{
    const FORMAT_RULES rules;
    using SEE = int (*)(const PLAYING &playing, const MOD_VOICE &voice);
    const SEE looped = [](const PLAYING &p, const MOD_VOICE &v) {
        return v.LoopData == p.Player.Waves[4].data() ? 4 : 3;
    };
    const SEE volume = [](const PLAYING &, const MOD_VOICE &v) { return int{v.Volume}; };
    const SEE period = [](const PLAYING &, const MOD_VOICE &v) { return int(v.Period / 4); };
    const SEE position = [](const PLAYING &, const MOD_VOICE &v) { return int(v.Position >> 32); };
    const SEE length = [](const PLAYING &p, const MOD_VOICE &) { return int(p.Length.Rows); };
    const struct {
        const char *what, *pattern;
        int ticks;
        SEE see;
        int original, other;
    } rows[] = {
        {"a sample without a note", "C-2 03\n... 04\n", 7, looped, 4, 3},
        {"its volume", "C-2 03\n... 04\n", 7, volume, 16, 16},
        {"a delayed sample", "C-2 01\n... 04 ED3\n", 9, volume, 16, 64},
        {"when it comes", "C-2 01\n... 04 ED3\n", 10, volume, 16, 16},
        {"a portamento from no note", "C-2 01 310\n", 1, period, 0, 428},
        {"a second offset", "C-2 02 901\nC-2 00 901\n", 7, position, 768, 256},
        {"a low slide", "C-1 01 201\n", 2, period, 856, 857},
        {"a speed of 0", "C-2 01 F00\nC-2 04 D00\n", 7, length, 2, 2},
    };
    for (const auto &r : rows)
        for (const char *signature : {"M!K!", "4CHN"}) {
            MOD_TEXT text = Song(r.pattern);
            text.Signature = signature;
            PLAYING playing(text);
            const MOD_VOICE &v = playing.Tick(r.ticks);
            EXPECT_EQ(r.see(playing, v), signature[0] == 'M' ? r.original : r.other)
                << r.what << ", " << signature;
        }
}

// Pearson's correlation, over the common length.
static double Correlation(std::span<const double> a, std::span<const double> b)
{
    const size_t n = std::min(a.size(), b.size());
    const auto sum = [n](const auto &x) { return std::accumulate(&x[0], &x[0] + n, 0.0); };
    const auto together = [&](const auto &x, const auto &y) {
        return std::inner_product(&x[0], &x[0] + n, &y[0], 0.0) - sum(x) * sum(y) / double(n);
    };
    return together(a, b) / std::sqrt(together(a, a) * together(b, b));
}

// The loudness of each 100 ms beside two other players': it follows one of them.
TEST(MOD, CorpusEnvelopes)
{
    const char *corpus = std::getenv("CORPUS");
    if (!corpus)
        GTEST_SKIP() << "no folder in CORPUS";
    const FORMAT_RULES rules;
    std::map<std::string, double> best;
    for (const auto &row : ReadTable(std::string(corpus) + "/mod_envelopes.tsv")) {
        const RENDERED song(ReadFile(std::string(corpus) + "/" + row[0]));
        ASSERT_TRUE(song.Header) << row[0];
        const auto sound = SamplesOf(song.Bytes(), 16);
        std::vector<double> own, other(sound.size() / 8820);
        for (size_t side = 0; side < 2; side++) {
            std::istringstream levels(row[3 + side]);
            std::string level;
            for (size_t i = 0; i < other.size() && std::getline(levels, level, ','); i++)
                other[i] += std::stod(level);
        }
        for (size_t i = 0; i < std::min<size_t>(other.size(), 600); i++) {
            std::array<double, 2> sums{};
            for (size_t k = 0; k < 8820; k++)
                sums[k % 2] += sound[i * 8820 + k] * sound[i * 8820 + k];
            own.push_back(std::sqrt(sums[0]) + std::sqrt(sums[1]));
        }
        constexpr size_t shifts[][2] = {{0, 0}, {0, 1}, {0, 2}, {1, 0}, {2, 0}};
        for (const auto &[early, late] : shifts)
            best[row[0]] = std::max(best[row[0]], Correlation(std::span(own).subspan(early),
                                                              std::span(other).subspan(late)));
    }
    EXPECT_FALSE(best.empty());
    for (const auto &[file, correlation] : best)
        EXPECT_GT(correlation, 0.97) << file;
}
