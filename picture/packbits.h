// Runs of bytes under a signed count: the Interchange File Format's ByteRun1 (EA IFF 85, "ILBM",
// appendix C), which TIFF calls PackBits (TIFF 6.0, section 9).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Bytes that one packed byte can stand for: two are one of 128.
constexpr size_t PackBits_MaxOutOfOne = 64;

/// Undoes the runs. Returns the bytes written; what `out` has no room for is left out.
size_t PackBits_Expand(std::span<const uint8_t> packed, std::span<uint8_t> out);
