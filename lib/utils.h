// SPDX-License-Identifier: Apache-2.0
//
// Comparison functions and the index sort that every ranking goes through.
#pragma once

#include <cstddef>

using CompareFunction = int (*)(const void* a, const void* b);

// 1 when *a > *b, -1 when *a < *b, else 0; doubles that cannot be compared give 0.
int cmp_double(const void* a, const void* b);
int cmp_int(const void* a, const void* b);

// Writes into index[*n] the permutation that orders values[*n] ascending under compare; values, of
// *elementSize bytes each, are not changed. Shell sort with a fixed table of gaps: the order it leaves among
// equal values is part of the result. *n = 0 does nothing.
void shellsortIndex(int* index, const void* values, const int* n, const size_t* elementSize,
                    CompareFunction compare);
