#include "audio/mp3.h"

#include <gtest/gtest.h>

#include "tests/files.h"
#include "tests/mp3.h"

// A silent frame: only zeros after its header.
static BYTES Frame(uint32_t header, size_t length)
{
    return Number(header, 4) + BYTES(length - 4);
}
static BYTES Frames(size_t count, uint32_t header, size_t length)
{
    return Joined(std::vector(count, Frame(header, length)));
}
constexpr uint32_t Stereo = 0xFFFB1000, Mono = 0xFFFB10C0;  // 32 kbit/s, 44100 Hz
constexpr size_t Length = 104;

// Frame of an ID3v2 tag.
static BYTES TagFrame(const char *id, const BYTES &text)
{
    return Joined({{id, id + 4}, Number(std::ssize(text) + 1, 4), BYTES(3), text});
}
static BYTES Tag(const BYTES &frames, uint16_t size)
{
    return Text("ID3\3\1\x40\0\0") + Number(size, 2) + frames;
}

// Loads the bytes into slot 0.
static MP3_HEADER &Load(const BYTES &file)
{
    MP3_SetSoundNumber(0);
    MP3_Load(WriteTemp("mp3", file).c_str());
    return *MP3_GetHeader(0);
}

// A tag's texts, joined.
static std::string Listed(std::initializer_list<const char *> texts)
{
    std::string list;
    for (const char *text : texts)
        list += std::string(text) + '|';
    return list;
}

TEST(MP3, ID3v2)
{
    const BYTES title = TagFrame("TIT2", Text("Title")), unknown = TagFrame("TXXX", {});
    const auto frame = [](const char *id, size_t letters) {
        return TagFrame(id, BYTES(letters, 'x'));
    };
    const std::string x30(30, 'x'), x60(60, 'x'), x254(254, 'x');
    const struct {
        const char *what;
        BYTES frames;
        size_t behind;      // zeros that follow in the tag
        std::string texts;  // title, artist, album, year, comment, track, genre
    } rows[] = {
        // clang-format off
        {"all texts", title + TagFrame("TPE1", Text("Artist")) + TagFrame("TALB", Text("Album")) +
         TagFrame("TYER", Text("2026")) + TagFrame("COMM", Text("\0\0\0\0Comment")) +
         TagFrame("TRCK", Text("7")) + TagFrame("TCON", Text("Rock")), 20,
         "Title|Artist|Album|2026|Comment|7|Rock|"},
        {"texts too long", frame("TIT2", 61) + frame("TPE1", 90) + frame("TALB", 300) +
         frame("TDRC", 31) + TagFrame("COMM", BYTES(4) + BYTES(255, 'x')) + frame("TRCK", 2) +
         frame("TCON", 61), 20,
         x60 + '|' + x60 + '|' + x60 + '|' + x30 + '|' + x254 + "|x|" + x60 + '|'},
        {"a language", TagFrame("COMM", Text("eng\0Comment")) + title, 20, "Title|||||||"},
        {"nine bytes after the text", title, 9, "Title|||||||"},
        {"eight bytes after the text", title, 8, "|||||||"},
        {"a text to the tag's end, which is not counted", title, 0, "Title|||||||"},
        {"thirteen after a comment", TagFrame("COMM", Text("\0\0\0\0C")), 13, "||||C|||"},
        {"twelve after a comment", TagFrame("COMM", Text("\0\0\0\0C")), 12, "|||||||"},
        {"a frame in an unknown one's text", TagFrame("TXXX", title), 30, "Title|||||||"},
        {"another text ends the tag", TagFrame("TSSE", Text("encoder")) + title, 20, "|||||||"},
        {"4096 frames", Joined(std::vector(4095, unknown)) + title, 20, "Title|||||||"},
        {"one more", Joined(std::vector(4096, unknown)) + title, 20, "|||||||"},
        {"so do zeros", BYTES(8) + title, 20, "|||||||"},
        // clang-format on
    };
    for (const auto &r : rows) {
        const auto size = static_cast<uint16_t>(r.frames.size() + r.behind);
        const MP3_ID3V2 &tag =
            Load(Joined({Tag(r.frames, size), BYTES(r.behind), Frames(2, Stereo, Length)})).ID3v2;
        EXPECT_EQ(Listed({tag.Title.data(), tag.Artist.data(), tag.Album.data(), tag.Year.data(),
                          tag.Comment.data(), tag.Track.data(), tag.Genre.data()}),
                  r.texts)
            << r.what;
        EXPECT_TRUE(tag.Version == 0x301 && tag.Flags == 0x40 && tag.Size == size) << r.what;
        EXPECT_EQ(MP3_Header[0]->FrameLength, Length) << r.what;
    }
}

TEST(MP3, ID3v2SizeHasEightBitsAByte)
{
    // The size 02 2C means 300 bytes but counts as 556 here: the third frame is taken for part of
    // the tag.
    const MP3_HEADER &record =
        Load(Joined({Tag(BYTES(300), 0x22C), Frames(3, Stereo, Length), Frame(0xFFFB2000, 130)}));
    EXPECT_EQ(record.ID3v2.Size, 556u);
    EXPECT_EQ(record.BitRate, 40000u);
}

TEST(MP3, ID3v1)
{
    const auto tag = [](const std::string &comment, uint8_t last, uint8_t track, uint8_t genre) {
        return Text("TAGTitle") + BYTES(25) + Text("Artist") + BYTES(24) + Text("Album") +
               BYTES(25) + Text("2026") + BYTES(comment.begin(), comment.end()) +
               BYTES{last, track, genre};
    };
    const char text[] = "a comment of 28 characters !";
    const std::string before = "Title|Artist|Album|2026|a comment of 28 characters ";
    const struct {
        const char *what;
        BYTES tag;
        std::string texts;
        int track, genre;
    } rows[] = {
        {"30 characters", tag(text, '2', '9', 12), before + "!29|", 0, 12},
        {"a track", tag(text, 0, 9, 125), before + '|', 9, 125},
        {"a genre too many", tag(text, 0, 0, 127), before + '|', 0, 126},
        {"genre 200", tag(text, 0, 255, 200), before + '|', 255, 126},
        {"no tag", BYTES(128), "|||||", 0, 126},
        {"a file too short", {}, "|||||", 0, 126},
    };
    for (const auto &r : rows) {
        const MP3_HEADER &record = Load(Joined({Frame(Stereo, Length), r.tag}));
        const MP3_ID3V1 &v1 = record.ID3v1;
        EXPECT_EQ(record.FileSize, Length + r.tag.size()) << r.what;
        EXPECT_EQ(Listed({v1.Title.data(), v1.Artist.data(), v1.Album.data(), v1.Year.data(),
                          v1.Comment.data()}),
                  r.texts)
            << r.what;
        EXPECT_TRUE(v1.TrackNumber == r.track && v1.Genre == r.genre) << r.what;
    }
    EXPECT_EQ(Load(tag(text, 0, 9, 12)).ID3v1.TrackNumber, 9) << "a file that is only a tag";
}

TEST(MP3, FrameSearch)
{
    const BYTES frame = Frame(Stereo, Length), cut(frame.begin(), frame.end() - 50);
    const struct {
        const char *what;
        BYTES file;
        std::vector<int> lengths;
    } rows[] = {
        {"frames", Joined({frame, frame}), {104, 104}},
        {"bytes before one", Joined({Text("\x00\xFF\xF0\x01"), frame}), {104}},
        {"two bytes 0xFF end all", Joined({frame, {0xFF, 0xFF}, frame}), {104}},
        {"a cut frame", cut, {104}},
        // clang-format off
        {"no layer", Frame(0xFFF91000, 104), {}}, {"Layer II", Frame(0xFFFD1000, 104), {}},
        {"Layer I with a checksum", Frame(0xFFFE1000, 104), {104}},
        {"free format", Frame(0xFFFB0000, 104), {}}, {"padded", Frame(0xFFFB0200, 104), {}},
        {"no bit rate", Joined({Frame(0xFFFBF000, 4), Frame(0xFFFBF200, 4), frame}), {104}},
        {"no sampling rate", Joined({Frame(0xFFFB1C00, 4), Frame(0xFFFB1E00, 4), frame}), {104}},
        {"a low rate takes two frames", Frames(2, 0xFFF34000, 104), {208}},
        {"no version", Frame(0xFFEB5000, 130), {130}}, {"longest", Frame(0xFFE3EA00, 2881), {2881}},
        // clang-format on
    };
    for (const auto &r : rows) {
        Load(r.file);
        const std::string reason = Reason_Get();
        FILE *file = std::fopen(TempPath("mp3").c_str(), "rb");
        std::vector<int> lengths;
        while (MP3_LoadFrame(file, 0) != 0)
            lengths.push_back(MP3_GetHeader(0)->FrameLength);
        std::fclose(file);
        EXPECT_EQ(lengths, r.lengths) << r.what;
        const std::string what = r.what;
        EXPECT_EQ(reason, what == "Layer II" || what.starts_with("Layer I ")
                              ? what.substr(0, what.find(" with"))
                          : r.lengths.empty() ? "no frame of Layer III"
                                              : "")
            << r.what;
    }
}

TEST(MP3, HeaderFields)
{
    const struct {
        uint32_t header, samplingRate, bitRate, channels, rate;
    } rows[] = {{0xFFFB9064, 44100, 128000, 2, 0},
                {0xFFFAEB9D, 32000, 320000, 2, 2},
                {0xFFF3C4C4, 24000, 128000, 1, 4},
                {0xFFE328C3, 8000, 16000, 1, 8}};
    for (const auto &r : rows) {
        const MP3_HEADER &h = Load(Frame(r.header, 2000));
        const std::array fields = {h.SamplingRate, h.BitRate, uint32_t{h.Channels},
                                   uint32_t{h.Rate}};
        EXPECT_EQ(fields, (std::array{r.samplingRate, r.bitRate, r.channels, r.rate}));
        const int bits = h.Version << 19 | h.Layer << 17 | (1 - h.Protection) << 16 |
                         h.BitRateIndex << 12 | h.SamplingRateIndex << 10 | h.Padding << 9 |
                         h.Private << 8 | h.ChannelMode << 6 | h.ModeExtension << 4 |
                         h.Copyright << 3 | h.Original << 2 | h.Emphasis;
        EXPECT_EQ(0xFFE00000 | static_cast<uint32_t>(bits), r.header);
    }
}

TEST(MP3, ChecksumIsSkippedTwice)
{
    BYTES frame = Frame(0xFFFA1000, Length);
    for (size_t i = 4; i < Length; i++)
        frame[i] = static_cast<uint8_t>(i);
    MP3_HEADER &record = Load(Joined({frame, {200, 201}}));
    EXPECT_EQ(record.FrameBuffer[4], 6) << "the file's two bytes are dropped";
    EXPECT_EQ(record.FrameBuffer[Length - 3], Length - 1);
    EXPECT_EQ(record.FrameBuffer[Length - 2], 0) << "no byte of the next frame";
    std::array<int16_t, MP3_MaxSamples> samples;
    MP3_Decode(record, samples.data());
    EXPECT_EQ(record.Layer3.Bits.Index, 16 + 8 * 32) << "and two more, before side information";
}

TEST(MP3, RefillsHoldWholeFrames)
{
    BYTES bad = Frame(Stereo, Length);
    std::fill(bad.begin() + 4, bad.end(), uint8_t{0x7F});  // more pairs than lines
    const struct {
        const char *what;
        BYTES file;
        uint32_t capacity;
        std::vector<uint32_t> lengths;
    } rows[] = {
        {"stereo", Frames(20, Stereo, Length), 65536, {64512, 6 * 4608, 0}},
        {"mono", Frames(30, Mono, Length), 65536, {64512, 2 * 2304, 0}},
        {"low rates, of half the samples", Frames(30, 0xFFF31000, 52), 65536, {64512, 2 * 2304, 0}},
        {"filled to the last byte", Frames(3, Stereo, Length), 9216, {9216, 4608, 0}},
        {"a buffer for less than a frame", Frames(2, Stereo, Length), 3001, {3000, 3000, 0}},
        // clang-format off
        {"larger frames at last", Frames(27, Mono, Length) + Frames(2, Stereo, Length), 65536,
         {27 * 2304, 2 * 4608, 0}},
        {"frames that cannot be", bad + Frame(Stereo, Length) + bad + Frame(0xFFEB5000, 130), 65536,
         {4608, 0}},
        {"no frame", BYTES(5000), 65536, {0}},
        // clang-format on
    };
    for (const auto &r : rows) {
        Load(r.file);
        BYTES sound;
        EXPECT_EQ(Refill(TempPath("mp3"), 0, r.capacity, sound), r.lengths) << r.what;
        EXPECT_EQ(sound, BYTES(sound.size())) << r.what << ": silence";
    }
}

// Fits the engine: whole buffers that repeat without a seam, from frames that stand alone.
TEST(MP3, TheGamesMusic)
{
    const char *path = GAME_DATA "ShadowOfTheBeast.mp3";
    MP3_SetSoundNumber(0);
    MP3_Load(path);
    EXPECT_EQ(MP3_Init, 1);
    const MP3_ID3V2 &tag = MP3_GetHeader(0)->ID3v2;
    EXPECT_EQ(Listed({tag.Title.data(), tag.Artist.data(), tag.Year.data(), tag.Comment.data()}),
              "Careful Steps|VELMORANDIS|2026|Original music, CC0 1.0|");
    BYTES sound;
    std::vector<uint32_t> lengths(320, 64512);
    lengths.push_back(0);
    EXPECT_EQ(Refill(path, 0, 65536, sound), lengths);
    const BYTES music = ReadFile(path);
    EXPECT_LE(music.size(), 3000000u);
    size_t at = 10 + tag.Size, frames = 0;
    for (; at < music.size(); frames++) {
        const size_t start = at;
        const uint32_t header = Bytes_GetBig(music, at, 4);
        ASSERT_EQ(header >> 10, 0xFFFBB000u >> 10) << "192 kbit/s at 44.1 kHz, frame " << frames;
        ASSERT_EQ(Bytes_GetBig(music, at, 2) >> 7, 0u) << "main data begins here, " << frames;
        at = start + 144 * 192000 / 44100 + (header >> 9 & 1);
    }
    EXPECT_EQ(at, music.size()) << "the last frame is whole";
    EXPECT_EQ(frames, 320 * 14u);
}
