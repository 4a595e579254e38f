#include "audio/audio.h"

#include <algorithm>
#include <cstdlib>
#include <span>

#include "audio/audio_module.h"

uint8_t Audio_Mode = 1;
uint8_t Audio_Channel = 1;
uint32_t Audio_Hz = 8000;
uint8_t Audio_BPS = 8;
std::atomic<AudioTrack *> Audio_Current;
std::atomic<uint8_t> Audio_Playing;
std::atomic<uint8_t> Audio_Loop;
std::atomic<uint8_t *> Audio_Data;
std::atomic<uint32_t> Audio_DataSize;
std::atomic<uint16_t> Audio_DataTime;
uint8_t Audio_WakeBit;

static_assert(std::atomic<uint8_t *>::is_always_lock_free &&
                  std::atomic<uint32_t>::is_always_lock_free &&
                  std::atomic<uint8_t>::is_always_lock_free,
              "the callback waits for nobody");

void Audio_SetMode(uint8_t mode)
{
    Audio_Mode = mode;
}

void Audio_SetChannel(uint8_t channels)
{
    Audio_Channel = channels;
}

void Audio_SetHz(uint32_t hz)
{
    Audio_Hz = hz & 0xFFFF;
}

void Audio_SetBPS(uint8_t bits)
{
    Audio_BPS = bits;
}

void Audio_SetLoop(uint8_t loop)
{
    Audio_Loop = loop;
}

static void HandOut(const AudioTrack &track, size_t buffer)
{
    const uint32_t length = track.Length[buffer];
    Audio_Data = track.Buffer[buffer].load();
    Audio_DataSize = length;
    Audio_DataTime = static_cast<uint16_t>(length / Audio_FrameBytes(track));
}

static AudioTrack *NewTrack(const char *path)
{
    AudioTrack *track = new AudioTrack{};
    track->Path = path;
    track->Path.copy(track->FileName.data(), track->FileName.size() - 1);
    track->Capacity = Audio_Capacity;
    track->Loaded = 1;
    return track;
}

// Has the format module read the file's header. Returns whether it did.
static bool LoadHeader(AudioTrack &track, uint8_t type)
{
    if (type >= Audio_Modules.size() || !Audio_Modules[type].Load)
        return false;
    const AUDIO_MODULE &module = Audio_Modules[type];
    const uint8_t n = *module.SoundNumber;
    module.Load(track.Path.c_str());
    if (*module.SoundNumber == n)
        return false;
    if (module.SetOutput) {
        track.Generated = 1;
        module.SetOutput(n, Audio_Channel, Audio_Hz, Audio_BPS);
    }
    const AUDIO_FACTS facts = module.Facts(n);
    track.Type = type;
    track.SoundNumber = n;
    track.Decoded = 1;
    track.Channels = static_cast<uint8_t>(facts.Channels);
    track.SamplingRate = static_cast<uint16_t>(facts.SamplingRate);
    track.BitsPerSample = static_cast<uint8_t>(facts.BitsPerSample);
    track.DataStart = facts.DataStart;
    return true;
}

static void LoadRaw(AudioTrack &track)
{
    track.Type = AUDIO_RAW;
    track.Channels = Audio_Channel;
    track.SamplingRate = static_cast<uint16_t>(Audio_Hz);
    track.BitsPerSample = Audio_BPS;
}

AudioTrack *Audio_Load(const char *path)
{
    return Audio_LoadAs(path, Audio_Check(path));
}

AudioTrack *Audio_LoadAs(const char *path, uint8_t type)
{
    AudioTrack *track = NewTrack(path);
    if (type == AUDIO_RAW)
        LoadRaw(*track);
    else if (!LoadHeader(*track, type))
        return track;
    track->ReadPosition = track->DataStart;
    Audio_LoadBuffers(track, 1);
    if (!track->Buffer[0])
        return track;
    HandOut(*track, 0);
    if (track->FileSize > track->Capacity) {
        Audio_LoadBuffers(track, 2);
        track->State = track->Buffer[1] ? 1 : 0;
    }
    return track;
}

// What is kept of the bytes that were stored: one is lost, on purpose.
static uint32_t LessOne(size_t stored)
{
    return stored == 0 ? 0 : static_cast<uint32_t>(stored - 1);
}

// Both fill `buffer`, as far as the file goes, and return the length to record.
static uint32_t ReadRaw8(FILE *file, std::span<uint8_t> buffer)
{
    const size_t stored = std::fread(buffer.data(), 1, buffer.size(), file);
    for (uint8_t &sample : buffer.first(stored))
        sample = static_cast<uint8_t>(128 - sample);
    return LessOne(stored);
}

static uint32_t ReadRaw16(FILE *file, std::span<uint8_t> buffer)
{
    const size_t read = std::fread(buffer.data(), 1, buffer.size(), file);
    const size_t stored = read & ~size_t{1};
    if (read != stored)  // the half sample behind the last one
        buffer[stored + 1] = 0;
    for (size_t k = 0; k < read; k += 2)
        std::swap(buffer[k], buffer[k + 1]);
    return LessOne(stored);
}

// The track's buffer with room for Capacity bytes, whatever it is to take: so the callback may
// trust any size up to that.
static uint8_t *BufferOf(AudioTrack &track, size_t buffer)
{
    if (!track.Buffer[buffer])
        track.Buffer[buffer] = static_cast<uint8_t *>(std::calloc(track.Capacity, 1));
    return track.Buffer[buffer];
}

// Fills the chosen buffers with at most `most` bytes each.
static void Refill(AudioTrack &track, uint8_t which, FILE *file, uint32_t most)
{
    for (size_t i = 0; i < 2; i++) {
        if ((which >> i & 1) == 0)
            continue;
        uint8_t *buffer = BufferOf(track, i);
        track.Length[i] = buffer ? most : 0;
        if (!buffer)
            continue;
        if (track.Decoded || track.DecodedToo)
            Audio_Decoding(file, &track, static_cast<uint8_t>(i + 1));
        else if (track.BitsPerSample == 8)
            track.Length[i] = ReadRaw8(file, {buffer, most});
        else if (track.BitsPerSample == 16)
            track.Length[i] = ReadRaw16(file, {buffer, most + most % 2});
    }
}

static void RefillGenerated(AudioTrack &track, uint8_t which)
{
    track.FileSize = track.Capacity + 1;  // so that it has two buffers
    const AUDIO_MODULE &module = Audio_Modules[track.Type];
    if (track.StartOver.exchange(0) && module.StartOver)
        module.StartOver(track.SoundNumber);
    Refill(track, which, nullptr, track.Capacity);
}

static void RefillFromFile(AudioTrack &track, uint8_t which)
{
    uint32_t size;
    const AUDIO_FILE file = Audio_OpenFile(track.Path.c_str(), &size);
    if (!file) {
        for (size_t i = 0; i < 2; i++)
            if (which >> i & 1)
                track.Length[i] = 0;
        return;
    }
    if (!Audio_Modules[track.Type].SmallReads)
        std::setvbuf(file.get(), nullptr, _IONBF, 0);
    if (track.FileSize == 0)
        track.FileSize = size;
    uint32_t most = track.Capacity;
    if (track.FileSize < track.Capacity)
        most = track.FileSize - std::min<uint32_t>(track.FileSize, track.DataStart);
    uint32_t position = track.ReadPosition;
    fseeko(file.get(), position, SEEK_SET);
    Refill(track, which, file.get(), most);
    // Unless the sound was rewound meanwhile.
    track.ReadPosition.compare_exchange_strong(position, static_cast<uint32_t>(ftello(file.get())));
}

void Audio_LoadBuffers(AudioTrack *track, uint8_t which)
{
    if (track->Generated)
        RefillGenerated(*track, which);
    else
        RefillFromFile(*track, which);
}

void Audio_Decoding(FILE *file, AudioTrack *track, uint8_t which)
{
    const AUDIO_MODULE &module = Audio_Modules[track->Type];
    if (!module.Decoding)
        return;
    const size_t i = which == 2 ? 1 : 0;
    uint32_t length = track->Length[i];
    module.Decoding(file, track->Buffer[i], &length, track->SoundNumber);
    track->Length[i] = std::min(length, track->Capacity);
}

void Audio_Pause()
{
    Audio_Playing ^= 1;
}

void Audio_Stop()
{
    Audio_Playing = 0;
    Audio_Loop = 0;
}

static void Rewind(AudioTrack &track)
{
    track.ReadPosition = track.DataStart;
    track.StartOver = 1;
}

void Audio_ReStart()
{
    if (AudioTrack *track = Audio_Current)
        Rewind(*track);
    Audio_Playing = 1;
}

bool Audio_IsPlaying()
{
    return Audio_Playing != 0;
}

void Audio_SetCurrent(AudioTrack *track)
{
    Audio_Current = track;
}

void Audio_SwapBuffers()
{
    const AudioTrack *track = Audio_Current;
    if (!track || track->State == 0)
        return;
    HandOut(*track, track->State == 1 ? 1 : 0);
}

// What the end of the data does; `goOn` makes the sound go on.
template <typename GoOn>
static void EndData(GoOn goOn)
{
    uint8_t loop = Audio_Loop;
    if (loop == 1) {
        Audio_Stop();
        return;
    }
    goOn();
    if (loop > 1)  // unless it was set anew meanwhile
        Audio_Loop.compare_exchange_strong(loop, static_cast<uint8_t>(loop - 1));
}

void Audio_ReadBuffers()
{
    AudioTrack *track = Audio_Current;
    if (!track)
        return;
    const uint8_t played = track->State;  // of single buffers 0, otherwise their number and bit
    if (played == 0) {
        EndData(Audio_Refresh);
        return;
    }
    Audio_LoadBuffers(track, played);
    track->State = static_cast<uint8_t>(3 - played);
    if (track->Length[played - 1u] == 0)
        EndData([=] {
            Rewind(*track);
            Audio_LoadBuffers(track, played);
        });
}

void Audio_Refresh() {}

void Audio_PlayBuffers() {}
