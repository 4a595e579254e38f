// The sound formats, one row each, and their detection by content.
//
// A module X offers X_Load, X_Decoding, X_Destroy, X_GetHeader and X_SetSoundNumber over a table
// X_Header of 32 records, of which X_SoundNumber counts the used ones; X_Fill decodes by record. To
// add one: its number here, and its include and its row in audio/audio_module.cpp.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "audio/sound_file.h"

#pragma GCC visibility push(default)

enum AUDIO_TYPE : uint8_t {
    AUDIO_NONE = 0,  // nothing was detected yet
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

/// The start of a file; what it lacks is 0, and so are the bytes after the block.
using AUDIO_HEAD = std::array<uint8_t, Audio_HeadBytes + 3>;

/// What a header record says of its sound.
struct AUDIO_FACTS {
    uint32_t Channels, SamplingRate, BitsPerSample;
    uint32_t DataStart;  // first sample byte of the file
};

/// Operations by record take any of the module's, on any thread.
struct AUDIO_MODULE {
    uint8_t Type;      // AUDIO_TYPE
    const char *Name;  // for a person
    /// Place in the order of detection, in which the first that succeeds wins; 0: nothing is
    /// detected as this.
    uint8_t Rank = 0;
    bool (*Detected)(const AUDIO_HEAD &head) = nullptr;

    /// Fills the record of the current sound number and moves that on, or leaves it where it is
    /// when the file cannot be read or all records are used. Without: nothing decodes this type.
    void (*Load)(const char *path) = nullptr;
    /// Decodes from where refill.File stands on, and leaves it where the next call goes on. The
    /// file is null for synthesised sound. Length is 0 at the end of the data.
    SOUND_FILLED (*Fill)(void *record, const SOUND_REFILL &refill) = nullptr;
    /// Empties this thread's table.
    void (*Destroy)() = nullptr;
    std::shared_ptr<void> (*Record)(uint8_t n) = nullptr;
    AUDIO_FACTS (*Facts)(const void *record) = nullptr;
    uint8_t (*GetSoundNumber)() = nullptr;
    void (*SetSoundNumber)(uint8_t n) = nullptr;

    /// Has the next refill start as the first one did, on the thread that refills. Null where
    /// nothing but the position in the file tells them apart.
    void (*StartOver)(void *record) = nullptr;
    /// Has the next refill start at `frame` of the sound, or at one before it that is near: which,
    /// it returns. What is handed out from there on is as without the leap. Past the end it is the
    /// end. The record has started over. Null: refills lead there.
    uint64_t (*Seek)(void *record, FILE *file, uint64_t frame) = nullptr;
    /// Only for synthesised sound: the output format of a record.
    void (*SetOutput)(void *record, uint8_t channels, uint32_t hz, uint8_t bits) = nullptr;

    /// Refills read the file in small pieces, which a buffer of the stream's own makes cheap. Where
    /// a read fills much of a refill that buffer would cost a second read and a copy.
    bool SmallReads = false;
};

/// The modules by AUDIO_TYPE.
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

/// Format of a file (AUDIO_TYPE) from its first Audio_HeadBytes bytes, also put in Audio_Type. A
/// file that cannot be read leaves that as it was, and a reason.
uint8_t Audio_Check(const char *path);
/// The same for bytes in memory.
uint8_t Audio_CheckBytes(std::span<const uint8_t> file);

#pragma GCC visibility pop
