// The shipped music: whether the engine can play it as an endless cycle and print its tag.
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "extra/bytes.h"

static const std::vector<uint8_t> File = Bytes_LoadFile(GAME_DATA "ShadowOfTheBeast.mp3");

// ID3v2.3: a header of 10 bytes whose last 4 are the tag's size, then the tag's frames.
static constexpr size_t TagHeader = 10;

static size_t TagEnd()
{
    size_t position = 6;
    return TagHeader + Bytes_GetBig(File, position, 4);
}

TEST(Music, TagTellsWhatTheGamePrints)
{
    size_t position = 0;
    ASSERT_EQ(Bytes_GetBig(File, position, 3), 0x494433u) << "ID3";
    ASSERT_LT(TagEnd(), TagHeader + 128) << "seven-bit and plain sizes differ";
    ASSERT_LT(TagEnd(), File.size());
    std::map<std::string, std::string> texts;
    position = TagHeader;
    while (position < TagEnd() && File[position] != 0) {
        const auto id = Bytes_GetSpan(File, position, 4);
        position += 4;
        const size_t size = Bytes_GetBig(File, position, 4);
        const auto text = Bytes_GetSpan(File, position + 3, size - 1); // past flags and encoding
        texts[{id.begin(), id.end()}] = {text.begin(), text.end()};
        position += 2 + size;
    }
    const std::map<std::string, std::string> expected = {
        {"TIT2", "Careful Steps"},
        {"TPE1", "VELMORANDIS"},
        {"TYER", "2026"},
        {"COMM", std::string(4, '\0') + "Original music, CC0 1.0"}, // no language, no description
    };
    EXPECT_EQ(texts, expected);
    // The engine's reader counts 4 bytes of a comment twice and stops with less than 9 left.
    EXPECT_GE(TagEnd(), position + 4 + 9) << "the last text is not read";
    for (size_t i = 0; i < TagEnd(); i++)
        EXPECT_NE(File[i], 0xFF) << "the frame search stops in the tag at " << i;
}

// ISO/IEC 11172-3, 2.4.1.3 "Header" and 2.4.1.7 "Audio data, Layer III".
TEST(Music, FramesFillWholeBuffersAndStandAlone)
{
    size_t position = TagEnd(), frames = 0;
    while (position < File.size()) {
        SCOPED_TRACE("frame " + std::to_string(frames));
        size_t at = position;
        const uint32_t header = Bytes_GetBig(File, at, 4);
        ASSERT_EQ(header >> 16, 0xFFFBu) << "MPEG-1 Layer III without a checksum";
        ASSERT_EQ(header >> 10 & 0x3F, 11u << 2) << "192 kbit/s at 44.1 kHz";
        ASSERT_NE(header >> 6 & 3, 3u) << "two channels";
        ASSERT_EQ(Bytes_GetBig(File, at, 2) >> 7, 0u) << "main data begins in this frame";
        position += 144 * 192000 / 44100 + (header >> 9 & 1);
        frames++;
    }
    EXPECT_EQ(position, File.size()) << "the last frame is whole";
    EXPECT_EQ(frames % 14, 0u) << "frames a buffer";
    EXPECT_GE(frames / 14, 312u);
    EXPECT_LE(frames / 14, 324u);
    EXPECT_LE(File.size(), 3000000u);
}
