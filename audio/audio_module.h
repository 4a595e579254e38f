// What the engine and the format modules share: the table of modules, and the opening of files.
//
// A module X offers X_Load, X_Decoding, X_Destroy, X_GetHeader and X_SetSoundNumber over a table
// X_Header of 32 records, of which X_SoundNumber counts the used ones. To add one: its include and
// its line in audio/audio_module.cpp.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "audio/audio.h"

/// What a header record says of its sound.
struct AUDIO_FACTS {
    uint32_t Channels, SamplingRate, BitsPerSample;
    uint32_t DataStart;  // first sample byte of the file
};

struct AUDIO_MODULE {
    /// Fills the record *SoundNumber and moves that on, or leaves it where it is when the file
    /// cannot be read or all records are used.
    void (*Load)(const char *path) = nullptr;
    /// Writes at most *length bytes to `buffer` and sets *length to the bytes written, 0 at the end
    /// of the data. `file` stands at the track's read position; where it is left the next call goes
    /// on. It is null for synthesised sound.
    void (*Decoding)(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n) = nullptr;
    /// Frees all records.
    void (*Destroy)() = nullptr;
    /// Facts of a record that was filled.
    AUDIO_FACTS (*Facts)(uint8_t n) = nullptr;
    const uint8_t *SoundNumber = nullptr;
    /// Sets it. A record that the next load finds there goes.
    void (*SetSoundNumber)(uint8_t n) = nullptr;

    /// Only for synthesised sound: the output format of a record, set behind Load; and back to the
    /// song's start, on the thread that refills.
    void (*SetOutput)(uint8_t n, uint8_t channels, uint32_t hz, uint8_t bits) = nullptr;
    void (*StartOver)(uint8_t n) = nullptr;

    /// Decoding reads the file in small pieces, which a buffer of the stream's own makes cheap.
    /// Where a read fills much of a refill that buffer would cost a second read and a copy.
    bool SmallReads = false;
};

/// The modules by AUDIO_TYPE. Without Load: nothing decodes this type.
extern std::array<AUDIO_MODULE, 9> Audio_Modules;

/// AUDIO_MODULE's Facts from a module's GetHeader. Records without DataStart start at 0.
template <auto GetHeader>
AUDIO_FACTS Audio_FactsOf(uint8_t n)
{
    const auto *header = GetHeader(n);
    AUDIO_FACTS facts = {header->Channels, header->SamplingRate, header->BitsPerSample, 0};
    if constexpr (requires { header->DataStart; })
        facts.DataStart = header->DataStart;
    return facts;
}

/// Bytes of one of the track's sample frames, at least 1.
inline uint32_t Audio_FrameBytes(const AudioTrack &track)
{
    return std::max(track.BitsPerSample / 8u * track.Channels, 1u);
}

struct AUDIO_CLOSE {
    void operator()(FILE *file) const
    {
        std::fclose(file);
    }
};
using AUDIO_FILE = std::unique_ptr<FILE, AUDIO_CLOSE>;

/// Opens a regular file for reading and tells its size. Null, with size 0, for anything else:
/// directories, pipes (which would wait), and files of 4 GiB and more, since positions are 32 bits.
AUDIO_FILE Audio_OpenFile(const char *path, uint32_t *size);
