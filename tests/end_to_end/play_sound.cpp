// Plays a sound as the game plays its music, for a number of callbacks:
//   play_sound FILE CALLBACKS LOOP [OTHER...] [race]
// While it plays, the OTHER files are loaded and unloaded in turn, repeatedly; "race" as the last
// word plants a data race between callback and main. Prints the engine's state.
//
// The callbacks are counted and slowed down: test devices accept sound as fast as it comes.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <portaudio.h>

#include "audio/audio.h"

using namespace std::chrono_literals;

static std::atomic<int> callbacks;
static bool racing;
static int planted;  // written by both threads in a race

static int CountingCallBack(const void *input, void *output, unsigned long frames,
                            const PaStreamCallbackTimeInfo *timing, PaStreamCallbackFlags status,
                            void *user)
{
    if (racing)
        planted++;
    const int result = PortAudio_CallBack(input, output, frames, timing, status, user);
    callbacks++;
    std::this_thread::sleep_for(1ms);
    return result;
}

static void LoadAndUnLoad(const char *path)
{
    AudioTrack *track = Audio_Load(path);
    const bool freed = track->Buffer[0];  // the engine does not free a track without buffers
    if (track->Decoded)                   // the next load takes its record's place
        Audio_Modules[track->Type].SetSoundNumber(track->SoundNumber);
    Audio_UnLoad(track);
    if (!freed)
        delete track;
}

int main(int argc, char **argv)
{
    std::vector<const char *> words(argv + 1, argv + argc);
    racing = !words.empty() && std::strcmp(words.back(), "race") == 0;
    if (racing)
        words.pop_back();
    if (words.size() < 3)
        return 2;
    const int wanted = std::atoi(words[1]);
    const std::vector<const char *> others(words.begin() + 3, words.end());

    Audio_StreamCallBack = CountingCallBack;
    Audio_Init(2);
    Audio_SetMixer(16, 44100, 32768, 32768);
    Audio_SetChannel(2);
    Audio_SetHz(44100);
    Audio_SetBPS(16);
    AudioTrack *track = Audio_Load(words[0]);
    Audio_SetLoop(static_cast<uint8_t>(std::atoi(words[2])));
    Audio_Play(track);
    const bool opened = track->Stream;
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (opened && callbacks < wanted && std::chrono::steady_clock::now() < deadline) {
        for (const char *other : others)
            LoadAndUnLoad(other);
        if (racing)
            planted++;
        std::this_thread::sleep_for(1ms);
    }
    const int ran = callbacks;
    std::printf("device %d of %d, error %d, stream %s, callbacks %s, playing %d, loop %d\n",
                Audio_Device, Pa_GetDeviceCount(), Audio_Error, opened ? "open" : "none",
                ran >= wanted ? "enough" : "too few", Audio_IsPlaying(), Audio_Loop.load());
    Audio_Stop();
    Audio_UnLoad(track);
    Audio_Destroy();
    return 0;
}
