// SPDX-License-Identifier: Apache-2.0
//
// The search for orders that the plane and score searches do not take: each thread sorts the samples by cell
// once and walks through the occupied cells for every fold. Any order, with and without scores.
#pragma once

#include "cuda/occupied_body.h"
#include "cuda/search_common.h"

// The highest order: above, cell numbers in base 4 do not fit 63 bits.
constexpr int kMaxCudaOrder = 31;

struct OccupiedSearchArguments {
  SearchRange range;
  int base;
  int64_t counted_cells;  // cells from here on count in the class totals only
  GenotypeMatrix genotypes;
  int n_positions;
  const int* sample_at;    // [n_positions], in the order of the score sums
  const uint8_t* is_case;  // [n_positions]
  const int* fold_of;      // [n_positions], n_folds where no fold tests the sample
  const float* SC;         // [all samples], or null
  PlacedSample* placed;    // scratch, [range.n_ranks][n_positions]
};

// The ranking measure of one fold from the samples sorted by cell.
TAVO_HOST_DEVICE float occupied_value(const OccupiedSearchArguments& a, const PlacedSample* placed,
                                      int n_placed, int fold) {
  SetTotals training = {0, 0, 0};
  for (int i = 0; i < n_placed; ++i) {
    const int position = placed[i].position;
    if (a.fold_of[position] != fold) {
      ++(a.is_case[position] != 0 ? training.cases : training.controls);
    }
  }
  const float threshold = judge_by(a.range, fold, &training);
  Confusion table = {0, 0, 0, 0};
  float chi_square = 0.0f;
  int32_t counts[2] = {0, 0};
  float sums[2] = {0.0f, 0.0f};
  for (int i = 0; i < n_placed && placed[i].cell < a.counted_cells; ++i) {
    const int position = placed[i].position;
    if (a.fold_of[position] != fold) {
      ++counts[a.is_case[position]];
      if (a.SC != nullptr) {
        sums[a.is_case[position]] += a.SC[a.sample_at[position]];
      }
    }
    if (i + 1 < n_placed && placed[i + 1].cell == placed[i].cell) {
      continue;
    }
    const int label = a.SC != nullptr
                          ? score_cell_label(counts[0], sums[0], sums[1], a.range.tie)
                          : cell_label(cell_ratio(counts[0], counts[1], threshold), threshold, a.range.tie);
    add_cell(&table, label, counts[0], counts[1]);
    if (a.range.measure == kChiSquare) {
      chi_square = add_chi_square(chi_square, counts[0], counts[1], training);
    }
    counts[0] = counts[1] = 0;
    sums[0] = sums[1] = 0.0f;
  }
  if (a.SC != nullptr) {
    return canonical_nan(balanced_accuracy_unguarded(table));
  }
  return training_measure(a.range.measure, table, training, chi_square);
}

// Thread `item`: the combination of rank first_rank + item, offered for every fold.
TAVO_HOST_DEVICE void search_occupied(const OccupiedSearchArguments& a, uint64_t item) {
  if (item >= a.range.n_ranks) {
    return;
  }
  const uint64_t rank = a.range.first_rank + item;
  int comb[kMaxCudaOrder];
  unrank(a.range, a.range.n_snps, a.range.order, rank, comb);
  PlacedSample* placed = a.placed + item * (uint64_t)a.n_positions;
  int n_placed = 0;
  for (int position = 0; position < a.n_positions; ++position) {
    const int64_t cell = cell_of_sample(a.genotypes, a.sample_at[position], comb, a.range.order, a.base);
    if (cell >= 0) {
      placed[n_placed++] = PlacedSample{cell, position};
    }
  }
  sort_placed(placed, n_placed);
  for (int fold = 0; fold < a.range.n_folds; ++fold) {
    offer(a.range, rank, fold, occupied_value(a, placed, n_placed, fold));
  }
}
