#include "audio/mp3_layer3.h"

#include <cmath>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "audio/mp3.h"
#include "audio/mp3_huffman.h"
#include "audio/mp3_window.h"
#include "tests/files.h"
#include "tests/mp3.h"

using BYTES = std::vector<uint8_t>;

// What the engine plays of a file.
static BYTES Played(const std::string &path)
{
    BYTES sound;
    MP3_SetSoundNumber(0);
    MP3_Load(path.c_str());
    Refill(path, 0, 65536, sound);
    return sound;
}

// A file's frames, found as the standards tell and not as MP3_LoadFrame does: low rates have half
// the length, frames of free format have `freeLength` bytes and their padding, and of a protected
// frame only the checksum goes.
static BYTES DecodeFrames(const std::string &path, size_t freeLength)
{
    BYTES sound;
    std::array<int16_t, MP3_MaxSamples> samples;
    MP3_SetSoundNumber(0);
    MP3_Load(path.c_str());
    MP3_HEADER &record = *MP3_GetHeader(0);
    const BYTES file = Bytes_LoadFile(path.c_str());
    for (size_t at = 0, length; at + 4 < file.size(); at += length) {
        BYTES frame(file.begin() + static_cast<ptrdiff_t>(at), file.end());
        const bool checked = frame[1] % 2 == 0;
        frame[1] |= 1;
        if (freeLength != 0)
            frame[2] |= 0xE0; // any other rate, for MP3_LoadFrame to take it
        FILE *memory = fmemopen(frame.data(), frame.size(), "rb");
        EXPECT_EQ(MP3_LoadFrame(memory, 0), 1) << path << ", byte " << at;
        std::fclose(memory);
        length = freeLength != 0 ? freeLength : record.FrameLength - record.Padding;
        length = length / (record.Version == 3 ? 1 : 2) + record.Padding;
        frame.resize(length);
        if (checked)
            frame.erase(frame.begin() + 4, frame.begin() + 6);
        std::copy(frame.begin(), frame.end(), record.FrameBuffer.begin());
        record.FrameLength = static_cast<uint16_t>(frame.size());
        const int32_t bytes = MP3_Decode(record, samples.data());
        EXPECT_GT(bytes, 0) << path << ", byte " << at;
        for (int32_t i = 0; i < bytes; i++)
            sound.push_back(static_cast<uint8_t>(samples[static_cast<size_t>(i / 2)] >> i % 2 * 8));
    }
    return sound;
}

static int Sample(const BYTES &sound, size_t i)
{
    return static_cast<int16_t>(sound[2 * i] | sound[2 * i + 1] << 8);
}

// Compares every `step`th sample with a decoder's of 16 bits. One that cuts and carries differs
// from one that rounds by 1.5 steps at most, and by the root of 1/6 + 1/12 on the average.
static void ExpectClose(const BYTES &sound, size_t step, const std::string &reference)
{
    const BYTES file = Bytes_LoadFile(reference.c_str());
    const size_t count = file.size() / 2;
    ASSERT_TRUE(count != 0 && (count - 1) * step < sound.size() / 2) << reference;
    double squares = 0, most = 0;
    for (size_t i = 0; i < count; i++) {
        const double difference = Sample(sound, i * step) - Sample(file, i);
        squares += difference * difference;
        most = std::max(most, std::abs(difference));
    }
    EXPECT_LT(std::sqrt(squares / static_cast<double>(count)), 0.6) << reference;
    EXPECT_LE(most, 2) << reference;
}

TEST(MP3Layer3, SmallFilesSoundAsElsewhere)
{
    const struct {
        const char *name;
        bool low; // the engine takes every other frame with the one before it
    } rows[] = {{"joint", false}, {"short", false}, {"vbr", false},
                {"types", false}, {"low", true},    {"low_types", true}};
    for (const auto &r : rows) {
        const std::string path = std::string(TEST_DATA "mp3_") + r.name;
        const BYTES sound = DecodeFrames(path + ".mp3", 0);
        ExpectClose(sound, 31, path + ".s16");
        EXPECT_EQ(Played(path + ".mp3") == sound, !r.low) << path;
    }
}

// Streams of ISO/IEC 11172-4 and 13818-4 with their samples.
TEST(MP3Layer3, ConformanceStreams)
{
    const char *corpus = std::getenv("CORPUS");
    if (!corpus)
        GTEST_SKIP() << "CORPUS names no folder";
    const struct {
        const char *name;
        size_t freeLength;
        bool played; // the engine plays it: no checksums, no free format, no low rate
    } rows[] = {{"l3-si", 0, true},
                {"l3-si_block", 0, true},
                {"l3-hecommon", 0, false},
                {"l3-he_free", 391, false},
                {"M2L3_compl24", 0, false}};
    for (const auto &r : rows) {
        const std::string path = std::string(corpus) + "/mp3/" + r.name;
        const BYTES sound = DecodeFrames(path + ".bit", r.freeLength);
        ExpectClose(sound, 1, path + ".pcm");
        EXPECT_EQ(Played(path + ".bit") == sound, r.played) << r.name;
    }
}

// ISO/IEC 11172-3, 2.4.3.4.10, as it stands there.
struct TEXTBOOK_HYBRID {
    double Overlap[32][18] = {};

    static double Window(int block, int i)
    {
        const auto sine = [](double at, double length) {
            return std::sin(MP3_Pi / length * (at + 0.5));
        };
        if (block == MP3_START && i >= 18)
            return i < 24 ? 1 : i < 30 ? sine(i - 18, 12) : 0;
        if (block == MP3_STOP && i < 18)
            return i < 6 ? 0 : i < 12 ? sine(i - 6, 12) : 1;
        return block == MP3_SHORT ? sine(i, 12) : sine(i, 36);
    }

    static void ReduceAliases(std::vector<double> &x, size_t boundaries)
    {
        const double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
        for (size_t b = 18; b <= 18 * boundaries; b += 18)
            for (size_t i = 0; i < 8; i++) {
                const double norm = std::sqrt(1 + c[i] * c[i]), u = x[b - 1 - i], d = x[b + i];
                x[b - 1 - i] = (u - d * c[i]) / norm;
                x[b + i] = (d + u * c[i]) / norm;
            }
    }

    // Slot t of subband s as [18 * s + t].
    std::vector<double> operator()(std::vector<double> x, int block, bool mixed)
    {
        ReduceAliases(x, block != MP3_SHORT ? 31 : mixed ? 1 : 0);
        std::vector<double> out(MP3_Lines);
        for (size_t s = 0; s < 32; s++) {
            const int type = mixed && s < 2 ? MP3_NORMAL : block;
            const int windows = type == MP3_SHORT ? 3 : 1, n = 36 / windows;
            double sum[36] = {};
            for (int w = 0; w < windows; w++)
                for (int i = 0; i < n; i++)
                    for (int k = 0; k < n / 2; k++)
                        sum[windows == 1 ? i : 6 + 6 * w + i] +=
                            x[18 * s + static_cast<size_t>(windows * k + w)] * Window(type, i) *
                            std::cos(MP3_Pi / (2 * n) * (2 * i + 1 + n / 2) * (2 * k + 1));
            for (size_t t = 0; t < 18; t++) {
                const double value = sum[t] + std::exchange(Overlap[s][t], sum[18 + t]);
                out[18 * s + t] = t * s % 2 == 1 ? -value : value;
            }
        }
        return out;
    }
};

TEST(MP3Layer3, HybridIsTheTextbooks)
{
    const struct {
        MP3_BLOCK block;
        bool mixed;
        size_t used;
    } rows[] = {{MP3_NORMAL, false, 32}, {MP3_START, false, 32}, {MP3_SHORT, false, 32},
                {MP3_SHORT, false, 9},   {MP3_SHORT, true, 32},  {MP3_SHORT, true, 1},
                {MP3_STOP, false, 3},    {MP3_START, true, 32},  {MP3_SHORT, true, 0},
                {MP3_STOP, true, 8},     {MP3_NORMAL, false, 0}, {MP3_NORMAL, false, 31}};
    std::mt19937 random(1);
    TEXTBOOK_HYBRID textbook;
    MP3_FILTER filter{};
    for (size_t row = 0; row < std::size(rows); row++) {
        const auto &r = rows[row];
        std::vector<double> lines(MP3_Lines);
        MP3_SPECTRUM spectrum{};
        for (size_t i = 0; i < 18 * r.used; i++) {
            const auto line = static_cast<int32_t>(random()) >> 8;
            lines[i] = line;
            spectrum[i % 18][i / 18] = static_cast<MP3_FIXED>(line);
        }
        const std::vector<double> expected = textbook(lines, r.block, r.mixed);
        MP3_Hybrid(filter, spectrum, r.used, r.block, r.mixed, row % 2);
        double most = 0;
        for (size_t i = 0; i < MP3_Lines; i++)
            most = std::max(
                most, std::abs(expected[i] - static_cast<int32_t>(
                                                 filter.Samples[i / 18][row % 2 * 18 + i % 18])));
        EXPECT_LT(most, 32) << "row " << row << ": a 16th of a step of 16 bits";
    }
}

// ISO/IEC 11172-3, 2.4.3.2.2, as it stands there; full scale is 1.
static std::vector<double> TextbookSynthesis(const std::vector<double> &slots)
{
    std::vector<double> v(1024), out;
    for (size_t slot = 0; slot < slots.size(); slot += 32) {
        std::copy_backward(v.begin(), v.end() - 64, v.end());
        for (size_t i = 0; i < 64; i++) {
            v[i] = 0;
            for (size_t k = 0; k < 32; k++)
                v[i] += slots[slot + k] *
                        std::cos(static_cast<double>((16 + i) * (2 * k + 1)) * MP3_Pi / 64);
        }
        for (size_t j = 0; j < 32; j++) {
            double sum = 0;
            for (size_t i = 0; i < 8; i++)
                sum += v[128 * i + j] * MP3_Window(64 * i + j) +
                       v[128 * i + 96 + j] * MP3_Window(64 * i + 32 + j);
            out.push_back(sum / 65536);
        }
    }
    return out;
}

TEST(MP3Layer3, SynthesisIsTheTextbooksAndCarries)
{
    std::mt19937 random(2);
    for (const bool loud : {false, true}) {
        MP3_FILTER filter{};
        std::vector<double> slots;
        std::vector<int16_t> samples;
        for (const size_t blocks : std::array<size_t, 5>{36, 18, 36, 18, 18}) {
            for (size_t t = 0; t < blocks; t++)
                for (size_t s = 0; s < 32; s++) {
                    const int32_t sample = static_cast<int32_t>(random()) >> (loud ? 6 : 11);
                    filter.Samples[s][t] = static_cast<MP3_FIXED>(sample);
                    slots.push_back(std::ldexp(sample, -MP3_FixedBits));
                }
            std::vector<int16_t> part(2 * 32 * blocks, 77);
            MP3_Synthesis(filter, blocks, part.data(), 2);
            for (size_t i = 0; i < part.size(); i += 2) {
                samples.push_back(part[i]);
                EXPECT_EQ(part[i + 1], 77) << "the other channel's";
            }
        }
        const std::vector<double> expected = TextbookSynthesis(slots);
        double lost = 0, clipped = 0;
        for (size_t i = 0; i < samples.size(); i++) {
            const double exact = expected[i] * 32768;
            EXPECT_LT(std::abs(std::clamp(exact, -32768., 32767.) - samples[i]), 1.1) << i;
            lost = (i % 64 == 0 ? 0 : lost) + exact - samples[i];
            EXPECT_TRUE(std::abs(lost) < 1.1 || loud) << i << ": the carry gives back " << lost;
            clipped += std::abs(exact) > 32768;
        }
        EXPECT_EQ(clipped > 0, loud);
    }
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
    } rows[] = {
        {"pairs", "01 1 1 000 0 1", 0, 9, {{6, 6, 6}, {1, 1, 1}, 1}, 6, {-1, 0, 0, 0, 1, -1}},
        {"from a bit inside", "111 01 0", 3, 6, {{2, 2, 2}, {1, 0, 0}, 1}, 1, {1, 0}},
        {"a table without codes", "01 1", 0, 3, {{4, 6, 6}, {0, 1, 0}, 1}, 5, {0, 0, 0, 0, -1}},
        {"quadruples", "01 0 0101 10", 0, 9, {{2, 2, 2}, {1, 0, 0}, 1}, 5, {1, 0, -1, 0, 1, 0}},
        {"a cut quadruple goes", "01 0 0101 10", 0, 8, {{2, 2, 2}, {1, 0, 0}, 1}, 1, {1, 0}},
        {"a cut pair goes", "01 0 000 1 1", 0, 7, {{4, 8, 8}, {1, 1, 0}, 1}, 1, {1, 0}},
        {"once, whatever regions follow", "000", 0, 3, {{2, 4, 6}, {1, 1, 1}, 1}, 0, {0}},
        {"an end before the beginning", "1111", 4, 2, {{2, 4, 6}, {1, 1, 1}, 1}, 0, {0}},
    };
    for (const auto &r : rows) {
        BYTES data(40);
        size_t at = 0;
        for (const char *bit = r.bits; *bit; bit++)
            if (*bit != ' ')
                data[at / 8] |= static_cast<uint8_t>((*bit - '0') << (7 - at % 8)), at++;
        MP3_QUANTISED lines;
        lines.fill(99);
        EXPECT_EQ(MP3_ReadSpectrum(data.data(), r.begin, r.end, r.regions, lines), r.used)
            << r.what;
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
        size_t size, first; // Main holds its indices modulo 256, the frame of 600 bytes 7s
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
