// MPEG-1, MPEG-2 and MPEG-2.5 audio Layer III: from a frame's bits to samples. ISO/IEC 11172-3 and
// 13818-3; the rates below 16000 Hz follow 13818-3 by convention. audio/mp3.h finds the frames.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "audio/mp3_bits.h"
#include "audio/mp3_filter.h"
#include "audio/mp3_frame.h"

#pragma GCC visibility push(default)

/// The bit reservoir: bytes of earlier frames that the next frame may use.
constexpr size_t MP3_MaxReservoir = 512;
constexpr size_t MP3_Spare = 64;  // zeros after it, since readers run past the end

/// A decoder's state between frames; zero at the start.
struct MP3_LAYER3 {
    MP3_BITS Bits;         // of the current frame, after its header
    size_t ReservoirSize;  // bytes at the start of Main that came with earlier frames
    size_t MainSize;       // bytes of Main, with the current frame's
    ptrdiff_t MainIndex;   // bit of Main after the last granule; negative: before its first byte
    std::array<uint8_t, MP3_MaxReservoir + MP3_MaxFreeFrame + MP3_Spare> Main;
    std::array<MP3_FILTER, 2> Filter;  // by channel
};

/// What a frame's header tells the decoder.
struct MP3_FORMAT {
    uint8_t Rate;           // 0 to 8: 44100 48000 32000, 22050 24000 16000, 11025 12000 8000 Hz
    uint8_t Channels;       // 1 or 2
    bool Intensity, Sides;  // joint stereo: intensity, mid and side
    bool Careful = false;   // damage is silenced, and never loud
    bool Damaged = false;   // known to be damaged
};

/// Rates from this one on have the low-sampling-frequency syntax and one granule per frame.
constexpr uint8_t MP3_FirstLowRate = 3;

/// Builds the tables of powers that all decoders share; to be called before the first decoding.
/// Later calls do nothing; any thread may call.
void MP3_BuildTables();

/// Reads side information at layer3.Bits and decodes its granules into the filters' samples, ready
/// for MP3_Synthesis. Returns the number of slots: 36, or 18 at low rates. Granules whose bits
/// precede everything held are silent. Returns -1 if the side information is invalid; with
/// format.Careful such a frame is silent instead, and so is one that lacks bits or exceeds full
/// scale by far.
int MP3_DecodeGranules(MP3_LAYER3 &layer3, const MP3_FORMAT &format);

/// After each frame: keeps what the granules left unread for the next frame, at most the last
/// MP3_MaxReservoir bytes. If decoding `failed` or read past the end: of the whole frame.
void MP3_KeepReservoir(MP3_LAYER3 &layer3, bool failed);

/// The same by the standard: keeps the last MP3_MaxReservoir bytes of main data, read or not, but
/// none of a damaged frame, which would decode to noise in the next one.
void MP3_KeepMainData(MP3_LAYER3 &layer3);

#pragma GCC visibility pop
