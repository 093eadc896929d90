// SPDX-License-Identifier: Apache-2.0
//
// What the row filter reads of the last SNPs: bit rows of genotypes with 512 SNPs side by side, two rows per
// sample (genotypes 1 and 2 or, for counts, the low and the high bit); the weights of cases and controls; and
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
  // threads: that share the work.
  SampleRows(const Problem& problem, const LanePlanes& planes, const Segments& segments, RowWeights weights,
             size_t threads = 1);

  RowWeights weights() const { return weights_; }

  // Pairs of segments that have samples of the search: all folds', and that of no fold where it is not empty.
  size_t n_pairs() const { return n_pairs_; }

  const std::vector<RowPiece>& pieces() const { return pieces_; }
  size_t n_samples() const { return n_samples_; }  // of all pieces, see RowPieces

  // The samples of piece p: controls ([2 p]), then cases ([2 p + 1]), then one whose rows have no bits. Bytes
  // are those of a plane of whole words for each segment.
  const std::vector<RowPart>& parts() const { return parts_; }

  // Of SNPs b * kRowLanes .. b * kRowLanes + 511: rows, and their own values; see RowFilterInput.
  const uint8_t* block(size_t b) const { return rows_.data() + b * n_samples_ * kSampleBytes; }
  // Whether a genotype of the block is missing.
  bool block_missing(size_t b) const { return block_missing_[b] != 0; }

  // Whether a genotype is missing anywhere.
  bool any_missing() const { return any_missing_; }

  const uint8_t* last_bytes(size_t b) const { return last_bytes_.data() + b * n_folds_ * 2 * kRowLanes; }
  const int16_t* last_words(size_t b) const { return last_words_.data() + b * words_of_block() * kRowLanes; }

  // The weights of the plus and of the minus samples that lack a SNP's genotype, for slacks; see
  // row_filter.h.
  struct Missing {
    int32_t plus = 0;
    int32_t minus = 0;
    int32_t larger() const { return plus > minus ? plus : minus; }
  };
  const Missing& missing(size_t snp) const { return missing_[snp]; }
  size_t n_snps() const { return missing_.size(); }

  // Slacks hold for SNPs and prefixes that lack no more than this.
  int32_t most_missing() const { return most_missing_; }

  // Of a block's SNPs those that lack more: [kRowGroups], a bit each.
  const uint64_t* beyond_slack(size_t b) const { return beyond_slack_.data() + b * kRowGroups; }

 private:
  size_t words_of_block() const { return weights_.form == RowValues::kBytes ? 2 : 2 * n_folds_; }
  void lay_out(const Segments& segments);
  void find_missing(const LanePlanes& planes);
  void weigh_missing(const LanePlanes& planes, const Segments& segments);
  // Of blocks first .. end - 1.
  void fill_rows(const Problem& problem, const Segments& segments, size_t first, size_t end);
  // Packed words of a group of SNPs.
  static constexpr size_t kWordsOfGroup = kGroupLanes / kGenotypesPerWord;
  void set_bits(size_t group, size_t sample, const uint32_t (&packed)[kWordsOfGroup], bool minus);
  void fill_values(const LanePlanes& planes, size_t n_snps, size_t b);

  RowWeights weights_;
  size_t n_folds_;
  size_t n_pairs_;
  size_t n_samples_ = 0;  // with those whose rows have no bits
  std::vector<RowPiece> pieces_;
  std::vector<RowPart> parts_;
  AlignedVector<uint8_t> rows_;
  std::vector<uint8_t> block_missing_;  // [blocks]
  AlignedVector<uint8_t> last_bytes_;
  AlignedVector<int16_t> last_words_;
  bool any_missing_ = false;
  int32_t most_missing_ = 0;
  std::vector<Missing> missing_;        // [SNPs], not of counts
  std::vector<uint64_t> beyond_slack_;  // [blocks][kRowGroups], not of counts
};
