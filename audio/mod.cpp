#include "audio/mod.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "audio/mod_mixer.h"
#include "audio/mod_replay.h"
#include "audio/mod_song.h"
#include "extra/bytes.h"

std::array<MOD_HEADER *, 32> MOD_Header;
uint8_t MOD_SoundNumber;

// What stands behind a header.
struct MOD_RECORD {
    MOD_HEADER Header;
    MOD_SONG Song;
    uint32_t Rows;  // that are played of it
    MOD_PLAYER Player;
    MOD_MIXER Mixer;
    uint64_t TickFrames;         // left of this tick
    uint64_t TickRest;           // parts of a frame owed to later ticks
    uint16_t SongPosition, Row;  // as the header got them last
};

static std::array<std::unique_ptr<MOD_RECORD>, 32> MOD_Records;

static void StartOver(MOD_RECORD &record)
{
    MOD_Start(record.Player, record.Song, record.Rows);
    record.Mixer = {};
    record.TickFrames = record.TickRest = 0;
    record.SongPosition = record.Header.SongPosition;
    record.Row = record.Header.Row;
}

// Tells the header where the song stands, unless another thread has set it meanwhile: the next call
// then finds the difference.
static void Publish(std::atomic<uint16_t> &shown, uint16_t &last, uint16_t now)
{
    shown.compare_exchange_strong(last, now);
    last = now;
}

// A tick's frames: rate x 2.5 s / tempo, what is left over goes into later ones.
static bool NextTick(MOD_RECORD &record)
{
    if (!MOD_Tick(record.Player))
        return false;
    const uint32_t parts = record.Player.Tempo * 2u;
    record.TickRest += uint64_t{record.Header.SamplingRate} * 5;
    record.TickFrames = record.TickRest / parts;
    record.TickRest %= parts;
    record.Mixer.Filter = record.Player.Filter;
    return true;
}

void MOD_Load(const char *path)
{
    if (MOD_SoundNumber >= MOD_Records.size())
        return;
    std::optional<MOD_SONG> song = MOD_ReadSong(Bytes_LoadFile(path));
    if (!song)
        return;
    auto record = std::make_unique<MOD_RECORD>();
    MOD_HEADER &header = record->Header;
    header.Channels = 2;
    header.SamplingRate = 44100;
    header.BitsPerSample = 16;
    header.Title = song->Title;
    header.SongChannels = song->Channels;
    header.SongLength = song->Length;
    header.SampleCount = song->SampleCount;
    for (size_t i = 0; i < header.SampleNames.size(); i++)
        header.SampleNames[i] = song->Samples[i + 1].Name;
    record->Song = std::move(*song);
    const MOD_LENGTH length = MOD_Measure(record->Song);
    record->Rows = length.Rows;
    header.Milliseconds = length.Milliseconds;
    StartOver(*record);
    MOD_Header[MOD_SoundNumber] = &header;
    MOD_Records[MOD_SoundNumber++] = std::move(record);
}

void MOD_Decoding(uint8_t *buffer, uint32_t *length, uint8_t n)
{
    const uint32_t room = std::exchange(*length, 0);
    if (!MOD_GetHeader(n))
        return;
    MOD_RECORD &record = *MOD_Records[n];
    const MOD_HEADER &header = record.Header;
    const MOD_FORMAT format = {header.Channels, header.SamplingRate, header.BitsPerSample};
    const uint32_t bytes = MOD_FrameBytes(format);
    if (bytes == 0)
        return;
    if (header.SongPosition != record.SongPosition || header.Row != record.Row)
        StartOver(record);
    uint64_t frames = room / bytes;
    while (frames != 0) {
        if (record.TickFrames == 0) {
            if (!NextTick(record))
                break;
            continue;
        }
        const auto count =
            static_cast<size_t>(std::min({frames, record.TickFrames, uint64_t{MOD_Block}}));
        MOD_Mix(record.Mixer, record.Player.Voices, format, count, buffer + *length);
        *length += static_cast<uint32_t>(count) * bytes;
        frames -= count;
        record.TickFrames -= count;
    }
    Publish(record.Header.SongPosition, record.SongPosition,
            record.Player.AtEnd ? record.Song.Length : record.Player.Position);
    Publish(record.Header.Row, record.Row, record.Player.Row);
}

void MOD_StartOver(uint8_t n)
{
    MOD_HEADER *header = MOD_GetHeader(n);
    if (!header)
        return;
    header->SongPosition = 0;
    header->Row = 0;
    StartOver(*MOD_Records[n]);  // also where the next row is the first one anyway
}

void MOD_Destroy()
{
    MOD_Header.fill(nullptr);
    for (auto &record : MOD_Records)
        record.reset();
}

MOD_HEADER *MOD_GetHeader(uint8_t n)
{
    return n < MOD_Header.size() ? MOD_Header[n] : nullptr;
}

void MOD_SetSoundNumber(uint8_t n)
{
    MOD_SoundNumber = n;
}
