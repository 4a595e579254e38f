#include <cstdio>
#include <vector>

#include "audio/audio.h"
#include "picture/picture.h"

int main(int, char **names)  // a picture, a sound
{
    Picture_Rules = PICTURE_RULES_FORMAT;
    const BYTES_BUFFER file = Bytes_LoadFile(names[1]);
    const Picture picture = Picture_LoadBytes(file, 0, 0);
    std::printf("%d x %d %s\n", picture.Width, picture.Height, Picture_Reason());
    if (picture.Pixels)  // R G B A
        std::fwrite(picture.Pixels, 4, size_t{picture.BufferWidth} * picture.Height, stdout);
    Picture_UnLoad(picture);

    Audio_Rules = AUDIO_RULES_FORMAT;
    Audio_Loop = 1;  // a single pass
    AudioTrack *track = Audio_Load(names[2]);
    std::vector<uint8_t> samples(1 << 20);
    samples.resize(Audio_Take(track, samples.data(), samples.size()));
    std::printf("%zu bytes, %d Hz %s\n", samples.size(), track->SamplingRate, Audio_Reason());
    std::fwrite(samples.data(), 1, samples.size(), stdout);
    Audio_UnLoad(track);
}
