// Sound made from any bytes, encoded by LAME in many ways, without its tag: libmad, which rounds
// for itself. (libmpg123 is off by hundreds where libmad, libavcodec and this decoder agree to 1:
// at low bit rates.)
#include <algorithm>
#include <vector>

#include <lame/lame.h>
#include <mad.h>

#include "audio/audio.h"
#include "fuzz/peers/peer.h"

static std::vector<uint8_t> Encode(std::span<const uint8_t> choice, std::span<const uint8_t> bytes,
                                   int &channels)
{
    constexpr int rates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
    const size_t count = std::min<size_t>(6000, 600 + 2 * bytes.size());
    std::vector<short> left(count), right(count);
    for (size_t i = 0; i < count; i++) {
        left[i] =
            static_cast<short>((bytes[i % bytes.size()] - 128) * (bytes[i / 3 % bytes.size()]));
        right[i] = static_cast<short>((bytes[i * 5 % bytes.size()] - 128) * choice[1]);
    }
    lame_t lame = lame_init();
    channels = 1 + choice[0] % 2;
    lame_set_num_channels(lame, channels);
    lame_set_in_samplerate(lame, rates[choice[2] % 9]);
    lame_set_out_samplerate(lame, rates[choice[2] % 9]);
    lame_set_mode(lame, channels == 1 ? MONO : choice[0] & 2 ? JOINT_STEREO : STEREO);
    lame_set_VBR(lame, choice[0] & 4 ? vbr_mtrh : vbr_off);
    lame_set_brate(lame, 8 + choice[3]);
    lame_set_error_protection(lame, choice[0] >> 3 & 1);
    lame_set_allow_diff_short(lame, choice[0] >> 4 & 1);
    lame_set_force_ms(lame, choice[0] >> 5 & 1);
    lame_set_bWriteVbrTag(lame, 0);
    lame_set_quality(lame, 7);
    std::vector<uint8_t> file(60000);
    if (lame_init_params(lame) < 0)
        return {};
    int size = lame_encode_buffer(lame, left.data(), right.data(), static_cast<int>(count),
                                  file.data(), 50000);
    size += lame_encode_flush(lame, file.data() + size, 10000);
    file.resize(static_cast<size_t>(size));
    lame_close(lame);
    return file;
}

static std::vector<int16_t> Theirs(std::vector<uint8_t> file)
{
    std::vector<int16_t> all;
    file.resize(file.size() + MAD_BUFFER_GUARD);
    mad_stream stream;
    mad_frame frame;
    mad_synth synth;
    mad_stream_init(&stream);
    mad_frame_init(&frame);
    mad_synth_init(&synth);
    mad_stream_buffer(&stream, file.data(), file.size());
    while (mad_frame_decode(&frame, &stream) == 0) {
        mad_synth_frame(&synth, &frame);
        for (size_t i = 0; i < synth.pcm.length; i++)
            for (size_t channel = 0; channel < synth.pcm.channels; channel++)
                all.push_back(static_cast<int16_t>(
                    std::clamp((synth.pcm.samples[channel][i] + (1 << 12)) >> 13, -32768, 32767)));
    }
    mad_synth_finish(&synth);
    mad_frame_finish(&frame);
    mad_stream_finish(&stream);
    return all;
}

static std::vector<int16_t> Ours(std::span<const uint8_t> file, size_t most)
{
    Audio_Rules = AUDIO_RULES_FORMAT;
    AudioTrack *track = Audio_LoadBytes(file);
    if (!track->Buffer[0])
        Differ(Audio_Reason());
    Audio_SetLoop(1);
    std::vector<int16_t> samples(most);
    samples.resize(Audio_Take(track, reinterpret_cast<uint8_t *>(samples.data()), 2 * most) / 2);
    Audio_UnLoad(track);
    Audio_Destroy();
    Audio_Modules[AUDIO_MP3].SetSoundNumber(0);
    return samples;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 5)
        return 0;
    int channels = 0;
    const std::vector<uint8_t> file = Encode({data, 4}, {data + 4, size - 4}, channels);
    if (file.empty())
        return 0;
    const std::vector<int16_t> theirs = Theirs(file), ours = Ours(file, theirs.size() + 5000);
    if (ours.size() != theirs.size())
        Differ("the length", 0, static_cast<long>(ours.size()), static_cast<long>(theirs.size()));
    for (size_t i = 0; i < ours.size(); i++)
        if (std::abs(ours[i] - theirs[i]) > 2)
            Differ("a sample", i, ours[i], theirs[i]);
    return 0;
}
