// Inflating: zlib streams (RFC 1950) of DEFLATE blocks (RFC 1951), which PNG and TIFF hold. One
// stream at a time, on any number of threads. Named PNG_ after their first user; TIFF shares them.
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
    INFLATE_DAMAGED,  // cut short, or something that no stream can hold
};

/// How far back a stream may refer, and the room in a buffer below which Inflate_More stops.
constexpr size_t Inflate_History = 32768, Inflate_Margin = 320;

/// Where the stream stands.
extern constinit thread_local INFLATE_STATE Inflate_State;
/// Next bit of the stream, counted from its first byte's lowest. Beyond the last bit: cut short.
extern constinit thread_local size_t PNG_BitPointer;

/// Starts on a stream, which stays the caller's and in place. The header's two bytes are skipped
/// unread; the checksum after the blocks is not looked at.
void Inflate_Begin(std::span<const uint8_t> stream);

/// Goes on writing at `position`, after what the buffer already holds of the stream, until the
/// stream ends or less than Inflate_Margin is free (which may be written to as well). Returns the
/// end of what is written; Inflate_State tells why. Damage leaves all that stood before it.
size_t Inflate_More(std::span<uint8_t> buffer, size_t position);

struct INFLATE_RESULT {
    size_t Size;  // bytes written
    bool Ended;   // the stream is whole and fits
};

/// Inflates a whole stream into `out`, as much as fits; nothing after it is touched.
INFLATE_RESULT Inflate_All(std::span<const uint8_t> stream, std::span<uint8_t> out);

/// The next bits of the stream as a number, lowest bit first; 0 past the end. `count`: up to 32.
uint32_t PNG_ReadBits(int count);
uint32_t PNG_ReadBit();
/// The next bit where each byte's highest comes first.
uint32_t PNG_ReadReversedBit();
