// Real files against what independent decoders make of them: all that expected_sounds.tsv lists, in
// the test data and in the folder that the environment variable CORPUS names, if it does.
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "extra/bytes.h"
#include "tests/sha256.h"
#include "tests/sound_files.h"

namespace
{

struct ROW {
    std::string File, Kind;
    uint32_t Channels, Rate;
    uint64_t Frames;
    std::string Digest16, Digest32, Note;
};

std::vector<ROW> ReadRows(const std::string &folder)
{
    std::ifstream list(folder + "expected_sounds.tsv");
    std::vector<ROW> rows;
    std::string line;
    std::getline(list, line); // the names of the columns
    while (std::getline(list, line)) {
        std::vector<std::string> cells;
        std::istringstream text(line);
        for (std::string cell; std::getline(text, cell, '\t');)
            cells.push_back(cell);
        if (cells.size() == 11 && ModuleOf(cells[0].substr(0, cells[0].find('/'))))
            rows.push_back({cells[0], cells[1], static_cast<uint32_t>(std::stoul(cells[2])),
                            static_cast<uint32_t>(std::stoul(cells[3])), std::stoul(cells[4]),
                            cells[5], cells[6], cells[10]});
    }
    return rows;
}

// How a file's output differs on purpose from what other decoders give.
enum KNOWN : uint8_t {
    Unheard,      // the samples are not comparable
    OtherRate,    // only that is
    LittleEndian, // the file's samples are, but their codec is not known
};
struct DEVIATION {
    const char *File;
    KNOWN Known;
    const char *Reason;
    uint32_t Rate = 0; // 0: the file's
};
constexpr DEVIATION Deviations[] = {
    {"8svx/gen-fibonacci.8svx", Unheard, "compression is not acted upon"},
    {"8svx/gen-odd-chunks.8svx", Unheard, "odd chunks are not padded, so no body is found"},
    {"voc/gen-u8-stereo-block8.voc", OtherRate, "the rate of block 1 wins over that of block 8",
     45454},
    {"voc/gen-u8-continued-block2.voc", Unheard, "a block header inside the data is played"},
    {"voc/ffmpeg-s16.voc", Unheard, "a block header inside the data is played"},
    {"aiff/sowt.aif", LittleEndian, "sowt is taken for big-endian"},
};

const DEVIATION *DeviationOf(const std::string &file)
{
    for (const DEVIATION &deviation : Deviations)
        if (file == deviation.File)
            return &deviation;
    return nullptr;
}

// What a refill must do with the bytes that it takes from the file.
struct RULE {
    uint32_t Lost;    // bytes that the reported length lacks
    uint32_t Out = 1; // bytes stored a byte taken
    bool Endless = false;
};

RULE RuleOf(const MODULE &module, const FACTS &facts)
{
    const uint32_t sample = facts.BitsPerSample / 8;
    if (module.Name == "voc")
        return {sample, VOC_GetHeader(0)->Codec >= 6 ? 2u : 1u};
    if (module.Name == "wav")
        return {sample, WAV_GetHeader(0)->FormatTag >= 6 ? 2u : 1u};
    if (module.Name == "8svx")
        return {1};
    if (module.Name == "aiff")
        return AIFF_GetHeader(0)->Codec == 0 ? RULE{sample == 2 ? 1 : sample} : RULE{2, 2};
    const uint16_t encoding = AU_GetHeader(0)->Encoding;
    if (encoding == 3 || encoding == 5)
        return {1, 1, true};
    return encoding == 1 || encoding == 27 ? RULE{2, 2} : RULE{sample};
}

// All that refills store, with what their lengths leave out.
std::vector<uint8_t> DecodePlain(const MODULE &module, const std::string &path, const FACTS &facts)
{
    const RULE rule = RuleOf(module, facts);
    std::vector<uint8_t> all;
    for (uint64_t position = facts.DataStart;;) {
        const uint32_t given = 12 * 512; // whole frames of any depth
        const REFILL refill = Refill(module, path, position, given);
        const uint64_t taken = refill.Position - position;
        const uint64_t begun = Sound_Begun(taken * rule.Out, std::max(rule.Lost, 1u));
        const uint64_t stored = rule.Endless ? given : begun;
        EXPECT_EQ(refill.Length, stored > rule.Lost ? stored - rule.Lost : 0) << position;
        if (taken == 0)
            return all;
        all.insert(all.end(), refill.Bytes.begin(),
                   refill.Bytes.begin() + static_cast<ptrdiff_t>(taken * rule.Out));
        position = refill.Position;
    }
}

// The same for ADPCM: three blocks a refill. IMA's headers come from the file.
std::vector<uint8_t> DecodeADPCM(const MODULE &module, const std::string &path)
{
    const WAV_HEADER &record = *WAV_GetHeader(0);
    const bool microsoft = record.FormatTag == 2;
    const uint32_t headers = (microsoft ? 7u : 4u) * record.Channels;
    const uint32_t counted = 4 * (record.BlockAlign - headers);
    const uint32_t stored = counted + (microsoft ? 4u * record.Channels : 0);
    const std::vector<uint8_t> file = Bytes_LoadFile(path.c_str());
    std::vector<uint8_t> all;
    for (uint64_t position = record.DataStart;;) {
        const REFILL refill = Refill(module, path, position, 3 * stored);
        EXPECT_EQ(refill.Length % counted, 0u) << position;
        const uint32_t blocks = refill.Length / counted;
        if (blocks == 0)
            return all;
        for (uint32_t i = 0; i < blocks; i++) {
            for (uint32_t c = 0; !microsoft && c < record.Channels; c++)
                for (size_t byte = 0; byte < 2; byte++) {
                    size_t at = position + i * record.BlockAlign + 4 * c + byte;
                    all.push_back(Bytes_GetByte(file, at));
                }
            const auto block = refill.Bytes.begin() + i * stored;
            all.insert(all.end(), block, block + stored);
        }
        position = refill.Position;
    }
}

// A sample of the output, left-justified in 32 bits.
int32_t SampleOf(const uint8_t *bytes, uint32_t size, bool turned, bool swapped)
{
    if (size == 1) // unsigned, or with its sign turned
        return static_cast<int32_t>((turned ? 128u - bytes[0] : bytes[0] - 128u) << 24);
    uint32_t sample = 0;
    for (uint32_t i = 0; i < size; i++)
        sample |= uint32_t{bytes[swapped ? size - 1 - i : i]} << (8 * (4 - size + i));
    return static_cast<int32_t>(sample);
}

std::vector<uint8_t> LittleEndianOf(const std::vector<int32_t> &samples, uint32_t size)
{
    std::vector<uint8_t> bytes;
    for (const int32_t sample : samples)
        for (uint32_t i = 4 - size; i < 4; i++)
            bytes.push_back(static_cast<uint8_t>(sample >> (8 * i)));
    return bytes;
}

void CheckFacts(const MODULE &module, const ROW &row, const FACTS &facts, const DEVIATION *known)
{
    uint32_t rate = row.Rate;
    while (module.Name == "aiff" && rate < 32768)
        rate *= 2; // the top of the mantissa
    EXPECT_EQ(facts.Channels, row.Channels);
    EXPECT_EQ(facts.SamplingRate, known && known->Rate != 0 ? known->Rate : rate);
}

std::vector<int32_t> Decode(const MODULE &module, const std::string &path, const FACTS &facts,
                            const DEVIATION *known)
{
    const uint16_t tag = module.Name == "wav" ? WAV_GetHeader(0)->FormatTag : uint16_t{0};
    const std::vector<uint8_t> bytes =
        tag == 2 || tag == 17 ? DecodeADPCM(module, path) : DecodePlain(module, path, facts);
    const bool turned = module.Name != "wav" && module.Name != "voc";
    const bool aiff = module.Name == "aiff";
    const uint32_t size = facts.BitsPerSample / 8;
    const bool swapped = (aiff && size == 3) || (known && known->Known == LittleEndian);
    // Offset and block size, which are played as samples.
    size_t position = aiff ? 8 * RuleOf(module, facts).Out : 0;
    std::vector<int32_t> samples;
    for (; position + size <= bytes.size(); position += size)
        samples.push_back(SampleOf(&bytes[position], size, turned, swapped));
    return samples;
}

void CheckFile(const std::string &folder, const ROW &row)
{
    SCOPED_TRACE(row.File);
    const MODULE &module = *ModuleOf(row.File.substr(0, row.File.find('/')));
    const DEVIATION *known = DeviationOf(row.File);
    const FACTS facts = LoadFirst(module, folder + row.File);
    CheckFacts(module, row, facts, known);
    std::vector<int32_t> samples = Decode(module, folder + row.File, facts, known);
    if (known && known->Known == Unheard) {
        EXPECT_NE(Sha256(LittleEndianOf(samples, 4)), row.Digest32) << "not: " << known->Reason;
        return;
    }
    ASSERT_GE(samples.size(), row.Frames * row.Channels);
    samples.resize(row.Frames * row.Channels); // ends without a size of their own come behind
    // Microsoft ADPCM with the prediction cut toward zero.
    const size_t cut = row.Note.find("truncation toward zero: ffmpeg s16=");
    const std::string digest16 =
        cut == std::string::npos ? row.Digest16 : row.Note.substr(row.Note.find('=', cut) + 1, 64);
    EXPECT_EQ(Sha256(LittleEndianOf(samples, 2)), digest16);
    if (cut == std::string::npos) {
        EXPECT_EQ(Sha256(LittleEndianOf(samples, 4)), row.Digest32);
    }
}

void CheckFolder(const std::string &folder)
{
    const std::vector<ROW> rows = ReadRows(folder);
    EXPECT_FALSE(rows.empty()) << folder;
    for (const ROW &row : rows)
        CheckFile(folder, row);
}

} // namespace

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
