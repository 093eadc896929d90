// SPDX-License-Identifier: Apache-2.0
//
// The pieces of the exhaustive analysis: every combination scored on the host, in double precision, on all
// samples.
#pragma once

#include <cstdint>
#include <vector>

#include "src/FileIO.h"
#include "src/MDRResult.h"
#include "src/checkpoint.h"
#include "src/progress.h"
#include "util/status.h"

// Combinations that are evaluated at a time. Part of the result: in top-N mode an order with more
// combinations keeps the best of its last block.
inline constexpr int kExhaustiveBlock = 1 << 21;

// What the scoring of one run reads. The class totals and the threshold are those of the samples that count:
// all, or, when incomplete ones are left out of the totals, the complete ones; the sample list holds
// everybody all the same.
struct ExhaustiveData {
  std::vector<uint32_t> words;  // packed rows of words_per_row words, one per sample
  int words_per_row = 0;
  int n_snps = 0;
  std::vector<uint8_t> classes;  // [samples], 1 case, 0 control
  std::vector<int> samples;      // [samples], 0, 1, ...
  int n_cases = 0;
  int n_controls = 0;
  double threshold = 0.0;  // cases over controls
};

// missing: internal code (lib/mdr.h).
ExhaustiveData make_exhaustive_data(const MdrReader& reader, int case_value, int missing);

struct ExhaustiveRules {
  int order = 2;
  int measure = 0;  // ranks combinations; entries above 2 are not computed on the host and are 0
  int tie = 1;      // internal code
  int missing = 4;  // internal code
};

// Scores count combinations, [count][order] SNP indices, into measures[count][16]: entries 0 to 2 are
// written, the others stay.
void mdrCombinationAll(const ExhaustiveData& data, const ExhaustiveRules& rules, const int* combinations,
                       int count, double* measures);

// The null distribution of one order, in order of drawing: the ranking measure of n_combinations sampled
// combinations, n_permutations times each, with shuffled classes. Draws from the process-wide generator
// (lib/rng.h). Empty when there are fewer SNPs than the order.
std::vector<double> null_distribution(const ExhaustiveData& data, const ExhaustiveRules& rules,
                                      int n_combinations, int n_permutations);

// Both go on from what the checkpoint holds of the order and keep in it how far they have come: now and then,
// at the end, and when a signal asks to stop, with which they fail. They begin and end the order's progress.

// Top-N mode: the best result->slots combinations of each block into the slots from 0 on, block after block.
Status keep_best_of_blocks(const ExhaustiveData& data, const ExhaustiveRules& rules, int block_size,
                           Progress& progress, Checkpoint& checkpoint, MDRResult* result);

// Permutation mode: the first result->slots combinations, in the order of the enumeration, whose ranking
// measure is strictly above the threshold.
Status keep_above_threshold(const ExhaustiveData& data, const ExhaustiveRules& rules, int block_size,
                            double threshold, Progress& progress, Checkpoint& checkpoint, MDRResult* result);
