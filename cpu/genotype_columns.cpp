// SPDX-License-Identifier: Apache-2.0
#include "cpu/genotype_columns.h"

#include <algorithm>

#include "lib/packed_genotypes.h"

namespace {
constexpr size_t kMostBytes = size_t{4} << 20;
// What the map and the allocator add to a column.
constexpr size_t kBytesBeside = 128;
}  // namespace

GenotypeColumns::GenotypeColumns(const Problem& problem)
    : problem_(problem), most_(kMostBytes / (static_cast<size_t>(problem.n_samples) + kBytesBeside)) {}

void GenotypeColumns::take(const int* comb, size_t order, const uint8_t** out) {
  if (columns_.size() + order > std::max(most_, order)) {
    columns_.clear();
  }
  for (size_t j = 0; j < order; ++j) {
    out[j] = column(comb[j]);
  }
}

const uint8_t* GenotypeColumns::column(int snp) {
  std::vector<uint8_t>& codes = columns_[snp];
  if (codes.empty()) {
    codes.resize(static_cast<size_t>(problem_.n_samples));
    for (size_t sample = 0; sample < codes.size(); ++sample) {
      codes[sample] = static_cast<uint8_t>(packed_genotype(problem_.row(sample), static_cast<size_t>(snp)));
    }
  }
  return codes.data();
}
