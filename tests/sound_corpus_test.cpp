// Real files against independent decoders: all that expected_sounds.tsv lists, in the test data and
// in the folder named by the environment variable CORPUS, if any.
#include "tests/sha256.h"
#include "tests/sound_files.h"

static const MODULE *ModuleOf(const std::string &file)
{
    for (const MODULE *module : Modules)
        if (file.starts_with(std::string(module->Name) + "/"))
            return module;
    return nullptr;  // covered by another test
}

// Samples left-justified in 32 bits, little-endian; 8 bits are unsigned before.
static BYTES Justify(const BYTES &bytes, size_t size)
{
    BYTES samples;
    for (size_t i = 0; i < bytes.size(); i++) {
        if (i % size == 0)
            samples.resize(samples.size() + 4 - size);
        samples.push_back(static_cast<uint8_t>(bytes[i] - (size == 1 ? 128 : 0)));
    }
    return samples;
}

// The file that is not decoded.
constexpr const char *NotDecoded = "wav/music-metadata__test_samples_wav_gsm610.wav";

static void CheckFolder(const std::string &folder)
{
    const FORMAT_RULES rules;
    Sound_MixAbove = Sound_MaxChannels;  // all channels, like the other decoders
    int checked = 0;
    for (const auto &row : ReadTable(folder + "expected_sounds.tsv")) {
        const MODULE *module = ModuleOf(row[0]);
        if (row.size() != 11 || !module)
            continue;
        SCOPED_TRACE(row[0]);
        const FACTS facts = LoadFirst(*module, folder + row[0]);
        checked++;
        EXPECT_EQ(*Reason_Get() != 0, row[0] == NotDecoded) << Reason_Get();
        if (row[0] == NotDecoded)
            continue;
        EXPECT_EQ(std::to_string(facts.Channels), row[2]);
        EXPECT_EQ(std::to_string(facts.SamplingRate), row[3]);
        const BYTES whole = DecodeWhole(*module, folder + row[0], facts, {999, 16383});
        EXPECT_EQ(Sha256(Justify(whole, facts.BitsPerSample / 8)), row[6]);
    }
    EXPECT_GT(checked, 0) << folder;
}

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
