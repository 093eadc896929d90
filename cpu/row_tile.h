// SPDX-License-Identifier: Apache-2.0
//
// A few prefixes that the row filter takes at once, as lists of samples.
#pragma once

#include <cstdint>
#include <vector>

#include "cpu/lane_planes.h"
#include "cpu/row_filter.h"
#include "cpu/sample_rows.h"

class RowTile {
 public:
  // order: of the combinations, 2 to 4. All but `order` outlive the object.
  RowTile(const SampleRows& rows, const LanePlanes& planes, const Segments& segments, int order,
          const RowKernels& kernels);

  // Of combinations of SNPs, all but the last.
  static constexpr int kMaxOrder = 4;

  size_t size() const { return n_prefixes_; }
  bool full() const { return n_prefixes_ == prefixes_.size(); }
  void clear() { n_prefixes_ = 0; }

  // Whether the filter takes the prefix of a combination; counts are of any.
  bool takes(const int* comb) const { return counts() || most_missing(comb) <= rows_.most_missing(); }

  // A prefix that the filter takes; last SNPs from first to end - 1 are wanted.
  void add(const int* comb, size_t first, size_t end);

  // Filters prefixes first .. end - 1 with the last SNPs of a block. needs: [folds], for floors of M
  // (row_filter.h) of at most `floor`.
  void filter(size_t block, size_t first, size_t end, const int16_t* needs, float floor);

  // Counts the cells of prefixes first .. end - 1 with the last SNPs of a block; of rows that count.
  void count(size_t block, size_t first, size_t end);

  // Of a prefix and 16 last SNPs from lane on, what came of the latest count of it, for LaneKernels::derive.
  // b: of the 16, see LanePlanes.
  LaneDeriveInput counted(size_t prefix, size_t lane, size_t b) const;

  // What came of the filter for one of them: [kRowGroups], a bit for each SNP of the block; of those not
  // wanted any.
  const uint64_t* passing(size_t prefix) const { return passing_.data() + prefix * kRowGroups; }

 private:
  struct Prefix {
    std::vector<uint16_t> samples;
    std::vector<RowList> lists;
    std::vector<int16_t> values;
    std::vector<uint32_t> pairs;  // of counts: see LaneDeriveInput::list_pairs
    int32_t missing_excess = 0;   // a p1 - b m1 of row_filter.h, at most, and at least 0
    int32_t missing = 0;          // the larger of a p1 and b m1
    size_t first_snp = 0;
    size_t end_snp = 0;
  };

  int32_t most_missing(const int* comb) const {
    int32_t sum = 0;
    for (size_t j = 0; j < snp_planes_.size(); ++j) {
      sum += rows_.missing(static_cast<size_t>(comb[j])).larger();
    }
    return sum;
  }

  // The planes of one SNP of the prefix, kept while prefixes have it in common.
  struct SnpPlanes {
    int snp = -1;
    std::vector<uint64_t> words;  // [3][words], and one more
  };

  bool counts() const { return rows_.weights().form == RowValues::kCounts; }
  RowPieces row_pieces() const;
  void make_views(size_t block, size_t first, size_t end);
  void set_values(Prefix& prefix);
  void set_last_slacks(size_t block, float floor);
  void set_pairs(Prefix& prefix);

  const SampleRows& rows_;
  const LanePlanes& planes_;
  const Segments& segments_;
  const RowKernels& kernels_;
  const size_t n_folds_;
  size_t n_patterns_ = 1;
  size_t n_lists_ = 0;  // of a piece, each for both classes
  size_t n_prefixes_ = 0;
  std::vector<Prefix> prefixes_;
  std::vector<RowPrefix> views_;
  std::vector<SnpPlanes> snp_planes_;
  std::vector<uint16_t> counts_;         // [pieces][lists][2], see RowListInput
  std::vector<int32_t> by_pair_;         // [pairs] values of a pattern
  std::vector<int32_t> left_;            // [pairs] values that no pattern has had
  AlignedVector<uint8_t> values_;        // scratch of the filter
  AlignedVector<uint8_t> slack_bytes_;   // [kRowLanes] of the last SNPs; bytes, or
  AlignedVector<int16_t> slack_words_;   // words
  AlignedVector<uint32_t> pair_counts_;  // [prefixes][pairs][cells][kCountStride], see RowCountInput
  size_t counted_cells_ = 0;             // of the latest count
  size_t first_counted_ = 0;             // its first prefix
  std::vector<uint64_t> passing_;
};
