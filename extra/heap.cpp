#include "extra/heap.h"

#include <cstdlib>

constinit thread_local std::array<uint8_t *, 256> Extra_Heap{};
constinit thread_local std::array<uint32_t, 256> Extra_Head{}, Extra_Tail{};
constinit thread_local uint8_t Extra_Pointer = 0;
constinit thread_local uint8_t Extra_LIFOorFIFO = 0;

static constinit thread_local std::array<uint32_t, 256> heapSizes{};  // bytes of each buffer

void Extra_InitHeap()
{
    Extra_Heap.fill(nullptr);
}

void Extra_CreateHeap(uint8_t n, int32_t size)
{
    Extra_Pointer = n;
    // On purpose: an existing buffer is not freed, since a caller may hold its address.
    Extra_Heap[n] =
        size > 0 ? static_cast<uint8_t *>(std::malloc(static_cast<size_t>(size))) : nullptr;
    heapSizes[n] = Extra_Heap[n] ? static_cast<uint32_t>(size) : 0;
    Extra_Head[n] = Extra_Tail[n] = 0;
}

void Extra_SetHeap(uint8_t n, uint8_t discipline)
{
    Extra_Pointer = n;
    Extra_LIFOorFIFO = discipline;
}

void Extra_DestroyHeap(uint8_t n)
{
    std::free(Extra_Heap[n]);
    Extra_Heap[n] = nullptr;
}

uint8_t Extra_EmptyHeap()
{
    return Extra_Tail[Extra_Pointer] == Extra_Head[Extra_Pointer];
}

// Appends the low bytes of `value`, the lowest first: all of them, or none if they do not fit.
static void Push(uint32_t value, uint32_t bytes)
{
    const uint8_t n = Extra_Pointer;
    uint32_t &head = Extra_Head[n];
    if (!Extra_Heap[n] || head > heapSizes[n] || heapSizes[n] - head < bytes)
        return;
    for (; bytes > 0; bytes--, value >>= 8)
        Extra_Heap[n][head++] = static_cast<uint8_t>(value);
}

void Extra_PushByte(uint8_t value)
{
    Push(value, 1);
}

void Extra_PushWord(uint16_t value)
{
    Push(value, 2);
}

void Extra_PushDWord(uint32_t value)
{
    Push(value, 4);
}

uint8_t Extra_PullByte()
{
    const uint8_t n = Extra_Pointer;
    uint32_t &head = Extra_Head[n], &tail = Extra_Tail[n];
    if (!Extra_Heap[n])
        return 0;
    if (Extra_LIFOorFIFO == 0)
        return head > 0 ? Extra_Heap[n][--head] : uint8_t{0};
    return tail < head ? Extra_Heap[n][tail++] : uint8_t{0};
}

uint16_t Extra_PullWord()
{
    const uint8_t first = Extra_PullByte(), second = Extra_PullByte();
    const uint8_t high = Extra_LIFOorFIFO == 0 ? first : second;
    const uint8_t low = Extra_LIFOorFIFO == 0 ? second : first;
    return static_cast<uint16_t>(high << 8 | low);
}

uint32_t Extra_PullDWord()
{
    const uint32_t first = Extra_PullWord(), second = Extra_PullWord();
    return Extra_LIFOorFIFO == 0 ? first << 16 | second : second << 16 | first;
}
