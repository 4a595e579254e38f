#include "tests/sound_files.h"
#include "tests/threads.h"

TEST(SoundThreads, FourAsOne)
{
    Audio_SetChannel(2);
    Audio_SetHz(44100);
    Audio_SetBPS(16);
    // In the first slot each time: the earlier record stays with its track.
    const auto load = [](const REAL_FILE &file, bool fromMemory, uint8_t rules) {
        Audio_Rules = rules;
        AudioTrack *track =
            fromMemory ? Audio_LoadBytes(file.Bytes) : Audio_Load(file.Path.c_str());
        const std::string reason = Audio_Reason();
        if (track->Decoded)
            Audio_Modules[track->Type].SetSoundNumber(0);
        return std::pair(track, reason);
    };
    const auto finish = [](const std::pair<AudioTrack *, std::string> &loaded) {
        AudioTrack *track = loaded.first;
        std::ostringstream text;
        text << int{track->Type} << ' ' << int{track->Channels} << ' ' << track->SamplingRate << ' '
             << int{track->BitsPerSample} << ' ' << loaded.second;
        for (int i = 0; track->Buffer[0] && i < 12 && track->Length[0] != 0; i++) {
            text << ' ' << Digest({track->Buffer[0].load(), track->Length[0]});
            Audio_LoadBuffers(track, 1);
        }
        UnLoad(track);
        return text.str();
    };
    const auto known = [](const BYTES &file) { return Audio_CheckBytes(file) > AUDIO_RAW; };
    ExpectFourAsOne(FilesKnown(known), load, finish);
    std::thread([] { EXPECT_EQ(Audio_Rules, AUDIO_RULES_FRAMEWORK); }).join();
    ResetModules();
}
