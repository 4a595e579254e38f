#include "audio/mp3.h"

#include <thread>

#include <gtest/gtest.h>

#include "tests/files.h"

using BYTES = std::vector<uint8_t>;

static BYTES Joined(const std::vector<BYTES> &parts)
{
    BYTES bytes;
    for (const BYTES &part : parts)
        bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

// A frame of silence: nothing but zeros behind its header.
static BYTES Frame(uint32_t header, size_t length)
{
    BYTES frame(length);
    for (size_t i = 0; i < 4; i++)
        frame[i] = static_cast<uint8_t>(header >> (24 - 8 * i));
    return frame;
}
static BYTES Frames(size_t count, uint32_t header, size_t length)
{
    return Joined(std::vector(count, Frame(header, length)));
}
constexpr uint32_t Stereo = 0xFFFB1000, Mono = 0xFFFB10C0; // 32 kbit/s, 44100 Hz
constexpr size_t Length = 104;

// Frame of an ID3v2 tag.
static BYTES TagFrame(const char *id, const BYTES &text)
{
    const auto size = static_cast<uint8_t>((text.size() + 1) % 256);
    const auto above = static_cast<uint8_t>((text.size() + 1) / 256);
    return Joined({{id, id + 4}, {0, 0, above, size, 0, 0, 0}, text});
}
static BYTES Tag(const BYTES &frames, uint16_t size)
{
    const auto above = static_cast<uint8_t>(size >> 8), low = static_cast<uint8_t>(size);
    return Joined({Text("ID3\3\1\x40\0\0"), {above, low}, frames});
}

// Loads the bytes into slot 0.
static MP3_HEADER &Load(const BYTES &file)
{
    MP3_SetSoundNumber(0);
    MP3_Load(WriteTemp("mp3", file).c_str());
    return *MP3_GetHeader(0);
}

TEST(MP3, ID3v2)
{
    using FIELDS = std::vector<std::string>;
    const BYTES title = TagFrame("TIT2", Text("Title"));
    const auto letters = [](size_t count) { return BYTES(count, 'x'); };
    const struct {
        const char *what;
        BYTES frames;
        size_t behind; // zeros in the tag
        FIELDS fields; // title, artist, album, year, comment, track, genre
    } rows[] = {
        {"all texts",
         Joined({title, TagFrame("TPE1", Text("Artist")), TagFrame("TALB", Text("Album")),
                 TagFrame("TYER", Text("2026")), TagFrame("COMM", Text("\0\0\0\0Comment")),
                 TagFrame("TRCK", Text("7")), TagFrame("TCON", Text("Rock"))}),
         20,
         {"Title", "Artist", "Album", "2026", "Comment", "7", "Rock"}},
        {"texts too long",
         Joined({TagFrame("TIT2", letters(61)), TagFrame("TPE1", letters(90)),
                 TagFrame("TALB", letters(300)), TagFrame("TDRC", letters(31)),
                 TagFrame("COMM", Joined({BYTES(4), letters(255)})), TagFrame("TRCK", Text("12")),
                 TagFrame("TCON", letters(61))}),
         20,
         {std::string(60, 'x'), std::string(60, 'x'), std::string(60, 'x'), std::string(30, 'x'),
          std::string(254, 'x'), "1", std::string(60, 'x')}},
        {"a comment with a language",
         Joined({TagFrame("COMM", Text("eng\0Comment")), title}),
         20,
         {"Title", "", "", "", "", "", ""}},
        {"nine bytes behind the text", title, 9, {"Title", "", "", "", "", "", ""}},
        {"eight bytes behind the text", title, 8, FIELDS(7)},
        {"a frame in an unknown one's text",
         TagFrame("TXXX", title),
         30,
         {"Title", "", "", "", "", "", ""}},
        {"another text ends the tag", Joined({TagFrame("TSSE", Text("encoder")), title}), 20,
         FIELDS(7)},
        {"so do zeros", Joined({BYTES(8), title}), 20, FIELDS(7)},
    };
    for (const auto &r : rows) {
        const auto size = static_cast<uint16_t>(r.frames.size() + r.behind);
        const MP3_ID3V2 &tag =
            Load(Joined({Tag(r.frames, size), BYTES(r.behind), Frame(Stereo, Length)})).ID3v2;
        const FIELDS fields = {tag.Title.data(), tag.Artist.data(),  tag.Album.data(),
                               tag.Year.data(),  tag.Comment.data(), tag.Track.data(),
                               tag.Genre.data()};
        EXPECT_EQ(fields, r.fields) << r.what;
        EXPECT_EQ(tag.Version, 0x301) << r.what;
        EXPECT_EQ(tag.Flags, 0x40) << r.what;
        EXPECT_EQ(tag.Size, size) << r.what;
        EXPECT_EQ(MP3_Header[0]->FrameLength, Length) << r.what;
    }
}

TEST(MP3, ID3v2SizeHasEightBitsAByte)
{
    // The 300 bytes that 02 2C means are 556 here: the third frame is in the way.
    const MP3_HEADER &record =
        Load(Joined({Tag(BYTES(300), 0x22C), Frames(3, Stereo, Length), Frame(0xFFFB2000, 130)}));
    EXPECT_EQ(record.ID3v2.Size, 556u);
    EXPECT_EQ(record.BitRate, 40000u);
}

TEST(MP3, ID3v1)
{
    const auto tag = [](const char *comment, int last, int track, int genre) {
        BYTES bytes = Text("TAG");
        for (const std::string text : {"Title", "Artist", "Album"}) {
            bytes.insert(bytes.end(), text.begin(), text.end());
            bytes.resize(bytes.size() + 30 - text.size());
        }
        const std::string end = std::string("2026") + comment;
        bytes.insert(bytes.end(), end.begin(), end.end());
        for (const int v : {last, track, genre})
            bytes.push_back(static_cast<uint8_t>(v));
        return bytes;
    };
    const char text[] = "a comment of 28 characters !";
    const struct {
        const char *what;
        BYTES tag;
        std::string year, comment;
        int track, genre;
    } rows[] = {
        {"30 characters", tag(text, '2', '9', 12), "2026", std::string(text) + "29", 0, 12},
        {"a track", tag(text, 0, 9, 125), "2026", std::string(text, 27), 9, 125},
        {"a genre too many", tag(text, 0, 0, 127), "2026", std::string(text, 27), 0, 126},
        {"genre 200", tag(text, 0, 255, 200), "2026", std::string(text, 27), 255, 126},
        {"no tag", BYTES(128), "", "", 0, 126},
        {"a file too short", {}, "", "", 0, 126},
    };
    for (const auto &r : rows) {
        const MP3_HEADER &record = Load(Joined({Frame(Stereo, Length), r.tag}));
        EXPECT_EQ(record.FileSize, Length + r.tag.size()) << r.what;
        EXPECT_STREQ(record.ID3v1.Title.data(), r.year.empty() ? "" : "Title") << r.what;
        EXPECT_STREQ(record.ID3v1.Artist.data(), r.year.empty() ? "" : "Artist") << r.what;
        EXPECT_STREQ(record.ID3v1.Album.data(), r.year.empty() ? "" : "Album") << r.what;
        EXPECT_EQ(record.ID3v1.Year.data(), r.year) << r.what;
        EXPECT_EQ(record.ID3v1.Comment.data(), r.comment) << r.what;
        EXPECT_EQ(record.ID3v1.TrackNumber, r.track) << r.what;
        EXPECT_EQ(record.ID3v1.Genre, r.genre) << r.what;
    }
    EXPECT_STREQ(MP3_Genre[125], "Dance Hall");
    EXPECT_STREQ(MP3_Genre[67], "Psychadelic");
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
        {"Layer II", Frame(0xFFFD1000, Length), {}},
        {"Layer I with a checksum", Frame(0xFFFE1000, Length), {104}},
        {"no layer", Frame(0xFFF91000, Length), {}},
        {"free format", Frame(0xFFFB0000, Length), {}},
        {"free format, padded", Frame(0xFFFB0200, Length), {}},
        {"no bit rate", Joined({Frame(0xFFFBF000, 4), Frame(0xFFFBF200, 4), frame}), {104}},
        {"no sampling rate", Joined({Frame(0xFFFB1C00, 4), Frame(0xFFFB1E00, 4), frame}), {104}},
        {"no version", Frame(0xFFEB5000, 130), {130}},
        {"a low rate takes two frames", Frames(2, 0xFFF34000, 104), {208}},
        {"the longest", Frame(0xFFE3EA00, 2881), {2881}},
    };
    for (const auto &r : rows) {
        Load(r.file);
        FILE *file = std::fopen(TempPath("mp3").c_str(), "rb");
        std::vector<int> lengths;
        while (MP3_LoadFrame(file, 0) != 0)
            lengths.push_back(MP3_GetHeader(0)->FrameLength);
        std::fclose(file);
        EXPECT_EQ(lengths, r.lengths) << r.what;
    }
}

TEST(MP3, HeaderFields)
{
    const struct {
        uint32_t header, samplingRate, bitRate;
        // channels, version, layer, protection, bit rate index, sampling rate index, rate,
        // padding, private, mode, extension, copyright, original, emphasis
        std::vector<int> fields;
    } rows[] = {
        {0xFFFB9064, 44100, 128000, {2, 3, 1, 0, 9, 0, 0, 0, 0, 1, 2, 0, 1, 0}},
        {0xFFFAEB9D, 32000, 320000, {2, 3, 1, 1, 14, 2, 2, 1, 1, 2, 1, 1, 1, 1}},
        {0xFFF3C4C4, 24000, 128000, {1, 2, 1, 0, 12, 1, 4, 0, 0, 3, 0, 0, 1, 0}},
        {0xFFE328C3, 8000, 16000, {1, 0, 1, 0, 2, 2, 8, 0, 0, 3, 0, 0, 0, 3}},
    };
    for (const auto &r : rows) {
        const MP3_HEADER &h = Load(Frame(r.header, 2000));
        const std::vector<int> fields = {
            h.Channels,          h.Version,   h.Layer,    h.Protection, h.BitRateIndex,
            h.SamplingRateIndex, h.Rate,      h.Padding,  h.Private,    h.ChannelMode,
            h.ModeExtension,     h.Copyright, h.Original, h.Emphasis};
        EXPECT_EQ(fields, r.fields) << std::hex << r.header;
        EXPECT_EQ(h.SamplingRate, r.samplingRate) << std::hex << r.header;
        EXPECT_EQ(h.BitRate, r.bitRate) << std::hex << r.header;
        EXPECT_EQ(h.BitsPerSample, 16) << std::hex << r.header;
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

// Lengths of all refills with buffers of `capacity` bytes, and what they hold.
static std::vector<uint32_t> Refill(const std::string &path, uint8_t n, uint32_t capacity,
                                    BYTES &sound)
{
    std::vector<uint32_t> lengths;
    BYTES buffer(capacity);
    long position = 0;
    do { // as the engine does: the file is opened for each
        FILE *file = std::fopen(path.c_str(), "rb");
        std::fseek(file, position, SEEK_SET);
        lengths.push_back(capacity);
        MP3_Decoding(file, buffer.data(), &lengths.back(), n);
        position = std::ftell(file);
        std::fclose(file);
        sound.insert(sound.end(), buffer.begin(), buffer.begin() + lengths.back());
    } while (lengths.back() != 0);
    return lengths;
}

TEST(MP3, RefillsHoldWholeFrames)
{
    BYTES bad = Frame(Stereo, Length);
    std::fill(bad.begin() + 4, bad.end(), uint8_t{0x7F}); // more pairs than lines
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
        {"a frame larger than the others",
         Joined({Frames(27, Mono, Length), Frames(2, Stereo, Length)}),
         65536,
         {27 * 2304, 2 * 4608, 0}},
        {"frames that cannot be",
         Joined({bad, Frame(Stereo, Length), bad, Frame(0xFFEB5000, 130)}),
         65536,
         {4608, 0}},
        {"no frame", BYTES(5000), 65536, {0}},
    };
    for (const auto &r : rows) {
        Load(r.file);
        BYTES sound;
        EXPECT_EQ(Refill(TempPath("mp3"), 0, r.capacity, sound), r.lengths) << r.what;
        EXPECT_EQ(sound, BYTES(sound.size())) << r.what << ": silence";
    }
}

TEST(MP3, EveryPrefixGivesItsFrames)
{
    const BYTES file = Bytes_LoadFile(TEST_DATA "mp3_short.mp3");
    constexpr size_t length = 192, size = 2304; // of a frame
    BYTES whole;
    Load(file);
    Refill(TempPath("mp3"), 0, 65536, whole);
    for (size_t n = 0; n <= file.size(); n++) {
        BYTES part;
        Load({file.begin(), file.begin() + static_cast<ptrdiff_t>(n)});
        Refill(TempPath("mp3"), 0, 65536, part);
        ASSERT_EQ(part.size(), (n + length - 3) / length * size) << n << ": 3 bytes of a header do";
        const auto complete = static_cast<ptrdiff_t>(n / length * size);
        ASSERT_TRUE(std::equal(part.begin(), part.begin() + complete, whole.begin())) << n;
    }
}

TEST(MP3, TheGamesMusic)
{
    MP3_SetSoundNumber(0);
    MP3_Load(GAME_DATA "ShadowOfTheBeast.mp3");
    const MP3_HEADER &record = *MP3_GetHeader(0);
    EXPECT_STREQ(record.ID3v2.Title.data(), "Careful Steps");
    EXPECT_STREQ(record.ID3v2.Artist.data(), "VELMORANDIS");
    EXPECT_STREQ(record.ID3v2.Year.data(), "2026");
    EXPECT_STREQ(record.ID3v2.Comment.data(), "Original music, CC0 1.0");
    EXPECT_EQ(record.Channels, 2);
    EXPECT_EQ(record.SamplingRate, 44100u);
    EXPECT_EQ(record.BitRate, 192000u);
    BYTES sound;
    std::vector<uint32_t> lengths(320, 64512);
    lengths.push_back(0);
    EXPECT_EQ(Refill(GAME_DATA "ShadowOfTheBeast.mp3", 0, 65536, sound), lengths);
}

TEST(MP3, Slots)
{
    MP3_Destroy();
    MP3_SetSoundNumber(0);
    for (const char *path : {"no such file", TEST_DATA}) {
        MP3_Load(path);
        EXPECT_EQ(MP3_SoundNumber, 0) << path;
        EXPECT_EQ(MP3_GetHeader(0), nullptr) << path;
    }
    const std::string path = TEST_DATA "mp3_joint.mp3";
    MP3_Load(path.c_str());
    EXPECT_EQ(MP3_Init, 1);
    BYTES alone, beside;
    Refill(path, 0, 5000, alone);
    // The sound card's thread decodes a record while others are loaded.
    MP3_SetSoundNumber(0);
    MP3_Load(path.c_str());
    std::thread decoder([&] { Refill(path, 0, 5000, beside); });
    for (int i = 1; i < 40; i++)
        MP3_Load(path.c_str());
    decoder.join();
    EXPECT_EQ(beside, alone);
    EXPECT_EQ(MP3_SoundNumber, 32);
    EXPECT_NE(MP3_GetHeader(31), nullptr);
    EXPECT_EQ(MP3_GetHeader(32), nullptr);
    EXPECT_EQ(MP3_GetHeader(255), nullptr);
    MP3_Destroy();
    EXPECT_EQ(MP3_SoundNumber, 32);
    EXPECT_EQ(MP3_GetHeader(0), nullptr);
    MP3_SetSoundNumber(3);
    MP3_Load(path.c_str());
    EXPECT_NE(MP3_GetHeader(3), nullptr);
    uint32_t length = 100;
    MP3_Decoding(nullptr, nullptr, &length, 4);
    EXPECT_EQ(length, 0u) << "an empty slot";
    MP3_Destroy();
}
