// Tracker modules as stored: title, samples, the order of patterns, their cells.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#pragma GCC visibility push(default)

constexpr size_t MOD_Rows = 64;
constexpr size_t MOD_Orders = 128;
constexpr size_t MOD_MaxSamples = 31;
constexpr size_t MOD_MaxChannels = 99;

/// One channel of one row. A period or a sample of 0 means none.
struct MOD_CELL {
    uint16_t Period;  // 12 bits
    uint8_t Sample;
    uint8_t Command;    // 0 to 15
    uint8_t Parameter;  // both digits
    bool operator==(const MOD_CELL &) const = default;
};

struct MOD_SAMPLE {
    std::array<char, 23> Name;  // NUL at its end
    std::vector<int8_t> Data;   // as far as the file has it
    uint8_t Finetune;           // 0 to 7, then -8 to -1 as 8 to 15
    uint8_t Volume;             // 0 to 64
    uint32_t LoopStart;         // bytes, within Data
    uint32_t LoopLength;        // bytes, within Data after LoopStart; up to 2 means no loop
};

struct MOD_SONG {
    std::array<char, 21> Title;  // NUL at its end
    uint8_t Channels;            // 1 to 99
    uint8_t SampleCount;         // 15 or 31
    uint8_t Length;              // orders played, 1 to 128
    bool WideRange;              // it has notes outside the original player's three octaves
    bool FormatRules;            // read by the formats' rules
    bool Foreign;                // by them: written by another editor than the original
    std::array<uint8_t, MOD_Orders> Orders;
    std::array<MOD_SAMPLE, MOD_MaxSamples + 1> Samples;  // from 1; 0 is an empty one
    std::vector<MOD_CELL> Cells;                         // patterns x rows x channels
};

/// Where a module with 31 samples has its 4-byte signature.
constexpr size_t MOD_SignatureAt = 1080;

/// Whether detection accepts these bytes as a module's signature, by the framework's rules: most of
/// the signatures that MOD_ReadSong knows, or what well-known modules with 15 samples have there
/// instead.
bool MOD_IsSignature(std::span<const uint8_t, 4> bytes);

/// The same by the formats' rules, from the first 1084 or more bytes of a file: a signature, or a
/// header with 15 samples and patterns that are plausible throughout.
bool MOD_IsModule(std::span<const uint8_t> head);

/// Reads a module by Audio_Rules: 31 samples and a signature, or 15 samples and none. What a
/// damaged file lacks is empty. Nothing, with a reason, if the file is not a module or too short to
/// hold a row.
std::optional<MOD_SONG> MOD_ReadSong(std::span<const uint8_t> file);

/// The cell of a channel below Channels; an empty one if the file has no such pattern.
MOD_CELL MOD_GetCell(const MOD_SONG &song, size_t pattern, size_t row, size_t channel);

#pragma GCC visibility pop
