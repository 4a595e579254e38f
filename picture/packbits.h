// Run-length coding with a signed count: the Interchange File Format's ByteRun1 (EA IFF 85, "ILBM",
// appendix C), which TIFF calls PackBits (TIFF 6.0, section 9).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Maximum bytes per packed byte: two bytes hold a run of 128.
constexpr size_t PackBits_MaxOutOfOne = 64;

/// Expands runs. Returns the number of bytes written; output past the end of `out` is dropped.
size_t PackBits_Expand(std::span<const uint8_t> packed, std::span<uint8_t> out);
