// SPDX-License-Identifier: Apache-2.0
//
// Small genotype data sets for tests, and their file form written byte by byte (no code shared with the
// program).
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace tavo_test {

struct GenotypeData {
  int n_samples = 0;
  int n_snps = 0;
  std::vector<uint8_t> classes;    // [n_samples]
  std::vector<uint8_t> genotypes;  // [n_samples][n_snps], 0, 1, 2 or 3 (missing)
  std::vector<std::string> names;  // [n_snps]

  uint8_t at(int sample, int snp) const {
    return genotypes[static_cast<size_t>(sample) * static_cast<size_t>(n_snps) + static_cast<size_t>(snp)];
  }
};

// Random genotypes and classes; each genotype is missing with probability `missing`. Names are rs0, rs1, ...
GenotypeData random_data(std::mt19937& random, int n_samples, int n_snps, double missing);

// The file's bytes. label_width 0 takes the longest name plus its NUL.
std::string normal_file(const GenotypeData& data, int label_width = 0);
std::string transposed_file(const GenotypeData& data, int label_width = 0);

// A 32-bit little-endian integer as 4 bytes.
std::string le32(uint32_t value);

}  // namespace tavo_test
