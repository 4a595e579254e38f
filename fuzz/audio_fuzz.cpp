// Any file through detection, whatever decodes it, some refills and the release; and as raw
// samples.
#include "audio/audio.h"
#include "fuzz/fuzz.h"

static void Play(const std::string &path, uint8_t bits)
{
    Audio_SetBPS(bits);
    AudioTrack *track = Audio_Load(path.c_str());
    for (int i = 0; i < 4 && track->Buffer[0]; i++)
        Audio_LoadBuffers(track, 3);
    const bool freed = track->Buffer[0];
    Audio_UnLoad(track);
    if (!freed)
        delete track;
    Audio_Destroy();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = FuzzFile(data, size);
    Audio_SetHz(44100);
    Play(path, 8);
    Play(path, 16);
    return 0;
}
