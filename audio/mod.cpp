#include "audio/mod.h"

#include <algorithm>
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

namespace
{

// What belongs to a header.
struct MOD_RECORD : MOD_HEADER {
    MOD_SONG Song;
    uint32_t Rows;  // that are played of it
    MOD_PLAYER Player;
    MOD_MIXER Mixer;
    uint64_t TickFrames;             // left of this tick
    uint64_t TickRest;               // parts of a frame owed to later ticks
    uint16_t LastPosition, LastRow;  // as the header got them last
};

}  // namespace

static void StartOver(MOD_RECORD &record)
{
    MOD_Start(record.Player, record.Song, record.Rows);
    record.Mixer = {};
    record.TickFrames = record.TickRest = 0;
    record.LastPosition = record.SongPosition;
    record.LastRow = record.Row;
}

// Gives the header where the song stands, unless another thread has set it meanwhile: the next call
// then finds the difference.
static void Publish(std::atomic<uint16_t> &shown, uint16_t &last, uint16_t now)
{
    shown.compare_exchange_strong(last, now);
    last = now;
}

// A tick's frames: rate x 2.5 s / tempo. What is left over goes into later ones, or by the formats'
// rules is lost, as in today's players.
static bool NextTick(MOD_RECORD &record)
{
    if (!MOD_Tick(record.Player))
        return false;
    const uint32_t parts = record.Player.Tempo * 2u;
    record.TickRest += uint64_t{record.SamplingRate} * 5;
    record.TickFrames = record.TickRest / parts;
    record.TickRest = record.Rules == AUDIO_RULES_FORMAT ? 0 : record.TickRest % parts;
    record.Mixer.Filter = record.Player.Filter;
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

SOUND_FILLED MOD_Fill(MOD_HEADER &header, const SOUND_REFILL &refill)
{
    auto &record = static_cast<MOD_RECORD &>(header);
    const MOD_FORMAT format = {header.Channels, header.SamplingRate, header.BitsPerSample};
    const uint32_t bytes = MOD_FrameBytes(format);
    if (bytes == 0)
        return {};
    if (header.SongPosition != record.LastPosition || header.Row != record.LastRow)
        StartOver(record);
    record.Mixer.Interpolation =
        static_cast<MOD_INTERPOLATION>(std::min<uint8_t>(header.Interpolation, MOD_SINC));
    record.Mixer.Separation = std::min<uint8_t>(header.Separation, 100);
    uint8_t *out = refill.Buffer.data();
    uint64_t frames = refill.Buffer.size() / bytes;
    while (frames != 0) {
        if (record.TickFrames == 0) {
            if (!NextTick(record))
                break;
            continue;
        }
        const auto count =
            static_cast<size_t>(std::min({frames, record.TickFrames, uint64_t{MOD_Block}}));
        MOD_Mix(record.Mixer, record.Player.Voices, format, count, out);
        out += count * bytes;
        frames -= count;
        record.TickFrames -= count;
    }
    Publish(record.SongPosition, record.LastPosition,
            record.Player.AtEnd ? record.Song.Length : record.Player.Position);
    Publish(record.Row, record.LastRow, record.Player.Row);
    const auto length = static_cast<uint32_t>(out - refill.Buffer.data());
    return {length, length};
}

void MOD_Decoding(uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(MOD_GetHeader(n), MOD_Fill, nullptr, buffer, length);
}

void MOD_StartOver(MOD_HEADER &header)
{
    header.SongPosition = 0;
    header.Row = 0;
    StartOver(
        static_cast<MOD_RECORD &>(header));  // also where the next row is the first one anyway
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
