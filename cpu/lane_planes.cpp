// SPDX-License-Identifier: Apache-2.0
#include "cpu/lane_planes.h"

#include <algorithm>
#include <bit>

#include "lib/packed_genotypes.h"
#include "util/stop_signal.h"

static_assert(kLanes == kGenotypesPerWord, "a packed word holds the genotypes of one block");

LanePlanes::LanePlanes(const Problem& problem, const Segments& segments)
    : words_(static_cast<size_t>(segments.words())),
      n_pairs_(segments.samples.size() / 2),
      snp_missing_(static_cast<size_t>(problem.n_snps), 0) {
  const auto n_snps = static_cast<size_t>(problem.n_snps);
  const size_t n_blocks = (n_snps + kLanes - 1) / kLanes;
  bits_.assign(n_blocks * words_ * 3 * kLanes, 0);
  marginals_.assign(n_blocks * 3 * n_pairs_ * kLanes, 0);
  block_missing_.assign(n_blocks, 0);
  if (problem.transposed) {
    return;
  }
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    const std::vector<int>& samples = segments.samples[segment];
    for (size_t first = 0; first < samples.size() && stop_signal() == 0; first += kSamplesPerPlaneWord) {
      const size_t w = static_cast<size_t>(segments.first_word[segment]) + first / kSamplesPerPlaneWord;
      const size_t n = std::min<size_t>(kSamplesPerPlaneWord, samples.size() - first);
      for (size_t b = 0; b < n_blocks; ++b) {
        const size_t lanes = std::min(kLanes, n_snps - b * kLanes);
        uint64_t* planes = bits_.data() + (b * words_ + w) * 3 * kLanes;
        for (size_t i = 0; i < n; ++i) {
          uint32_t genotypes = problem.row(static_cast<size_t>(samples[first + i]))[b];
          for (size_t lane = 0; lane < lanes; ++lane, genotypes >>= 2) {
            const uint32_t genotype = genotypes & 3u;
            if (genotype == kMissingGenotype) {
              snp_missing_[b * kLanes + lane] = 1;
              block_missing_[b] = 1;
            } else {
              planes[genotype * kLanes + lane] |= uint64_t{1} << i;
            }
          }
        }
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
            out[lane] += static_cast<uint32_t>(std::popcount(block(b)[(w * 3 + genotype) * kLanes + lane]))
                         << (16 * (segment % 2));
          }
        }
      }
    }
  }
}
