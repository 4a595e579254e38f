// MPEG streams by the standards: what is found, what is dropped, what damage does.
#include <tuple>

#include <gtest/gtest.h>

#include "tests/mp3.h"
#include "tests/sound_files.h"

// Loads the bytes by the format's rules into slot 0.
static MP3_HEADER &Load(const BYTES &file)
{
    const FORMAT_RULES rules;
    MP3_SetSoundNumber(0);
    MP3_Load(WriteTemp("mp3", file).c_str());
    return *MP3_GetHeader(0);
}

// The whole sound, in refills of `capacity` bytes.
static BYTES Play(const BYTES &file, uint32_t capacity = 65536)
{
    BYTES sound;
    Load(file);
    Refill(TempPath("mp3"), 0, capacity, sound);
    return sound;
}

static uint32_t HeaderOf(const BYTES &frame)
{
    size_t at = 0;
    return Bytes_GetBig(frame, at, 4);
}

// A small file's frames.
static std::vector<BYTES> FramesOf(const char *name)
{
    const BYTES file = ReadFile(std::string(TEST_DATA) + name);
    std::vector<BYTES> frames;
    for (auto at = file.begin(); at != file.end(); at += std::ssize(frames.back())) {
        const uint32_t header = HeaderOf({at, at + 4});
        frames.emplace_back(at, at + MP3_StandardLength(header) + MP3_PaddingLength(header));
    }
    return frames;
}

// A frame like the first one, but silent, with other bytes from `at` on.
static BYTES With(const BYTES &frame, size_t at, const BYTES &bytes)
{
    BYTES changed = Prefix(frame, 4) + BYTES(frame.size() - 4);
    std::copy(bytes.begin(), bytes.end(), changed.begin() + static_cast<ptrdiff_t>(at));
    return changed;
}

// An info frame as LAME writes it: fields present, their contents, encoder, and the samples added.
static BYTES Info(const BYTES &frame, const char *name, uint32_t frames, uint32_t bytes,
                  uint32_t delay, uint32_t padding)
{
    return With(frame, 4 + MP3_SideLength(HeaderOf(frame)),
                BYTES(name, name + 4) + Number(0xF, 4) + Number(frames, 4) + Number(bytes, 4) +
                    BYTES(104) + Text("LAME3.100") + BYTES(12) + Number(delay << 12 | padding, 3));
}

constexpr size_t Bytes = 4;  // of a frame of two channels

TEST(MP3Format, InfoFramesSayWhatIsPlayed)
{
    const std::vector<BYTES> frames = FramesOf("mp3_joint.mp3");
    const BYTES stream = Joined(frames), all = Play(stream);
    const auto count = static_cast<uint32_t>(frames.size());
    const auto size = static_cast<uint32_t>(stream.size());
    // Frames of nothing but header and side information.
    const auto room = static_cast<uint32_t>((frames[0].size() + stream.size()) / (4 + 32));
    ASSERT_EQ(all.size(), count * 1152 * Bytes);
    const BYTES vbri =
        With(frames[0], 36, Text("VBRI") + BYTES(6) + Number(size, 4) + Number(count, 4));
    const struct {
        const char *what;
        BYTES info;
        size_t skip, samples;
        uint32_t frames;
    } rows[] = {
        {"delay and padding", Info(frames[0], "Info", count, size, 576, 1000), 1105,
         count * 1152 - 1576, count},
        {"of many frames", Info(frames[0], "Xing", count, size, 1200, 3000), 1729,
         count * 1152 - 4200, count},
        {"other frames follow", Info(frames[0], "Xing", 1, 0, 576, 100), 1105, SIZE_MAX, 1},
        {"no count", Info(frames[0], "Xing", 0, size, 576, 100), 1105, SIZE_MAX, 0},
        {"a count alone", With(frames[0], 36, Text("Xing") + Number(1, 4) + Number(count, 4)), 0,
         SIZE_MAX, count},
        {"a delay alone",
         With(frames[0], 36,
              Text("Info") + BYTES(4) + Text("LAME3.100") + BYTES(12) + Number(576 << 12, 3)),
         1105, SIZE_MAX, 0},
        {"more than the file has room for", Info(frames[0], "Xing", room + 1, size, 576, 100), 1105,
         SIZE_MAX, 0},
        {"VBRI", vbri, 0, SIZE_MAX, count},
        {"none", {}, 0, SIZE_MAX, 0},
    };
    for (const auto &r : rows) {
        BYTES expected(all.begin() + static_cast<ptrdiff_t>(r.skip * Bytes), all.end());
        expected.resize(std::min(expected.size(), r.samples * Bytes));
        // A frame of 0 bytes precedes more than its count.
        const BYTES file = r.info + stream + (r.frames == 1 ? BYTES(8000) : BYTES());
        for (const uint32_t capacity : {65536u, 4608u, 9000u})
            EXPECT_EQ(Play(file, capacity) == expected, true) << r.what << ' ' << capacity;
        EXPECT_EQ(MP3_GetHeader(0)->Frames.Frames, r.frames) << r.what;
        EXPECT_EQ(MP3_GetHeader(0)->DataStart, r.info.size()) << r.what;
        BYTES again;  // a second pass, from the start
        Refill(TempPath("mp3"), 0, 65536, again);
        EXPECT_TRUE(again == expected) << r.what;
    }
}

// 16-bit samples are the rounded 32-bit ones.
TEST(MP3Format, WideSamples)
{
    const BYTES file = Joined(FramesOf("mp3_vbr.mp3")), narrow = Play(file);
    MP3_OutputBits = 32;
    const BYTES wide = Play(file, 9999);
    MP3_OutputBits = 16;
    EXPECT_EQ(MP3_GetHeader(0)->BitsPerSample, 32);
    BYTES rounded;
    size_t fine = 0;
    for (size_t at = 0; at < wide.size();) {
        const uint32_t sample = Bytes_GetLittle(wide, at, 4);
        const auto nearest = static_cast<int64_t>(static_cast<int32_t>(sample)) + 0x8000;
        const BYTES two = Number(std::min<int64_t>(nearest >> 16, 32767), -2);
        rounded.insert(rounded.end(), two.begin(), two.end());
        fine += (sample & 0xFFFF) != 0;
    }
    EXPECT_TRUE(rounded == narrow);
    EXPECT_GT(fine, narrow.size() / 4);
}

// Slots (12 or 144, half of these below MPEG-1 in Layer III) times bit rate over sampling rate.
TEST(MP3Format, Lengths)
{
    const std::pair<uint32_t, uint32_t> rows[] = {
        {0xFFFB9000, 144 * 128000 / 44100},    {0xFFF39000, 72 * 80000 / 22050},
        {0xFFE39000, 72 * 80000 / 11025},      {0xFFFD9400, 144 * 160000 / 48000},
        {0xFFF59400, 144 * 80000 / 24000},     {0xFFFF9800, 12 * 288000 / 32000 * 4},
        {0xFFF79800, 12 * 144000 / 16000 * 4}, {0xFFFB0000, 0},
    };
    for (const auto &[header, length] : rows)
        EXPECT_EQ(MP3_StandardLength(header), length) << header;
}

TEST(MP3Format, FramesAreFound)
{
    const std::vector<BYTES> frames = FramesOf("mp3_joint.mp3"), low = FramesOf("mp3_low.mp3");
    const BYTES stream = Joined(frames), sound = Play(stream),
                cut(stream.begin(), stream.end() - 9);
    const size_t all = frames.size() * 1152;
    BYTES freeFormat;
    for (BYTES frame : FramesOf("mp3_vbr.mp3")) {
        frame.resize(700);
        frame[2] &= 0x0F;
        freeFormat = freeFormat + frame + BYTES(frame[2] >> 1 & 1);
    }
    const BYTES v1 = Text("TAG") + BYTES(125), junk = Text("\xFF\xFB\x90\x64junk\xFF\xFF\xFF");
    const BYTES v2 = Text("ID3\4\0\x10\0\0\2\1") + BYTES(257, 0xFF) + Text("3DI") + BYTES(7);
    const BYTES ape = Text("APETAGEX") + Number(2000, -4) + Number(32 + 11, -4) + Number(1, -4) +
                      Number(0x80000000, -4) + BYTES(8);
    const BYTES apeEnd = stream + ape + BYTES(11) + ape;
    const struct {
        const char *what;
        BYTES file;
        size_t samples;
        const char *reason;
    } rows[] = {
        {"frames", stream, all, ""},
        {"junk before", junk + stream, all, ""},
        {"a header across two blocks of the search", BYTES(16382) + stream, all, ""},
        {"tags on both sides", v2 + stream + v1, all, ""},
        {"an APE tag", apeEnd, all, ""},
        {"lyrics",
         stream + Text("LYRICSBEGIN") + Prefix(frames[0], 208) + Text("000219LYRICS200") + v1, all,
         ""},
        {"a gap of junk", frames[0] + frames[1] + Text("junk") + stream, all + 2 * 1152, ""},
        {"cut", cut, all - 1152, "cut in its last frame"},
        {"a low rate", Joined(low), low.size() * 576, ""},
        {"32 kbit/s", Joined(std::vector(3, Number(0xFFFB1000, 4) + BYTES(100))), 3 * 1152, ""},
        {"another stream's frames", stream + Joined(low), all, ""},
        {"free format", freeFormat, FramesOf("mp3_vbr.mp3").size() * 1152, ""},
        {"Layer II", Joined(std::vector(3, Number(0xFFFD1400, 4) + BYTES(92))), 0,
         "MPEG audio Layer II"},
        {"Layer I", Joined(std::vector(3, Number(0xFFFF1000, 4) + BYTES(28))), 0,
         "MPEG audio Layer I"},
        {"one header", Number(0xFFFB9064, 4) + BYTES(2000), 0, "no frame of MPEG audio"},
        {"nothing", {}, 0, "no frame of MPEG audio"},
    };
    for (const auto &r : rows) {
        const BYTES played = Play(r.file);
        const uint16_t channels = std::max<uint16_t>(MP3_GetHeader(0)->Frames.Channels, 1);
        EXPECT_EQ(played.size() / 2 / channels, r.samples) << r.what;
        EXPECT_STREQ(Reason_Get(), r.reason) << r.what;
    }
    EXPECT_TRUE(Play(v2 + stream + v1) == sound);
}

// Frames of two channels among those of one are mixed, the other way round one sounds on both
// sides.
TEST(MP3Format, ChannelsAreTheFirstFrames)
{
    std::vector<BYTES> sine = FramesOf("mp3_sine.mp3");
    sine.resize(4);
    const BYTES joint = Joined(FramesOf("mp3_joint.mp3")), tone = Joined(sine);
    const BYTES left = Play(joint), one = Play(tone);
    const BYTES mixed = Play(tone + joint), both = Play(joint + tone);
    const auto at = [](const BYTES &sound, size_t i) {
        return static_cast<int16_t>(sound[2 * i] | sound[2 * i + 1] << 8);
    };
    ASSERT_EQ(mixed.size(), one.size() + left.size() / 2);
    ASSERT_EQ(both.size(), left.size() + one.size() * 2);
    for (size_t i = 2 * 1152; i < 4 * 1152; i++) {  // past what the frames before lead to
        ASSERT_EQ(at(mixed, i + 4 * 1152), (at(left, 2 * i) + at(left, 2 * i + 1)) / 2) << i;
        ASSERT_EQ(at(both, left.size() / 2 + 2 * i), at(one, i)) << i;
        ASSERT_EQ(at(both, left.size() / 2 + 2 * i + 1), at(one, i)) << i;
    }
}

// Each call searches a million bytes at most; a header that no other follows counts as 64.
TEST(MP3Format, SearchesPause)
{
    const BYTES frames = Joined(FramesOf("mp3_joint.mp3"));
    BYTES headers(7);
    for (int i = 1; i < 70000; i++)
        headers = std::move(headers) + Prefix(frames, 4) + BYTES(3);
    // A pause comes after 65 blocks of 16381 bytes, or after 7 that are full of headers.
    const std::tuple<BYTES, size_t, size_t> rows[] = {
        {BYTES(100), 0, 100 + 64},
        {BYTES(3 << 20), 2, (3 << 20) - 2 * 65 * 16381 + 64},
        {headers, 4, 70000 * (7 + 64) - 28 * 16381 / 7 * (7 + 64) + 64}};
    for (const auto &[gap, pauses, passed] : rows) {
        MP3_STREAM stream = Load(frames + gap + frames).Frames;
        FILE *file = std::fopen(TempPath("mp3").c_str(), "rb");
        std::array<uint8_t, MP3_MaxFreeFrame> frame;
        size_t searched = 0, length = 0, paused = 0;
        for (size_t n = 0; n<9; paused += searched> MP3_MaxSearch) {
            searched = 0;
            n += MP3_NextFrame(file, stream, frame, length, searched) == MP3_SEARCH::Found;
        }
        EXPECT_EQ(paused, pauses) << gap.size();
        EXPECT_EQ(searched, passed) << gap.size();
        std::fclose(file);
    }
}

// A frame with a CRC over bits 16 to 31 of its header and its side information, in place of its
// last two bytes.
static BYTES Protected(const BYTES &frame, uint16_t error = 0)
{
    const size_t side = MP3_SideLength(HeaderOf(frame));
    uint32_t sum = 0xFFFF;
    for (size_t bit = 16; bit < 8 * (4 + side); bit++) {
        const uint32_t byte = frame[bit / 8];
        sum = sum << 1 ^ ((sum >> 15 ^ byte >> (7 - bit % 8)) & 1 ? 0x8005 : 0);
    }
    BYTES result = Prefix(frame, 4) + Number((sum & 0xFFFF) ^ error, 2);
    result[1] &= 0xFE;
    result.insert(result.end(), frame.begin() + 4, frame.end() - 2);
    return result;
}

TEST(MP3Format, ChecksumsTellDamage)
{
    std::vector<BYTES> frames = FramesOf("mp3_joint.mp3"), right, wrong, oneWrong, oneShort,
                       oneCutOff;
    for (BYTES &frame : frames) {
        right.push_back(Protected(frame));
        wrong.push_back(Protected(frame, 1));
    }
    oneWrong = oneShort = oneCutOff = right;
    oneWrong[1] = wrong[1];
    BYTES early = frames[2];
    early[4] = 0, early[5] |= 0x80;  // its main data begin a byte before it
    oneCutOff[2] = Text("junk") + Protected(early);
    frames[1][28] |= 7;  // the last granule has more bits than there are
    oneShort[1] = Protected(frames[1]);
    const BYTES sound = Play(Joined(right));
    EXPECT_TRUE(Play(Joined(wrong)) == sound) << "never right, so not a sign of damage";
    for (const auto &[at, stream] : {std::pair(1, oneWrong), {1, oneShort}, {2, oneCutOff}}) {
        const BYTES damaged = Play(Joined(stream));
        ASSERT_EQ(damaged.size(), sound.size());
        EXPECT_TRUE(std::equal(sound.begin(), sound.begin() + at * 1152 * 4, damaged.begin()));
        const auto last = damaged.begin() + (at * 1152 + 1120) * 4;
        EXPECT_EQ(std::count(last, last + 32 * 4, 0), 32 * 4) << "silent";
    }
}

TEST(MP3Format, Tags)
{
    const BYTES stream = Joined(FramesOf("mp3_low.mp3"));
    const auto v2 = [](uint8_t major, uint8_t flags, const BYTES &body) {
        const auto seven = [&body](int at) {
            return static_cast<uint8_t>(body.size() >> at & 127);
        };
        return Text("ID3") + BYTES{major, 0, flags, 0, seven(14), seven(7), seven(0)} + body;
    };
    const auto frame = [](const char *id, const BYTES &text, uint16_t flags = 0) {
        return BYTES(id, id + 4) + Number(std::ssize(text), 4) + Number(flags, 2) + text;
    };
    const auto ape = [](const BYTES &items) {
        return items + Text("APETAGEX") + Number(2000, -4) + Number(32 + std::ssize(items), -4) +
               Number(1, -4) + BYTES(12);
    };
    const BYTES title = frame("TIT2", Text("\0Title")), two = Text("TT2\0\0\3\0Hi");
    const auto item = [](const std::string &name, const std::string &text) {
        return Number(std::ssize(text), -4) + Number(0, 4) + BYTES(name.begin(), name.end()) +
               BYTES(1) + BYTES(text.begin(), text.end());
    };
    const BYTES titled = item("Title", "Two"), none = item("x", "");
    const BYTES v1 = Text("TAG") + Text("One") + BYTES(27, ' ') + Text("By") + BYTES(28) +
                     Text("On") + BYTES(28) + Text("1999Note") + BYTES(24) + BYTES{0, 9, 17};
    // clang-format off
    const struct {
        const char *what;
        BYTES before, after;
        std::string texts;  // title, comment, track, genre and, joined, artist, album, year
    } rows[] = {
        {"version 2", v2(2, 0, Text("TT2\0\0\3\0Hi") + Text("TCO\0\0\5\0(17)") + BYTES(9)), {},
         "Hi|||Rock"},
        {"a bare number", v2(2, 0, Text("TCO\0\0\3\0" "17") + BYTES(9)), {}, "|||Rock"},
        {"version 3", v2(3, 0, title + frame("TRCK", Text("\0" "7/12"))), {}, "Title||7/12|"},
        {"an extended header", v2(3, 0x40, Number(6, 4) + BYTES(6) + title), {}, "Title|||"},
        {"of version 4", v2(4, 0x40, Number(6, 4) + BYTES(2) + title), {}, "Title|||"},
        {"Latin-1", v2(3, 0, frame("TIT2", Text("\0\xE9"))), {}, "\xC3\xA9|||"},
        {"UTF-16 and a pair", v2(3, 0, frame("TIT2", Text("\1\xFF\xFE\xE9\0\x3D\xD8\0\xDE"))), {},
         "\xC3\xA9\xF0\x9F\x98\x80|||"},
        {"unsynchronised", v2(3, 0x80, Text("TIT2\0\0\0\3\0\0\0\xFF\0\xE9")), {},
         "\xC3\xBF\xC3\xA9|||"},
        {"a length before the text", v2(4, 0, frame("TIT2", Text("\0\0\0\2\3Hi"), 1)), {}, "Hi|||"},
        {"compressed", v2(4, 0, frame("TIT2", Text("\3Hi"), 8)), {}, "|||"},
        {"comments", v2(3, 0, frame("COMM", Text("\0engiTunNORM\0 1")) +
         frame("COMM", Text("\0eng\0Good"))), {}, "|Good||"},
        {"APE and ID3v1", {},
         ape(Number(3, -4) + Number(0, 4) + Text("TITLE\0Two") + Number(1, -4) + Number(2, -4) +
         Text("Comment\0x")) + v1, "Two|Note|9|RockByOn1999"},
        {"an unknown genre", {}, Prefix(v1, 127) + BYTES{126}, "One|Note|9|ByOn1999"},
        {"track 0", {}, Prefix(v1, 126) + BYTES{0, 17}, "One|Note||RockByOn1999"},
        {"a comment to its end", {}, Prefix(v1, 125) + BYTES{'x', 9, 17}, "One|Note||RockByOn1999"},
        {"ID3v2 wins", v2(3, 0, title), ape(titled) +
         v1, "Title|Note|9|RockByOn1999"},
        {"beyond Latin", v2(3, 0, frame("TIT2", Text("\1\xFF\xFE\x2D\x4E"))), {}, "\xE4\xB8\xAD|||"},
        {"UTF-16 without a mark", v2(4, 0, frame("TIT2", Text("\2\x4E\x2D"))), {},
         "\xE4\xB8\xAD|||"},
        {"an unsynchronised frame", v2(4, 0, frame("TIT2", Text("\0\xFF\0\xE9"), 2)), {},
         "\xC3\xBF\xC3\xA9|||"},
        {"of a group", v2(3, 0, frame("TIT2", Text("G\0Hi"), 0x20)), {}, "Hi|||"},
        {"encrypted", v2(3, 0, frame("TIT2", Text("\0Hi"), 0x40)), {}, "|||"},
        {"a refined genre", v2(3, 0, frame("TCON", Text("\0(17)Hard"))), {}, "|||Hard"},
        {"no whole number", v2(3, 0, frame("TCON", Text("\0(17"))), {}, "|||(17"},
        {"no frames", v2(3, 0, {}), {}, "|||"},
        {"at the end", {}, v2(4, 0x10, title) + Text("3DI\4\0\x10\0\0\0\x10"), "Title|||"},
        {"old lyrics", {}, Text("LYRICSBEGINla la laLYRICSEND") + v1, "One|Note|9|RockByOn1999"},
        {"APE in front", Text("APETAGEX") + Number(2000, -4) + Number(32 + 17, -4) + Number(1, -4) +
         Number(0xA0000000, -4) + BYTES(8) + ape(titled), {},
         "Two|||"},
        {"the names of version 2", v2(2, 0, Text("TP1\0\0\2\0A") + Text("TAL\0\0\2\0B") +
         Text("TYE\0\0\2\0Y") + Text("TRK\0\0\2\0T") + Text("COM\0\0\6\0eng\0C")), {}, "|C|T|ABY"},
        {"of 3 and 4", v2(3, 0, frame("TPE1", Text("\0A")) + frame("TALB", Text("\0B")) +
         frame("TDRC", Text("\0Y")) + frame("TYER", Text("\0no"))), {}, "|||ABY"},
        {"of APE", {}, ape(item("artist", "A") + item("ALBUM", "B") + item("Year", "Y") +
         item("Track", "T") + item("Genre", "(17)") + item("Comment", "C")), "|C|T|(17)ABY"},
        {"the last genre", v2(3, 0, frame("TCON", Text("\0(125)"))), {}, "|||Dance Hall"},
        {"a later one", v2(3, 0, frame("TCON", Text("\0" "126"))), {}, "|||126"},
        {"a longer ID3v1", {}, Text("TAG+") + BYTES(223) + v1, "One|Note|9|RockByOn1999"},
        {"16 tags", Joined(std::vector(15, v2(3, 0, {}))) + v2(3, 0, title),
         ape(item("Comment", "As said")) + Joined(std::vector(15, ape({}))),
         "Title|As said||"},
        {"a 17th", Joined(std::vector(16, v2(3, 0, {}))) + v2(3, 0, title), {}, "|||"},
        {"4096 frames", v2(2, 0, Joined(std::vector(4095, Text("XXX\0\0\0"))) + two),
         ape(Joined(std::vector(4095, none)) + titled), "Hi|||"},
        {"more", v2(2, 0, Joined(std::vector(4096, Text("XXX\0\0\0"))) + two),
         ape(Joined(std::vector(4096, none)) + titled), "|||"},
        {"4096 items", {}, ape(Joined(std::vector(4095, none)) + titled), "Two|||"},
        {"sizes beyond the file", v2(3, 0, Text("TIT2\x7F\xFF\xFF\xFF\0\0\0Hi")), {}, "Hi|||"},
    };
    // clang-format on
    for (const auto &r : rows) {
        const MP3_HEADER &record = Load(r.before + stream + r.after);
        const MP3_TEXTS &t = record.Texts;
        EXPECT_EQ(t.Title + '|' + t.Comment + '|' + t.Track + '|' + t.Genre + t.Artist + t.Album +
                      t.Year,
                  r.texts)
            << r.what;
        EXPECT_EQ(record.ID3v2.Title.data(), t.Title) << r.what;
        EXPECT_EQ(record.DataStart, r.before.size()) << r.what;
        EXPECT_EQ(record.Frames.End, r.before.size() + stream.size()) << r.what;
    }
    const BYTES split = v2(3, 0, frame("TIT2", BYTES(1) + BYTES(59, 'x') + BYTES{0xE9, 0xE9}));
    EXPECT_EQ(Load(split + stream).ID3v2.Title.data(), std::string(59, 'x')) << "whole letters";
}

static int PeakOf(const BYTES &sound)
{
    int peak = 0;
    for (size_t i = 0; i + 1 < sound.size(); i += 2)
        peak = std::max(peak, std::abs(static_cast<int16_t>(sound[i] | sound[i + 1] << 8)));
    return peak;
}

// Damaged frames last as long as whole ones and are never louder than their neighbours.
TEST(MP3Format, DamageIsNotLoud)
{
    const std::vector<BYTES> whole = FramesOf("mp3_low.mp3");
    const BYTES sound = Play(Joined(whole));
    const struct {
        const char *what;
        size_t begin, end;
        uint8_t byte;
    } rows[] = {
        {"more pairs than lines", 4, SIZE_MAX, 0x7F},
        {"all bits set", 4, SIZE_MAX, 0xFF},
        {"a gain out of reach", 9, 12, 0xFF},
        {"bits that are not there", 5, 8, 0xFF},
    };
    for (const auto &r : rows) {
        std::vector<BYTES> frames = whole;
        for (const size_t i : {2u, 3u, 5u})
            for (size_t at = r.begin; at < std::min(r.end, frames[i].size()); at++)
                frames[i][at] = r.byte;
        const BYTES damaged = Play(Joined(frames));
        EXPECT_EQ(damaged.size(), sound.size()) << r.what;
        EXPECT_FALSE(damaged == sound) << r.what;
        EXPECT_LE(PeakOf(damaged), PeakOf(sound)) << r.what;
    }
    BYTES lost = Joined(whole);  // a frame's end and the next one's beginning
    lost.erase(lost.begin() + std::ssize(whole[0]) + 100,
               lost.begin() + std::ssize(whole[0]) + 300);
    EXPECT_LE(PeakOf(Play(lost)), PeakOf(sound));
}

TEST(MP3Format, Detection)
{
    const BYTES stream = Joined(FramesOf("mp3_joint.mp3")),
                free = Number(0xFFFB0000, 4) + BYTES(696);
    const struct {
        const char *what;
        BYTES head;
        bool found;
    } rows[] = {
        // clang-format off
        {"frames", stream, true}, {"two frames", Prefix(stream, 430), true},
        {"32 kbit/s", Joined(std::vector(3, Number(0xFFFB1000, 4) + BYTES(100))), true},
        {"low rates", Joined(FramesOf("mp3_low.mp3")), true},
        {"a tag beyond the head", Text("ID3\3\0\0\1\0\0\0"), true},
        {"frames after other bytes", BYTES(100) + stream, true},
        {"a frame alone", Prefix(stream, 200) + BYTES(400), false},
        {"nothing", {}, false}, {"bytes 0xFF", BYTES(8192, 0xFF), false},
        {"a picture", ReadFile(TEST_DATA "bmp/bmp_4bpp.bmp"), false},
        {"headers at short distances, too",
         BYTES(1) + Joined(std::vector(200, Number(0xFFFB1000, 4) + BYTES(4))), false},
        {"free format", free + free + free, true},
        {"free format, but other bytes for the third header", free + free + BYTES(4), false},
        // clang-format on
    };
    for (const auto &r : rows)
        EXPECT_EQ(MP3_IsStream(r.head), r.found) << r.what;
}

// Frames inside a file with another format's signature do not make it an MPEG stream.
TEST(MP3Format, DetectionComesAfterSignatures)
{
    const FORMAT_RULES rules;
    BYTES frames;
    while (frames.size() < 8192)
        frames = frames + BYTES{0xFF, 0xFB, 0x90, 0x64} + BYTES(413);
    const auto typeWith = [&frames](ptrdiff_t at, const char *name) {
        BYTES file = frames;
        std::copy_n(name, 4, file.begin() + at);
        return Audio_CheckBytes(file);
    };
    EXPECT_EQ(typeWith(1080, "M.K."), AUDIO_MOD);
    EXPECT_EQ(typeWith(1080, "none"), AUDIO_MP3);
    EXPECT_NE(typeWith(0, "FORM"), AUDIO_MP3);
}
