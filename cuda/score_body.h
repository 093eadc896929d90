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

// The score sums of one entry, a lane per fold.
struct alignas(16) FoldSums {
  float lane[kFoldLanes];
};

// The training counts of one entry, a lane per fold, packed so that one addition counts a sample for all of
// them: 16-bit lanes in one word for up to 65,535 samples, 32-bit lanes in two words for more.
template <int kWords>
struct FoldCounts {
  static constexpr int kLanesPerWord = kFoldLanes / kWords;
  static constexpr int kLaneBits = 64 / kLanesPerWord;
  uint64_t word[kWords];
};

constexpr int kMostNarrowSamples = 65535;

// Counts a sample for every lane but tested_by, which may be out of range.
template <int kWords>
TAVO_HOST_DEVICE void count_sample(FoldCounts<kWords>* counts, int tested_by) {
  using Counts = FoldCounts<kWords>;
  constexpr uint64_t kOneEach = ~uint64_t{0} / ((uint64_t{1} << (Counts::kLaneBits - 1)) * 2 - 1);
  TAVO_UNROLL
  for (int w = 0; w < kWords; ++w) {
    const int lane = tested_by - w * Counts::kLanesPerWord;
    const bool here = lane >= 0 && lane < Counts::kLanesPerWord;
    counts->word[w] += kOneEach - (here ? uint64_t{1} << (Counts::kLaneBits * (here ? lane : 0)) : 0);
  }
}

template <int kWords>
TAVO_HOST_DEVICE int32_t lane_count(const FoldCounts<kWords>& counts, int lane) {
  using Counts = FoldCounts<kWords>;
  constexpr uint64_t kLaneMask = (uint64_t{1} << (Counts::kLaneBits - 1)) * 2 - 1;
  const int shift = Counts::kLaneBits * (lane % Counts::kLanesPerWord);
  return (int32_t)(counts.word[lane / Counts::kLanesPerWord] >> shift & kLaneMask);
}

template <int kOrder>
constexpr int kScoreEntries = 2 * power_of_3(kOrder);

// Thread `item`: the combination of rank first_rank + item, offered for every fold. sums and counts are the
// thread's scratch, kScoreEntries<kOrder> elements of each, `stride` elements apart.
template <int kOrder, int kWords>
TAVO_HOST_DEVICE void search_scores(const ScoreSearchArguments& a, uint64_t item, FoldSums* sums,
                                    FoldCounts<kWords>* counts, int stride) {
  constexpr int kEntries = kScoreEntries<kOrder>;
  const SearchRange& range = a.range;
  if (item >= range.n_ranks) {
    return;
  }
  const uint64_t rank = range.first_rank + item;
  int comb[kOrder];
  unrank(range, range.n_snps, kOrder, rank, comb);
  const uint32_t* snps[kOrder];
  TAVO_UNROLL
  for (int j = 0; j < kOrder; ++j) {
    snps[j] = a.codes + interleaved_index(comb[j], a.n_words);
  }
  for (int first_fold = 0; first_fold < range.n_folds; first_fold += kFoldLanes) {
    for (int entry = 0; entry < kEntries; ++entry) {
      sums[entry * stride] = FoldSums{};
      counts[entry * stride] = FoldCounts<kWords>{};
    }
    for (int w = 0; w < a.n_words; ++w) {
      uint32_t codes[kOrder];
      TAVO_UNROLL
      for (int j = 0; j < kOrder; ++j) {
        codes[j] = snps[j][(size_t)w * kSnpsPerBlock];
      }
      // Positions beyond the last are missing; they are not looked up.
      const int first = w * kGenotypesPerWord;
      const int end = first + kGenotypesPerWord < a.n_positions ? first + kGenotypesPerWord : a.n_positions;
      for (int position = first; position < end; ++position) {
        int cell = 0;
        int weight = 1;
        bool complete = true;
        TAVO_UNROLL
        for (int j = 0; j < kOrder; ++j, weight *= 3) {
          const unsigned genotype = codes[j] & 3u;
          codes[j] >>= 2;
          complete = complete && genotype != kMissingGenotype;
          cell += (int)genotype * weight;
        }
        if (!complete) {
          continue;
        }
        const int at = (2 * cell + a.is_case[position]) * stride;
        count_sample(&counts[at], a.fold_of[position] - first_fold);
        const float* scores = a.fold_scores + (size_t)position * (size_t)a.width + first_fold;
        FoldSums sum = sums[at];
        TAVO_UNROLL
        for (int lane = 0; lane < kFoldLanes; ++lane) {
          sum.lane[lane] += scores[lane];
        }
        sums[at] = sum;
      }
    }
    for (int lane = 0; lane < kFoldLanes && first_fold + lane < range.n_folds; ++lane) {
      Confusion table = {0, 0, 0, 0};
      for (int cell = 0; cell < kEntries / 2; ++cell) {
        if (cell < 32 && (a.counted_cells >> cell & 1u) == 0) {
          continue;
        }
        const int at = 2 * cell * stride;
        const int32_t controls = lane_count(counts[at], lane);
        const int32_t cases = lane_count(counts[at + stride], lane);
        const int label =
            score_cell_label(controls, sums[at].lane[lane], sums[at + stride].lane[lane], range.tie);
        add_cell(&table, label, controls, cases);
      }
      offer(range, rank, first_fold + lane, canonical_nan(balanced_accuracy_unguarded(table)));
    }
  }
}
