// Sounds out of memory and on failing disks: whole, or less with an error or a reason.
#include "tests/cookie.h"
#include "tests/faults.h"
#include "tests/mod_writer.h"

// One small file of each kind.
static std::vector<std::string> Files()
{
    std::vector<std::string> files;
    Audio_Rules = AUDIO_RULES_FORMAT;
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

// Loads a file and takes all of it, after a seek, while the memory fails at an allocation or the
// disk from a position on.
static RESULT Take(const std::string &path, long left, size_t failAt = SIZE_MAX)
{
    COOKIE disk = {ReadFile(path), 0, failAt};
    std::vector<uint8_t> out(40000);
    Faults_Memory = {left};
    RESULT result = {};
    if (AudioTrack *track = Audio_Load(path.c_str())) {
        if (failAt != SIZE_MAX && !track->Generated)
            track->File = OpenCookie(disk);
        Audio_SetLoop(1);
        result.Bytes = Audio_Seek(track, 100);
        while (!track->Ended)
            result.Bytes += Audio_Take(track, out.data(), out.size());
        result.Error = track->Error;
        const bool freed = track->Buffer[0];
        Audio_UnLoad(track);
        if (!freed)
            delete track;
    }
    Faults_Memory.Left = -1;
    result.Reason = Audio_Reason();
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
    return result;
}

class SoundFaults : public testing::TestWithParam<uint8_t>
{
};

TEST_P(SoundFaults, NeverShorterInSilence)
{
    const std::vector<std::string> files = Files();
    Audio_Rules = GetParam();
    for (const std::string &path : files) {
        const RESULT whole = Take(path, -1);
        EXPECT_EQ(whole.Error, 0) << path;
        const long live = Faults_Live();
        for (long n = 0; n == 0 || Faults_Memory.Struck; n++) {
            const RESULT part = Take(path, n);
            EXPECT_TRUE(part.Bytes == whole.Bytes || part.Error == ENOMEM ||
                        part.Reason == "out of memory")
                << path << ", allocation " << n << ": " << part.Bytes << ' ' << part.Reason;
            ASSERT_LT(n, 1000) << path;
        }
        EXPECT_EQ(Faults_Live(), live) << path;
        const size_t size = std::filesystem::file_size(path);
        if (Audio_Check(path.c_str()) != AUDIO_MOD && size > 2000) {
            EXPECT_EQ(Take(path, -1, size * 3 / 4).Error, EIO) << path;
        }
    }
    Audio_Rules = AUDIO_RULES_FRAMEWORK;
}

INSTANTIATE_TEST_SUITE_P(Rules, SoundFaults,
                         testing::Values(AUDIO_RULES_FRAMEWORK, AUDIO_RULES_FORMAT));
