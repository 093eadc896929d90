// SPDX-License-Identifier: Apache-2.0
#include "cpu/lane_planes.h"

#include <algorithm>

#include "cpu/shares.h"
#include "lib/bits.h"
#include "lib/packed_genotypes.h"
#include "util/stop_signal.h"

static_assert(kLanes == kGenotypesPerWord, "a packed word holds the genotypes of one block");

namespace {
// Blocks whose SNPs are transposed at once.
constexpr size_t kBlocksPerSquare = 2;
static_assert(kBlocksPerSquare * kLanes * 2 == 64, "a row of a square is two bits of each SNP");
}  // namespace

LanePlanes::LanePlanes(const Problem& problem, const Segments& segments, size_t threads)
    : words_(static_cast<size_t>(segments.words())),
      n_pairs_(segments.samples.size() / 2),
      snp_missing_(static_cast<size_t>(problem.n_snps), 0) {
  const auto n_snps = static_cast<size_t>(problem.n_snps);
  const size_t n_blocks = (n_snps + kLanes - 1) / kLanes;
  // Where no sample has a genotype, no count may be taken from what the others leave of a class.
  bits_.assign(n_blocks * words_ * 2 * kLanes, problem.transposed ? ~uint64_t{0} : 0);
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    for (size_t left = segments.samples[segment].size(); left > 0;) {
      const size_t n = std::min<size_t>(left, kSamplesPerPlaneWord);
      occupied_.push_back(n == kSamplesPerPlaneWord ? ~uint64_t{0} : (uint64_t{1} << n) - 1);
      left -= n;
    }
  }
  marginals_.assign(n_blocks * 3 * n_pairs_ * kLanes, 0);
  totals_.assign(n_blocks * 3 * kLanes, 0);
  block_missing_.assign(n_blocks, 0);
  if (problem.transposed) {
    snp_missing_.assign(n_snps, 1);
    block_missing_.assign(n_blocks, 1);
    return;
  }
  const size_t n_squares = (n_blocks + kBlocksPerSquare - 1) / kBlocksPerSquare;
  fill_in_shares(n_squares, threads, [&](size_t first, size_t end) {
    fill_blocks(problem, segments, first * kBlocksPerSquare, std::min(end * kBlocksPerSquare, n_blocks));
  });
}

// Planes and marginals of blocks first .. end - 1, first being even.
void LanePlanes::fill_blocks(const Problem& problem, const Segments& segments, size_t first, size_t end) {
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    const std::vector<int>& samples = segments.samples[segment];
    for (size_t i = 0; i < samples.size() && stop_signal() == 0; i += kSamplesPerPlaneWord) {
      const size_t w = static_cast<size_t>(segments.first_word[segment]) + i / kSamplesPerPlaneWord;
      const size_t n = std::min<size_t>(kSamplesPerPlaneWord, samples.size() - i);
      for (size_t b = first; b < end; b += kBlocksPerSquare) {
        fill_planes(problem, samples.data() + i, n, b, w);
      }
    }
  }
  for (size_t b = first; b < end; ++b) {
    count_marginals(segments, b);
  }
}

void LanePlanes::count_marginals(const Segments& segments, size_t b) {
  const size_t lanes = std::min(kLanes, snp_missing_.size() - b * kLanes);
  for (size_t genotype = 0; genotype < 3; ++genotype) {
    for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
      uint32_t* out = marginals_.data() + ((b * 3 + genotype) * n_pairs_ + segment / 2) * kLanes;
      for (auto w = static_cast<size_t>(segments.first_word[segment]);
           w < static_cast<size_t>(segments.first_word[segment + 1]); ++w) {
        for (size_t lane = 0; lane < lanes; ++lane) {
          const uint64_t bits = genotype_bits(block(b) + w * 2 * kLanes + lane, genotype) & occupied_[w];
          out[lane] += ones_of(bits) << (16 * (segment % 2));
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

// Word w of the planes of blocks b and b + 1, for n samples.
void LanePlanes::fill_planes(const Problem& problem, const int* samples, size_t n, size_t b, size_t w) {
  const size_t n_snps = snp_missing_.size();
  const size_t blocks = std::min(kBlocksPerSquare, block_missing_.size() - b);
  BitSquare square{};  // of sample i; then the low bits of SNP i / 2, the high bits
  for (size_t i = 0; i < n; ++i) {
    const uint32_t* packed = problem.row(static_cast<size_t>(samples[i])) + b;
    square[i] = packed[0] | (blocks > 1 ? uint64_t{packed[1]} << 32 : 0);
  }
  transpose(square);
  const size_t snps = std::min(blocks * kLanes, n_snps - b * kLanes);
  for (size_t i = 0; i < snps; ++i) {
    const uint64_t low = square[2 * i];
    const uint64_t high = square[2 * i + 1];
    uint64_t* planes = bits_.data() + ((b + i / kLanes) * words_ + w) * 2 * kLanes + i % kLanes;
    planes[0] = low;
    planes[kLanes] = high;
    static_assert(kMissingGenotype == 3);
    if ((low & high) != 0) {
      snp_missing_[b * kLanes + i] = 1;
      block_missing_[b + i / kLanes] = 1;
    }
  }
}
