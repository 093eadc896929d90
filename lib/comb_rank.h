// SPDX-License-Identifier: Apache-2.0
//
// Numbering of combinations: the rank of a combination is its position, from 0, in the lexicographic
// enumeration of all k-subsets of {0 .. n-1}. Ranges of ranks are how work is handed to devices.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

// n choose k, or nothing when it does not fit 63 bits. k >= 0, n >= 0; 0 when k > n.
std::optional<uint64_t> comb_count(int n, int k);

// The rank of the ascending combination comb[k] out of n. comb_count(n, k) must have a value.
uint64_t comb_rank(int n, int k, const int* comb);

// Writes the combination with this rank to comb[k]. rank < comb_count(n, k).
void comb_unrank(int n, int k, uint64_t rank, int* comb);

// The combinations with these ranks, [ranks][k], in the order of the enumeration.
std::vector<int> comb_unrank_all(int n, int k, std::vector<uint64_t> ranks);
