// Every sound of tests/data (and of the folder named by CORPUS) loaded by four threads at once,
// from its file or from memory, and refilled and unloaded on another thread: the same as on one
// thread.
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>

#include "audio/mp3.h"
#include "tests/sound_files.h"

namespace
{

struct SOUND {
    std::string Path;
    BYTES Bytes;
    std::string Expected;
};

struct LOADED {
    const SOUND *Sound;
    AudioTrack *Track;
    std::string Reason;
};

}  // namespace

static std::vector<SOUND> Sounds()
{
    std::vector<SOUND> sounds;
    std::vector<std::string> folders = {TEST_DATA};
    if (const char *corpus = std::getenv("CORPUS"))
        folders.push_back(corpus);
    for (const std::string &folder : folders)
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.is_regular_file() && entry.file_size() < 4000000) {
                BYTES bytes = ReadFile(entry.path());
                if (Audio_CheckBytes(bytes) > AUDIO_RAW)
                    sounds.push_back({entry.path(), std::move(bytes), ""});
            }
    return sounds;
}

// In the first slot each time: the earlier record stays with its track.
static LOADED Load(const SOUND &sound, bool fromMemory)
{
    AudioTrack *track = fromMemory ? Audio_LoadBytes(sound.Bytes) : Audio_Load(sound.Path.c_str());
    const std::string reason = Audio_Reason();
    if (track->Decoded)
        Audio_Modules[track->Type].SetSoundNumber(0);
    return {&sound, track, reason};
}

// A load's complete result, as text; unloads it.
static std::string Finish(const LOADED &loaded)
{
    AudioTrack *track = loaded.Track;
    std::string text = std::to_string(track->Type) + ' ' + std::to_string(track->Channels) + ' ' +
                       std::to_string(track->SamplingRate) + ' ' +
                       std::to_string(track->BitsPerSample) + ' ' + loaded.Reason;
    for (int i = 0; track->Buffer[0] && i < 12 && track->Length[0] != 0; i++) {
        text += ' ' + std::to_string(Digest({track->Buffer[0].load(), track->Length[0]}));
        Audio_LoadBuffers(track, 1);
    }
    UnLoad(track);
    return text;
}

TEST(SoundThreads, FourAsOne)
{
    Audio_SetChannel(2);
    Audio_SetHz(44100);
    Audio_SetBPS(16);
    std::vector<SOUND> sounds = Sounds();
    ASSERT_GT(sounds.size(), 30u);
    for (SOUND &sound : sounds) {
        sound.Expected = Finish(Load(sound, true));
        EXPECT_EQ(Finish(Load(sound, false)), sound.Expected) << sound.Path;
    }

    std::mutex mutex;
    std::deque<LOADED> waiting;
    std::atomic<size_t> finished = 0;
    const auto finish = [&](size_t most) {
        for (std::unique_lock lock(mutex); waiting.size() > most; lock.lock()) {
            const LOADED loaded = waiting.front();
            waiting.pop_front();
            lock.unlock();
            EXPECT_EQ(Finish(loaded), loaded.Sound->Expected) << loaded.Sound->Path;
            finished++;
        }
    };
    const auto run = [&](size_t thread) {
        for (size_t i = 0; i < sounds.size(); i++) {
            const SOUND &sound = sounds[(i + thread * sounds.size() / 4) % sounds.size()];
            const LOADED loaded = Load(sound, (i + thread) % 2 == 0);
            {
                const std::lock_guard lock(mutex);
                waiting.push_back(loaded);
            }
            finish(4);  // mostly loads of other threads
        }
    };
    std::vector<std::thread> threads;
    for (size_t i = 0; i < 4; i++)
        threads.emplace_back(run, i);
    for (std::thread &thread : threads)
        thread.join();
    finish(0);  // the threads that loaded these have ended
    EXPECT_EQ(finished, 4 * sounds.size());
    Audio_Destroy();
}

// Each thread has its own rules, which its records keep.
TEST(SoundThreads, Rules)
{
    const FORMAT_RULES rules;
    const auto rulesOf = [] {
        AudioTrack *track = Audio_Load(TEST_DATA "mp3_joint.mp3");
        const uint8_t kept = static_cast<MP3_HEADER *>(track->Record.get())->Rules;
        Audio_UnLoad(track);
        return kept;
    };
    EXPECT_EQ(rulesOf(), AUDIO_RULES_FORMAT);
    std::thread([&] { EXPECT_EQ(rulesOf(), AUDIO_RULES_FRAMEWORK); }).join();
    ResetModules();
}
