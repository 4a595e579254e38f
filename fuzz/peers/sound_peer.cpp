// Any WAV, AIFF or AU file: libsndfile.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string_view>
#include <vector>

#include <sndfile.h>

#include "audio/audio.h"
#include "fuzz/peers/peer.h"

struct STREAM {
    std::span<const uint8_t> File;
    sf_count_t Position = 0;
};

static sf_count_t Length(void *stream)
{
    return static_cast<sf_count_t>(static_cast<STREAM *>(stream)->File.size());
}

static sf_count_t Seek(sf_count_t offset, int whence, void *stream)
{
    auto &s = *static_cast<STREAM *>(stream);
    s.Position = offset + (whence == SEEK_CUR   ? s.Position
                           : whence == SEEK_END ? Length(stream)
                                                : 0);
    return s.Position;
}

static sf_count_t Read(void *to, sf_count_t count, void *stream)
{
    auto &s = *static_cast<STREAM *>(stream);
    const auto part =
        Bytes_GetSpan(s.File, static_cast<size_t>(s.Position), static_cast<size_t>(count));
    std::copy(part.begin(), part.end(), static_cast<uint8_t *>(to));
    s.Position += static_cast<sf_count_t>(part.size());
    return static_cast<sf_count_t>(part.size());
}

static sf_count_t Write(const void *, sf_count_t, void *)
{
    return 0;
}

// A sample of the track as 32 bits.
static int32_t SampleAt(const std::vector<uint8_t> &samples, size_t i, uint32_t bits)
{
    if (bits == 8)
        return (samples[i] - 128) * (1 << 24);
    uint32_t value = 0;
    std::memcpy(&value, &samples[i * bits / 8], bits / 8);
    return static_cast<int32_t>(value << (32 - bits));
}

// Bits of what such samples become here.
static uint32_t BitsOf(int coding)
{
    switch (coding) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 8;
    case SF_FORMAT_PCM_24:
        return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
        return 32;
    default:
        return 16;
    }
}

// Whether libsndfile has read what it says is wrong, or skipped a tag before the file. A wrong rate
// of bytes means that depth and size of a frame contradict each other.
static bool Complains(SNDFILE *file)
{
    std::array<char, 16384> log{};
    sf_command(file, SFC_GET_LOG_INFO, log.data(), log.size() - 1);
    const std::string_view text(log.data());
    const size_t rate = std::min(text.find("Bytes/sec"), text.size());
    return text.find("should be", rate) < text.find('\n', rate) || text.find("***") != text.npos ||
           text.find("unknown marker") != text.npos || text.find("ID3") != text.npos;
}

static void Compare(std::vector<double> theirs, const SF_INFO &info, const uint8_t *data,
                    size_t size)
{
    Audio_Rules = AUDIO_RULES_FORMAT;
    AudioTrack *track = Audio_LoadBytes({data, size});
    Audio_SetLoop(1);
    if (!track->Buffer[0])
        Differ(Audio_Reason());
    const uint32_t bits = track->BitsPerSample;
    if (bits != BitsOf(info.format & SF_FORMAT_SUBMASK))
        theirs.clear();  // depth and size of a sample contradict each other: one of two is believed
    if (track->Channels != info.channels)
        Differ("the channels", 0, track->Channels, info.channels);
    std::vector<uint8_t> ours(theirs.size() * bits / 8 + 64);
    ours.resize(Audio_Take(track, ours.data(), ours.size()));
    const size_t count = ours.size() * 8 / bits;
    const int coding = info.format & SF_FORMAT_SUBMASK;
    // libsndfile makes a whole block of a cut one, and ignores an offset beyond the end.
    const bool blocks = coding == SF_FORMAT_IMA_ADPCM || coding == SF_FORMAT_MS_ADPCM;
    if (count < theirs.size() && !blocks && track->DataStart < size)
        Differ("the length in samples", 0, static_cast<long>(count),
               static_cast<long>(theirs.size()));
    for (size_t i = 0; i < std::min(count, theirs.size()); i++)
        if (const int32_t ours32 = SampleAt(ours, i, bits);
            std::abs(ours32 - std::clamp(theirs[i], -1.0, 1.0) * 0x1p31) > 1)
            Differ("a sample", i, ours32, std::lround(theirs[i] * 0x1p31));
    Audio_UnLoad(track);
    Audio_Destroy();
    for (const AUDIO_MODULE &module : Audio_Modules)
        if (module.SetSoundNumber)
            module.SetSoundNumber(0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    STREAM stream = {{data, size}};
    SF_VIRTUAL_IO io = {Length, Seek, Read, Write,
                        [](void *s) { return static_cast<STREAM *>(s)->Position; }};
    SF_INFO info = {};
    SNDFILE *file = sf_open_virtual(&io, SFM_READ, &info, &stream);
    if (!file)
        return 0;
    const int kind = info.format & SF_FORMAT_TYPEMASK;
    // Of an AIFF file's sound chunks libsndfile plays the last.
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const bool several = text.find("SSND") != text.rfind("SSND");
    const bool compared = kind == SF_FORMAT_WAV || kind == SF_FORMAT_WAVEX ||
                          (kind == SF_FORMAT_AIFF && !several) || kind == SF_FORMAT_AU;
    std::vector<double> theirs(8192);
    const sf_count_t frames =
        info.channels <= 2 && compared
            ? sf_readf_double(file, theirs.data(),
                              static_cast<sf_count_t>(theirs.size()) / info.channels)
            : 0;
    theirs.resize(static_cast<size_t>(frames * info.channels));
    if (frames > 0 && sf_error(file) == 0 && !Complains(file))
        Compare(theirs, info, data, size);
    sf_close(file);
    return 0;
}
