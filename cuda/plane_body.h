// SPDX-License-Identifier: Apache-2.0
//
// What one thread of the plane search does: the counts of a combination in all segments by AND and popcount,
// then the ranking measure of every fold. The planes of the samples' genotypes are laid out by segment
// (device/segments.h), padded to words of 32. As in table_body.h, nothing here depends on CUDA.
#pragma once

#include "cuda/search_common.h"
#include "cuda/table_body.h"

constexpr int kSamplesPerWord = 32;

// The highest order that the plane search takes: a thread holds 2 * 3^order totals.
constexpr int kMaxCudaPlaneOrder = 6;

struct PlaneBuildArguments {
  GenotypeMatrix genotypes;
  int n_words;           // of a plane
  const int* sample_at;  // [n_words * kSamplesPerWord], -1 for the padding of a segment
  uint32_t* planes;      // [SNP block][n_words][3][kSnpsPerBlock], out
};

// Fills word w of the planes of the 16 SNPs of packed column b, with item = w * words_per_row + b.
TAVO_HOST_DEVICE void build_planes(const PlaneBuildArguments& a, uint64_t item) {
  const uint64_t columns = (uint64_t)a.genotypes.words_per_row;
  if (item >= columns * (uint64_t)a.n_words) {
    return;
  }
  const size_t b = (size_t)(item % columns);
  const size_t w = (size_t)(item / columns);
  uint32_t rows[kSamplesPerWord];
  for (int i = 0; i < kSamplesPerWord; ++i) {
    const int sample = a.sample_at[w * kSamplesPerWord + (size_t)i];
    rows[i] = sample < 0 ? ~0u : a.genotypes.words[sample * a.genotypes.words_per_row + (int64_t)b];
  }
  for (int j = 0; j < kGenotypesPerWord; ++j) {
    uint32_t planes[3] = {0, 0, 0};
    for (int i = 0; i < kSamplesPerWord; ++i) {
      const unsigned genotype = packed_genotype(&rows[i], (size_t)j);
      for (unsigned g = 0; g < 3; ++g) {
        planes[g] |= (genotype == g ? 1u : 0u) << i;
      }
    }
    const int snp = (int)b * kGenotypesPerWord + j;
    for (size_t g = 0; g < 3; ++g) {
      a.planes[interleaved_index(snp, 3 * a.n_words) + (3 * w + g) * kSnpsPerBlock] = planes[g];
    }
  }
}

struct PlaneSearchArguments {
  SearchRange range;
  const uint32_t* planes;
  int n_words;
  const int*
      first_word;  // [2 * (n_folds + 1) + 1]: segment s has the words first_word[s] .. first_word[s + 1] - 1
  uint32_t counted_cells;  // bit m: the count table holds cell m; cells from 32 on are always held
};

TAVO_HOST_DEVICE int count_bits(uint32_t word) {
#ifdef __CUDA_ARCH__
  return __popc(word);
#else
  return __builtin_popcount(word);
#endif
}

// The shape of an order: cells are counted in chunks of the first (at most three) SNPs' patterns, whose
// counts stay in registers; a chunk fixes the genotypes of the other SNPs. Chunks in ascending order make
// ascending cells.
template <int kOrder>
struct PlaneShape {
  static constexpr int kInner = kOrder < 3 ? kOrder : 3;
  static constexpr int kInnerCells = power_of_3(kInner);
  static constexpr int kChunks = power_of_3(kOrder - kInner);
};

// Splits each of the first kCells words by the three planes of one more SNP, which becomes the highest digit.
template <int kCells>
TAVO_HOST_DEVICE void join_planes(const uint32_t* snp, uint32_t* joined) {
  const uint32_t plane[3] = {snp[0], snp[kSnpsPerBlock], snp[2 * kSnpsPerBlock]};
  TAVO_UNROLL
  for (int m = 0; m < kCells; ++m) {
    joined[2 * kCells + m] = joined[m] & plane[2];
    joined[kCells + m] = joined[m] & plane[1];
    joined[m] &= plane[0];
  }
}

// Adds the counts of one chunk in the words of one segment. snps[kOrder]: each SNP's first word.
template <int kOrder>
TAVO_HOST_DEVICE void count_chunk(const uint32_t* const* snps, int first, int end, int chunk,
                                  int32_t* counts) {
  using Shape = PlaneShape<kOrder>;
  for (int w = first; w < end; ++w) {
    const size_t at = (size_t)w * 3 * kSnpsPerBlock;
    uint32_t outer = ~0u;
    int digits = chunk;
    TAVO_UNROLL
    for (int j = Shape::kInner; j < kOrder; ++j, digits /= 3) {
      outer &= snps[j][at + (size_t)(digits % 3) * kSnpsPerBlock];
    }
    uint32_t joined[Shape::kInnerCells] = {outer};
    join_planes<1>(snps[0] + at, joined);
    if constexpr (Shape::kInner > 1) {
      join_planes<3>(snps[1] + at, joined);
    }
    if constexpr (Shape::kInner > 2) {
      join_planes<9>(snps[2] + at, joined);
    }
    TAVO_UNROLL
    for (int m = 0; m < Shape::kInnerCells; ++m) {
      counts[m] += count_bits(joined[m]);
    }
  }
}

// Samples of one segment that have all genotypes of the combination.
template <int kOrder>
TAVO_HOST_DEVICE int32_t count_complete(const uint32_t* const* snps, int first, int end) {
  int32_t n = 0;
  for (int w = first; w < end; ++w) {
    uint32_t complete = ~0u;
    TAVO_UNROLL
    for (int j = 0; j < kOrder; ++j) {
      const uint32_t* plane = snps[j] + (size_t)w * 3 * kSnpsPerBlock;
      complete &= plane[0] | plane[kSnpsPerBlock] | plane[2 * kSnpsPerBlock];
    }
    n += count_bits(complete);
  }
  return n;
}

// Thread `item`: the combination of rank first_rank + item, offered for every fold.
template <int kOrder>
TAVO_HOST_DEVICE void search_planes(const PlaneSearchArguments& a, uint64_t item) {
  using Shape = PlaneShape<kOrder>;
  constexpr int kInnerCells = Shape::kInnerCells;
  const SearchRange& range = a.range;
  if (item >= range.n_ranks) {
    return;
  }
  const uint64_t rank = range.first_rank + item;
  int comb[kOrder];
  unrank(range, rank, comb);
  const uint32_t* snps[kOrder];
  TAVO_UNROLL
  for (int j = 0; j < kOrder; ++j) {
    snps[j] = a.planes + interleaved_index(comb[j], 3 * a.n_words);
  }

  // All segments together.
  int32_t totals[Shape::kChunks][2][kInnerCells] = {};
  int32_t all_controls = 0;
  int32_t all_cases = 0;
  for (int chunk = 0; chunk < Shape::kChunks; ++chunk) {
    int32_t controls[kInnerCells] = {};
    int32_t cases[kInnerCells] = {};
    for (int pair = 0; pair <= range.n_folds; ++pair) {
      const int* word = a.first_word + 2 * pair;
      count_chunk<kOrder>(snps, word[0], word[1], chunk, controls);
      count_chunk<kOrder>(snps, word[1], word[2], chunk, cases);
    }
    TAVO_UNROLL
    for (int m = 0; m < kInnerCells; ++m) {
      totals[chunk][0][m] = controls[m];
      totals[chunk][1][m] = cases[m];
      all_controls += controls[m];
      all_cases += cases[m];
    }
  }

  for (int fold = 0; fold < range.n_folds; ++fold) {
    // Training counts are the totals less the fold's own segments.
    const int* word = a.first_word + 2 * fold;
    int32_t controls[kInnerCells] = {};
    int32_t cases[kInnerCells] = {};
    SetTotals training = {all_cases, all_controls, 0};
    if constexpr (Shape::kChunks == 1) {
      count_chunk<kOrder>(snps, word[0], word[1], 0, controls);
      count_chunk<kOrder>(snps, word[1], word[2], 0, cases);
      TAVO_UNROLL
      for (int m = 0; m < kInnerCells; ++m) {
        training.controls -= controls[m];
        training.cases -= cases[m];
      }
    } else {
      training.controls -= count_complete<kOrder>(snps, word[0], word[1]);
      training.cases -= count_complete<kOrder>(snps, word[1], word[2]);
    }
    const float threshold = judge_by(range, fold, &training);
    Confusion table = {0, 0, 0, 0};
    float chi_square = 0.0f;
    for (int chunk = 0; chunk < Shape::kChunks; ++chunk) {
      if constexpr (Shape::kChunks > 1) {
        TAVO_UNROLL
        for (int m = 0; m < kInnerCells; ++m) {
          controls[m] = 0;
          cases[m] = 0;
        }
        count_chunk<kOrder>(snps, word[0], word[1], chunk, controls);
        count_chunk<kOrder>(snps, word[1], word[2], chunk, cases);
      }
      TAVO_UNROLL
      for (int m = 0; m < kInnerCells; ++m) {
        const int cell = chunk * kInnerCells + m;
        if (cell < 32 && (a.counted_cells >> cell & 1u) == 0) {
          continue;
        }
        const int32_t n_controls = totals[chunk][0][m] - controls[m];
        const int32_t n_cases = totals[chunk][1][m] - cases[m];
        const int label = cell_label(cell_ratio(n_controls, n_cases, threshold), threshold, range.tie);
        add_cell(&table, label, n_controls, n_cases);
        if (range.measure == kChiSquare) {
          chi_square = add_chi_square(chi_square, n_controls, n_cases, training);
        }
      }
    }
    offer(range, rank, fold, training_measure(range.measure, table, training, chi_square));
  }
}
