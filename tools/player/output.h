// A sound's passes in the format that a sound card or a file wants.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tools/player/samples.h"
#include "tools/player/sound.h"

struct PLAYER_OUTPUT {
    const PLAYER_SOUND *Sound = nullptr;
    uint32_t Passes = 1;  // left, with the one that plays; 0: for ever
    SAMPLES_FORMAT To;
    std::optional<SAMPLES_RESAMPLER> Resampler = {};
    std::vector<uint8_t> Taken = {}, Ready = {};  // of the sound; and of To, from Used on
    size_t Used = 0;
    bool Drained = false;  // nothing comes after what is ready
};

/// Has the sound start for so many passes in another format, or in its own, where samples stay as
/// they are.
void Output_Start(PLAYER_OUTPUT &output, const PLAYER_SOUND &sound, uint32_t passes,
                  const SAMPLES_FORMAT &to);

/// Fills `out` with whole frames, fewer where Player_Take gives fewer. Returns the bytes.
size_t Output_Take(PLAYER_OUTPUT &output, std::span<uint8_t> out);

/// Whether the last byte has been taken.
bool Output_HasEnded(const PLAYER_OUTPUT &output);

/// Goes on at `seconds` of the sound.
void Output_Seek(PLAYER_OUTPUT &output, double seconds);
