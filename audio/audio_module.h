// The sound formats, one row each, and their detection by content.
//
// A module X offers X_Load, X_Decoding, X_Destroy, X_GetHeader and X_SetSoundNumber over a table
// X_Header of 32 records, of which X_SoundNumber counts the used ones; X_Fill decodes by record. To
// add a module: give it a number here, and its include and row in audio/audio_module.cpp.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "audio/sound_file.h"

#pragma GCC visibility push(default)

enum AUDIO_TYPE : uint8_t {
    AUDIO_NONE = 0,  // nothing detected yet
    AUDIO_RAW = 1,   // unknown: samples in the engine's own settings
    AUDIO_WAV = 2,
    AUDIO_MOD = 3,
    AUDIO_MP3 = 4,
    AUDIO_VOC = 5,
    AUDIO_AU = 6,
    AUDIO_IFF = 7,  // 8SVX and 16SV
    AUDIO_AIFF = 8,
    AUDIO_TYPES  // their number
};

/// Bytes that Audio_Check looks at.
constexpr uint32_t Audio_HeadBytes = 8192;

/// The start of a file, zero-filled; zeros follow the block, too.
using AUDIO_HEAD = std::array<uint8_t, Audio_HeadBytes + 3>;

/// A header record's facts about its sound.
struct AUDIO_FACTS {
    uint32_t Channels, SamplingRate, BitsPerSample;
    uint32_t DataStart;  // first sample byte of the file
};

/// Operations by record accept any record of the module, on any thread.
struct AUDIO_MODULE {
    uint8_t Type;      // AUDIO_TYPE
    const char *Name;  // for people
    /// Rank in detection: the first match wins; 0: never detected.
    uint8_t Rank = 0;
    bool (*Detected)(const AUDIO_HEAD &head) = nullptr;

    /// Fills the record of the current sound number and increments that, or leaves it if the file
    /// cannot be read or all records are used. Null: nothing decodes this type.
    void (*Load)(const char *path) = nullptr;
    /// Decodes from the position of refill.File and leaves it where the next call continues. The
    /// file is null for synthesised sound. Length is 0 at the end of the data.
    SOUND_FILLED (*Fill)(void *record, const SOUND_REFILL &refill) = nullptr;
    /// Empties this thread's table.
    void (*Destroy)() = nullptr;
    std::shared_ptr<void> (*Record)(uint8_t n) = nullptr;
    AUDIO_FACTS (*Facts)(const void *record) = nullptr;
    uint8_t (*GetSoundNumber)() = nullptr;
    void (*SetSoundNumber)(uint8_t n) = nullptr;

    /// Has the next refill start like the first one, on the thread that refills. Null if the
    /// position in the file is all that tells them apart.
    void (*StartOver)(void *record) = nullptr;
    /// Has the next refill start at `frame` of the sound or shortly before it, and returns the
    /// frame. The output from there is the same as without the seek. Past the end means the end.
    /// The record has started over. Null: refilling leads there.
    uint64_t (*Seek)(void *record, FILE *file, uint64_t frame) = nullptr;
    /// Only for synthesised sound: the output format of a record.
    void (*SetOutput)(void *record, uint8_t channels, uint32_t hz, uint8_t bits) = nullptr;

    /// Refills read the file in small pieces, so that the stream gets a buffer of its own. Not for
    /// large reads, to which that buffer would add a copy.
    bool SmallReads = false;
};

/// The modules, indexed by AUDIO_TYPE.
extern const std::array<AUDIO_MODULE, AUDIO_TYPES> Audio_Modules;

/// Result of this thread's last Audio_Check.
extern constinit thread_local uint8_t Audio_Type;

/// The MPEG frame header that Audio_Check examined last. ISO/IEC 11172-3, 2.4.2.3.
struct AUDIO_MP3FRAME {
    uint8_t Version, Layer;  // as coded: 3 is MPEG-1, 2 MPEG-2, 0 MPEG-2.5; 1 is Layer III
    uint8_t Protection;      // 1: a CRC follows
    uint8_t BitRate, SamplingRate, AdjustedSamplingRate;  // indices
    uint8_t Padding, Private, ChannelMode, ModeExtension, Copyright, Original, Emphasis;
    uint16_t Length;  // bytes
};
struct AUDIO_MP3DETECT {
    uint16_t Channels;
    uint32_t SamplingRate, BitRate;  // Hz, bit/s
};
extern constinit thread_local AUDIO_MP3FRAME Audio_MP3Frame;
extern constinit thread_local AUDIO_MP3DETECT Audio_MP3Detect;

/// Detects the format of a file (AUDIO_TYPE) from its first Audio_HeadBytes bytes and also stores
/// it in Audio_Type. A file that cannot be read leaves that unchanged, and a reason.
uint8_t Audio_Check(const char *path);
/// The same for bytes in memory.
uint8_t Audio_CheckBytes(std::span<const uint8_t> file);

#pragma GCC visibility pop
