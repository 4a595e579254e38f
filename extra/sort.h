// Seven ascending in-place sorts of signed 32-bit numbers; `n` counts elements. None needs deep
// recursion or a lot of stack.
#pragma once

#include <cstdint>

/// O(n^2).
void Extra_SelectionSort(int32_t *a, uint16_t n);
/// O(n^2), O(n) for sorted input.
void Extra_InsertSort(int32_t *a, uint16_t n);
/// O(n log n).
void Extra_HeapSort(int32_t *a, uint16_t n);

/// O(n^2). Also reads a[n], so `a` has n + 1 elements: if a[n] is less than the array's maximum the
/// two are swapped. Even a single element is compared with a[1].
void Extra_BubbleSort(int32_t *a, uint16_t n);

/// O(n log n). Creates and destroys this thread's byte heap 255: it stays current, in stack order,
/// and its former contents are lost.
void Extra_MergeSort(int32_t *a, uint16_t n);

/// O(n log n) on average, O(n^2) for sorted input.
void Extra_QuickSort(int32_t *a, uint16_t n);

/// O(n^2.71): only for up to a few hundred elements.
void Extra_CruiserSort(int32_t *a, uint16_t n);
