#include "audio/audio.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <portaudio.h>
#include <sys/stat.h>

#include "audio/g711.h"
#include "tests/cookie.h"
#include "tests/mod_writer.h"
#include "tests/sound_files.h"

using namespace std::string_literals;

// A file of dots that contains the given texts.
static BYTES Dots(size_t size, const std::vector<std::pair<size_t, std::string>> &texts = {})
{
    BYTES bytes(size, '.');
    for (const auto &[at, text] : texts)
        std::copy(text.begin(), text.end(), bytes.begin() + static_cast<ptrdiff_t>(at));
    return bytes;
}

static int CheckOf(const BYTES &bytes)
{
    return Audio_Check(WriteTemp("check", bytes).c_str());
}

TEST(AudioCheck, TheFirstTestThatSucceedsWins)
{
    const std::string voc = "Creative Voice File\x1A\x1A"s + '\0';
    const struct {
        std::string at0, at8;
        int type;
    } rows[] = {{"RIFF", "WAVE", AUDIO_WAV},        {"RIFF", "AVI ", AUDIO_RAW},
                {voc, "Voice", AUDIO_RAW},          {voc, "", AUDIO_VOC},
                {voc.substr(0, 21), "", AUDIO_RAW}, {"." + voc, "", AUDIO_RAW},
                {".snd", "AIFF", AUDIO_AU},         {"FORM", "8SVX", AUDIO_IFF},
                {"FORM", "16SV", AUDIO_IFF},        {"    ", "8SVX", AUDIO_RAW},
                {"    ", "AIFF", AUDIO_AIFF},       {"FORM", "AIFC", AUDIO_AIFF}};
    for (const auto &r : rows) {
        EXPECT_EQ(CheckOf(Dots(2000, {{0, r.at0}, {8, r.at8}})), r.type) << r.at0 << r.at8;
        EXPECT_EQ(Audio_Type, r.type);
    }
    EXPECT_EQ(CheckOf({}), AUDIO_MOD);  // zeros in place of a module's signature
    EXPECT_EQ(CheckOf(Dots(1080)), AUDIO_MOD);
    EXPECT_EQ(CheckOf(Dots(1081)), AUDIO_RAW);

    Audio_Type = AUDIO_VOC;
    const std::string pipe = TempPath("pipe");
    mkfifo(pipe.c_str(), 0600);
    for (const std::string &none : {"no such file"s, testing::TempDir(), pipe})
        EXPECT_EQ(Audio_Check(none.c_str()), AUDIO_VOC) << none;
}

TEST(AudioCheck, PredictedFrames)
{
    constexpr int MP3 = AUDIO_MP3, RAW = AUDIO_RAW;
    const auto four = [](size_t length) {
        return std::vector<size_t>{0, length, 2 * length, 3 * length};
    };
    const struct {
        const char *what, *header;
        std::vector<size_t> at;
        int type;
    } rows[] = {
        // clang-format off
        {"MPEG-1", "\xFF\xFB\x90", four(417), MP3},    {"padding", "\xFF\xFB\x92", four(418), MP3},
        {"MPEG-2", "\xFF\xF3\x80", four(417), MP3},    {"MPEG-2.5", "\xFF\xE3\x80", four(835), MP3},
        {"reserved", "\xFF\xEB\x80", four(208), MP3},  {"Layer I", "\xFF\xFE\x90", four(417), MP3},
        {"above 128", "\xFF\xFB\x20", four(130), MP3}, {"below 128", "\xFF\xFB\x14", four(96), RAW},
        {"Layer II", "\xFF\xFD\x90", four(417), RAW},  {"bad rate", "\xFF\xFB\x9C", four(417), RAW},
        {"no bit rate", "\xFF\xFB\xF0", four(1044), RAW},
        // clang-format on
        {"free format", "\xFF\xFB\x02", four(417), RAW},
        {"a frame that was hit predicts nothing", "\xFF\xFB\x90", {0, 417, 834}, RAW},
        {"hits add up", "\xFF\xFB\x90", {9, 426, 5000, 5417}, MP3},
        {"a hit by the block's last bytes", "\xFF\xFB\x90", {9, 426, 7773, 8190}, MP3},
        {"a hit half out of the block", "\xFF\xFB\x90", {9, 426, 7774, 8191}, RAW},
        {"a hit out of the block", "\xFF\xFB\x90", {9, 426, 7775, 8192}, RAW},
    };
    for (const auto &r : rows) {
        std::vector<std::pair<size_t, std::string>> frames;
        for (const size_t at : r.at)
            frames.emplace_back(at, r.header);
        EXPECT_EQ(CheckOf(Dots(9000, frames)), r.type) << r.what;
    }
    CheckOf(Dots(1084, {{5, "\xFF\xF2\x87\x5E"}}));
    const auto &found = Audio_MP3Detect;
    EXPECT_EQ((std::array<uint32_t, 4>{Audio_MP3Frame.Length, found.Channels, found.SamplingRate,
                                       found.BitRate}),
              (std::array<uint32_t, 4>{144 * 64000 / 24000 + 1, 2, 24000, 64000}));
}

TEST(AudioCheck, TagsOfModules)
{
    std::string known = "M.K.M!K!FLT4FLT8CD81OCTATDZ1"
                        "\x00\xCA\x60\x00\x00\xBE\x10\x00\x00\x00\x00\x00\x00\xFE\x40\x00"
                        "\x01\x1D\x10\x00\x00\xD6\x10\x00\x00\xAA\x30\x00\x01\xC5\x20\x00"
                        "\x00\x00\x0C\x0F\x00\xBE\x50\x00"s;
    std::string unknown = "M.K!FLT6\x00\x00\x00\x01"
                          "1ACHA1CH8chn0CHN"s;
    for (int i = 0; i < 100; i++) {
        (i >= 10 && i <= 64 ? known : unknown) += std::to_string(100 + i).substr(1) + "CH";
        if (i >= 1 && i <= 9)
            known += std::to_string(i) + "CHN";
    }
    for (const auto &[tags, type] : {std::pair(known, AUDIO_MOD), std::pair(unknown, AUDIO_RAW)})
        for (size_t i = 0; i < tags.size(); i += 4)
            EXPECT_EQ(CheckOf(Dots(1084, {{1080, tags.substr(i, 4)}})), type) << tags.substr(i, 4);
}

// Sets what raw samples are read as, and the output to match.
static void SetRaw(uint8_t channels, uint8_t bits)
{
    Audio_SetChannel(channels);
    Audio_SetBPS(bits);
}

TEST(AudioLoad, RawSamples)
{
    const struct {
        uint8_t bits;
        size_t size;
        uint32_t length1, length2;
    } rows[] = {{8, 65536, 65535, 0}, {8, 65537, 65535, 0},     {8, 70000, 65535, 4463},
                {16, 3001, 2999, 0},  {16, 70001, 65535, 4463}, {24, 3000, 3000, 0}};
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << int{r.bits} << " bits, " << r.size << " bytes");
        SetRaw(1, r.bits);
        AudioTrack *track = Audio_Load(WriteTemp("raw", Dots(r.size, {{2, "ab"}})).c_str());
        EXPECT_EQ((std::array{uint32_t{track->State}, +track->Length[0], +track->Length[1]}),
                  (std::array{uint32_t{r.size > 65536}, r.length1, r.length2}));
        EXPECT_STREQ(Audio_Reason(), "not a sound of a known format");
        EXPECT_TRUE(Audio_Data == track->Buffer[0] && Audio_DataSize == r.length1 &&
                    Audio_DataTime == r.length1 / (r.bits / 8));
        EXPECT_EQ(track->Buffer[0][2], r.bits == 8 ? 128 - 'a' : r.bits == 16 ? 'b' : 0);
        Audio_UnLoad(track);
    }
}

TEST(AudioLoad, WhatCannotBeReadHasNoBuffers)
{
    uint8_t *const data = Audio_Data;
    for (const uint8_t type : {AUDIO_NONE, AUDIO_RAW, AUDIO_AIFF}) {
        Audio_Type = type;
        AudioTrack *track = Audio_Load("no such file");
        EXPECT_EQ(track->Buffer[0], nullptr);
        EXPECT_EQ(Audio_Data, data);
        UnLoad(track);
        track = Audio_LoadAs("no such file", 9);
        EXPECT_EQ(track->Buffer[0], nullptr) << "no such type";
        EXPECT_STREQ(Audio_Reason(), "");
        UnLoad(track);
    }
    const std::string longName = std::string(200, 'n');
    AudioTrack *track = Audio_Load(WriteTemp(longName, Dots(3000)).c_str());
    EXPECT_EQ(track->FileName.data(), TempPath(longName).substr(0, 63));
    EXPECT_NE(track->Buffer[0], nullptr);
    Audio_UnLoad(track);
}

// Three ticks of 882 frames.
static std::string WriteRow()
{
    MOD_TEXT row;
    row.Patterns = {"F03|D00"};
    return WriteTemp("row.mod", WriteModule(row));
}

static void Forget(AudioTrack *track)
{
    UnLoad(track);
    ResetModules();
}

TEST(AudioLoad, SynthesisedSoundReadsNoFile)
{
    SetRaw(1, 8);
    Audio_SetHz(65536 + 32000);
    const std::string path = WriteRow();
    AudioTrack *track = Audio_Load(path.c_str());
    std::filesystem::remove(path);
    EXPECT_EQ((std::array<int, 4>{track->Channels, track->BitsPerSample, track->SamplingRate,
                                  track->State}),
              (std::array{1, 8, 32000, 1}));
    EXPECT_EQ(track->Length[0] + track->Length[1], 3 * 640u);
    Audio_LoadBuffers(track, 3);
    EXPECT_EQ(track->Length[0], 0u) << "played to its end";
    Audio_SetCurrent(track);
    Audio_ReStart();
    Audio_LoadBuffers(track, 3);
    EXPECT_EQ(track->Length[0] + track->Length[1], 3 * 640u) << "started over";
    Audio_LoadBuffers(track, 1);
    EXPECT_EQ(track->Length[0], 0u) << "once";
    Audio_UnLoad(track);
    Audio_Modules[AUDIO_MOD].SetSoundNumber(32);
    track = Audio_Load(WriteRow().c_str());
    EXPECT_EQ(track->Buffer[0], nullptr) << "no slot left";
    Forget(track);
}

// What a device of so many frames receives; nothing may be written past it.
static BYTES CallBack(size_t frames = 65536, size_t frameBytes = 1)
{
    BYTES output(frames * frameBytes + 64, 0xAA);
    EXPECT_EQ(PortAudio_CallBack(nullptr, output.data(), frames, nullptr, 0, nullptr), paContinue);
    EXPECT_EQ(output[frames * frameBytes], 0xAA);
    output.resize(frames * frameBytes);
    return output;
}

// Loads and plays 8-bit samples: so many buffers' worth, each filled with its number.
static AudioTrack *PlayNumbers(size_t buffers)
{
    SetRaw(1, 8);
    BYTES bytes;
    for (size_t i = 1; i <= buffers; i++)
        bytes.insert(bytes.end(), 65536, static_cast<uint8_t>(i));
    AudioTrack *track = Audio_Load(WriteTemp("numbers", bytes).c_str());
    Audio_Play(track);
    return track;
}

// The buffer numbers that so many callbacks play, '-' for silence.
static std::string Played(int callbacks)
{
    std::string played;
    for (; callbacks > 0; callbacks--) {
        const int sample = CallBack()[0];
        played += sample == 128 ? '-' : static_cast<char>('0' + 128 - sample);
    }
    return played;
}

TEST(AudioPlay, LoopRules)
{
    const struct {
        size_t buffers;
        uint8_t loop;
        const char *played;
        size_t stopped;  // callbacks until it no longer counts as playing; 0: never
    } rows[] = {
        {3, 0, "12312312312312", 0}, {3, 1, "123-1231231231", 2}, {3, 2, "123123-1231231", 5},
        {3, 3, "123123123-1231", 8}, {2, 0, "12121212121212", 0}, {2, 1, "12-12121212121", 1},
        {2, 3, "121212-1212121", 5}, {1, 0, "11111111111111", 0}, {1, 1, "11111111111111", 1},
        {1, 3, "11111111111111", 3},
    };
    for (const auto &r : rows) {
        AudioTrack *track = PlayNumbers(r.buffers);
        Audio_SetLoop(r.loop);
        SCOPED_TRACE(testing::Message() << r.buffers << " buffers, loop " << int{r.loop});
        std::string played;
        size_t stopped = 0;
        while (played.size() < 14) {
            played += Played(1);
            if (!Audio_IsPlaying() && stopped == 0)
                stopped = played.size();
        }
        EXPECT_EQ(played, r.played);
        EXPECT_EQ(stopped, r.stopped);
        EXPECT_EQ(Audio_Loop, 0);
        Audio_UnLoad(track);
    }
}

TEST(AudioPlay, OutputIsWholeFramesAndThenSilence)
{
    const struct {
        const char *what;
        uint8_t channels, bits;
        size_t size, frames, copied;
    } rows[] = {
        {"16-bit stereo: the lost byte is there", 2, 16, 3000, 16384, 3000},
        {"16-bit stereo: and what follows half a frame", 2, 16, 3002, 16384, 3004},
        {"8-bit mono: the lost byte is lost", 1, 8, 3000, 65536, 2999},
        {"8-bit stereo", 2, 8, 3000, 32768, 3000},
        {"fewer frames than there are", 2, 16, 3000, 100, 400},
        {"more than a buffer", 2, 16, 65536, 20000, 65536},
    };
    for (const auto &r : rows) {
        SetRaw(r.channels, r.bits);
        AudioTrack *track = Audio_Load(WriteTemp("frames", Dots(r.size)).c_str());
        BYTES expected(r.frames * r.channels * r.bits / 8, r.bits == 8 ? 128 : 0);
        std::copy_n(track->Buffer[0].load(), r.copied, expected.data());
        EXPECT_EQ(CallBack(r.frames, r.channels * r.bits / 8u), expected) << r.what;
        Audio_UnLoad(track);
    }
}

// The track keeps its file open, whatever happens to the name.
TEST(AudioPlay, FilesMayShrinkAndGo)
{
    AudioTrack *track = PlayNumbers(3);
    Audio_SetLoop(0);
    EXPECT_EQ(Played(1), "1");
    std::filesystem::resize_file(track->Path, 2000);
    EXPECT_EQ(Played(4), "2311");  // the third buffer was read already
    std::filesystem::remove(track->Path);
    WriteTemp("numbers", BYTES(65536, 4));
    EXPECT_EQ(Played(4), "1111");
    Audio_UnLoad(track);
}

TEST(AudioPlay, FlagsLeaveTheStreamRunning)
{
    AudioTrack *track = PlayNumbers(4);
    Audio_SetLoop(5);
    Audio_Pause();
    EXPECT_FALSE(Audio_IsPlaying());
    EXPECT_EQ(Played(1), "1");
    Audio_Pause();
    EXPECT_TRUE(Audio_IsPlaying());
    Audio_Stop();
    EXPECT_FALSE(Audio_IsPlaying());
    EXPECT_EQ(Audio_Loop, 0);
    EXPECT_EQ(Played(1), "2");
    Audio_ReStart();
    EXPECT_TRUE(Audio_IsPlaying());
    EXPECT_EQ(Played(4), "3412");  // two buffers were full already
    Audio_UnLoad(track);
}

TEST(AudioPlay, UnloadedTracksAreOutOfReach)
{
    AudioTrack *one = PlayNumbers(3);
    AudioTrack *other = Audio_Load(WriteTemp("other", BYTES(3000, 9)).c_str());
    EXPECT_EQ(Played(2), "92");  // a load is played once, whatever is current
    Audio_UnLoad(other);
    EXPECT_EQ(Played(1), "3");
    Audio_UnLoad(Audio_Load(TempPath("other").c_str()));
    EXPECT_EQ(Played(2), "-2");
    Audio_UnLoad(one);
    EXPECT_EQ(Played(2), "--");
    Audio_ReStart();  // nothing to rewind
}

TEST(AudioMixer, NeedsADeviceFromTheThirdOn)
{
    SetRaw(2, 8);
    Audio_Device = 1;
    Audio_SetMixer(16, 96000, 0, 0);
    EXPECT_EQ(Audio_BPS, 8);
    EXPECT_EQ(PortAudio_Format.sampleFormat, 0u);
    Audio_Device = 2;
    const std::pair<uint8_t, PaSampleFormat> rows[] = {
        {8, paUInt8}, {16, paInt16}, {24, paInt24}, {32, paInt32}, {12, paInt32}};
    for (const auto &[bits, format] : rows) {
        Audio_SetMixer(bits, 96000, 0, 0);
        const PaStreamParameters &p = PortAudio_Format;
        EXPECT_EQ(std::tuple(Audio_BPS, Audio_Hz, p.sampleFormat, p.channelCount, p.device,
                             p.suggestedLatency),
                  std::tuple(bits, 96000, format, 2, 2, 0));  // without a device no latency
    }
    Audio_Device = -1;
}

// What Audio_Take returns in pieces of so many bytes until the sound ends, called again where a
// search was interrupted.
static BYTES Taken(AudioTrack *track, size_t piece)
{
    BYTES all, out(piece);
    while (!track->Ended) {
        const size_t count = Audio_Take(track, out.data(), piece);
        all.insert(all.end(), out.begin(), out.begin() + static_cast<ptrdiff_t>(count));
    }
    return all;
}

// The file's samples exactly, across buffers and the loop's seam.
TEST(AudioTake, LosesNothing)
{
    const BYTES noise = Noise(12 * 20000);
    BYTES expanded;
    for (const uint8_t byte : noise)
        expanded = std::move(expanded) + Number(Audio_Alaw(byte), -2);
    const BYTES au = Text(".snd\0\0\0\x18\xFF\xFF\xFF\xFF\0\0\0\3\0\0\x1F\x40\0\0\0\1") + noise;
    BYTES swapped = noise;
    for (size_t i = 0; i < swapped.size(); i += 2)
        std::swap(swapped[i], swapped[i + 1]);
    const struct {
        const char *what;
        BYTES file, expected;
        uint8_t loop;
    } rows[] = {
        {"8 bits", WaveFile(1, 1, 8, noise), noise, 2},
        {"16 bits", WaveFile(1, 1, 16, noise), noise, 2},
        {"24 bits", WaveFile(1, 1, 24, noise), noise, 3},
        {"32 bits", WaveFile(1, 1, 32, noise), noise, 2},
        {"A-law", WaveFile(6, 1, 8, noise), expanded, 2},
        {"less than a buffer", WaveFile(6, 1, 8, Prefix(noise, 5000)), Prefix(expanded, 10000), 3},
        {"an encoding that never ends", au, swapped, 2},
    };
    for (const auto &r : rows) {
        AudioTrack *track = Audio_LoadBytes(r.file);
        EXPECT_STREQ(Audio_Reason(), "");
        Audio_SetLoop(r.loop);
        BYTES expected;
        for (int i = 0; i < r.loop; i++)
            expected = std::move(expected) + r.expected;
        EXPECT_TRUE(Taken(track, 40000) == expected) << r.what;
        EXPECT_FALSE(Audio_IsPlaying());
        EXPECT_EQ(track->Taken, r.expected.size()) << r.what;
        Audio_UnLoad(track);
    }
    const BYTES none = WaveFile(1, 1, 8, {});
    AudioTrack *empty = Audio_LoadBytes(none);
    Audio_SetLoop(0);
    EXPECT_EQ(Taken(empty, 100), BYTES()) << "is not repeated for ever";
    Forget(empty);
}

// After a seek anywhere, Audio_Take returns what lies there.
static void CheckSeeks(const std::string &path, const BYTES &file)
{
    SCOPED_TRACE(path);
    AudioTrack *track = file.empty() ? Audio_Load(path.c_str()) : Audio_LoadBytes(file);
    Audio_SetLoop(1);
    const BYTES all = Taken(track, 40000);
    const size_t frame = Audio_FrameBytes(*track), frames = all.size() / frame;
    BYTES piece(std::min<size_t>(frame * 9001, 90000) / frame * frame);
    for (const size_t to : {frames / 2, frames / 2 + 1, size_t{1}, frames - 1, frames / 3,
                            frames / 7 * 6, size_t{0}, frames, frames / 5, frames + 1}) {
        EXPECT_EQ(Audio_Seek(track, to), std::min(to, frames));
        Audio_SetLoop(1);
        const size_t at = std::min(to, frames) * frame;
        const size_t expected = std::min(piece.size(), all.size() - at);
        EXPECT_EQ(Audio_Take(track, piece.data(), piece.size()), expected) << to;
        EXPECT_TRUE(std::equal(piece.data(), piece.data() + expected, all.data() + at)) << to;
        EXPECT_EQ(track->Taken, at + expected) << to;
    }
    Forget(track);
}

// All sounds in the test data and in the folder named by the environment variable CORPUS.
TEST(AudioTake, SeeksExactly)
{
    const BYTES noise = Noise(50000), half = Prefix(noise, 20000);
    const auto voc = [](int type, const BYTES &block) {
        return Number(type, 1) + Number(static_cast<int64_t>(block.size()), -3) + block;
    };
    const BYTES silence = voc(3, Number(4999, -2) + Number(131, -1));
    const BYTES pieces = Text("Creative Voice File\x1A\x1A\0\x0A\1\x29\x11") +
                         voc(6, Number(3, -2)) + voc(1, Text("\x83\0") + half) + silence +
                         voc(7, {}) + voc(2, Prefix(noise, 777)) + silence + Number(0, 1);
    const BYTES packed = Text("FORM\0\0\0\0008SVXVHDR\0\0\0\x14") + BYTES(12) +
                         Text("\x1F\x40\1\1\0\1\0\0CHAN\0\0\0\4\0\0\0\6BODY") + Number(50000, 4) +
                         noise;
    MOD_TEXT tune = {
        {"C-2 01 037\nE-3 02 A08 | C-2 01 E93\n\n... 02 | A-1 02 4F4\nE00\nC-3 02 EFF | "
         "... 00 C10\nF40 | E61\nD00\n"},
        {{{half.begin(), half.begin() + 8000}}, {{half.begin(), half.begin() + 900}, 100, 300}}};
    const BYTES song = WriteModule(tune);
    // Of its blocks 63 fit a buffer; what counts of 64 would.
    const BYTES adpcm = Text("RIFF\0\0\0\0WAVEfmt \x32\0\0\0\2\0\1\0") + Number(8000, -4) +
                        Number(4000, -4) + Number(263, -2) + Number(4, -2) +
                        Text("\x20\0\0\0\7\0") + BYTES(28, 1) + Text("fact\4\0\0\0\0\0\0\0data") +
                        Number(50000, -4) + noise;
    // 41 frames. Frame 32, an index place, needs those before it when frame 35 is sought.
    BYTES music;
    for (int i = 0; i < 4; i++)
        music = music + ReadFile(TEST_DATA "mp3_low.mp3");
    music = {music.begin() + 620, music.begin() + 4910};
    SetRaw(2, 16);
    for (const uint8_t rules : {AUDIO_RULES_FRAMEWORK, AUDIO_RULES_FORMAT}) {
        Audio_Rules = rules;
        for (const BYTES &file : {pieces, Prefix(pieces, 26), packed, song, noise, music, adpcm})
            CheckSeeks("made", file);
        const char *corpus = std::getenv("CORPUS");
        for (const std::string folder : {TEST_DATA, corpus ? corpus : TEST_DATA "sounds"})
            for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
                const std::string path = entry.path();
                if (entry.is_regular_file() && Audio_Check(path.c_str()) != AUDIO_RAW)
                    CheckSeeks(path, {});
            }
    }
    Audio_Rules = AUDIO_RULES_FRAMEWORK;
}

TEST(AudioTake, CallBackRunsOnAndStartsOver)
{
    SetRaw(1, 8);
    const BYTES noise = Noise(100000), file = WaveFile(1, 1, 8, noise);
    AudioTrack *track = Audio_LoadBytes(file);
    Audio_SetLoop(1);
    Audio_Play(track);
    BYTES out(60000);
    const auto call = [&out] {
        EXPECT_EQ(Audio_GaplessCallBack(nullptr, out.data(), out.size(), nullptr, 0, nullptr), 0);
        return out;
    };
    const BYTES silence(20000, 128);
    EXPECT_EQ(call(), Prefix(noise, 60000));
    EXPECT_EQ(call(), BYTES(noise.begin() + 60000, noise.end()) + silence);
    EXPECT_EQ(call(), BYTES(60000, 128));
    Audio_ReStart();
    EXPECT_EQ(call(), Prefix(noise, 60000));
    Audio_ReStart();
    EXPECT_EQ(call(), Prefix(noise, 60000)) << "in the middle";
    Audio_UnLoad(track);
    EXPECT_EQ(call(), BYTES(60000, 128));
    ResetModules();
}

TEST(AudioTake, ToneStaysPureAcrossBuffersAndRounds)
{
    AudioTrack *track = Audio_Load(TEST_DATA "mp3_sine.mp3");
    Audio_SetLoop(3);
    const BYTES sound = Taken(track, 10000);
    EXPECT_EQ(sound.size(), 3u * 50 * 1152 * 2);
    // All but the beginning, which no earlier pass leads into.
    EXPECT_GT(ToneOverRest(SamplesOf(std::span(sound).subspan(2 * 2400), 16), 100, 1), 75);
    Forget(track);

    // By the format's rules each round begins after the encoder's delay.
    const FORMAT_RULES rules;
    std::array<BYTES, 2> taken;
    for (uint8_t rounds = 1; rounds <= 2; rounds++) {
        track = Audio_Load(TEST_DATA "mp3_sine.mp3");
        Audio_SetLoop(rounds);
        taken[rounds - 1u] = Taken(track, 10000);
        Forget(track);
    }
    EXPECT_EQ(taken[1], taken[0] + taken[0]);
}

TEST(AudioTake, ReadErrorsAndRestartsAreNotLost)
{
    COOKIE cookie = {WaveFile(1, 1, 8, Noise(150000))};
    AudioTrack *track = Audio_LoadBytes(cookie.Bytes);
    track->File = OpenCookie(cookie);
    Audio_SetCurrent(track);
    Audio_SetLoop(0);

    Audio_ReStart();
    cookie.ReStarts = true;
    Audio_LoadBuffers(track, 1);
    const auto refilled = [track] {
        return BYTES(track->Buffer[0].load(), track->Buffer[0] + 65535);
    };
    const BYTES first = refilled();
    Audio_LoadBuffers(track, 1);
    EXPECT_EQ(refilled(), first) << "a restart during the refill from the start";
    Audio_LoadBuffers(track, 1);
    EXPECT_NE(refilled(), first) << "only one";

    cookie.FailAt = 100044;
    EXPECT_EQ(Taken(track, 65536).size(), 100000u);
    EXPECT_EQ(track->Error, EIO);
    cookie.FailAt = SIZE_MAX;
    Audio_SetLoop(1);
    Audio_ReStart();
    Audio_Take(track, cookie.Bytes.data(), 1);
    EXPECT_EQ(track->Error, 0);
    Forget(track);
}

// 3 MiB without a frame: calls without sound, after which the sound continues.
TEST(AudioTake, SearchGivesUpItsTurn)
{
    const BYTES frame = Number(0xFFFB2000, 4) + BYTES(126), gap(3 << 20);
    const BYTES frames = frame + frame + frame + frame, file = frames + gap + frames;
    AudioTrack *track = Audio_LoadBytes(file);
    EXPECT_EQ(track->Length[0], 18432u);
    EXPECT_EQ(track->Length[1], 0u);
    Audio_SetCurrent(track);
    Audio_SetLoop(0);
    std::vector<uint32_t> lengths;
    for (size_t i = 0; i < 6; i++) {
        Audio_ReadBuffers();
        lengths.push_back(track->Length[i % 2]);
    }
    EXPECT_EQ(lengths, (std::vector<uint32_t>{18432, 18432, 0, 18432, 18432, 0}))
        << "the rest, then from the start: frames and a search, the search, the rest";
    Forget(track);
    const BYTES zeros(5 << 20);
    BYTES sparse = zeros;  // what could begin a frame, so that no block is skipped at once
    for (size_t i = 0; i < sparse.size(); i += 100)
        sparse[i] = 0xFF;
    for (const BYTES &between : {zeros, sparse}) {
        const BYTES other = frames + between + frames;
        track = Audio_LoadBytes(other);
        Audio_SetLoop(1);
        std::vector<size_t> taken;
        for (BYTES out(65536); !track->Ended;)
            taken.push_back(Audio_Take(track, out.data(), out.size()));
        EXPECT_EQ(taken, (std::vector<size_t>{18432, 0, 0, 18432}));
        Forget(track);
    }
}
