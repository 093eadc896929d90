// SPDX-License-Identifier: Apache-2.0
#include "cpu/bit_planes.h"

#include <algorithm>
#include <array>

#include "lib/packed_genotypes.h"
#include "util/stop_signal.h"

BitPlanes::BitPlanes(const Problem& problem, const Segments& segments)
    : words_(segments.words()),
      bits_(3 * static_cast<size_t>(problem.n_snps) * static_cast<size_t>(segments.words()), 0) {
  if (problem.transposed) {
    return;
  }
  for (int segment = 0; segment < segments.count(); ++segment) {
    const std::vector<int>& samples = segments.samples[static_cast<size_t>(segment)];
    for (size_t first = 0; first < samples.size() && stop_signal() == 0; first += kSamplesPerPlaneWord) {
      const size_t word = static_cast<size_t>(segments.first_word[static_cast<size_t>(segment)]) +
                          first / kSamplesPerPlaneWord;
      const size_t n = std::min<size_t>(kSamplesPerPlaneWord, samples.size() - first);
      for (size_t snp = 0; snp < static_cast<size_t>(problem.n_snps); ++snp) {
        std::array<uint64_t, 4> planes{};  // the fourth collects the missing ones and is dropped
        for (size_t i = 0; i < n; ++i) {
          const uint32_t* row = problem.row(static_cast<size_t>(samples[first + i]));
          planes[packed_genotype(row, snp)] |= uint64_t{1} << i;
        }
        for (size_t genotype = 0; genotype < 3; ++genotype) {
          bits_[(snp * 3 + genotype) * static_cast<size_t>(words_) + word] = planes[genotype];
        }
      }
    }
  }
}
