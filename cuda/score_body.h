// SPDX-License-Identifier: Apache-2.0
//
// What one thread of the score-based search does: the score sums and counts of a combination's cells,
// kFoldLanes folds at a time, then the balanced accuracy of each. Every sum adds the samples in the order of
// the record path; adding 0 for the fold that tests a sample changes nothing. As in table_body.h, nothing
// here depends on CUDA.
#pragma once

#include "cuda/search_common.h"
#include "cuda/table_body.h"

// Folds whose sums are added side by side.
constexpr int kFoldLanes = 4;

// The highest order that this search takes: a thread holds 2 * 3^order sums for each lane.
constexpr int kMaxCudaScoreOrder = 4;

struct CodeBuildArguments {
  GenotypeMatrix genotypes;
  int n_positions;
  int n_words;           // of a SNP: packed_words(n_positions)
  const int* sample_at;  // [n_positions]
  uint32_t* codes;       // [SNP block][n_words][kSnpsPerBlock], out: 16 positions to a word
};

// Fills word w of the 16 SNPs of packed column b, with item = w * words_per_row + b. Positions beyond the
// last are missing.
TAVO_HOST_DEVICE void build_codes(const CodeBuildArguments& a, uint64_t item) {
  const uint64_t columns = (uint64_t)a.genotypes.words_per_row;
  if (item >= columns * (uint64_t)a.n_words) {
    return;
  }
  const int b = (int)(item % columns);
  const int w = (int)(item / columns);
  uint32_t codes[kGenotypesPerWord] = {};
  for (int i = 0; i < kGenotypesPerWord; ++i) {
    const int position = w * kGenotypesPerWord + i;
    const uint32_t row = position < a.n_positions
                             ? a.genotypes.words[a.sample_at[position] * a.genotypes.words_per_row + b]
                             : ~0u;
    for (int j = 0; j < kGenotypesPerWord; ++j) {
      codes[j] |= packed_genotype(&row, (size_t)j) << (2 * i);
    }
  }
  for (int j = 0; j < kGenotypesPerWord; ++j) {
    a.codes[interleaved_index(b * kGenotypesPerWord + j, a.n_words) + (size_t)w * kSnpsPerBlock] = codes[j];
  }
}

struct ScoreSearchArguments {
  SearchRange range;  // measure: balanced accuracy, the only one of score-based records
  const uint32_t* codes;
  int n_positions;
  int n_words;
  const uint8_t* is_case;    // [n_positions]
  const int* fold_of;        // [n_positions], n_folds where no fold tests the sample
  const float* fold_scores;  // [n_positions][width], 0 for the fold that tests the sample
  int width;                 // folds, padded to whole kFoldLanes
  uint32_t counted_cells;    // bit m: the count table holds cell m; cells from 32 on are always held
};

// Thread `item`: the combination of rank first_rank + item, offered for every fold.
template <int kOrder>
TAVO_HOST_DEVICE void search_scores(const ScoreSearchArguments& a, uint64_t item) {
  constexpr int kEntries = 2 * power_of_3(kOrder);
  const SearchRange& range = a.range;
  if (item >= range.n_ranks) {
    return;
  }
  const uint64_t rank = range.first_rank + item;
  int comb[kOrder];
  unrank(range, rank, comb);
  const uint32_t* snps[kOrder];
  for (int j = 0; j < kOrder; ++j) {
    snps[j] = a.codes + interleaved_index(comb[j], a.n_words);
  }
  for (int first_fold = 0; first_fold < range.n_folds; first_fold += kFoldLanes) {
    int32_t counts[kEntries] = {};              // of all samples
    int32_t tested[kEntries][kFoldLanes] = {};  // of those that the lane's fold tests
    float sums[kEntries][kFoldLanes] = {};
    for (int position = 0; position < a.n_positions; ++position) {
      const size_t word = (size_t)(position / kGenotypesPerWord) * kSnpsPerBlock;
      const int shift = 2 * (position % kGenotypesPerWord);
      int cell = 0;
      int weight = 1;
      bool complete = true;
      for (int j = 0; j < kOrder; ++j, weight *= 3) {
        const unsigned genotype = snps[j][word] >> shift & 3u;
        complete = complete && genotype != kMissingGenotype;
        cell += (int)genotype * weight;
      }
      if (!complete) {
        continue;
      }
      const int entry = 2 * cell + a.is_case[position];
      ++counts[entry];
      const int lane_of_fold = a.fold_of[position] - first_fold;
      if (lane_of_fold >= 0 && lane_of_fold < kFoldLanes) {
        ++tested[entry][lane_of_fold];
      }
      const float* scores = a.fold_scores + (size_t)position * (size_t)a.width + first_fold;
      for (int lane = 0; lane < kFoldLanes; ++lane) {
        sums[entry][lane] += scores[lane];
      }
    }
    for (int lane = 0; lane < kFoldLanes && first_fold + lane < range.n_folds; ++lane) {
      Confusion table = {0, 0, 0, 0};
      for (int cell = 0; cell < kEntries / 2; ++cell) {
        if (cell < 32 && (a.counted_cells >> cell & 1u) == 0) {
          continue;
        }
        const int32_t controls = counts[2 * cell] - tested[2 * cell][lane];
        const int32_t cases = counts[2 * cell + 1] - tested[2 * cell + 1][lane];
        add_cell(&table,
                 score_cell_label(controls, sums[2 * cell][lane], sums[2 * cell + 1][lane], range.tie),
                 controls, cases);
      }
      offer(range, rank, first_fold + lane, canonical_nan(balanced_accuracy_unguarded(table)));
    }
  }
}
