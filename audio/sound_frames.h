// Sound as files store it by the formats' own rules: frames of integers of any width and byte
// order, of floating point (IEEE 754) or of G.711, with any number of channels; and its conversion
// to a track's buffer.
#pragma once

#include <cstdint>

#include "audio/sound_file.h"

#pragma GCC visibility push(default)

enum SOUND_CODING : uint8_t {
    SOUND_SIGNED,
    SOUND_UNSIGNED,  // only the highest bit set is the middle
    SOUND_FLOAT,     // from -1 to 1; beyond it is clamped, unless kept
    SOUND_ALAW,
    SOUND_ULAW,
};

/// How a file stores frames. Integers are left-justified in their bytes.
struct SOUND_FRAMES {
    SOUND_CODING Coding = SOUND_SIGNED;
    uint32_t Bytes = 0;  // per sample: 1 to 8, floating point 4 or 8; 0: nothing is decoded
    bool Big = false;    // big-endian
    uint32_t Channels = 0;
    uint32_t Speakers = 0;  // WAVEFORMATEXTENSIBLE's channel mask; 0: the usual ones
    bool Mixed = false;     // down to two channels
    bool Real = false;      // the buffer holds floating point
    SOUND_CONVERSION Swap16 = Sound_Swap16;  // for big-endian 16 bits
};

/// Files with more channels than this are mixed down to two; the value at the load holds for the
/// record.
constexpr uint32_t Sound_MaxChannels = 32;
extern constinit thread_local uint32_t Sound_MixAbove;

/// Whether floating point that is not mixed stays floating point, of 32 bits, so that what exceeds
/// full scale is not clamped; the value at the load holds for the record.
extern constinit thread_local bool Sound_KeepReal;

/// Bits and channels in a buffer: integers of up to 32 bits as they are (8 bits unsigned,
/// others signed and little-endian), floating point as 32 bits, G.711 as 16.
uint16_t Sound_BitsOf(const SOUND_FRAMES &frames);
uint16_t Sound_ChannelsOf(const SOUND_FRAMES &frames);

/// Bytes of a frame in the file.
uint32_t Sound_StoredBytes(const SOUND_FRAMES &frames);

/// Completes what a header says, for decoding. Leaves a reason, and nothing to decode, if samples
/// or channels exceed the limits.
void Sound_PrepareFrames(SOUND_FRAMES &frames);

/// Fills the buffer with whole frames, from at most refill.Available bytes of the file. More than
/// two channels are mixed to two by the weights of ITU-R BS.775 (front 1; centre, sides and rear
/// 0.71; no bass channel), scaled so that the sum never exceeds full level.
SOUND_FILLED Sound_FillFrames(const SOUND_FRAMES &frames, const SOUND_REFILL &refill);

/// The bytes from the position of `file` to `end`.
uint64_t Sound_Remaining(FILE *file, uint64_t end);

#pragma GCC visibility pop
