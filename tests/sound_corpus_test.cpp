// Real files against independent decoders: all that expected_sounds.tsv lists, in the test data and
// in the folder named by the environment variable CORPUS, if any.
#include <algorithm>
#include <bit>
#include <cstdlib>

#include "tests/sha256.h"
#include "tests/sound_files.h"

namespace
{

// How a file's output differs on purpose from other decoders'.
struct DEVIATION {
    const char *File;
    bool Comparable;
    const char *Reason;
    uint32_t Rate = 0, Channels = 0;  // 0: the file's
};
constexpr DEVIATION Deviations[] = {
    {"8svx/gen-fibonacci.8svx", false, "compression is not acted upon"},
    {"8svx/gen-odd-chunks.8svx", false, "odd chunks have no padding, so no body is found"},
    {"voc/gen-u8-stereo-block8.voc", true, "the rate of block 1 wins over block 8's", 45454},
    {"voc/gen-u8-continued-block2.voc", false, "a block header inside the data is played"},
    {"voc/ffmpeg-s16.voc", false, "a block header inside the data is played"},
    {"8svx/gen-stereo.8svx", false, "there is one channel", 0, 1},
    {"voc/gen-u8-two-block1.voc", false, "a block header inside the data is played"},
    {"aiff/sowt.aif", false, "little-endian samples are taken for big-endian"},
};

const MODULE *ModuleOf(const std::string &file)
{
    for (const MODULE *module : Modules)
        if (file.starts_with(std::string(module->Name) + "/"))
            return module;
    return nullptr;  // covered by another test
}

// Bytes that a refill stores for each byte read.
uint32_t ExpansionOf(const MODULE &module)
{
    const bool g711 = &module == &Voc    ? VOC_GetHeader(0)->Codec >= 6
                      : &module == &Wav  ? WAV_GetHeader(0)->FormatTag >= 6
                      : &module == &Aiff ? AIFF_GetHeader(0)->Codec != 0
                                         : &module == &Au && AU_GetHeader(0)->Encoding % 26 == 1;
    return g711 ? 2 : 1;
}

// All that refills store, including what their lengths leave out.
BYTES DecodePlain(const MODULE &module, const std::string &path, const FACTS &facts)
{
    BYTES all;
    for (uint64_t position = facts.DataStart;;) {
        const REFILL refill = Refill(module, position, 12 * 512, path);  // frames of any depth
        if (refill.Position == position)
            return all;
        all = all + Prefix(refill.Bytes, (refill.Position - position) * ExpansionOf(module));
        position = refill.Position;
    }
}

// The same for ADPCM, one block per refill. IMA's first samples, which are not output, come from
// the file.
BYTES DecodeADPCM(const std::string &path, const FACTS &facts)
{
    const WAV_HEADER &record = *WAV_GetHeader(0);
    const bool microsoft = record.FormatTag == 2;
    const uint32_t counted = 4 * (record.BlockAlign - (microsoft ? 7u : 4u) * record.Channels);
    const BYTES file = ReadFile(path);
    BYTES all;
    for (uint64_t position = facts.DataStart;;) {
        const uint32_t given = counted + (microsoft ? 4u * record.Channels : 0);
        const REFILL refill = Refill(Wav, position, given, path);
        if (refill.Length == 0)
            return all;
        EXPECT_EQ(refill.Length, counted);
        for (uint32_t i = 0; !microsoft && i < record.Channels; i++)
            all = std::move(all) + BYTES{file[position + 4 * i], file[position + 4 * i + 1]};
        all = std::move(all) + refill.Bytes;
        position = refill.Position;
    }
}

// Samples left-justified in 32 bits, little-endian. 8 bits are unsigned or negated.
BYTES Justify(const MODULE &module, const BYTES &bytes, size_t start, size_t size)
{
    BYTES samples;
    for (size_t at = start; at + size <= bytes.size(); at += size) {
        BYTES sample(bytes.data() + at, bytes.data() + at + size);
        if (size == 1)
            sample[0] = static_cast<uint8_t>(&module == &Wav || &module == &Voc ? sample[0] - 128
                                                                                : 128 - sample[0]);
        if (size == 3 && &module == &Aiff)  // in the file's order
            std::swap(sample[0], sample[2]);
        samples.resize(samples.size() + 4 - size);
        samples.insert(samples.end(), sample.begin(), sample.end());
    }
    return samples;
}

BYTES Decode(const MODULE &module, const std::string &path, const FACTS &facts)
{
    const uint16_t tag = &module == &Wav ? WAV_GetHeader(0)->FormatTag : uint16_t{0};
    if (tag == 2 || tag == 17)
        return Justify(module, DecodeADPCM(path, facts), 0, 2);
    // AIFF's offset and block size are played as samples.
    const size_t start = &module == &Aiff ? 8 * ExpansionOf(module) : 0;
    return Justify(module, DecodePlain(module, path, facts), start, facts.BitsPerSample / 8);
}

// By the framework's rules. Files named after their collections exercise features beyond them.
void CheckFrameworkRules(const std::string &folder, const std::vector<std::string> &row)
{
    if (row[0].find("__") != std::string::npos)
        return;
    const std::string &file = row[0], &note = row[10];
    uint32_t channels = static_cast<uint32_t>(std::stoul(row[2]));
    const size_t bytes = 4 * channels * std::stoul(row[4]);
    uint32_t rate = static_cast<uint32_t>(std::stoul(row[3]));
    const MODULE &module = *ModuleOf(file);
    if (&module == &Aiff)  // the top of the mantissa
        rate = std::rotl(rate, std::countl_zero(rate)) >> 16;
    bool comparable = true;
    for (const DEVIATION &deviation : Deviations)
        if (file == deviation.File) {
            comparable = deviation.Comparable;
            rate = deviation.Rate != 0 ? deviation.Rate : rate;
            channels = deviation.Channels != 0 ? deviation.Channels : channels;
        }
    const FACTS facts = LoadFirst(module, folder + file);
    EXPECT_EQ(facts.Channels, channels);
    EXPECT_EQ(facts.SamplingRate, rate);
    BYTES samples = Decode(module, folder + file, facts);
    samples.resize(bytes);  // a sound without an end continues
    // Microsoft's predictions are truncated toward zero.
    const std::string cut = "truncation toward zero: ffmpeg s16=";
    if (const size_t at = note.find(cut); at != std::string::npos) {
        BYTES high;
        for (size_t i = 0; i < bytes; i += 4)
            high = std::move(high) + BYTES{samples[i + 2], samples[i + 3]};
        EXPECT_EQ(Sha256(high), note.substr(at + cut.size(), 64));
    } else {
        EXPECT_EQ(Sha256(samples) == row[6], comparable);
    }
}

// The file that the formats' rules do not decode either.
constexpr const char *NotDecoded = "wav/music-metadata__test_samples_wav_gsm610.wav";

void CheckFormatRules(const std::string &folder, const std::vector<std::string> &row)
{
    const FORMAT_RULES rules;
    Sound_MixAbove = Sound_MaxChannels;  // all channels, like the other decoders
    const MODULE &module = *ModuleOf(row[0]);
    const FACTS facts = LoadFirst(module, folder + row[0]);
    if (row[0] == NotDecoded) {
        EXPECT_STRNE(Reason_Get(), "");
        return;
    }
    EXPECT_STREQ(Reason_Get(), "");
    EXPECT_EQ(std::to_string(facts.Channels), row[2]);
    EXPECT_EQ(std::to_string(facts.SamplingRate), row[3]);
    const BYTES whole = DecodeWhole(module, folder + row[0], facts, {999, 16383});
    EXPECT_EQ(Sha256(Justify(Wav, whole, 0, facts.BitsPerSample / 8)), row[6]);
}

void CheckFolder(const std::string &folder)
{
    int checked = 0;
    for (const auto &cells : ReadTable(folder + "expected_sounds.tsv")) {
        if (cells.size() != 11 || !ModuleOf(cells[0]))
            continue;
        SCOPED_TRACE(cells[0]);
        CheckFrameworkRules(folder, cells);
        CheckFormatRules(folder, cells);
        checked++;
    }
    EXPECT_GT(checked, 0) << folder;
}

}  // namespace

TEST(SoundCorpus, TestData)
{
    CheckFolder(TEST_DATA "sounds/");
}

TEST(SoundCorpus, Corpus)
{
    const char *folder = std::getenv("CORPUS");
    if (!folder)
        GTEST_SKIP() << "no folder in CORPUS";
    CheckFolder(std::string(folder) + "/");
}
