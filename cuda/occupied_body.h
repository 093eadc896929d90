// SPDX-License-Identifier: Apache-2.0
//
// What one thread does where a combination has more cells than there is sense in holding: it sorts the
// samples by cell and walks through the occupied cells. Any order, any base, with and without scores; slower
// than a table while the tables are small. As in table_body.h, nothing here depends on CUDA.
#pragma once

#include "cuda/table_body.h"
#include "device/commands.h"

// A sample in its cell; ties of the cell are in the order of the score sums, which is that of the positions.
struct PlacedSample {
  int64_t cell;
  int32_t position;
};

TAVO_HOST_DEVICE bool placed_before(const PlacedSample& a, const PlacedSample& b) {
  return a.cell < b.cell || (a.cell == b.cell && a.position < b.position);
}

TAVO_HOST_DEVICE void sift_down(PlacedSample* heap, int n, int root) {
  const PlacedSample moved = heap[root];
  for (int child = 2 * root + 1; child < n; child = 2 * root + 1) {
    if (child + 1 < n && placed_before(heap[child], heap[child + 1])) {
      ++child;
    }
    if (!placed_before(moved, heap[child])) {
      break;
    }
    heap[root] = heap[child];
    root = child;
  }
  heap[root] = moved;
}

// Heapsort: in place, without recursion, n log n whatever the data.
TAVO_HOST_DEVICE void sort_placed(PlacedSample* placed, int n) {
  for (int root = n / 2; root-- > 0;) {
    sift_down(placed, n, root);
  }
  for (int last = n; last-- > 1;) {
    const PlacedSample largest = placed[0];
    placed[0] = placed[last];
    placed[last] = largest;
    sift_down(placed, last, 0);
  }
}

// The cell of a sample, or -1 where a genotype is missing.
TAVO_HOST_DEVICE int64_t cell_of_sample(GenotypeMatrix genotypes, int sample, const int* comb, int order,
                                        int base) {
  const uint32_t* row = genotypes.words + sample * genotypes.words_per_row;
  int64_t cell = 0;
  int64_t weight = 1;
  for (int j = 0; j < order; ++j, weight *= base) {
    const unsigned genotype = packed_genotype(row, (size_t)comb[j]);
    if (genotype == kMissingGenotype) {
      return -1;
    }
    cell += weight * genotype;
  }
  return cell;
}

struct OccupiedRecordArguments {
  uint32_t active;
  const int* combinations;  // [active][order]
  int order;
  int base;
  int64_t cells;  // base^order
  GenotypeMatrix genotypes;
  const uint8_t* response;  // [all samples]
  const float* SC;          // [all samples], or null
  const int* training;      // [n_training]
  int n_training;
  const int* testing;  // [n_testing]
  int n_testing;
  float threshold;  // of the fold
  int tie;
  int missing;
  float* stat;  // [active][32], out
  // Scratch, with n = n_training + n_testing.
  PlacedSample* placed;  // [active][n]
  int32_t* tables;       // [active][2][2 * (n + 1)], training, then testing
  float* score_sums;     // [active][2 * (n + 1)], or null
};

// The record of combination t. Only for orders whose tables hold every cell.
TAVO_HOST_DEVICE void occupied_record(const OccupiedRecordArguments& a, uint32_t t) {
  if (t >= a.active) {
    return;
  }
  const size_t n = (size_t)a.n_training + (size_t)a.n_testing;
  const size_t entries = 2 * (n + 1);
  const int* comb = a.combinations + (size_t)t * a.order;
  PlacedSample* placed = a.placed + t * n;
  int32_t* train = a.tables + 2 * t * entries;
  int32_t* test = train + entries;
  float* score_sums = a.score_sums == nullptr ? nullptr : a.score_sums + t * entries;
  SetTotals train_totals = {0, 0, a.n_training};
  SetTotals test_totals = {0, 0, a.n_testing};

  // Positions count the training samples from the last to the first, then the testing samples likewise.
  int n_placed = 0;
  for (int position = 0; position < (int)n; ++position) {
    const bool trains = position < a.n_training;
    const int sample = trains ? a.training[a.n_training - 1 - position] : a.testing[(int)n - 1 - position];
    const int64_t cell = cell_of_sample(a.genotypes, sample, comb, a.order, a.base);
    if (cell < 0) {
      continue;
    }
    SetTotals& totals = trains ? train_totals : test_totals;
    ++(a.response[sample] == 1 ? totals.cases : totals.controls);
    placed[n_placed++] = PlacedSample{cell, position};
  }
  sort_placed(placed, n_placed);

  int64_t occupied = 0;
  for (int i = 0; i < n_placed; ++i) {
    if (i == 0 || placed[i].cell != placed[i - 1].cell) {
      for (int64_t entry = 2 * occupied; entry < 2 * occupied + 2; ++entry) {
        train[entry] = 0;
        test[entry] = 0;
        if (score_sums != nullptr) {
          score_sums[entry] = 0.0f;
        }
      }
      ++occupied;
    }
    const int position = placed[i].position;
    const bool trains = position < a.n_training;
    const int sample = trains ? a.training[a.n_training - 1 - position] : a.testing[(int)n - 1 - position];
    const int64_t entry = 2 * (occupied - 1) + (a.response[sample] == 1 ? 1 : 0);
    ++(trains ? train : test)[entry];
    if (trains && score_sums != nullptr) {
      score_sums[entry] += a.SC[sample];
    }
  }
  if (occupied < a.cells) {
    // An empty cell adds nothing, except that without any sample its expected counts are 0 / 0: one stands
    // for all.
    for (int64_t entry = 2 * occupied; entry < 2 * occupied + 2; ++entry) {
      train[entry] = 0;
      test[entry] = 0;
      if (score_sums != nullptr) {
        score_sums[entry] = 0.0f;
      }
    }
    ++occupied;
  }

  float threshold = a.threshold;
  if (a.missing == kMissingAvailable) {
    train_totals.n = train_totals.cases + train_totals.controls;
    test_totals.n = test_totals.cases + test_totals.controls;
    threshold = own_threshold(train_totals);
  }
  float* record = a.stat + (size_t)t * kRecordSize;
  if (score_sums != nullptr) {
    write_score_record(train, test, score_sums, occupied, a.tie, record);
  } else {
    write_record(train, test, occupied, train_totals, test_totals, threshold, a.tie, record);
  }
}
