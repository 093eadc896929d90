// SPDX-License-Identifier: Apache-2.0
//
// SNP combinations: k ascending 0-based SNP indices out of n, enumerated in lexicographic order (the last
// position moves fastest), a block at a time; random samples of them; and their textual key.
//
// Blocks are flat arrays: combination c occupies entries c*k .. c*k+k-1. Counts and sizes are passed by
// pointer and only read, unless a comment says otherwise. No routine reports errors.
#pragma once

#include <string>

// Advances the ascending combination comb[*k] (out of *n) to its lexicographic successor. Returns 0 when
// there is one, 1 when comb was the last; comb is then overflowed and must not be used again.
int comb_nextstep(const int* k, const int* n, int* comb);

// Fills out[*maxCount * *k] with up to *maxCount successive combinations and sets *count to their number.
// state[*k] holds the last combination that was delivered to the caller, or -1 in its first entry to start.
// What the call leaves in state is scratch: the caller copies the last combination of the block into state
// before the next call. A call that writes 0 combinations ends the enumeration. *n < *k gives none.
void combSNP(const int* k, const int* n, const int* maxCount, int* state, int* count, int* out);

// As combSNP, but state holds the next combination to deliver (or -1 in its first entry to start) and is
// passed back unchanged. Returns 1 when the enumeration ran out during this call or *n < *k (*count
// combinations are valid all the same), 0 when the block was filled and more remain. The first combination
// is delivered even when *maxCount is 0.
int combSNP2(const int* k, const int* n, const int* maxCount, int* state, int* count, int* out);

// The sampler's estimate of the number of combinations: n times, for i = 1 .. k-1, the integer quotient
// (n - i) / (i + 1). The truncation makes it smaller than n choose k for most n.
double comb_estimate(int k, int n);

// Draws *want combinations into out and sets *count. Enumerates instead, lexicographically and at most *want,
// when *want is above comb_estimate. Sampled combinations are not sorted and may repeat; the k indices within
// one are distinct. Draws from the process-wide generator (rng.h) through permuteIndex.
void sampleCombSNP(const int* k, const int* n, const int* want, int* count, int* out);

// The key of comb[k]: a comma before each index and one at the end, as in ",3,17,40,". At most 255
// characters: what would go beyond is cut.
std::string comb_key(const int* comb, int k);

// The index in 0-based position `field` of a key: the number between the field-th and the next comma.
// 0 where the key has no such field.
int comb_key_field(const char* key, int field);
