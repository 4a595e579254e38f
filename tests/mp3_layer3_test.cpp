#include "audio/mp3_layer3.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "audio/mp3.h"
#include "audio/mp3_huffman.h"
#include "tests/files.h"
#include "tests/mp3.h"

// The samples of a file under one of the rules.
static BYTES Played(const std::string &path, uint8_t rules)
{
    BYTES sound;
    Audio_Rules = rules;
    MP3_SetSoundNumber(0);
    MP3_Load(path.c_str());
    Audio_Rules = AUDIO_RULES_FRAMEWORK;
    Refill(path, 0, 65536, sound);
    return sound;
}

static int Sample(const BYTES &sound, size_t i)
{
    return static_cast<int16_t>(sound[2 * i] | sound[2 * i + 1] << 8);
}

// Compares every `step`th sample with a decoder that rounds to 16 bits. Truncation with carry
// differs by 1.5 steps at most and by the root of 1/6 + 1/12 in the mean; rounding by 1, rarely.
static void ExpectClose(const BYTES &sound, size_t step, const std::string &reference, bool rounded)
{
    const BYTES file = ReadFile(reference);
    const size_t count = file.size() / 2;
    ASSERT_TRUE(count != 0 && (count - 1) * step < sound.size() / 2) << reference;
    double squares = 0, most = 0;
    for (size_t i = 0; i < count; i++) {
        const double difference = Sample(sound, i * step) - Sample(file, i);
        squares += difference * difference;
        most = std::max(most, std::abs(difference));
    }
    EXPECT_LT(std::sqrt(squares / static_cast<double>(count)), rounded ? 0.2 : 0.6) << reference;
    EXPECT_LE(most, rounded ? 1 : 2) << reference;
}

// By the format's rules, and by the framework's if they decode the same frames.
static void ExpectSounds(const std::string &path, size_t step, const std::string &reference,
                         bool framework)
{
    ExpectClose(Played(path, AUDIO_RULES_FORMAT), step, reference, true);
    if (framework)
        ExpectClose(Played(path, AUDIO_RULES_FRAMEWORK), step, reference, false);
}

TEST(MP3Layer3, SmallFilesSoundAsElsewhere)
{
    for (const std::string name : {"joint", "short", "vbr", "types", "low", "low_types"}) {
        // At low rates the framework's rules take every other frame with the one before it
        const std::string path = TEST_DATA "mp3_" + name;
        ExpectSounds(path + ".mp3", 31, path + ".s16", !name.starts_with("low"));
    }
}

// Streams of ISO/IEC 11172-4 and 13818-4 with their samples.
TEST(MP3Layer3, ConformanceStreams)
{
    const char *corpus = std::getenv("CORPUS");
    if (!corpus)
        GTEST_SKIP() << "CORPUS names no folder";
    for (const std::string name :
         {"l3-si", "l3-si_block", "l3-hecommon", "l3-he_free", "M2L3_compl24"}) {
        // The others have checksums, free format, or a low rate
        const std::string path = std::string(corpus) + "/mp3/" + name;
        ExpectSounds(path + ".bit", 1, path + ".pcm", name.starts_with("l3-si"));
    }
}

// What random lines from `first` on become, and their overlap into the next granule.
static std::vector<MP3_FIXED> Hybrid(size_t first, size_t end, size_t used, MP3_BLOCK block,
                                     bool mixed)
{
    std::mt19937 random(1);
    MP3_FILTER filter{};
    MP3_SPECTRUM spectrum{};
    for (size_t i = first; i < end; i++)
        spectrum[i % 18][i / 18] = static_cast<MP3_FIXED>(static_cast<int32_t>(random()) >> 8);
    MP3_Hybrid(filter, spectrum, used, block, mixed, 0);
    spectrum = {};
    MP3_Hybrid(filter, spectrum, 0, block, mixed, 1);
    std::vector<MP3_FIXED> out;
    for (const auto &subband : filter.Samples)
        out.insert(out.end(), subband.begin(), subband.begin() + 36);
    return out;
}

// Mixed blocks against pure long and short ones, which real files have.
TEST(MP3Layer3, MixedBlocksAndEmptySubbands)
{
    EXPECT_EQ(Hybrid(0, 18, 32, MP3_SHORT, true), Hybrid(0, 18, 32, MP3_NORMAL, false));
    EXPECT_EQ(Hybrid(36, 576, 32, MP3_SHORT, true), Hybrid(36, 576, 32, MP3_SHORT, false));
    const auto second = Hybrid(18, 36, 32, MP3_SHORT, true);
    EXPECT_EQ(std::ranges::count(second.begin() + 72, second.end(), 0u), 30 * 36)
        << "no aliases above the long ones";
    for (const MP3_BLOCK block : {MP3_NORMAL, MP3_START, MP3_SHORT, MP3_STOP})
        for (const bool mixed : {false, true})
            for (const size_t used : std::array<size_t, 6>{0, 1, 3, 8, 9, 31})
                EXPECT_EQ(Hybrid(0, 18 * used, used, block, mixed),
                          Hybrid(0, 18 * used, 32, block, mixed))
                    << block << ' ' << mixed << ' ' << used;
}

// A single subband far beyond full scale is clamped on both sides.
TEST(MP3Layer3, SynthesisClips)
{
    std::array<MP3_FILTER, 2> filters{};
    for (size_t t = 0; t < 36; t++)
        filters[0].Samples[1][t] = static_cast<MP3_FIXED>((t % 8 < 4 ? 4 : -4) << MP3_FixedBits);
    std::vector<int16_t> samples(2 * 32 * 36, 77);
    std::vector<int32_t> wide(samples.size());
    auto copies = filters;
    MP3_Synthesis(copies, 36, wide.data());
    EXPECT_EQ(*std::ranges::min_element(wide), INT32_MIN);
    EXPECT_EQ(*std::ranges::max_element(wide), INT32_MAX);
    MP3_Synthesis(filters, 36, samples.data());
    const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
    EXPECT_EQ(*low, -32768);
    EXPECT_EQ(*high, 32767);
    for (size_t i = 1; i < samples.size(); i += 2)
        ASSERT_EQ(samples[i], 0) << "the other channel is silent";
    // No wrap-around: neighbours in the wave of one subband never jump from end to end.
    for (size_t i = 2; i < samples.size(); i += 2)
        ASSERT_LT(std::abs(samples[i] - samples[i - 2]), 60000) << i;
}

TEST(MP3Layer3, SpectrumEndsWithItsBits)
{
    // Table 1: 1 for (0,0), 01 and a sign for (1,0), 000 and two signs for (1,1). Quadruples B:
    // four bits, 0 where a line is not.
    const struct {
        const char *what, *bits;
        size_t begin, end;
        MP3_REGIONS regions;
        size_t used;
        std::vector<int> lines;
        bool whole = true;
    } rows[] = {
        {"pairs", "01 1 1 000 0 1", 0, 9, {{6, 6, 6}, {1, 1, 1}, 1}, 6, {-1, 0, 0, 0, 1, -1}},
        {"from a bit inside", "111 01 0", 3, 6, {{2, 2, 2}, {1, 0, 0}, 1}, 1, {1, 0}},
        {"a table without codes", "01 1", 0, 3, {{4, 6, 6}, {0, 1, 0}, 1}, 5, {0, 0, 0, 0, -1}},
        {"quadruples", "01 0 0101 10", 0, 9, {{2, 2, 2}, {1, 0, 0}, 1}, 5, {1, 0, -1, 0, 1, 0}},
        {"a cut quadruple goes", "01 0 0101 10", 0, 8, {{2, 2, 2}, {1, 0, 0}, 1}, 1, {1, 0}},
        {"a cut pair goes", "01 0 000 1 1", 0, 7, {{4, 8, 8}, {1, 1, 0}, 1}, 1, {1, 0}, false},
        {"once, whatever regions follow", "000", 0, 3, {{2, 4, 6}, {1, 1, 1}, 1}, 0, {0}, false},
        {"an end before the beginning", "1111", 4, 2, {{2, 4, 6}, {1, 1, 1}, 1}, 0, {0}, false},
    };
    for (const auto &r : rows) {
        BYTES data(40);
        size_t at = 0;
        for (const char *bit = r.bits; *bit; bit++)
            if (*bit != ' ')
                data[at / 8] |= static_cast<uint8_t>((*bit - '0') << (7 - at % 8)), at++;
        MP3_QUANTISED lines;
        lines.fill(99);
        bool whole;
        EXPECT_EQ(MP3_ReadSpectrum(data.data(), r.begin, r.end, r.regions, lines, whole), r.used)
            << r.what;
        EXPECT_EQ(whole, r.whole) << r.what;
        for (size_t i = 0; i < lines.size(); i++)
            EXPECT_EQ(lines[i], i < r.lines.size() ? r.lines[i] : 0) << r.what << ", line " << i;
    }
}

TEST(MP3Layer3, ReservoirKeepsWhatIsUnread)
{
    const struct {
        const char *what;
        ptrdiff_t index;
        size_t mainSize;
        bool failed;
        size_t size, first;  // Main holds its indices modulo 256, the frame of 600 bytes 7s
    } rows[] = {
        {"the rest", 8 * 590, 600, false, 10, 590 % 256},
        {"from a whole byte on", 8 * 590 + 1, 600, false, 9, 591 % 256},
        {"nothing", 8 * 600, 600, false, 0, 0},
        {"of a long rest the last 512", 8 * 100, 1000, false, 512, 488 % 256},
        {"all that is there", -80, 300, false, 300, 0},
        {"the frame's end after reading too far", 8 * 600 + 1, 600, false, 512, 7},
        {"the frame's end after a failure", 0, 600, true, 512, 7},
    };
    for (const auto &r : rows) {
        const BYTES frame(600, 7);
        MP3_LAYER3 layer3{};
        MP3_InitGetBits(layer3.Bits, frame.data(), 8 * 600);
        layer3.MainIndex = r.index;
        layer3.MainSize = r.mainSize;
        for (size_t i = 0; i < layer3.Main.size(); i++)
            layer3.Main[i] = static_cast<uint8_t>(i);
        MP3_KeepReservoir(layer3, r.failed);
        EXPECT_EQ(layer3.ReservoirSize, r.size) << r.what;
        EXPECT_EQ(layer3.Main[0], r.first) << r.what;
    }
}
