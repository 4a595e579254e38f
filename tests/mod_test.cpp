#include "audio/mod.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <gtest/gtest.h>

#include "audio/mod_replay.h"
#include "tests/files.h"
#include "tests/mod_writer.h"

using INTS = std::vector<int>;
using BYTES = std::vector<uint8_t>;

// Sample 1 loops whole, 2 is heard once, 3 loops its end in another tuning, 4 is like 1 but quiet.
static MOD_TEXT Song(const std::vector<std::string> &patterns,
                     const std::vector<uint8_t> &orders = {0})
{
    MOD_TEXT song;
    song.Patterns = patterns;
    song.Orders = orders;
    std::vector<int8_t> wave(1024);
    for (size_t i = 0; i < wave.size(); i++)
        wave[i] = static_cast<int8_t>(
            std::lround(127 * std::sin(6.283185307 / 32 * static_cast<double>(i))));
    song.Samples = {{wave, 0, 1024}, {wave}, {wave, 512, 256, 48, 15}, {wave, 0, 1024, 16}};
    return song;
}

struct PLAYING {
    MOD_SONG Song;
    MOD_PLAYER Player;
    MOD_LENGTH Length;
    explicit PLAYING(const MOD_TEXT &text) : Song(*MOD_ReadSong(WriteModule(text)))
    {
        Length = MOD_Measure(Song);
        MOD_Start(Player, Song, Length.Rows);
    }
};

// What `see` tells of the first channel after each of `count` ticks.
template <class SEE>
static INTS Watch(PLAYING &playing, size_t count, SEE see)
{
    INTS seen;
    while (seen.size() < count && MOD_Tick(playing.Player))
        seen.push_back(see(playing.Player.Voices[0]));
    return seen;
}

struct TICKS {
    const char *what, *pattern;
    INTS ticks; // at six a row
};

TEST(MOD, Periods)
{
    const TICKS rows[] = {
        {"arpeggio", "C-2 01 037\n", {428, 360, 285, 428, 360, 285}},
        {"above the top the next tuning", "B-3 01 012\n", {113, 0, 850}},
        {"slide up", "C-2 01 110\n\n", {428, 412, 396, 380, 364, 348, 348}},
        {"as far as B-3", "B-3 01 101\n", {113, 113}},
        {"slide down as far as C-1", "B-1 01 2FF\n", {453, 708, 856, 856}},
        {"portamento needs no new speed",
         "C-2 01\nD-2 .. 310\nE-2 .. 300\n",
         {428, 428, 428, 428, 428, 428, 428, 412, 396, 381, 381, 381, 381, 365, 349, 339}},
        {"in semitones",
         "C-2 01 E31\nD-2 .. 30A\n",
         {428, 428, 428, 428, 428, 428, 428, 404, 404, 381, 381, 381}},
        {"vibrato rests on the row",
         "C-2 01 484\n... .. 400\n",
         {428, 428, 433, 435, 433, 428, 428, 423, 421, 423, 428, 433}},
        {"square",
         "C-2 01 E42\n... .. 4F2\n... .. 400\n",
         {428, 428, 428, 428, 428, 428, 428, 431, 431, 431, 425, 425, 428, 431}},
        {"falling ramp",
         "C-2 01 E41\n... .. 4F4\n",
         {428, 428, 428, 428, 428, 428, 428, 428, 431, 435, 424, 428}},
        {"vibrato and slide", "C-2 01 484\n... .. 604\n", {428, 428, 433, 435, 433, 428, 428, 423}},
        {"fine slides",
         "C-2 01 E12\n\n... .. E25\n",
         {426, 426, 426, 426, 426, 426, 426, 426, 426, 426, 426, 426, 431}},
        {"tuning",
         "C-2 01 E5F\n... .. 000\nC-2 03\n",
         {431, 431, 431, 431, 431, 431, 431, 431, 431, 431, 431, 431, 431}},
        {"a period that a row does not set stays",
         "C-2 01 0FF\n... .. C40\n",
         {428, 180, 180, 428, 180, 180, 180, 428}},
        {"a delayed note", "C-2 01\nE-2 01 ED2\n", {428, 428, 428, 428, 428, 428, 428, 428, 339}},
        {"notes outside the table", "60 01 037\n1000 01\n", {60, 50, 40, 60, 50, 40, 1000}},
    };
    for (const auto &r : rows) {
        PLAYING playing(Song({r.pattern}));
        EXPECT_EQ(Watch(playing, r.ticks.size(), [](const MOD_VOICE &v) { return v.Period; }),
                  r.ticks)
            << r.what;
    }
}

TEST(MOD, Volumes)
{
    const TICKS rows[] = {
        {"set, at most 64", "C-2 01 C20\n... .. C7F\n", {32, 32, 32, 32, 32, 32, 64}},
        {"slide", "C-2 01 A0F\n... .. A4F\n", {64, 49, 34, 19, 4, 0, 0, 4, 8, 12, 16, 20}},
        {"with portamento", "C-2 01 000\nC-3 .. 502\n", {64, 64, 64, 64, 64, 64, 64, 62, 60}},
        {"with vibrato", "C-2 01 602\n", {64, 62, 60}},
        {"fine", "C-2 01 EB4\n... .. EA2\n", {60, 60, 60, 60, 60, 60, 62, 62}},
        {"cut", "C-2 01 EC2\n", {64, 64, 0, 0}},
        {"tremolo passes",
         "C-2 01 C20\n... .. 784\n... .. 000\n",
         {32, 32, 32, 32, 32, 32, 32, 32, 43, 47, 43, 32, 32}},
        {"a sample's own",
         "C-2 01 C10\n... 04\n... 03\n",
         {16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 48}},
        {"a repeated row starts over",
         "C-2 01 EB1 | ... .. EE1\n\n",
         {63, 63, 63, 63, 63, 63, 62, 62, 62, 62, 62, 62, 62}},
    };
    for (const auto &r : rows) {
        PLAYING playing(Song({r.pattern}));
        EXPECT_EQ(Watch(playing, r.ticks.size(), [](const MOD_VOICE &v) { return v.Volume; }),
                  r.ticks)
            << r.what;
    }
}

TEST(MOD, Starts)
{
    // Where the sample starts in this tick, -1: it does not
    const TICKS rows[] = {
        {"a note, none", "C-2 01\n", {0, -1, -1, -1, -1, -1, -1}},
        {"portamento goes on", "C-2 01\nC-3 01 310\n", {0, -1, -1, -1, -1, -1, -1, -1}},
        {"retrigger", "C-2 01 E92\n... .. E93\n", {0, -1, 0, -1, 0, -1, 0, -1, -1, 0}},
        {"delay", "C-2 01 ED3\n... .. ED0\n", {-1, -1, -1, 0, -1, -1, -1}},
        {"delay past the row", "C-2 01 ED6\n", {-1, -1, -1, -1, -1, -1, -1}},
        {"an offset counts twice for the next note",
         "C-2 02 901\nC-2\nC-2 02\n",
         {256, -1, -1, -1, -1, -1, 512, -1, -1, -1, -1, -1, 0}},
        {"and is remembered", "C-2 02 902\nC-2 02 900\n", {512, -1, -1, -1, -1, -1, 512}},
        {"again in each repeat", "C-2 01 ED1 | ... .. EE1\n", {-1, 0, -1, -1, -1, -1, -1, 0}},
    };
    for (const auto &r : rows) {
        PLAYING playing(Song({r.pattern}));
        const auto start = [&playing](const MOD_VOICE &v) {
            const int at = v.Started ? static_cast<int>(v.Position >> 32) : -1;
            playing.Player.Voices[0].Started = false;
            return at;
        };
        EXPECT_EQ(Watch(playing, r.ticks.size(), start), r.ticks) << r.what;
    }
    PLAYING beyond(Song({"C-2 03 908\n"}));
    MOD_Tick(beyond.Player);
    const MOD_VOICE &v = beyond.Player.Voices[0];
    EXPECT_LE(v.End - (v.Position >> 32), 2u) << "behind the end only the loop is left";
    EXPECT_EQ(v.LoopStart, 512u);
}

TEST(MOD, Lengths)
{
    const struct {
        const char *what;
        std::vector<std::string> patterns;
        std::vector<uint8_t> orders;
        uint32_t rows, milliseconds;
    } rows[] = {
        {"all orders", {"", ""}, {0, 1, 0}, 192, 23040},
        {"jump back", {"\n... .. B00\n"}, {0, 0}, 2, 240},
        {"jump on", {"... .. B02\n", "\n... .. D00\n"}, {0, 0, 1}, 3, 360},
        {"break to a decimal row", {"... .. D10\n", ""}, {0, 1}, 55, 6600},
        {"break beyond the pattern", {"... .. D64\n", ""}, {0, 1}, 65, 7800},
        {"jump, then break", {"... .. B01 | ... .. D62\n", ""}, {0, 1}, 3, 360},
        {"break, then jump", {"... .. D62 | ... .. B01\n", ""}, {0, 1}, 65, 7800},
        {"loop", {"\n... .. E60\n\n... .. E62\n... .. D00\n"}, {0}, 11, 1320},
        {"a loop starts where the last did",
         {"\n... .. E60\n... .. D00\n", "\n... .. E61\n... .. D00\n"},
         {0, 1},
         7,
         840},
        {"loops in two channels",
         {"... .. E60 | ... .. E60\n... .. E61\n... .. 000 | ... .. E61\n... .. D00\n"},
         {0},
         11,
         1320},
        {"a loop that never ends", {"\n... .. E61\n... .. E61\n"}, {0}, 5, 600},
        {"a break out of a loop goes on with it",
         {"... .. E60\n... .. D00\n\n... .. E61\n... .. D00\n", "... .. B00 | ... .. D02\n"},
         {0, 1},
         11,
         1320},
        {"delay", {"... .. EE3\n... .. D00\n"}, {0}, 2, 600},
        {"delay and break skip a row", {"... .. EE1 | ... .. D62\n", ""}, {0, 1}, 2, 360},
        {"speed and tempo", {"... .. F03\n... .. FFA\n... .. D00\n"}, {0}, 3, 120},
        {"stop", {"\n... .. F00\n"}, {0}, 2, 240},
    };
    for (const auto &r : rows) {
        PLAYING playing(Song(r.patterns, r.orders));
        EXPECT_EQ(playing.Length.Rows, r.rows) << r.what;
        EXPECT_EQ(playing.Length.Milliseconds, r.milliseconds) << r.what;
        double seconds = 0;
        while (MOD_Tick(playing.Player))
            seconds += 2.5 / playing.Player.Tempo;
        EXPECT_EQ(std::lround(seconds * 1000), r.milliseconds) << r.what << ", played";
        EXPECT_FALSE(MOD_Tick(playing.Player)) << r.what << ", it stays at the end";
    }
}

TEST(MOD, InvertLoopTurnsOneByteAfterTheOther)
{
    PLAYING playing(Song({"C-2 03 EFF\n... .. EF0\n"}));
    Watch(playing, 6, [](const MOD_VOICE &) { return 0; }); // at the full speed: each tick
    for (size_t i = 510; i < 522; i++)
        EXPECT_EQ(playing.Player.Waves[3][i] != playing.Song.Samples[3].Data[i], i > 512 && i < 519)
            << i;
}

// A loaded song and all that it renders.
struct RENDERED {
    MOD_HEADER *Header;
    explicit RENDERED(const BYTES &file, uint8_t channels = 2, uint8_t bits = 16,
                      uint32_t rate = 44100)
    {
        MOD_SetSoundNumber(0);
        MOD_Load(WriteTemp("mod", file).c_str());
        Header = MOD_GetHeader(0);
        if (!Header)
            return;
        Header->Channels = channels;
        Header->BitsPerSample = bits;
        Header->SamplingRate = rate;
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

// Samples of -1 to 1, interleaved.
static std::vector<double> Decode(const BYTES &bytes, uint8_t bits)
{
    std::vector<double> samples;
    for (size_t at = 0; at < bytes.size();) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < bits / 8u; i++)
            value |= static_cast<uint32_t>(bytes[at++]) << (32 - bits + 8 * i);
        samples.push_back(static_cast<int32_t>(value ^ (bits == 8 ? 1u << 31 : 0)) / 2147483648.0);
    }
    return samples;
}

TEST(MOD, EveryFormatHoldsTheSameSound)
{
    const BYTES file = WriteModule(Song({"C-2 01 | E-2 01 | G-2 01 | C-3 01\n\n\n... .. D00\n"}));
    const auto whole = Decode(RENDERED(file, 2, 32).Bytes(), 32);
    ASSERT_EQ(whole.size(), 2 * 4 * 5292u);
    for (const int bits : {8, 16, 24}) {
        const auto b = static_cast<uint8_t>(bits);
        const auto stereo = Decode(RENDERED(file, 2, b).Bytes(), b);
        const auto mono = Decode(RENDERED(file, 1, b).Bytes(), b);
        const auto three = Decode(RENDERED(file, 3, b).Bytes(1000), b);
        ASSERT_EQ(stereo.size(), whole.size());
        ASSERT_EQ(mono.size(), whole.size() / 2);
        ASSERT_EQ(three.size(), whole.size() / 2 * 3);
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
    for (const auto &[channels, bits, rate] :
         {std::array{2u, 12u, 44100u}, {0u, 16u, 44100u}, {2u, 16u, 0u}})
        EXPECT_TRUE(RENDERED(file, static_cast<uint8_t>(channels), static_cast<uint8_t>(bits), rate)
                        .Bytes()
                        .empty());
}

TEST(MOD, PitchAndSides)
{
    // C-2 plays 3546895 / 428 samples a second, 32 of them a period; only the first channel sounds
    const auto sound = Decode(RENDERED(WriteModule(Song({"C-2 01\n"}))).Bytes(), 16);
    std::vector<double> up; // where the left side rises through 0
    double left = 0, right = 0;
    for (size_t i = 2; i < sound.size(); i += 2) {
        if (sound[i - 2] < 0 && sound[i] >= 0)
            up.push_back(static_cast<double>(i) / 2 - sound[i] / (sound[i] - sound[i - 2]));
        left += sound[i] * sound[i];
        right += sound[i + 1] * sound[i + 1];
    }
    const double hz = 44100 * static_cast<double>(up.size() - 1) / (up.back() - up.front());
    EXPECT_LT(std::abs(1200 * std::log2(hz * 32 * 428 / 3546895)), 0.1) << "cents";
    EXPECT_NEAR(std::sqrt(left / right), 3, 0.01);
}

TEST(MOD, FullMixNeitherClipsNorClicks)
{
    for (const size_t channels : {1u, 4u, 5u, 8u, 32u}) {
        MOD_TEXT song = Song({""});
        song.Channels = channels;
        song.Signature =
            channels < 10 ? std::to_string(channels) + "CHN" : std::to_string(channels) + "CH";
        std::ranges::fill(song.Samples[0].Data, int8_t{-128});
        std::ranges::fill(song.Samples[1].Data, int8_t{127});
        for (const char *cell : {"C-2 01|", "C-2 02|", "C-2 01|"}) {
            for (size_t i = 0; i < channels; i++)
                song.Patterns[0] += cell;
            song.Patterns[0] += "\n";
        }
        const auto sound = Decode(RENDERED(WriteModule(song)).Bytes(), 16);
        const auto [low, high] = std::ranges::minmax(sound);
        EXPECT_GE(low, -1) << channels;
        EXPECT_LE(low, channels >= 4 && channels % 4 == 0 ? -0.999 : -0.3) << channels;
        EXPECT_LT(high, 32767.0 / 32768) << channels << ": not cut";
        double jump = 0;
        for (size_t i = 2; i < sound.size(); i++)
            jump = std::max(jump, std::abs(sound[i] - sound[i - 2]));
        EXPECT_LT(jump, 0.06) << channels;
    }
}

TEST(MOD, PowerLightFiltersHighTones)
{
    const auto level = [](const char *pattern) {
        const auto sound = Decode(RENDERED(WriteModule(Song({pattern}))).Bytes(), 16);
        return std::accumulate(sound.begin(), sound.end(), 0.0,
                               [](double a, double b) { return a + b * b; });
    };
    EXPECT_LT(level("B-3 04 E00\n0 04 037\n"), 1.2 * level("B-3 04 E01\n0 04 037\n"));
    const char *high[] = {"20 04 E01\n", "20 04 E00\n"}; // 5.5 kHz: 11 dB down
    EXPECT_NEAR(level(high[0]) / level(high[1]), 12, 4);
}

TEST(MOD, SongsStartOver)
{
    const RENDERED song(
        WriteModule(Song({"C-2 03 EFF\n\nC-2 01 A01\n", "C-3 01 F03\n... .. D00\n"}, {0, 1})));
    const BYTES first = song.Bytes();
    EXPECT_EQ(song.Header->SongPosition, 2);
    EXPECT_TRUE(song.Bytes().empty());
    const auto restart = [&song] { song.Header->SongPosition = song.Header->Row = 0; };
    restart();
    EXPECT_EQ(song.Bytes(), first);
    restart();
    BYTES part(40000);
    uint32_t length = 40000;
    MOD_Decoding(part.data(), &length, 0);
    EXPECT_EQ(length, 40000u);
    EXPECT_EQ(song.Header->Row, 2);
    restart();
    EXPECT_EQ(song.Bytes(999), first) << "in the middle, in other pieces";
}

TEST(MOD, ChangesOfSampleWaitForTheLoop)
{
    PLAYING playing(Song({"C-2 03\n... 04\n... 02\n"}));
    std::vector<const int8_t *> loops;
    for (int row = 0; row < 3; row++) {
        Watch(playing, 6, [](const MOD_VOICE &) { return 0; });
        EXPECT_EQ(playing.Player.Voices[0].Data, playing.Player.Waves[3].data());
        loops.push_back(playing.Player.Voices[0].LoopData);
    }
    const auto &waves = playing.Player.Waves;
    EXPECT_EQ(loops, (std::vector<const int8_t *>{waves[3].data(), waves[4].data(), nullptr}));
}

TEST(MOD, Signatures)
{
    const std::pair<const char *, size_t> rows[] = {
        {"M.K.", 4}, {"M!K!", 4}, {"FLT4", 4},  {"FLT8", 8},  {"CD81", 8}, {"OCTA", 8}, {"TDZ1", 1},
        {"1CHN", 1}, {"9CHN", 9}, {"10CH", 10}, {"64CH", 64}, {"", 4},     {"N.T.", 0}, {"0CHN", 0},
    };
    for (const auto &[signature, channels] : rows) {
        MOD_TEXT text = Song({"", ""}, {0, 1});
        text.Signature = signature;
        text.Channels = std::max<size_t>(channels, 4);
        const RENDERED song(WriteModule(text));
        ASSERT_EQ(song.Header != nullptr, channels != 0) << signature;
        EXPECT_EQ(MOD_SoundNumber, channels != 0) << signature;
        if (!song.Header)
            continue;
        EXPECT_EQ(song.Header->SongChannels, channels) << signature;
        EXPECT_EQ(song.Header->SampleCount, *signature ? 31 : 15) << signature;
        EXPECT_STREQ(song.Header->SampleNames[3].data(), "sample 4") << signature;
        EXPECT_STREQ(song.Header->Title.data(), "T");
    }
    // Eight channels as two patterns of four: the second half's first cell is channel 5's
    MOD_TEXT halves = Song({"C-2 01\n", "E-2 01\n"}, {0});
    halves.Signature = "FLT8";
    const MOD_SONG song = *MOD_ReadSong(WriteModule(halves));
    EXPECT_EQ(MOD_GetCell(song, 0, 0, 4).Period, 339);
    EXPECT_EQ(MOD_GetCell(song, 0, 0, 0).Period, 428);
}

TEST(MOD, DamagedFilesPlayWhatIsThere)
{
    for (const char *signature : {"M.K.", ""}) {
        MOD_TEXT text = Song({"C-2 02\n... .. D00\n"});
        text.Signature = signature;
        BYTES file = WriteModule(text);
        const size_t needed = (*signature ? 1084 : 600) + 16;
        for (size_t size = 0; size < file.size(); size += size < needed + 20 ? 1 : 97) {
            const RENDERED cut(BYTES(file.begin(), file.begin() + static_cast<long>(size)));
            ASSERT_EQ(cut.Header != nullptr, size >= needed) << signature << size;
            if (cut.Header) {
                EXPECT_GE(cut.Bytes().size(), 2 * 5292 * 4u) << signature << size;
            }
        }
    }
    EXPECT_EQ(RENDERED(BYTES(1000, 'a')).Header, nullptr) << "a short text";
    EXPECT_EQ(RENDERED(BYTES(700, 0)).Header, nullptr) << "no orders";
    EXPECT_EQ(RENDERED({}).Header, nullptr);
}

TEST(MOD, Records)
{
    const std::string path = WriteTemp("mod", WriteModule(Song({"C-2 01\n"})));
    MOD_SetSoundNumber(0);
    MOD_Load("/no/such/file");
    EXPECT_EQ(MOD_SoundNumber, 0);
    for (int i = 0; i < 40; i++)
        MOD_Load(path.c_str());
    EXPECT_EQ(MOD_SoundNumber, 32);
    EXPECT_NE(MOD_GetHeader(31), nullptr);
    EXPECT_EQ(MOD_GetHeader(32), nullptr);
    MOD_Destroy();
    EXPECT_EQ(MOD_GetHeader(31), nullptr);
    uint32_t length = 4;
    uint8_t buffer[4];
    MOD_Decoding(buffer, &length, 31);
    EXPECT_EQ(length, 0u);
    MOD_SetSoundNumber(0);
}
