// decode PNG WAV: a picture from memory as pixels, a sound as samples.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "audio/audio.h"
#include "picture/picture.h"

int main(int, char **names)
{
    std::ifstream file(names[1], std::ios::binary);
    const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
    const Picture picture = Picture_LoadBytes(bytes, 0, 0);
    std::printf("%d x %d pixels; %s\n", picture.Width, picture.Height, Picture_Reason());
    Picture_UnLoad(picture);

    AudioTrack *track = Audio_Load(names[2]);
    std::vector<uint8_t> samples(1 << 20);
    Audio_Loop = 1;
    samples.resize(Audio_Take(track, samples.data(), samples.size()));
    std::printf("%zu bytes at %d Hz; %s\n", samples.size(), track->SamplingRate, Audio_Reason());
    Audio_UnLoad(track);
}
