// Seven ascending in-place sorts of signed 32-bit numbers. `n` counts elements; 0 and 1 are
// nothing to sort. None needs deep recursion or a lot of stack.
#pragma once

#include <cstdint>

/// O(n^2).
void Extra_SelectionSort(int32_t *a, uint16_t n);
/// O(n^2), O(n) for what is sorted already.
void Extra_InsertSort(int32_t *a, uint16_t n);
/// O(n log n).
void Extra_HeapSort(int32_t *a, uint16_t n);

/// O(n^2). Takes the slot behind the array in: `a` has n + 1 elements, and a value in a[n] that is
/// less than the greatest of the others changes places with it.
void Extra_BubbleSort(int32_t *a, uint16_t n);

/// O(n log n). Works through byte heap 255, which it makes anew and destroys: heap 255 stays
/// current, in stack discipline, and what the caller had in it is lost.
void Extra_MergeSort(int32_t *a, uint16_t n);

/// O(n log n) on average, O(n^2) for what is sorted already.
void Extra_QuickSort(int32_t *a, uint16_t n);

/// O(n^2.71): for a few hundred elements.
void Extra_CruiserSort(int32_t *a, uint16_t n);
