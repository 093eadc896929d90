// SPDX-License-Identifier: Apache-2.0
//
// Genotypes as bit planes: for each SNP three planes, one per genotype; bit i of a plane is set when the
// sample at position i of the segment layout has that genotype. A missing genotype is in none of the three;
// the bits that pad a segment are clear.
#pragma once

#include <cstdint>
#include <vector>

#include "device/segments.h"

class BitPlanes {
 public:
  // A transposed problem has no counted samples: all planes are clear.
  BitPlanes(const Problem& problem, const Segments& segments);

  int words() const { return words_; }

  // [words()] of genotype 0, 1 or 2 of a SNP.
  const uint64_t* plane(int snp, int genotype) const {
    return bits_.data() +
           (static_cast<size_t>(snp) * 3 + static_cast<size_t>(genotype)) * static_cast<size_t>(words_);
  }

 private:
  int words_;
  std::vector<uint64_t> bits_;  // [snp][genotype][word]
};
