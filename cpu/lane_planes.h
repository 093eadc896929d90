// SPDX-License-Identifier: Apache-2.0
//
// Bit planes with the SNPs interleaved, kLanes at a time, for searches whose vector lanes hold different last
// SNPs.
#pragma once

#include <cstdint>
#include <vector>

#include "cpu/aligned_vector.h"
#include "cpu/lane_kernels.h"
#include "device/segments.h"

class LanePlanes {
 public:
  // threads: that share the work.
  LanePlanes(const Problem& problem, const Segments& segments, size_t threads = 1);

  size_t words() const { return words_; }

  // Two planes of SNPs b * kLanes .. b * kLanes + kLanes - 1, [words][2][kLanes]: the low and the high bits
  // of their genotypes. Both are set where a genotype is missing; both are clear for genotype 0, beyond the
  // last SNP, and beyond the last sample of a segment.
  const uint64_t* block(size_t b) const { return bits_.data() + b * words_ * 2 * kLanes; }

  // The samples that word w stands for.
  uint64_t occupied(size_t w) const { return occupied_[w]; }

  // Those of them that have this genotype, 0 to 2, at a SNP.
  uint64_t word(int snp, size_t genotype, size_t w) const {
    const auto s = static_cast<size_t>(snp);
    return genotype_bits(block(s / kLanes) + w * 2 * kLanes + s % kLanes, genotype) & occupied_[w];
  }

  // [3][pairs of segments][kLanes] counts of the genotypes of the block's SNPs, controls in the lower and
  // cases in the upper 16 bits. Of classes of at most kMaxClassSize samples.
  const uint32_t* marginals(size_t b) const { return marginals_.data() + b * 3 * n_pairs_ * kLanes; }

  // [3][kLanes] their sums over all pairs.
  const uint32_t* totals(size_t b) const { return totals_.data() + b * 3 * kLanes; }

  // Whether a listed sample's genotype is missing at this SNP, at any SNP of this block.
  bool snp_missing(int snp) const { return snp_missing_[static_cast<size_t>(snp)] != 0; }
  bool block_missing(size_t b) const { return block_missing_[b] != 0; }

 private:
  void fill_blocks(const Problem& problem, const Segments& segments, size_t first, size_t end);
  void count_marginals(const Segments& segments, size_t b);
  void fill_planes(const Problem& problem, const int* samples, size_t n, size_t b, size_t w);

  size_t words_;
  size_t n_pairs_;
  AlignedVector<uint64_t> bits_;
  std::vector<uint64_t> occupied_;  // [words]
  std::vector<uint32_t> marginals_;
  std::vector<uint32_t> totals_;
  std::vector<uint8_t> snp_missing_;
  std::vector<uint8_t> block_missing_;
};
