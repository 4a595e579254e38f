// Sound as files store it by the formats' own rules: frames of integers of any width and byte
// order, of floating point (IEEE 754) or of G.711, with any number of channels; and their way into
// a track's buffer.
#pragma once

#include <cstdint>

#include "audio/sound_file.h"

#pragma GCC visibility push(default)

enum SOUND_CODING : uint8_t {
    SOUND_SIGNED,
    SOUND_UNSIGNED,  // the middle is the highest bit alone
    SOUND_FLOAT,     // from -1 to 1; beyond it is clamped
    SOUND_ALAW,
    SOUND_ULAW,
};

/// How a file stores frames. Integers are left-justified in their bytes.
struct SOUND_FRAMES {
    SOUND_CODING Coding = SOUND_SIGNED;
    uint32_t Bytes = 0;  // of a sample: 1 to 8, floating point 4 or 8; 0: nothing is decoded
    bool Big = false;    // big-endian
    uint32_t Channels = 0;
    uint32_t Speakers = 0;  // WAVEFORMATEXTENSIBLE's channel mask; 0: the usual ones
    bool Mixed = false;     // to two channels
};

/// Files of more channels are mixed down to two; what a load finds here holds for its record.
constexpr uint32_t Sound_MaxChannels = 32;
extern constinit thread_local uint32_t Sound_MixAbove;

/// What a buffer holds: integers as they are up to 32 bits, of which 8 are unsigned and the rest
/// signed and little-endian; floating point as 32 bits, G.711 as 16.
uint16_t Sound_BitsOf(const SOUND_FRAMES &frames);
uint16_t Sound_ChannelsOf(const SOUND_FRAMES &frames);

/// Bytes that a frame has in the file.
uint32_t Sound_StoredBytes(const SOUND_FRAMES &frames);

/// Completes what a header says, for decoding. Leaves a reason, and nothing to decode, where
/// samples or channels are beyond the limits.
void Sound_PrepareFrames(SOUND_FRAMES &frames);

/// Fills the buffer with whole frames, at most refill.Available bytes of the file. Two channels are
/// mixed from many by the weights of ITU-R BS.775 (front 1; centre, sides and rear 0.71; no bass
/// channel), scaled so that they never pass full level.
SOUND_FILLED Sound_FillFrames(const SOUND_FRAMES &frames, const SOUND_REFILL &refill);

/// The bytes from the position of `file` on up to `end`.
uint64_t Sound_Remaining(FILE *file, uint64_t end);

#pragma GCC visibility pop
