// SPDX-License-Identifier: Apache-2.0
//
// Work on rows of packed genotypes (lib/packed_genotypes.h), 16 genotypes at a time. The bits behind the last
// genotype of a row are 0 in every row that these functions make.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "lib/packed_genotypes.h"

// The lowest bit of every genotype of a word.
inline constexpr uint32_t kLowLanes = 0x55555555u;

// The lowest bits of the genotypes of a row's last word, where the row has n genotypes, n >= 1.
constexpr uint32_t last_lanes(int64_t n) {
  return kLowLanes >> (2 * (packed_words(n) * kGenotypesPerWord - n));
}

// How many genotypes there are of each code.
using CodeCounts = std::array<int64_t, 4>;

// Adds the codes of a row's first n genotypes. What stands behind them does not matter.
void count_codes(const uint32_t* row, int64_t n, CodeCounts* counts);

// Adds 1 to missing[i] for every missing genotype i of the row. missing: [n] at least.
void count_missing(const uint32_t* row, int64_t n, std::span<uint32_t> missing);

// Counts the other allele: 0 becomes 2, 2 becomes 0, in a row of n genotypes.
void count_other_allele(uint32_t* row, int64_t n);

// PLINK 1 codes into codes of this program and back: 00, 01, 10, 11 are two copies of the first allele,
// missing, one copy, no copy. n genotypes, in place.
void from_plink_codes(uint32_t* row, int64_t n);
void to_plink_codes(uint32_t* row, int64_t n);

// Turns rows into columns: genotype c of row r, n_rows x n_columns of them, becomes genotype r of row c of
// `out`. The strides are in words. Overwrites packed_words(n_rows) words in each of the n_columns rows of
// `out`.
void transpose_packed(const uint32_t* in, int64_t in_stride, int64_t n_rows, int64_t n_columns, uint32_t* out,
                      int64_t out_stride);

// Takes some of the genotypes of a row.
class LaneSelection {
 public:
  // kept: which of n genotypes, ascending.
  LaneSelection(std::span<const uint32_t> kept, int64_t n);

  int64_t size() const { return n_kept_; }
  bool takes_all() const { return takes_all_; }

  // Writes the kept genotypes of `in`. `out` may be the same row or lie in front of it, also overlapping.
  void apply(const uint32_t* in, uint32_t* out) const;

 private:
  struct Run {
    int64_t first;
    int64_t count;
  };
  std::vector<Run> runs_;
  int64_t n_kept_ = 0;
  bool takes_all_ = false;
};
