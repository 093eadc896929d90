// SPDX-License-Identifier: Apache-2.0
//
// The inner loops of the score-based search with bit planes, one function per instruction set. Plain pointers
// only: the files behind them are compiled for wider processors than the rest.
//
// Sums of floats depend on the order of their terms, so that every fold's sum must run over the samples one
// after another. Folds are lanes: a sample's score is added where the fold trains on it. What hides the time
// of an addition is that several sums run side by side: of both classes, and of two combinations.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Folds side by side.
constexpr size_t kFoldLanes = 16;

// Combinations side by side: one prefix (all SNPs but the last), two last SNPs.
constexpr size_t kScoreCombinations = 2;

// Places of samples are those of bits in planes: controls in words 0 .. case_word - 1, then cases, each class
// in the order of the sums.
struct ScoreKernelInput {
  const uint64_t* prefix;  // [prefix_cells][words] planes of the prefix's genotype patterns
  size_t prefix_cells;
  const uint64_t* last[kScoreCombinations];  // [3][words] planes of each last SNP
  size_t words;
  size_t case_word;
  const float* scores;  // [64 * words]
  const uint16_t*
      training;        // [64 * words][fold_groups]: bit f, where fold f of the group trains on the sample
  size_t fold_groups;  // of kFoldLanes
  int tie;             // of labels
  uint32_t* places;    // scratch [2 * kScoreCombinations][64 * words + 64]
};

// The training balanced accuracy of both combinations, [kScoreCombinations][fold_groups][kFoldLanes], with
// the bits of the record's entry, or no number.
using ScoreKernel = void (*)(const ScoreKernelInput& input, float* values);

ScoreKernel score_kernel_avx512();
ScoreKernel score_kernel_avx2();
ScoreKernel score_kernel_portable();
