// Sounds out of memory and on failing disks: whole, or less with an error or a reason.
#include <cerrno>

#include "tests/faults.h"
#include "tests/mod_writer.h"
#include "tests/sound_files.h"

// One small file of each kind.
static std::vector<std::string> Files()
{
    const FORMAT_RULES rules;
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(TEST_DATA))
        if (entry.is_regular_file() && entry.file_size() < 20000 &&
            Audio_Check(entry.path().c_str()) != AUDIO_RAW)
            files.push_back(entry.path());
    files.push_back(WriteTemp("mod", WriteModule({{"C-2 01"}, {{{1, 2, 3, 4}}}})));
    return files;
}

struct RESULT {
    size_t Bytes;
    int Error;
    std::string Reason;
};

// Loads a file and takes all of it, after a seek, while a call fails.
static RESULT Take(const std::string &path, FAULT &fault, long left)
{
    std::vector<uint8_t> out(40000);
    fault = {left};
    RESULT result = {};
    if (AudioTrack *track = Audio_Load(path.c_str())) {
        Audio_SetLoop(1);
        result.Bytes = Audio_Seek(track, 100);
        while (!track->Ended)
            result.Bytes += Audio_Take(track, out.data(), out.size());
        result.Error = track->Error;
        UnLoad(track);
    }
    fault.Left = -1;
    result.Reason = Audio_Reason();
    ResetModules();
    return result;
}

TEST(SoundFaults, NeverShorterInSilence)
{
    for (const std::string &path : Files())
        for (const uint8_t rules : {AUDIO_RULES_FRAMEWORK, AUDIO_RULES_FORMAT}) {
            Audio_Rules = rules;
            const RESULT whole = Take(path, Faults_Memory, -1);
            EXPECT_EQ(whole.Error, 0) << path;
            const long live = Faults_Live();
            for (const auto &[fault, error, reason] :
                 {std::tuple(&Faults_Memory, ENOMEM, "out of memory"),
                  std::tuple(&Faults_Reads, EIO, "cannot be read: Input/output error")})
                for (long n = 0; n == 0 || fault->Struck; n++) {
                    const RESULT part = Take(path, *fault, n);
                    EXPECT_TRUE(part.Bytes == whole.Bytes || part.Error == error ||
                                part.Reason == reason)
                        << path << ", " << reason << n << ": " << part.Bytes << ' ' << part.Reason;
                    ASSERT_LT(n, 1000) << path;
                }
            EXPECT_EQ(Faults_Live(), live) << path;
        }
    Audio_Rules = AUDIO_RULES_FRAMEWORK;
}

// Files of 4 GiB of zeros: half a milliard empty chunks are skipped, not read.
TEST(SoundFaults, HugeFilesTakeFewReads)
{
    const struct {
        uint8_t type;
        BYTES head, tail;
    } rows[] = {
        {AUDIO_WAV, Prefix(WaveFile(1, 1, 8, {}), 36), Text("data\1\0\0\0") + BYTES(56)},
        {AUDIO_IFF, Text("FORM\0\0\0\0\x38SVX"), Text("BODY\0\0\0\1") + BYTES(56)},
        {AUDIO_AIFF, Text("FORM\0\0\0\0AIFF"), Text("SSND\0\0\0\1") + BYTES(56)},
        {AUDIO_MP3, Text("ID3\3\0\0\xFF\xFF\xFF\xF0"), BYTES(64)},
        {AUDIO_MOD, {}, BYTES(64)},
    };
    for (const auto &r : rows) {
        const std::string path = WriteTemp("huge", r.head);
        std::filesystem::resize_file(path, UINT32_MAX - 67);
        std::ofstream(path, std::ios::binary | std::ios::app)
            .write(reinterpret_cast<const char *>(r.tail.data()), std::ssize(r.tail));
        Faults_Reads = {100};
        AudioTrack *track = Audio_LoadAs(path.c_str(), r.type);
        EXPECT_FALSE(std::exchange(Faults_Reads, {}).Struck) << int{r.type};
        if (r.type != AUDIO_MP3 && r.type != AUDIO_MOD) {
            EXPECT_GT(track->DataStart, 4000000000u) << int{r.type};
        }
        UnLoad(track);
        ResetModules();
    }
    std::filesystem::remove(TempPath("huge"));
}
