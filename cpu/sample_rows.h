// SPDX-License-Identifier: Apache-2.0
//
// What the row filter reads of the last SNPs: bit rows of genotypes 1 and 2 with 512 SNPs side by side, one
// row per sample and genotype (and of missing genotypes, for counts); the weights of cases and controls; and
// the SNPs' own values.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "cpu/aligned_vector.h"
#include "cpu/lane_planes.h"
#include "cpu/row_filter.h"
#include "device/segments.h"
#include "lib/packed_genotypes.h"

// How the filter sees the classes; see row_filter.h.
struct RowWeights {
  RowValues form = RowValues::kWords;
  bool cases_plus = true;  // the plus class
  int plus = 1;
  int minus = 1;

  int32_t value(int32_t cases, int32_t controls) const {
    return cases_plus ? plus * cases - minus * controls : plus * controls - minus * cases;
  }
};

// Weights for training samples of these numbers, [folds], in samples of the classes laid out in segments:
// both 1 where that is near enough, else the closest from above that keep all sums in 16 bits. equal: the
// measure itself weighs both classes alike, cases plus. None where there are none, or a fold lacks a class.
std::optional<RowWeights> row_weights(const std::vector<int32_t>& training_cases,
                                      const std::vector<int32_t>& training_controls, const Segments& segments,
                                      bool equal);

class SampleRows {
 public:
  // with_missing: whether SNPs with missing genotypes can be filtered, too; counts are of any.
  SampleRows(const Problem& problem, const LanePlanes& planes, const Segments& segments, RowWeights weights,
             bool with_missing);

  RowWeights weights() const { return weights_; }

  // Pairs of segments that have samples of the search: all folds', and that of no fold where it is not empty.
  size_t n_pairs() const { return n_pairs_; }

  const std::vector<RowPiece>& pieces() const { return pieces_; }

  // The samples of piece p: controls ([2 p]), then cases ([2 p + 1]), then one whose rows have no bits. Bytes
  // are those of a plane of whole words for each segment.
  const std::vector<RowPart>& parts() const { return parts_; }

  // Of SNPs b * kRowLanes .. b * kRowLanes + 511: rows, and their own values; see RowFilterInput.
  const uint8_t* block(size_t b) const { return rows_.data() + b * n_samples_ * kSampleBytes; }
  // Of a block that lacks a genotype; otherwise null. See RowCountInput.
  const uint8_t* missing_block(size_t b) const {
    return block_missing_[b] != 0 ? missing_rows_.data() + b * n_samples_ * kRowBytes : nullptr;
  }

  // Whether a genotype is missing anywhere.
  bool any_missing() const { return !missing_rows_.empty(); }

  const uint8_t* last_bytes(size_t b) const { return last_bytes_.data() + b * n_folds_ * 2 * kRowLanes; }
  const int16_t* last_words(size_t b) const { return last_words_.data() + b * words_of_block() * kRowLanes; }

  const void* last_slacks(size_t b) const {
    return weights_.form == RowValues::kBytes ? static_cast<const void*>(slack_bytes_.data() + b * kRowLanes)
                                              : slack_words_.data() + b * kRowLanes;
  }

  // Of a SNP; 0 where no listed sample lacks the genotype.
  int32_t slack(int snp) const { return slacks_[static_cast<size_t>(snp)]; }

  // The largest slack that the filter takes, of a SNP and of a prefix.
  int32_t largest_slack() const { return largest_slack_; }

  // Whether the filter takes the SNPs of the block.
  bool takes(size_t b) const { return takes_[b] != 0; }

 private:
  size_t words_of_block() const { return weights_.form == RowValues::kBytes ? 2 : 2 * n_folds_; }
  void lay_out(const Segments& segments);
  void find_missing(const LanePlanes& planes);
  void fill_rows(const Problem& problem, const Segments& segments);
  // Packed words of a group of SNPs.
  static constexpr size_t kWordsOfGroup = kGroupLanes / kGenotypesPerWord;
  void set_bits(size_t group, size_t sample, const uint32_t (&packed)[kWordsOfGroup], bool minus);
  void fill_values(const LanePlanes& planes, size_t n_snps, size_t b);
  void fill_slacks(const LanePlanes& planes, const Segments& segments);

  RowWeights weights_;
  size_t n_folds_;
  size_t n_pairs_;
  size_t n_samples_ = 0;  // with those whose rows have no bits
  std::vector<RowPiece> pieces_;
  std::vector<RowPart> parts_;
  AlignedVector<uint8_t> rows_;
  AlignedVector<uint8_t> missing_rows_;
  std::vector<uint8_t> block_missing_;  // [blocks]
  AlignedVector<uint8_t> last_bytes_;
  AlignedVector<int16_t> last_words_;
  AlignedVector<uint8_t> slack_bytes_;
  AlignedVector<int16_t> slack_words_;
  int32_t largest_slack_;
  std::vector<int32_t> slacks_;  // [SNPs]
  std::vector<uint8_t> takes_;   // [blocks]
};
