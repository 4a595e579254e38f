#include "extra/sort.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "extra/heap.h"

void Extra_SelectionSort(int32_t *a, uint16_t n)
{
    for (int32_t i = 0; i < n; i++)
        std::swap(a[i], *std::min_element(a + i, a + n));
}

void Extra_InsertSort(int32_t *a, uint16_t n)
{
    for (int32_t i = 0; i < n; i++) {
        const int32_t value = a[i];
        int32_t hole = i;
        for (; hole > 0 && a[hole - 1] > value; hole--)
            a[hole] = a[hole - 1];
        a[hole] = value;
    }
}

// Sifts node i down in the max-heap a[0..last]. On purpose, node 0 has the children 1 and 2 and any
// other node i has 2i and 2i + 1: node 2 has two parents, and both stay no less than it.
static void Extra_MakeHeap(int32_t *a, int32_t i, int32_t last)
{
    for (;;) {
        const int32_t left = i > 0 ? 2 * i : 1, right = left + 1;
        int32_t largest = i;
        if (left <= last && a[left] > a[largest])
            largest = left;
        if (right <= last && a[right] > a[largest])
            largest = right;
        if (largest == i)
            return;
        std::swap(a[i], a[largest]);
        i = largest;
    }
}

void Extra_HeapSort(int32_t *a, uint16_t n)
{
    int32_t last = n - 1;
    for (int32_t i = last / 2; i >= 0; i--)
        Extra_MakeHeap(a, i, last);
    while (last > 0) {
        std::swap(a[0], a[last]);
        last--;
        Extra_MakeHeap(a, 0, last);
    }
}

void Extra_BubbleSort(int32_t *a, uint16_t n)
{
    for (int32_t i = 0; i < n; i++)
        for (int32_t j = 0; j < n - i; j++)  // on purpose: the first pass reaches a[n]
            if (a[j] > a[j + 1])
                std::swap(a[j], a[j + 1]);
}

// Pushes the segment a[lo..hi-1] and, recursively, its halves, each segment before its halves.
static void Extra_MakeMerge(uint16_t lo, uint16_t hi)
{
    if (hi - lo <= 1)
        return;
    const auto mid = static_cast<uint16_t>((lo + hi) / 2);
    Extra_PushWord(lo);
    Extra_PushWord(mid);
    Extra_PushWord(hi);
    Extra_MakeMerge(lo, mid);
    Extra_MakeMerge(mid, hi);
}

void Extra_MergeSort(int32_t *a, uint16_t n)
{
    // An existing heap may be too small, or hold bytes that are not segments of this array.
    Extra_DestroyHeap(255);
    Extra_CreateHeap(255, 6 * n);
    Extra_SetHeap(255, 0);
    Extra_MakeMerge(0, n);
    std::vector<int32_t> merged(n);
    while (!Extra_EmptyHeap()) {
        const uint16_t hi = Extra_PullWord(), mid = Extra_PullWord(), lo = Extra_PullWord();
        std::merge(a + lo, a + mid, a + mid, a + hi, merged.begin() + lo);  // ties: the left first
        std::copy(merged.begin() + lo, merged.begin() + hi, a + lo);
    }
    Extra_DestroyHeap(255);
}

// Partitions a[lo..hi] about its first value. Returns an index: no element up to it is greater than
// any after it.
static int32_t Partition(int32_t *a, int32_t lo, int32_t hi)
{
    const int32_t pivot = a[lo];
    int32_t i = lo - 1, j = hi + 1;
    for (;;) {
        do
            j--;
        while (a[j] > pivot);
        do
            i++;
        while (a[i] < pivot);
        if (i >= j)
            return j;
        std::swap(a[i], a[j]);
    }
}

// Recurses into the shorter part and loops over the longer one, so the stack stays shallow even
// when the parts are as uneven as those of a sorted array.
static void Extra_MakeDivide(int32_t *a, int32_t lo, int32_t hi)
{
    while (lo < hi) {
        const int32_t middle = Partition(a, lo, hi);
        if (middle - lo < hi - middle) {
            Extra_MakeDivide(a, lo, middle);
            lo = middle + 1;
        } else {
            Extra_MakeDivide(a, middle + 1, hi);
            hi = middle;
        }
    }
}

void Extra_QuickSort(int32_t *a, uint16_t n)
{
    Extra_MakeDivide(a, 0, n - 1);
}

// Sorts a[i..j] by sorting its first two thirds, its last two thirds, and the first again.
static void Extra_MakeCruiser(int32_t *a, int32_t i, int32_t j)
{
    if (a[i] > a[j])
        std::swap(a[i], a[j]);
    if (i + 1 >= j)
        return;
    const int32_t third = (j - i + 1) / 3;
    Extra_MakeCruiser(a, i, j - third);
    Extra_MakeCruiser(a, i + third, j);
    Extra_MakeCruiser(a, i, j - third);
}

void Extra_CruiserSort(int32_t *a, uint16_t n)
{
    if (n > 0)
        Extra_MakeCruiser(a, 0, n - 1);
}
