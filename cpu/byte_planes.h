// SPDX-License-Identifier: Apache-2.0
//
// What the byte filter reads of the last SNPs: bit planes of genotypes 1 and 2 with 64 SNPs side by side, 8
// samples to a byte; the weights of cases and controls; and the SNPs' own values.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "cpu/byte_filter.h"
#include "cpu/lane_planes.h"
#include "device/segments.h"

// The integer weights of a case and of a control; see byte_filter.h.
struct ByteWeights {
  int cases = 1;
  int controls = 1;
};

// Weights for training samples of these numbers, [folds], where no segment has more than most_cases and
// most_controls samples: the closest to Q / P from above whose values of a segment are small enough. None
// where no weights are, or a fold has no cases.
std::optional<ByteWeights> byte_weights(const std::vector<int32_t>& training_cases,
                                        const std::vector<int32_t>& training_controls, int32_t most_cases,
                                        int32_t most_controls);

class BytePlanes {
 public:
  BytePlanes(const LanePlanes& planes, const Segments& segments, int n_snps, ByteWeights weights);

  ByteWeights weights() const { return weights_; }

  // [rows][2][kByteLanes] of SNPs b * kByteLanes .. b * kByteLanes + 63; lanes beyond the last SNP are clear.
  const uint8_t* block(size_t b) const { return bytes_.data() + b * n_rows() * 2 * kByteLanes; }

  // [segments + 1] first row of each segment, and [segments] its first byte within a plane of 64-bit words.
  const int* first_row() const { return first_row_.data(); }
  const int* first_byte() const { return first_byte_.data(); }

  // [2][pairs of segments][kByteLanes] values of genotypes 1 and 2.
  const int16_t* values(size_t b) const { return values_.data() + b * 2 * n_pairs_ * kByteLanes; }

  // Whether no listed sample lacks a genotype at any SNP of the block.
  bool complete(size_t b) const { return complete_[b] != 0; }

 private:
  size_t n_rows() const { return static_cast<size_t>(first_row_.back()); }

  ByteWeights weights_;
  size_t n_pairs_;
  std::vector<int> first_row_;
  std::vector<int> first_byte_;
  std::vector<uint8_t> bytes_;
  std::vector<int16_t> values_;
  std::vector<uint8_t> complete_;
};
