// Inflate: zlib streams (RFC 1950) of DEFLATE blocks (RFC 1951), as used by PNG and TIFF. One
// stream at a time per thread. Named PNG_ after their first user; TIFF shares them.
//
// In one go:     Inflate_All(stream, out);
// Piece by piece, through a window that keeps the last Inflate_History bytes:
//                Inflate_Begin(stream);
//                while (Inflate_State == INFLATE_MORE) { position = Inflate_More(window, position);
//                    ...use the new bytes, move the history to the window's start... }
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum INFLATE_STATE : uint8_t {
    INFLATE_MORE,     // the buffer is full
    INFLATE_ENDED,    // the last block is done
    INFLATE_DAMAGED,  // cut short, or invalid
};

/// The farthest distance that a stream may refer back; and the free room in a buffer below which
/// Inflate_More stops.
constexpr size_t Inflate_History = 32768, Inflate_Margin = 320;

/// State of the current stream.
extern constinit thread_local INFLATE_STATE Inflate_State;
/// Next bit of the stream, counted from the lowest bit of its first byte. Past the last bit: cut
/// short.
extern constinit thread_local size_t PNG_BitPointer;

/// Starts a stream, which is not copied and must outlive its use here. The two header bytes are
/// skipped unread; the checksum after the blocks is not verified.
void Inflate_Begin(std::span<const uint8_t> stream);

/// Appends output at `position`, after the stream's output already in the buffer, until the stream
/// ends or less than Inflate_Margin is free (the margin may be overwritten). Returns the end of the
/// output; Inflate_State gives the reason. On damage all output before it stays.
size_t Inflate_More(std::span<uint8_t> buffer, size_t position);

struct INFLATE_RESULT {
    size_t Size;  // bytes written
    bool Ended;   // the whole stream was read and its output fits
};

/// Inflates a whole stream into `out`, truncated to its size.
INFLATE_RESULT Inflate_All(std::span<const uint8_t> stream, std::span<uint8_t> out);

/// The next bits of the stream as a number, lowest bit first; 0 past the end. `count` is at most
/// 32.
uint32_t PNG_ReadBits(int count);
uint32_t PNG_ReadBit();
/// The next bit, taking each byte from its highest bit.
uint32_t PNG_ReadReversedBit();
