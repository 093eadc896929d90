// SPDX-License-Identifier: Apache-2.0
//
// Genotypes of one SNP side by side, a byte for each sample: the records of a few combinations, fold by fold,
// look at the same SNPs again and again, each of which is a word in every row of the packed matrix.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "device/problem.h"

class GenotypeColumns {
 public:
  // problem, in the normal layout, outlives the object.
  explicit GenotypeColumns(const Problem& problem);

  // out[order]: the columns of comb's SNPs, [n_samples] codes each. They hold until the next call.
  void take(const int* comb, size_t order, const uint8_t** out);

 private:
  const uint8_t* column(int snp);

  const Problem& problem_;
  size_t most_;  // columns that are kept
  std::unordered_map<int, std::vector<uint8_t>> columns_;
};
