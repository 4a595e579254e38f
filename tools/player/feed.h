// What the sound card gets of a track: buffer after buffer without a gap, pass after pass.
//
// The engine's own callback plays one buffer a call and fills up with silence what a refill did not
// give. Here the next buffer follows in the same call, so that frames that do not divide a buffer
// are no matter; and a sound that fits one buffer is refilled all the same, since what its file
// unpacks to may be longer.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "audio/audio.h"

struct PLAYER_FEED {
    AudioTrack *Track;
    uint32_t FrameBytes;             // of the output
    uint64_t Limit;                  // bytes of a pass, where the refills would go on
    uint32_t Passes;                 // left, with this one; 0: for ever
    std::atomic<uint64_t> Position;  // bytes of this pass that were taken
    size_t Used;                     // bytes of the buffer that is handed out
    bool Last;                       // which is the last of the pass
};

/// Makes the track current and starts its first pass; no stream may be running. Track, FrameBytes,
/// Limit and Passes are set before.
void Feed_Start(PLAYER_FEED &feed);

/// Fills `out`, whole frames, with what comes next. Returns the bytes, fewer at the end only.
size_t Feed_Take(PLAYER_FEED &feed, std::span<uint8_t> out);
