// SPDX-License-Identifier: Apache-2.0
//
// What the search kernels have in common: from a rank to its combination, from a fold's value to the
// candidates. As in table_body.h, arrays are the device's, and nothing here depends on CUDA.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "device/commands.h"
#include "lib/cv_measures.h"
#include "lib/host_device.h"

// A bounded buffer that all threads append to. *count goes on beyond capacity, so that a launch that found
// more than fits is known and can be repeated in parts.
struct CandidateSink {
  SearchCandidate* candidates;  // [capacity]
  unsigned long long* count;
  uint64_t capacity;
};

// The next place of a buffer, which may be beyond its end.
TAVO_HOST_DEVICE unsigned long long next_slot(unsigned long long* count) {
#ifdef __CUDA_ARCH__
  return atomicAdd(count, 1ull);
#else
  return (*count)++;
#endif
}

TAVO_HOST_DEVICE void append(CandidateSink sink, SearchCandidate candidate) {
  const unsigned long long slot = next_slot(sink.count);
  if (slot < sink.capacity) {
    sink.candidates[slot] = candidate;
  }
}

// The same for combinations whose values are still to be computed.
struct RankSink {
  uint64_t* ranks;  // [capacity]
  unsigned long long* count;
  uint64_t capacity;
};

TAVO_HOST_DEVICE void append(RankSink sink, uint64_t rank) {
  const unsigned long long slot = next_slot(sink.count);
  if (slot < sink.capacity) {
    sink.ranks[slot] = rank;
  }
}

// One launch over the ranks first_rank .. first_rank + n_ranks - 1, one thread per rank.
struct SearchRange {
  int n_snps;
  int order;
  const uint64_t* binomials;  // [order + 1][n_snps + 1]: n choose k at [k][n]
  uint64_t first_rank;
  uint64_t n_ranks;
  int n_folds;
  const int* fold_n;          // [n_folds], training samples listed
  const float* thresholds;    // [n_folds]
  const SearchFloor* floors;  // [n_folds]
  bool own_thresholds;
  int tie;
  int measure;
  CandidateSink sink;
};

// n choose k, for n and k up to those of the range.
TAVO_HOST_DEVICE uint64_t binomial(const SearchRange& range, int n, int k) {
  return range.binomials[(size_t)k * ((size_t)range.n_snps + 1) + (size_t)n];
}

// Writes the combination of a rank among those of `order` out of the first n SNPs to comb[order]; n and order
// are at most those of the range. With r_i = n - 1 - comb[i], the combinations behind it number the sum of
// (r_i choose order - i): r_i is the largest whose count is not above what is left.
TAVO_HOST_DEVICE void unrank(const SearchRange& range, int n, int order, uint64_t rank, int* comb) {
  uint64_t after = binomial(range, n, order) - 1 - rank;
  int high = n - 1;
  for (int i = 0; i < order; ++i) {
    const int width = order - i;
    int low = width - 1;
    while (low < high) {
      const int middle = low + (high - low + 1) / 2;
      if (binomial(range, middle, width) <= after) {
        low = middle;
      } else {
        high = middle - 1;
      }
    }
    comb[i] = n - 1 - low;
    after -= binomial(range, low, width);
    high = low - 1;
  }
}

// The rank of a combination of the range's order.
TAVO_HOST_DEVICE uint64_t rank_of(const SearchRange& range, const int* comb) {
  uint64_t after = 0;
  for (int i = 0; i < range.order; ++i) {
    after += binomial(range, range.n_snps - 1 - comb[i], range.order - i);
  }
  return binomial(range, range.n_snps, range.order) - 1 - after;
}

// The sample number and the threshold that a fold's combination is judged by. totals->n is filled in.
TAVO_HOST_DEVICE float judge_by(const SearchRange& range, int fold, SetTotals* totals) {
  if (range.own_thresholds) {
    totals->n = totals->cases + totals->controls;
    return own_threshold(*totals);
  }
  totals->n = range.fold_n[fold];
  return range.thresholds[fold];
}

// Appends the combination if it passes the fold's floor.
TAVO_HOST_DEVICE void offer(const SearchRange& range, uint64_t rank, int fold, float value) {
  if (range.floors[fold].lets_pass(value, rank)) {
    SearchCandidate candidate;
    candidate.rank = rank;
    candidate.fold = fold;
    candidate.value = value;
    append(range.sink, candidate);
  }
}

constexpr int power_of_3(int exponent) {
  return exponent == 0 ? 1 : 3 * power_of_3(exponent - 1);
}

// SNPs are interleaved in blocks of a warp, so that neighbouring threads, whose last SNPs are neighbours,
// read neighbouring words.
constexpr int kSnpsPerBlock = 32;

// Index of the first word of a SNP in arrays [block][words][kSnpsPerBlock]; word w is at w * kSnpsPerBlock
// from there.
TAVO_HOST_DEVICE size_t interleaved_index(int snp, int words) {
  return (size_t)(snp / kSnpsPerBlock) * (size_t)words * kSnpsPerBlock + (size_t)(snp % kSnpsPerBlock);
}
