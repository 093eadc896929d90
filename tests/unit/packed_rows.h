// SPDX-License-Identifier: Apache-2.0
//
// Packed genotype rows written out bit by bit, for tests of what reads them.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace tavo_test {

// One row of genotypes per sample; all rows have the same length.
using GenotypeRows = std::vector<std::vector<int>>;

inline int words_per_row(const GenotypeRows& rows) {
  return static_cast<int>((rows.at(0).size() + 15) / 16);
}

inline std::vector<uint32_t> packed_rows(const GenotypeRows& rows) {
  std::vector<uint32_t> words;
  for (const std::vector<int>& row : rows) {
    for (size_t j = 0; j < row.size(); ++j) {
      if (j % 16 == 0) {
        words.push_back(0);
      }
      words.back() += static_cast<uint32_t>(row[j]) << (2 * (j % 16));
    }
  }
  return words;
}

// Genotypes 0 to `highest`, each as likely.
inline GenotypeRows random_rows(std::mt19937& random, size_t n_samples, size_t n_snps, int highest) {
  std::uniform_int_distribution<int> genotype(0, highest);
  GenotypeRows rows(n_samples, std::vector<int>(n_snps));
  for (std::vector<int>& row : rows) {
    for (int& value : row) {
      value = genotype(random);
    }
  }
  return rows;
}

inline std::vector<uint8_t> random_classes(std::mt19937& random, size_t n_samples) {
  std::uniform_int_distribution<int> one_class(0, 1);
  std::vector<uint8_t> classes(n_samples);
  for (uint8_t& value : classes) {
    value = static_cast<uint8_t>(one_class(random));
  }
  return classes;
}

}  // namespace tavo_test
