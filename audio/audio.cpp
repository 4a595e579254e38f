#include "audio/audio.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

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
    return Reason_Guard([path] {
               auto track = std::make_unique<AudioTrack>();
               track->Path = path;
               track->Path.copy(track->FileName.data(), track->FileName.size() - 1);
               track->Capacity = Audio_Capacity;
               track->Loaded = 1;
               return track;
           })
        .release();
}

// Has the format module read the header of the file that is open under the track's path. Returns
// whether it did.
static bool LoadHeader(AudioTrack &track, uint8_t type)
{
    if (type >= Audio_Modules.size() || !Audio_Modules[type].Load)
        return false;
    const AUDIO_MODULE &module = Audio_Modules[type];
    const uint8_t n = module.GetSoundNumber();
    module.Load(track.Path.c_str());
    if (module.GetSoundNumber() == n)
        return false;
    track.Record = module.Record(n);
    if (module.SetOutput) {
        track.Generated = 1;
        module.SetOutput(track.Record.get(), Audio_Channel, Audio_Hz, Audio_BPS);
    }
    const AUDIO_FACTS facts = module.Facts(track.Record.get());
    track.Type = type;
    track.SoundNumber = n;
    track.Decoded = 1;
    track.Channels = static_cast<uint8_t>(facts.Channels);
    track.SamplingRate = static_cast<uint16_t>(facts.SamplingRate);
    track.Rate = facts.SamplingRate;
    track.BitsPerSample = static_cast<uint8_t>(facts.BitsPerSample);
    track.DataStart = facts.DataStart;
    return true;
}

static void LoadRaw(AudioTrack &track)
{
    track.Type = AUDIO_RAW;
    track.Channels = Audio_Channel;
    track.SamplingRate = static_cast<uint16_t>(Audio_Hz);
    track.Rate = Audio_Hz;
    track.BitsPerSample = Audio_BPS;
}

// Keeps the open file for the refills.
static void KeepOpen(AudioTrack &track, const BYTES_OPEN &from)
{
    track.File = Sound_OpenStream(from);
    track.OpenSize = Sound_GetSize(from).value_or(0);
    if (track.File && !Audio_Modules[track.Type].SmallReads)
        std::setvbuf(track.File.get(), nullptr, _IONBF, 0);
}

static AudioTrack *LoadOpened(const BYTES_OPEN &from, uint8_t type)
{
    AudioTrack *track = NewTrack(from.Path);
    if (!track)
        return nullptr;
    if (type == AUDIO_RAW)
        LoadRaw(*track);
    else if (!LoadHeader(*track, type))
        return track;
    if (!track->Generated)
        KeepOpen(*track, from);
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

static AudioTrack *CheckAndLoad(const BYTES_OPEN &from)
{
    Reason_Clear();
    const uint8_t type = Audio_Check(from.Path);
    AudioTrack *track = LoadOpened(from, type);
    if (type == AUDIO_RAW)
        Reason_Set("not a sound of a known format");
    return track;
}

AudioTrack *Audio_Load(const char *path)
{
    return CheckAndLoad(BYTES_OPEN(path));
}

AudioTrack *Audio_LoadAs(const char *path, uint8_t type)
{
    Reason_Clear();
    const BYTES_OPEN *from = Bytes_FindOpen(path);
    return from ? LoadOpened(*from, type) : LoadOpened(BYTES_OPEN(path), type);
}

AudioTrack *Audio_LoadBytes(std::span<const uint8_t> file)
{
    return CheckAndLoad(BYTES_OPEN(file));
}

const char *Audio_Reason()
{
    return Reason_Get();
}

uint32_t Audio_FrameBytes(const AudioTrack &track)
{
    return std::max(track.BitsPerSample / 8u * track.Channels, 1u);
}

// The length reported for the bytes stored: one less, on purpose.
static SOUND_FILLED LessOne(size_t stored)
{
    const auto count = static_cast<uint32_t>(stored);
    return {count == 0 ? 0 : count - 1, count};
}

// Both fill `buffer` as far as the file goes.
static SOUND_FILLED ReadRaw8(FILE *file, std::span<uint8_t> buffer)
{
    const size_t stored = std::fread(buffer.data(), 1, buffer.size(), file);
    Sound_From8(buffer.first(stored));
    return LessOne(stored);
}

static SOUND_FILLED ReadRaw16(FILE *file, std::span<uint8_t> buffer)
{
    const size_t read = std::fread(buffer.data(), 1, buffer.size(), file);
    const size_t stored = read & ~size_t{1};
    if (read != stored)  // a trailing half sample
        buffer[stored + 1] = 0;
    Sound_SwapWide16(buffer.first((read + 1) & ~size_t{1}));
    return LessOne(stored);
}

// Runs a format module's operation; out of memory, the sound ends there with an error.
template <typename Body>
static void Guarded(AudioTrack &track, const Body &body)
{
    const bool done = Reason_Guard([&body] {
        body();
        return true;
    });
    if (!done)
        track.Error = ENOMEM;
}

// Decodes from the file's position. Raw 16-bit samples may take one byte more than `room`.
static SOUND_FILLED Fill(AudioTrack &track, const SOUND_REFILL &refill)
{
    const AUDIO_MODULE &module = Audio_Modules[track.Type];
    if (track.Decoded || track.DecodedToo) {
        SOUND_FILLED filled;
        if (module.Fill && track.Record)
            Guarded(track, [&] { filled = module.Fill(track.Record.get(), refill); });
        return filled;
    }
    const std::span<uint8_t> buffer = refill.Buffer;
    if (track.BitsPerSample == 8)
        return ReadRaw8(refill.File, buffer);
    if (track.BitsPerSample == 16)
        return ReadRaw16(refill.File, {buffer.data(), buffer.size() + buffer.size() % 2});
    return Sound_Nothing(refill);
}

// The track's buffer, Capacity bytes whatever it is to hold, so that the callback may trust any
// size up to that.
static uint8_t *BufferOf(AudioTrack &track, size_t buffer)
{
    if (!track.Buffer[buffer])
        track.Buffer[buffer] = static_cast<uint8_t *>(std::calloc(track.Capacity, 1));
    return track.Buffer[buffer];
}

static void RefillBuffer(FILE *file, AudioTrack &track, size_t i)
{
    const SOUND_FILLED filled = Fill(track, {file, {track.Buffer[i].load(), track.Length[i]}});
    track.Length[i] = std::min(filled.Length, track.Capacity);
    track.Unfinished = filled.Unfinished;
}

// Fills the chosen buffers with at most `most` bytes each.
static void Refill(AudioTrack &track, uint8_t which, uint32_t most)
{
    for (size_t i = 0; i < 2; i++) {
        if ((which >> i & 1) == 0)
            continue;
        uint8_t *buffer = BufferOf(track, i);
        track.Length[i] = buffer ? most : 0;
        if (buffer)
            RefillBuffer(track.File.get(), track, i);
    }
}

static void StartOver(AudioTrack &track)
{
    const AUDIO_MODULE &module = Audio_Modules[track.Type];
    if (module.StartOver && track.Record)
        Guarded(track, [&] { module.StartOver(track.Record.get()); });
}

static void RefillGenerated(AudioTrack &track, uint8_t which)
{
    track.FileSize = track.Capacity + 1;  // forces two buffers
    const uint32_t restarts = track.Restarts;
    if (track.Restarted != restarts)
        StartOver(track);
    track.Restarted = restarts;
    Refill(track, which, track.Capacity);
}

// The most that a buffer gets. For a file smaller than a buffer that is as many bytes as the file
// has of the sound, whatever they unpack to; on purpose.
static uint32_t MaxOf(AudioTrack &track)
{
    if (track.FileSize == 0)
        track.FileSize = track.OpenSize;
    const uint32_t size = track.FileSize;
    return size < track.Capacity ? size - std::min(size, track.DataStart) : track.Capacity;
}

// Notes the position for the next refill, unless the sound was rewound meanwhile, and whether a
// read failed.
static void NotePosition(AudioTrack &track, uint32_t restarts)
{
    FILE *file = track.File.get();
    if (std::ferror(file)) {
        track.Error = errno != 0 ? errno : EIO;
        std::clearerr(file);
    }
    const auto position = static_cast<uint32_t>(ftello(file));
    uint32_t before = track.ReadPosition;
    if (track.Restarts == restarts)
        track.ReadPosition.compare_exchange_strong(before, position);
}

static void RefillFromFile(AudioTrack &track, uint8_t which)
{
    if (!track.File) {
        for (size_t i = 0; i < 2; i++)
            if (which >> i & 1)
                track.Length[i] = 0;
        return;
    }
    const uint32_t restarts = track.Restarts;
    const bool rewound = track.Restarted != restarts;
    track.Restarted = restarts;
    fseeko(track.File.get(), rewound ? track.DataStart : track.ReadPosition.load(), SEEK_SET);
    Refill(track, which, MaxOf(track));
    NotePosition(track, restarts);
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
    if (Audio_Modules[track->Type].Fill)
        RefillBuffer(file, *track, which == 2 ? 1 : 0);
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

// A refill that is running does not see it; the next one does, by the counter.
static void Rewind(AudioTrack &track)
{
    track.ReadPosition = track.DataStart;
    track.Restarts++;
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

// What happens at the end of the data; `goOn` makes the sound continue.
template <typename GoOn>
static void EndData(GoOn goOn)
{
    uint8_t loop = Audio_Loop;
    if (loop == 1) {
        Audio_Stop();
        return;
    }
    goOn();
    if (loop > 1)  // unless it was changed meanwhile
        Audio_Loop.compare_exchange_strong(loop, static_cast<uint8_t>(loop - 1));
}

void Audio_ReadBuffers()
{
    AudioTrack *track = Audio_Current;
    if (!track)
        return;
    const uint8_t played = track->State;  // 0: a single buffer; else its number and bit
    if (played == 0) {
        EndData(Audio_Refresh);
        return;
    }
    Audio_LoadBuffers(track, played);
    track->State = static_cast<uint8_t>(3 - played);
    if (track->Length[played - 1u] == 0 && !track->Unfinished)
        EndData([=] {
            Rewind(*track);
            Audio_LoadBuffers(track, played);
        });
}

// Refills buffer 1 with the next whole frames, nothing after an error. If it stored none, the
// result says whether the search must continue in another call.
static bool TakeMore(AudioTrack &track)
{
    AUDIO_TAKE &take = track.Take;
    take.Used = take.Stored = 0;
    if (track.Error != 0 || (!track.File && !track.Generated))
        return false;
    uint8_t *buffer = BufferOf(track, 0);
    if (!buffer) {
        track.Error = ENOMEM;
        return false;
    }
    const uint32_t restarts = track.Restarted, frame = Audio_FrameBytes(track);
    const std::span<uint8_t> room(buffer, track.Capacity - track.Capacity % frame);
    if (track.File)
        fseeko(track.File.get(), track.ReadPosition, SEEK_SET);
    const SOUND_FILLED filled = Fill(track, {track.File.get(), room, true});
    if (track.File)
        NotePosition(track, restarts);
    take.Stored = filled.Stored - filled.Stored % frame;
    return filled.Unfinished;
}

// Starts a pass of the gapless take.
//
// Audio_Take hands out the decoded samples pass after pass. A repeat must not be heard, so the
// decoder is not reset between two passes: MPEG audio keeps its overlap, its synthesis history and
// its bit reservoir, and the end of music cut for it leads into its beginning. A module, which is
// synthesised, is rewound each time. By the format's rules MP3_Fill resets itself at the first
// frame: there the seam is made by dropping the encoder's delay and padding instead.
static void StartPass(AudioTrack &track, bool repeats)
{
    track.Take = {.Begun = true, .Used = 0, .Stored = 0};
    track.Restarted = track.Restarts;
    track.ReadPosition = track.DataStart;
    track.Taken = 0;
    track.Ended = 0;
    track.Error = 0;
    if (!repeats || track.Generated)
        StartOver(track);
}

// Continues with the next pass, if one follows. A pass that was empty or could not be read to its
// end is not repeated.
static void EndPass(AudioTrack &track)
{
    if (track.Taken == 0 || track.Error != 0)
        Audio_Loop = 1;
    track.Ended = 1;
    EndData([&track] { StartPass(track, true); });
}

size_t Audio_Take(AudioTrack *track, uint8_t *out, size_t bytes)
{
    AUDIO_TAKE &take = track->Take;
    if (!take.Begun || track->Restarted != track->Restarts)
        StartPass(*track, false);
    size_t done = 0;
    while (done < bytes && !track->Ended) {
        if (take.Used == take.Stored) {
            const bool unfinished = TakeMore(*track);
            if (unfinished && take.Stored == 0)
                break;
            if (take.Stored == 0)
                EndPass(*track);
        }
        const size_t count = std::min<size_t>(take.Stored - take.Used, bytes - done);
        std::copy_n(track->Buffer[0] + take.Used, count, out + done);
        take.Used += static_cast<uint32_t>(count);
        track->Taken += count;
        done += count;
    }
    return done;
}

// Begins a pass as close before `frame` as possible.
static void Leap(AudioTrack &track, uint64_t frame)
{
    const AUDIO_MODULE &module = Audio_Modules[track.Type];
    StartPass(track, false);
    FILE *file = track.File.get();
    uint64_t at = 0;
    if (module.Seek && track.Record)
        Guarded(track, [&] { at = module.Seek(track.Record.get(), file, frame); });
    else if (!track.Decoded && file && (track.BitsPerSample == 8 || track.BitsPerSample == 16))
        at = Sound_Seek(file, 0, track.OpenSize, {Audio_FrameBytes(track), 1}, frame);
    track.Taken = at * Audio_FrameBytes(track);
    if (at != 0 && file)
        track.ReadPosition = static_cast<uint32_t>(ftello(file));
}

uint64_t Audio_Seek(AudioTrack *track, uint64_t frame)
{
    AUDIO_TAKE &take = track->Take;
    const uint64_t bytes = Audio_FrameBytes(*track), target = std::min(frame, UINT64_MAX / bytes);
    Leap(*track, target);
    for (bool more = true; more && track->Taken < target * bytes;) {
        const uint32_t position = track->ReadPosition;
        more = TakeMore(*track) || take.Stored != 0;
        if (!more)  // so that the next call finds nothing, too
            track->ReadPosition = position;
        take.Used =
            static_cast<uint32_t>(std::min<uint64_t>(take.Stored, target * bytes - track->Taken));
        track->Taken += take.Used;
    }
    return track->Taken / bytes;
}

void Audio_Refresh() {}

void Audio_PlayBuffers() {}
