#include "audio/mod.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "audio/mod_mixer.h"
#include "audio/mod_replay.h"
#include "audio/mod_song.h"

constinit thread_local SOUND_TABLE<MOD_HEADER> MOD_Header{};
constinit thread_local uint8_t MOD_SoundNumber = 0;
constinit thread_local uint8_t MOD_Interpolation = MOD_SINC;
constinit thread_local uint8_t MOD_Separation = 50;

// The largest song has 128 patterns of 99 channels, or 256 of fewer, and 31 samples of 128 KiB.
constexpr size_t MOD_MaxFile = size_t{16} << 20;

// After this fraction of a second, ramps, tails and the filter have settled.
constexpr uint32_t MOD_SettleRate = 20;

namespace
{

// A view that one thread writes and others read; its turn is odd during a write.
struct MOD_SHOWN {
    std::atomic<uint32_t> Turn;
    std::array<std::atomic<uint64_t>, (sizeof(MOD_VIEW) + 7) / 8> Words;
};

// The state of a header's song.
struct MOD_RECORD : MOD_HEADER {
    MOD_SONG Song;
    uint32_t Rows;  // that are played of it
    MOD_PLAYER Player;
    MOD_MIXER Mixer;
    uint64_t TickFrames;             // left of the current tick
    uint64_t TickRest;               // fractions of a frame owed to later ticks
    uint64_t Frames;                 // of the song, rendered so far
    uint16_t LastPosition, LastRow;  // as last published in the header
    std::array<MOD_SHOWN, MOD_Views> Shown;
    std::atomic<uint32_t> Ticks;  // published so far
};

}  // namespace

static void StartOver(MOD_RECORD &record)
{
    MOD_Start(record.Player, record.Song, record.Rows);
    record.Mixer = {};
    record.TickFrames = record.TickRest = record.Frames = 0;
    record.LastPosition = record.SongPosition;
    record.LastRow = record.Row;
}

// Publishes the song's place in the header, unless another thread has set it meanwhile: the next
// call then finds the difference.
static void Publish(std::atomic<uint16_t> &shown, uint16_t &last, uint16_t now)
{
    shown.compare_exchange_strong(last, now);
    last = now;
}

static bool Sounds(const MOD_VOICE &v)
{
    const bool inRun = v.Data && v.Position >> 32 < v.End;
    return v.Period != 0 && (inRun || v.LoopData);
}

static void Show(MOD_RECORD &record)
{
    const MOD_PLAYER &player = record.Player;
    MOD_VIEW view = {record.Frames,        static_cast<uint32_t>(record.TickFrames),
                     player.PlaysPosition, record.Song.Orders[player.PlaysPosition],
                     player.PlaysRow,      player.Speed,
                     player.Tempo,         {}};
    std::ranges::transform(player.Voices, view.Levels.begin(),
                           [](const MOD_VOICE &v) { return Sounds(v) ? v.Volume : uint8_t{0}; });
    std::array<uint64_t, std::tuple_size_v<decltype(MOD_SHOWN::Words)>> words{};
    std::memcpy(words.data(), &view, sizeof view);
    MOD_SHOWN &shown = record.Shown[record.Ticks % MOD_Views];
    shown.Turn++;
    for (size_t i = 0; i < words.size(); i++)
        shown.Words[i].store(words[i], std::memory_order_release);
    shown.Turn++;
    record.Ticks++;
}

// Nothing if the view changed while it was read.
static std::optional<MOD_VIEW> ReadView(const MOD_SHOWN &shown)
{
    const uint32_t turn = shown.Turn;
    std::array<uint64_t, std::tuple_size_v<decltype(MOD_SHOWN::Words)>> words;
    for (size_t i = 0; i < words.size(); i++)
        words[i] = shown.Words[i].load(std::memory_order_acquire);
    MOD_VIEW view;
    std::memcpy(&view, words.data(), sizeof view);
    return turn % 2 == 0 && turn == shown.Turn ? std::optional(view) : std::nullopt;
}

// Starts a tick of rate x 2.5 s / tempo frames. The fraction is carried into later ticks; by the
// formats' rules it is dropped, as in today's players.
static bool NextTick(MOD_RECORD &record)
{
    if (!MOD_Tick(record.Player))
        return false;
    const uint32_t parts = record.Player.Tempo * 2u;
    record.TickRest += uint64_t{record.SamplingRate} * 5;
    record.TickFrames = record.TickRest / parts;
    record.TickRest = record.Rules == AUDIO_RULES_FORMAT ? 0 : record.TickRest % parts;
    record.Mixer.Filter = record.Player.Filter;
    Show(record);
    return true;
}

static std::shared_ptr<MOD_RECORD> MakeRecord(MOD_SONG &&song)
{
    auto record = std::make_shared<MOD_RECORD>();
    record->Channels = 2;
    record->SamplingRate = 44100;
    record->BitsPerSample = 16;
    record->Title = song.Title;
    record->SongChannels = song.Channels;
    record->SongLength = song.Length;
    record->SampleCount = song.SampleCount;
    for (size_t i = 0; i < record->SampleNames.size(); i++)
        record->SampleNames[i] = song.Samples[i + 1].Name;
    record->Rules = Audio_Rules;
    record->Interpolation = MOD_Interpolation;
    record->Separation = MOD_Separation;
    record->Song = std::move(song);
    const MOD_LENGTH length = MOD_Measure(record->Song);
    MOD_MakeTables();
    record->Rows = length.Rows;
    record->Milliseconds = length.Milliseconds;
    StartOver(*record);
    return record;
}

static void LoadSong(void *what)
{
    const auto &file = *static_cast<const SOUND_FILE *>(what);
    BYTES_BUFFER bytes(std::min<size_t>(file.Size, MOD_MaxFile));
    const size_t read = Bytes_ReadAt(*file.From, 0, bytes).value_or(0);
    if (std::optional<MOD_SONG> song = MOD_ReadSong(std::span(bytes).first(read)))
        MOD_Header[MOD_SoundNumber++] = MakeRecord(std::move(*song));
}

void MOD_Load(const char *path)
{
    SOUND_FILE file;
    Sound_WithFile(path, file, MOD_SoundNumber, LoadSong, &file);
}

static MOD_FORMAT FormatOf(const MOD_HEADER &header)
{
    return {header.Channels, header.SamplingRate, header.BitsPerSample};
}

// Advances by `frames`, rendering them to `out` unless that is null. Returns the number missing at
// the end of the song.
static uint64_t Render(MOD_RECORD &record, uint64_t frames, uint8_t *out)
{
    const MOD_FORMAT format = FormatOf(record);
    const uint32_t bytes = MOD_FrameBytes(format);
    while (frames != 0) {
        if (record.TickFrames == 0) {
            if (!NextTick(record))
                break;
            continue;
        }
        auto count = static_cast<size_t>(std::min(frames, record.TickFrames));
        if (out) {
            count = std::min(count, MOD_Block);
            MOD_Mix(record.Mixer, record.Player.Voices, format, count, out);
            out += count * bytes;
        } else {
            MOD_SkipFrames(record.Player.Voices, format.Rate, count);
        }
        frames -= count;
        record.Frames += count;
        record.TickFrames -= count;
    }
    return frames;
}

// Publishes the song's place in the header.
static void PublishBoth(MOD_RECORD &record)
{
    Publish(record.SongPosition, record.LastPosition,
            record.Player.AtEnd ? record.Song.Length : record.Player.Position);
    Publish(record.Row, record.LastRow, record.Player.Row);
}

static void SetMixer(MOD_RECORD &record)
{
    record.Mixer.Interpolation =
        static_cast<MOD_INTERPOLATION>(std::min<uint8_t>(record.Interpolation, MOD_SINC));
    record.Mixer.Separation = std::min<uint8_t>(record.Separation, 100);
}

SOUND_FILLED MOD_Fill(MOD_HEADER &header, const SOUND_REFILL &refill)
{
    auto &record = static_cast<MOD_RECORD &>(header);
    const uint32_t bytes = MOD_FrameBytes(FormatOf(record));
    if (bytes == 0)
        return {};
    if (header.SongPosition != record.LastPosition || header.Row != record.LastRow)
        StartOver(record);
    SetMixer(record);
    const uint64_t frames = refill.Buffer.size() / bytes;
    const uint64_t missing = Render(record, frames, refill.Buffer.data());
    PublishBoth(record);
    const auto length = static_cast<uint32_t>((frames - missing) * bytes);
    return {length, length};
}

uint64_t MOD_Seek(MOD_HEADER &header, FILE *, uint64_t frame)
{
    auto &record = static_cast<MOD_RECORD &>(header);
    const uint32_t bytes = MOD_FrameBytes(FormatOf(record));
    if (bytes == 0)
        return 0;
    // The last part is rendered, so that everything that decays has the right value.
    const uint64_t rendered = std::min<uint64_t>(frame, header.SamplingRate / MOD_SettleRate + 1);
    Render(record, frame - rendered, nullptr);
    SetMixer(record);
    BYTES_BUFFER block(MOD_Block * bytes);
    for (uint64_t left = rendered; left != 0;) {
        const uint64_t count = std::min<uint64_t>(left, MOD_Block);
        if (Render(record, count, block.data()) != 0)
            break;
        left -= count;
    }
    PublishBoth(record);
    return record.Frames;
}

std::optional<MOD_VIEW> MOD_GetView(const MOD_HEADER &header, uint64_t frame)
{
    const auto &record = static_cast<const MOD_RECORD &>(header);
    const uint32_t ticks = record.Ticks;
    for (uint32_t back = 1; back <= std::min<uint32_t>(ticks, MOD_Views); back++)
        if (const auto view = ReadView(record.Shown[(ticks - back) % MOD_Views]))
            if (view->Frame <= frame && frame - view->Frame < view->Frames)
                return view;
    return {};
}

void MOD_Decoding(uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(MOD_GetHeader(n), MOD_Fill, nullptr, buffer, length);
}

void MOD_StartOver(MOD_HEADER &header)
{
    header.SongPosition = 0;
    header.Row = 0;
    StartOver(static_cast<MOD_RECORD &>(header));  // even if the next row is the first one already
}

void MOD_Destroy()
{
    Sound_Destroy(MOD_Header);
}

MOD_HEADER *MOD_GetHeader(uint8_t n)
{
    return Sound_GetHeader(MOD_Header, n);
}

void MOD_SetSoundNumber(uint8_t n)
{
    MOD_SoundNumber = n;
}
