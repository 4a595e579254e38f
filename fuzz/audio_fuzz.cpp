// Any file through detection, its decoder, some refills and the release; as raw samples; and
// through seeks. The last byte chooses the rules, the depth and whether it is a file or in memory.
#include <array>

#include "audio/audio.h"
#include "fuzz/fuzz.h"

static void Leap(AudioTrack *track, uint64_t frame)
{
    std::array<uint8_t, 1000> out;
    Audio_SetLoop(1);
    const uint64_t at = Audio_Seek(track, frame);
    if (at > frame || Audio_Take(track, out.data(), out.size()) > out.size())
        __builtin_trap();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const uint8_t choice = size == 0 ? 0 : data[size - 1];
    Audio_Rules = choice & 1;
    Audio_SetHz(44100);
    Audio_SetBPS(choice & 2 ? 8 : 16);
    Audio_SetChannel(choice % 16 == 0 ? 2 : 64);  // so that a buffer holds few frames
    AudioTrack *track =
        choice & 4 ? Audio_Load(FuzzFile(data, size).c_str()) : Audio_LoadBytes({data, size});
    track->Capacity = 2048 + choice;
    if (track->Buffer[0]) {
        Audio_LoadBuffers(track, 3);
        for (const uint64_t frame : {size % 77, choice & 8 ? 9000 : size % 5000})
            Leap(track, frame);
        Audio_UnLoad(track);
    } else {
        Audio_UnLoad(track);  // which does not free it
        delete track;
    }
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)  // each table has only 32 slots
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
    return 0;
}
