// A sound's passes, converted to the format that a sound card or a file needs.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tools/player/samples.h"
#include "tools/player/sound.h"

struct PLAYER_OUTPUT {
    const PLAYER_SOUND *Sound = nullptr;
    uint32_t Passes = 1;  // left to play, including the current one; 0: for ever
    SAMPLES_FORMAT To;
    std::optional<SAMPLES_RESAMPLER> Resampler = {};
    std::vector<uint8_t> Taken = {}, Ready = {};  // as decoded; converted, from Used on
    size_t Used = 0;
    bool Drained = false;  // nothing follows what is ready
};

/// Starts so many passes of the sound, in another format or in its own, where samples are
/// unchanged.
void Output_Start(PLAYER_OUTPUT &output, const PLAYER_SOUND &sound, uint32_t passes,
                  const SAMPLES_FORMAT &to);

/// Fills `out` with whole frames, fewer if Player_Take gives fewer. Returns the bytes.
size_t Output_Take(PLAYER_OUTPUT &output, std::span<uint8_t> out);

/// Whether the last byte has been taken.
bool Output_HasEnded(const PLAYER_OUTPUT &output);

/// Continues at `seconds` of the sound.
void Output_Seek(PLAYER_OUTPUT &output, double seconds);
