// SPDX-License-Identifier: Apache-2.0
//
// What one thread of the plane search does: the counts of a combination in all segments by AND and popcount,
// then the ranking measure of every fold. It takes any combination and any measure; the fused search
// (tile_search_body.h) is faster where it applies, and leaves the exact values of what passes its bound to
// this one. As in table_body.h, nothing here depends on CUDA.
//
// The planes of the samples' genotypes are laid out by segment (device/segments.h), padded to chunks: a chunk
// of a plane is four words, and those of neighbouring SNPs stand side by side.
#pragma once

#include "cuda/search_common.h"
#include "cuda/table_body.h"

constexpr int kSamplesPerWord = 32;
constexpr int kWordsPerChunk = 4;
constexpr int kSamplesPerChunk = kSamplesPerWord * kWordsPerChunk;

// The highest order that the plane search takes: a thread holds 2 * 3^order totals.
constexpr int kMaxCudaPlaneOrder = 6;

// Where a segment's samples are in every plane: n_words words, the last chunk filled up with clear ones.
struct PlaneSegment {
  int first_chunk;
  int n_words;
};

struct PlaneView {
  const uint32_t* words;         // [chunks][3][n_columns][kWordsPerChunk]
  int n_columns;                 // more than there are SNPs: those behind the last have clear planes
  const PlaneSegment* segments;  // [2 * (n_folds + 1)]
};

// Columns for this many SNPs: in whole lines of memory, the last one clear.
constexpr int plane_columns(int n_snps) {
  return (n_snps + 8) / 8 * 8;
}

// Words from one genotype's plane of a SNP to that of the next genotype, and from chunk to chunk.
TAVO_HOST_DEVICE size_t genotype_stride(int n_columns) {
  return (size_t)n_columns * kWordsPerChunk;
}
TAVO_HOST_DEVICE size_t chunk_stride(int n_columns) {
  return 3 * genotype_stride(n_columns);
}

struct PlaneBuildArguments {
  GenotypeMatrix genotypes;
  int n_snps;
  int n_columns;
  int n_words;           // of a plane, in whole chunks
  const int* sample_at;  // [n_words * kSamplesPerWord], -1 for the padding of a segment
  uint32_t* planes;      // as PlaneView has it, cleared by the caller; out
  uint8_t* has_missing;  // [n_snps], cleared by the caller; out: 1 where a listed sample has no genotype
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
  uint32_t listed = 0;
  for (int i = 0; i < kSamplesPerWord; ++i) {
    const int sample = a.sample_at[w * kSamplesPerWord + (size_t)i];
    rows[i] = sample < 0 ? ~0u : a.genotypes.words[sample * a.genotypes.words_per_row + (int64_t)b];
    listed |= (sample < 0 ? 0u : 1u) << i;
  }
  for (int j = 0; j < kGenotypesPerWord; ++j) {
    const int snp = (int)b * kGenotypesPerWord + j;
    if (snp >= a.n_snps) {
      return;
    }
    uint32_t planes[3] = {0, 0, 0};
    for (int i = 0; i < kSamplesPerWord; ++i) {
      const unsigned genotype = packed_genotype(&rows[i], (size_t)j);
      for (unsigned g = 0; g < 3; ++g) {
        planes[g] |= (genotype == g ? 1u : 0u) << i;
      }
    }
    uint32_t* to = a.planes + w / kWordsPerChunk * chunk_stride(a.n_columns) + (size_t)snp * kWordsPerChunk +
                   w % kWordsPerChunk;
    for (size_t g = 0; g < 3; ++g) {
      to[g * genotype_stride(a.n_columns)] = planes[g];
    }
    if ((planes[0] | planes[1] | planes[2]) != listed) {
      a.has_missing[snp] = 1;
    }
  }
}

struct PlaneSearchArguments {
  SearchRange range;
  PlaneView planes;
  uint32_t counted_cells;  // bit m: the count table holds cell m; cells from 32 on are always held
};

TAVO_HOST_DEVICE int count_bits(uint32_t word) {
#ifdef __CUDA_ARCH__
  return __popc(word);
#else
  return __builtin_popcount(word);
#endif
}

// The shape of an order: cells are counted in groups, one per pattern of the SNPs behind the third; the
// counts of a group, those of the first (at most three) SNPs' patterns, stay in registers. Groups in
// ascending order make ascending cells.
template <int kOrder>
struct PlaneShape {
  static constexpr int kInner = kOrder < 3 ? kOrder : 3;
  static constexpr int kInnerCells = power_of_3(kInner);
  static constexpr int kGroups = power_of_3(kOrder - kInner);
};

// A SNP's word w of genotype 0 in a segment, from its first word of all on; those of the other genotypes
// follow genotype_stride words apart.
TAVO_HOST_DEVICE const uint32_t* plane_word(const PlaneView& planes, const uint32_t* snp,
                                            PlaneSegment segment, int w) {
  const int chunk = segment.first_chunk + w / kWordsPerChunk;
  return snp + (size_t)chunk * chunk_stride(planes.n_columns) + w % kWordsPerChunk;
}

// Splits each of the first kCells words by the three planes of one more SNP, which becomes the highest digit.
template <int kCells>
TAVO_HOST_DEVICE void join_planes(const uint32_t* word, size_t stride, uint32_t* joined) {
  const uint32_t plane[3] = {word[0], word[stride], word[2 * stride]};
  TAVO_UNROLL
  for (int m = 0; m < kCells; ++m) {
    joined[2 * kCells + m] = joined[m] & plane[2];
    joined[kCells + m] = joined[m] & plane[1];
    joined[m] &= plane[0];
  }
}

// Adds the counts of one group of cells in one segment. snps[kOrder]: each SNP's first word.
template <int kOrder>
TAVO_HOST_DEVICE void count_cells(const PlaneView& planes, const uint32_t* const* snps, int segment,
                                  int group, int32_t* counts) {
  using Shape = PlaneShape<kOrder>;
  const size_t stride = genotype_stride(planes.n_columns);
  const PlaneSegment in = planes.segments[segment];
  for (int w = 0; w < in.n_words; ++w) {
    uint32_t outer = ~0u;
    int digits = group;
    TAVO_UNROLL
    for (int j = Shape::kInner; j < kOrder; ++j, digits /= 3) {
      outer &= plane_word(planes, snps[j], in, w)[(size_t)(digits % 3) * stride];
    }
    uint32_t joined[Shape::kInnerCells] = {outer};
    join_planes<1>(plane_word(planes, snps[0], in, w), stride, joined);
    if constexpr (Shape::kInner > 1) {
      join_planes<3>(plane_word(planes, snps[1], in, w), stride, joined);
    }
    if constexpr (Shape::kInner > 2) {
      join_planes<9>(plane_word(planes, snps[2], in, w), stride, joined);
    }
    TAVO_UNROLL
    for (int m = 0; m < Shape::kInnerCells; ++m) {
      counts[m] += count_bits(joined[m]);
    }
  }
}

// Samples of one segment that have all genotypes of the combination.
template <int kOrder>
TAVO_HOST_DEVICE int32_t count_complete(const PlaneView& planes, const uint32_t* const* snps, int segment) {
  const size_t stride = genotype_stride(planes.n_columns);
  int32_t n = 0;
  const PlaneSegment in = planes.segments[segment];
  for (int w = 0; w < in.n_words; ++w) {
    uint32_t complete = ~0u;
    TAVO_UNROLL
    for (int j = 0; j < kOrder; ++j) {
      const uint32_t* word = plane_word(planes, snps[j], in, w);
      complete &= word[0] | word[stride] | word[2 * stride];
    }
    n += count_bits(complete);
  }
  return n;
}

// Offers a combination for every fold.
template <int kOrder>
TAVO_HOST_DEVICE void search_rank(const PlaneSearchArguments& a, uint64_t rank) {
  using Shape = PlaneShape<kOrder>;
  constexpr int kInnerCells = Shape::kInnerCells;
  const SearchRange& range = a.range;
  int comb[kOrder];
  unrank(range, range.n_snps, kOrder, rank, comb);
  const uint32_t* snps[kOrder];
  TAVO_UNROLL
  for (int j = 0; j < kOrder; ++j) {
    snps[j] = a.planes.words + (size_t)comb[j] * kWordsPerChunk;
  }

  // All segments together.
  int32_t totals[Shape::kGroups][2][kInnerCells] = {};
  int32_t all_controls = 0;
  int32_t all_cases = 0;
  for (int group = 0; group < Shape::kGroups; ++group) {
    int32_t controls[kInnerCells] = {};
    int32_t cases[kInnerCells] = {};
    for (int pair = 0; pair <= range.n_folds; ++pair) {
      count_cells<kOrder>(a.planes, snps, 2 * pair, group, controls);
      count_cells<kOrder>(a.planes, snps, 2 * pair + 1, group, cases);
    }
    TAVO_UNROLL
    for (int m = 0; m < kInnerCells; ++m) {
      totals[group][0][m] = controls[m];
      totals[group][1][m] = cases[m];
      all_controls += controls[m];
      all_cases += cases[m];
    }
  }

  for (int fold = 0; fold < range.n_folds; ++fold) {
    // Training counts are the totals less the fold's own segments.
    int32_t controls[kInnerCells] = {};
    int32_t cases[kInnerCells] = {};
    SetTotals training = {all_cases, all_controls, 0};
    if constexpr (Shape::kGroups == 1) {
      count_cells<kOrder>(a.planes, snps, 2 * fold, 0, controls);
      count_cells<kOrder>(a.planes, snps, 2 * fold + 1, 0, cases);
      TAVO_UNROLL
      for (int m = 0; m < kInnerCells; ++m) {
        training.controls -= controls[m];
        training.cases -= cases[m];
      }
    } else {
      training.controls -= count_complete<kOrder>(a.planes, snps, 2 * fold);
      training.cases -= count_complete<kOrder>(a.planes, snps, 2 * fold + 1);
    }
    const float threshold = judge_by(range, fold, &training);
    Confusion table = {0, 0, 0, 0};
    float chi_square = 0.0f;
    for (int group = 0; group < Shape::kGroups; ++group) {
      if constexpr (Shape::kGroups > 1) {
        TAVO_UNROLL
        for (int m = 0; m < kInnerCells; ++m) {
          controls[m] = 0;
          cases[m] = 0;
        }
        count_cells<kOrder>(a.planes, snps, 2 * fold, group, controls);
        count_cells<kOrder>(a.planes, snps, 2 * fold + 1, group, cases);
      }
      TAVO_UNROLL
      for (int m = 0; m < kInnerCells; ++m) {
        const int cell = group * kInnerCells + m;
        if (cell < 32 && (a.counted_cells >> cell & 1u) == 0) {
          continue;
        }
        const int32_t n_controls = totals[group][0][m] - controls[m];
        const int32_t n_cases = totals[group][1][m] - cases[m];
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

// Thread `item`: the combination of rank first_rank + item.
template <int kOrder>
TAVO_HOST_DEVICE void search_planes(const PlaneSearchArguments& a, uint64_t item) {
  if (item < a.range.n_ranks) {
    search_rank<kOrder>(a, a.range.first_rank + item);
  }
}

// Thread `item` of n_threads: every n_threads-th of the listed combinations. A list that more were appended
// to than it holds is not read: its launch is repeated in parts.
template <int kOrder>
TAVO_HOST_DEVICE void search_listed(const PlaneSearchArguments& a, RankSink list, uint64_t item,
                                    uint64_t n_threads) {
  const uint64_t n = *list.count <= list.capacity ? *list.count : 0;
  for (uint64_t i = item; i < n; i += n_threads) {
    search_rank<kOrder>(a, list.ranks[i]);
  }
}
