// Byte heaps: 256 numbered byte buffers of fixed size, each used as a stack or as a queue. One heap
// is current at a time and every push and pull acts on it. Words and double words are stored low
// byte first. Heaps are per thread; a thread destroys its own before it ends.
#pragma once

#include <array>
#include <cstdint>

/// The buffers (from malloc, owned here); null for a number without one.
extern constinit thread_local std::array<uint8_t *, 256> Extra_Heap;
/// Per heap: index of the next byte to write, and of the next byte that a queue reads.
extern constinit thread_local std::array<uint32_t, 256> Extra_Head, Extra_Tail;
/// Number of the current heap.
extern constinit thread_local uint8_t Extra_Pointer;
/// Order of all pulls, for every heap: 0 last in, first out; else first in, first out.
extern constinit thread_local uint8_t Extra_LIFOorFIFO;

/// Sets all buffers to null without freeing them; heads and tails stay.
void Extra_InitHeap();

/// Makes heap `n` of `size` bytes, empty and current. A previous buffer of that number is not
/// freed. If memory runs out or `size` is below 1, the heap has no capacity.
void Extra_CreateHeap(uint8_t n, int32_t size);

/// Makes heap `n` current and sets the order of all pulls.
void Extra_SetHeap(uint8_t n, uint8_t discipline);

/// Frees the buffer of heap `n`, if it has one; head and tail stay.
void Extra_DestroyHeap(uint8_t n);

/// 1 when tail and head of the current heap are equal, else 0.
uint8_t Extra_EmptyHeap();

/// Appends 1, 2 or 4 bytes, low byte first. A push that does not fit is dropped whole.
void Extra_PushByte(uint8_t value);
void Extra_PushWord(uint16_t value);
void Extra_PushDWord(uint32_t value);

/// Takes back what the matching push stored, in either order. A missing byte reads as 0 and moves
/// nothing.
uint8_t Extra_PullByte();
uint16_t Extra_PullWord();
uint32_t Extra_PullDWord();
