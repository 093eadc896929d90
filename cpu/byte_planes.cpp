// SPDX-License-Identifier: Apache-2.0
#include "cpu/byte_planes.h"

#include <algorithm>

namespace {

// Weights larger than this gain nothing: a bound that is 1% looser lets few more combinations pass.
constexpr int kLargestWeight = 256;

}  // namespace

std::optional<ByteWeights> byte_weights(const std::vector<int32_t>& training_cases,
                                        const std::vector<int32_t>& training_controls, int32_t most_cases,
                                        int32_t most_controls) {
  double ratio = 0.0;
  for (size_t f = 0; f < training_cases.size(); ++f) {
    if (training_cases[f] <= 0) {
      return std::nullopt;
    }
    ratio = std::max(ratio, static_cast<double>(training_controls[f]) / training_cases[f]);
  }
  std::optional<ByteWeights> best;
  double best_excess = 0.0;
  for (int controls = 1; controls <= kLargestWeight && int64_t{controls} * most_controls <= kLargestByteValue;
       ++controls) {
    int cases = std::max(1, static_cast<int>(controls * ratio));
    while (cases < controls * ratio) {  // the smallest integer that is not below
      ++cases;
    }
    const double excess = cases / (controls * ratio);
    if (static_cast<int64_t>(cases) * most_cases <= kLargestByteValue && (!best || excess < best_excess)) {
      best = ByteWeights{cases, controls};
      best_excess = excess;
    }
  }
  return best;
}

BytePlanes::BytePlanes(const LanePlanes& planes, const Segments& segments, int n_snps, ByteWeights weights)
    : weights_(weights), n_pairs_(segments.samples.size() / 2) {
  first_row_.push_back(0);
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    first_row_.push_back(first_row_.back() + static_cast<int>((segments.samples[segment].size() + 7) / 8));
    first_byte_.push_back(8 * segments.first_word[segment]);
  }
  const auto snps = static_cast<size_t>(n_snps);
  const size_t n_blocks = (snps + kByteLanes - 1) / kByteLanes;
  bytes_.assign(n_blocks * n_rows() * 2 * kByteLanes, 0);
  values_.assign(n_blocks * 2 * n_pairs_ * kByteLanes, 0);
  complete_.assign(n_blocks, 1);
  for (size_t b = 0; b < n_blocks; ++b) {
    uint8_t* block = bytes_.data() + b * n_rows() * 2 * kByteLanes;
    int16_t* values = values_.data() + b * 2 * n_pairs_ * kByteLanes;
    const size_t lanes = std::min(kByteLanes, snps - b * kByteLanes);
    for (size_t lane = 0; lane < lanes; ++lane) {
      const auto snp = static_cast<int>(b * kByteLanes + lane);
      complete_[b] = complete_[b] != 0 && !planes.snp_missing(snp) ? 1 : 0;
      for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
        const int weight = segment % 2 == 0 ? -weights.controls : weights.cases;
        for (int row = first_row_[segment]; row < first_row_[segment + 1]; ++row) {
          const auto byte = static_cast<size_t>(row - first_row_[segment]);
          const auto word = static_cast<size_t>(segments.first_word[segment]) + byte / 8;
          for (size_t g = 0; g < 2; ++g) {
            const auto bits = static_cast<uint8_t>(planes.word(snp, 1 + g, word) >> (8 * (byte % 8)));
            block[(static_cast<size_t>(row) * 2 + g) * kByteLanes + lane] = bits;
            int16_t& value = values[(g * n_pairs_ + segment / 2) * kByteLanes + lane];
            value = static_cast<int16_t>(value + weight * __builtin_popcount(bits));
          }
        }
      }
    }
  }
}
