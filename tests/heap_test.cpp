#include "extra/heap.h"

#include <cstring>
#include <thread>

#include <gtest/gtest.h>

TEST(Heap, PullsGiveBackWhatWasPushed)
{
    for (const bool queue : {false, true}) {
        Extra_CreateHeap(7, 64);
        Extra_SetHeap(7, queue);
        Extra_PushByte(1);
        Extra_PushWord(0x1234);
        Extra_PushDWord(0x11223344);
        EXPECT_EQ(std::memcmp(Extra_Heap[7], "\1\x34\x12\x44\x33\x22\x11", 7), 0);
        if (queue) {
            EXPECT_EQ(Extra_PullByte(), 1);
            EXPECT_EQ(Extra_PullWord(), 0x1234);
            EXPECT_EQ(Extra_PullDWord(), 0x11223344u);
            EXPECT_EQ(Extra_Tail[7], 7u);
            EXPECT_EQ(Extra_Head[7], 7u);
        } else {
            EXPECT_EQ(Extra_PullDWord(), 0x11223344u);
            EXPECT_EQ(Extra_PullByte(), 0x12);  // a word from the top: high byte first
            EXPECT_EQ(Extra_PullByte(), 0x34);
            EXPECT_EQ(Extra_PullByte(), 1);
        }
        EXPECT_TRUE(Extra_EmptyHeap());
        Extra_DestroyHeap(7);
    }
}

TEST(Heap, RoomAndEmptinessAreNoDanger)
{
    Extra_CreateHeap(3, 6);
    Extra_SetHeap(3, 0);
    Extra_PushDWord(0x44332211);
    Extra_PushByte(0x55);
    Extra_PushWord(0x7766);  // one of its bytes would fit
    EXPECT_EQ(Extra_Head[3], 5u);
    Extra_PushByte(0x66);
    Extra_PushByte(0x77);
    EXPECT_EQ(Extra_PullWord(), 0x6655);
    EXPECT_EQ(Extra_PullDWord(), 0x44332211u);
    EXPECT_EQ(Extra_PullWord(), 0);
    EXPECT_EQ(Extra_Head[3], 0u);
    Extra_SetHeap(3, 1);
    EXPECT_EQ(Extra_PullDWord(), 0u);
    EXPECT_EQ(Extra_Tail[3], 0u);
    Extra_DestroyHeap(3);
    Extra_DestroyHeap(3);
    Extra_PushByte(1);
    EXPECT_EQ(Extra_PullByte(), 0);
    Extra_CreateHeap(4, -1);
    Extra_PushByte(1);
    EXPECT_TRUE(Extra_EmptyHeap());
    Extra_CreateHeap(4, 1);
    uint8_t *kept = Extra_Heap[4];
    Extra_InitHeap();
    EXPECT_EQ(Extra_Heap[4], nullptr) << "forgotten, not freed";
    std::free(kept);
}

TEST(Heap, EveryThreadHasItsOwn)
{
    Extra_CreateHeap(5, 1);
    Extra_SetHeap(5, 1);
    Extra_PushByte(9);
    std::thread([] {
        EXPECT_EQ(Extra_Heap[5], nullptr);
        EXPECT_EQ(Extra_Pointer + Extra_LIFOorFIFO, 0);
        Extra_CreateHeap(5, 1);
        Extra_DestroyHeap(5);
    }).join();
    EXPECT_EQ(Extra_PullByte(), 9);
    Extra_DestroyHeap(5);
}
