// Any file through detection, its decoder, some refills and the release; as raw samples; and, under
// both sets of rules, through seeks.
#include <array>

#include "audio/audio.h"
#include "fuzz/fuzz.h"

static void Leap(AudioTrack *track, uint64_t frame)
{
    std::array<uint8_t, 5000> out;
    Audio_SetLoop(1);
    const uint64_t at = Audio_Seek(track, frame);
    if (at > frame || Audio_Take(track, out.data(), out.size()) > out.size())
        __builtin_trap();
}

static void Play(const std::string &path, uint8_t bits, size_t size)
{
    Audio_SetBPS(bits);
    AudioTrack *track = Audio_Load(path.c_str());
    for (int i = 0; i < 4 && track->Buffer[0]; i++)
        Audio_LoadBuffers(track, 3);
    for (const uint64_t frame : {size % 5000, size % 77, size_t{9000}})
        Leap(track, frame);
    const bool freed = track->Buffer[0];
    Audio_UnLoad(track);
    if (!freed)
        delete track;
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)  // each table has only 32 slots
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = FuzzFile(data, size);
    Audio_SetHz(44100);
    Play(path, 8, size);
    Play(path, 16, size);
    Audio_Rules = AUDIO_RULES_FORMAT;
    Play(path, 16, size);
    Audio_Rules = AUDIO_RULES_FRAMEWORK;
    return 0;
}
