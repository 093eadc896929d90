// SPDX-License-Identifier: Apache-2.0
//
// Permutation testing: shuffles on the process-wide generator (rng.h), the null distribution of the measures,
// its quantiles and p-values. Host analysis thread only. A draw is reduced to a range m by the remainder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "lib/rng.h"

// Seeds the system's rand from the time of day, draws r, sets s = r mod 2147483647, discards s draws, returns
// s. No analysis calls it.
int randomize();

// The shuffle of permuteValues, for values of any type: for i = n down to 2 swap the last of the first i with
// one of them.
template <typename T>
void permute(std::span<T> values) {
  for (size_t i = values.size(); i >= 2; --i) {
    std::swap(values[int32_rand() % i], values[i - 1]);
  }
}

// Shuffles values[*n] in place.
void permuteValues(uint8_t* values, const int* n);

// The same among the positions index[*n] of values; all other entries stay.
void permuteValuesByIndex(uint8_t* values, const int* index, const int* n);

// Moves a random choice of *k of the *n entries to the front. Position i is swapped with one of the first n -
// i, counted from the start of the array, so an entry already chosen can move out again: this decides which
// combinations are sampled. Does nothing unless 1 <= *k <= *n.
void permuteIndex(int* index, const int* n, const int* k);

// For each of *nCombs combinations (*k SNPs each, combs flat) and each of *nPerm repetitions: shuffles the
// classes once more (shuffles accumulate), counts the combination over sampleList[*N] and writes a record of
// 16 doubles to outMeasures; outCount becomes the number of records. genotypes: packed rows of *W words, one
// per sample; response[*nSamples]: classes, unchanged; all of them are shuffled, listed or not. missing is
// the internal code (mdr.h); *N as a total, nCases, nControls and threshold hold for all codes but
// kMissingAvailable. Entries 3 to 15 are 0.
void generateNull(const int* combs, const int* k, const int* nCombs, const uint32_t* genotypes, const int* W,
                  const uint8_t* response, const int* nSamples, const int* sampleList, const int* N,
                  const int* nCases, const int* nControls, const double* threshold, const int* tie,
                  const int* missing, const int* nPerm, int* outCount, double* outMeasures);

// Sorting below is ascending with NaN first: what could not be measured never counts as large.

// The share of null[*n] that is at least x; 0 when none is, or when x is NaN. Sorts null unless *sorted is
// non-zero.
double pvalue(double* null, const int* n, double x, const int* sorted);

// pvalue of each of values[*nValues] into out at its own position. A value that is not greater than the
// smallest number of the null gets nothing written: the caller initialises out.
void pvalueVector(double* null, const int* n, const double* values, const int* nValues, const int* sorted,
                  double* out);

// The p-quantile of values[*n] (*n >= 1, 0 <= *p <= 1) by linear interpolation between order statistics at
// p * (n - 1). Sorts values.
double quantile(double* values, const int* n, const double* p);
