// SPDX-License-Identifier: Apache-2.0
#include "cpu/lane_planes.h"

#include <algorithm>

#include "lib/bits.h"
#include "lib/packed_genotypes.h"
#include "util/stop_signal.h"

static_assert(kLanes == kGenotypesPerWord, "a packed word holds the genotypes of one block");

namespace {
// Blocks whose SNPs are transposed at once.
constexpr size_t kBlocksPerSquare = 64 / kLanes;
}  // namespace

LanePlanes::LanePlanes(const Problem& problem, const Segments& segments)
    : words_(static_cast<size_t>(segments.words())),
      n_pairs_(segments.samples.size() / 2),
      snp_missing_(static_cast<size_t>(problem.n_snps), 0) {
  const auto n_snps = static_cast<size_t>(problem.n_snps);
  const size_t n_blocks = (n_snps + kLanes - 1) / kLanes;
  bits_.assign(n_blocks * words_ * 3 * kLanes, 0);
  marginals_.assign(n_blocks * 3 * n_pairs_ * kLanes, 0);
  totals_.assign(n_blocks * 3 * kLanes, 0);
  block_missing_.assign(n_blocks, 0);
  if (problem.transposed) {
    // No sample has a genotype here: no count may be taken from what the others leave of a class.
    snp_missing_.assign(n_snps, 1);
    block_missing_.assign(n_blocks, 1);
    return;
  }
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    const std::vector<int>& samples = segments.samples[segment];
    for (size_t first = 0; first < samples.size() && stop_signal() == 0; first += kSamplesPerPlaneWord) {
      const size_t w = static_cast<size_t>(segments.first_word[segment]) + first / kSamplesPerPlaneWord;
      const size_t n = std::min<size_t>(kSamplesPerPlaneWord, samples.size() - first);
      for (size_t b = 0; b < n_blocks; b += kBlocksPerSquare) {
        fill_planes(problem, samples.data() + first, n, b, w);
      }
    }
  }
  for (size_t b = 0; b < n_blocks; ++b) {
    for (size_t genotype = 0; genotype < 3; ++genotype) {
      for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
        uint32_t* out = marginals_.data() + ((b * 3 + genotype) * n_pairs_ + segment / 2) * kLanes;
        for (auto w = static_cast<size_t>(segments.first_word[segment]);
             w < static_cast<size_t>(segments.first_word[segment + 1]); ++w) {
          for (size_t lane = 0; lane < kLanes; ++lane) {
            out[lane] += ones_of(block(b)[(w * 3 + genotype) * kLanes + lane]) << (16 * (segment % 2));
          }
        }
      }
      uint32_t* total = totals_.data() + (b * 3 + genotype) * kLanes;
      for (size_t pair = 0; pair < n_pairs_; ++pair) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
          total[lane] += marginals(b)[(genotype * n_pairs_ + pair) * kLanes + lane];
        }
      }
    }
  }
}

// Word w of the planes of blocks b .. b + 3, for n samples.
void LanePlanes::fill_planes(const Problem& problem, const int* samples, size_t n, size_t b, size_t w) {
  const size_t n_snps = snp_missing_.size();
  const size_t blocks = std::min(kBlocksPerSquare, block_missing_.size() - b);
  BitSquare low{};  // of sample i, then of SNP i
  BitSquare high{};
  for (size_t i = 0; i < n; ++i) {
    const uint32_t* packed = problem.row(static_cast<size_t>(samples[i])) + b;
    for (size_t j = 0; j < blocks; ++j) {
      low[i] |= static_cast<uint64_t>(even_bits(packed[j])) << (j * kLanes);
      high[i] |= static_cast<uint64_t>(even_bits(packed[j] >> 1)) << (j * kLanes);
    }
  }
  transpose(low);
  transpose(high);
  const uint64_t listed = n == 64 ? ~uint64_t{0} : (uint64_t{1} << n) - 1;
  const size_t snps = std::min(blocks * kLanes, n_snps - b * kLanes);
  for (size_t i = 0; i < snps; ++i) {
    uint64_t* planes = bits_.data() + ((b + i / kLanes) * words_ + w) * 3 * kLanes + i % kLanes;
    planes[0] = listed & ~(low[i] | high[i]);
    planes[kLanes] = low[i] & ~high[i];
    planes[2 * kLanes] = high[i] & ~low[i];
    static_assert(kMissingGenotype == 3);
    if ((low[i] & high[i]) != 0) {
      snp_missing_[b * kLanes + i] = 1;
      block_missing_[b + i / kLanes] = 1;
    }
  }
}
