// MPEG-1, MPEG-2 and MPEG-2.5 audio Layer III: from a frame's bits to samples. ISO/IEC 11172-3 and
// 13818-3; the rates below 16000 Hz follow 13818-3 by custom. Finding frames is audio/mp3.h's.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "audio/mp3_bits.h"
#include "audio/mp3_filter.h"
#include "audio/mp3_frame.h"

#pragma GCC visibility push(default)

/// The bytes of earlier frames that the next one may use.
constexpr size_t MP3_MaxReservoir = 512;
constexpr size_t MP3_Spare = 64;  // zeros after them: readers run past the end

/// What a decoder keeps of a stream; zero at the start.
struct MP3_LAYER3 {
    MP3_BITS Bits;         // of the current frame, after its header
    size_t ReservoirSize;  // bytes at the start of Main that came with earlier frames
    size_t MainSize;       // bytes of Main, with the current frame's
    ptrdiff_t MainIndex;   // bit of Main past the last granule; negative: before all that is there
    std::array<uint8_t, MP3_MaxReservoir + MP3_MaxFreeFrame + MP3_Spare> Main;
    std::array<MP3_FILTER, 2> Filter;  // by channel
};

/// What a frame's header says to the decoder.
struct MP3_FORMAT {
    uint8_t Rate;           // 0 to 8: 44100 48000 32000, 22050 24000 16000, 11025 12000 8000 Hz
    uint8_t Channels;       // 1 or 2
    bool Intensity, Sides;  // joint stereo: intensity, mid and side
    bool Careful = false;   // what is damaged is silent, and never loud
    bool Damaged = false;   // it is known to be
};

/// Rates from this one on have the syntax of lower sampling frequencies and one granule a frame.
constexpr uint8_t MP3_FirstLowRate = 3;

/// Builds the tables of powers, which all decoders share: before the first of them runs. Later
/// calls find them built; any thread may call.
void MP3_BuildTables();

/// Reads side information at layer3.Bits and decodes its granules into the filters' samples, ready
/// for MP3_Synthesis. Returns the number of slots: 36, or 18 at low rates. Granules whose
/// bits came before all that is there are silent. -1 when the side information cannot be; where it
/// is to be careful such a frame is silent, and so is one that lacks bits or exceeds full scale
/// by far.
int MP3_DecodeGranules(MP3_LAYER3 &layer3, const MP3_FORMAT &format);

/// After each frame: keeps what the granules left unread, the last MP3_MaxReservoir bytes of it,
/// for the next frame. When decoding `failed` or went past the end: of the whole frame.
void MP3_KeepReservoir(MP3_LAYER3 &layer3, bool failed);

/// The same by the standard: keeps the last MP3_MaxReservoir bytes of main data, read or not, but
/// none of a damaged frame, for what the next one takes of them would sound like noise.
void MP3_KeepMainData(MP3_LAYER3 &layer3);

#pragma GCC visibility pop
