// SPDX-License-Identifier: Apache-2.0
#include "tests/support/genotype_file.h"

#include <algorithm>

namespace tavo_test {

GenotypeData random_data(std::mt19937& random, int n_samples, int n_snps, double missing) {
  GenotypeData data;
  data.n_samples = n_samples;
  data.n_snps = n_snps;
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::uniform_int_distribution<int> genotype(0, 2);
  const double case_share = 0.3 + 0.4 * unit(random);
  for (int s = 0; s < n_samples; ++s) {
    data.classes.push_back(unit(random) < case_share ? 1 : 0);
    for (int j = 0; j < n_snps; ++j) {
      data.genotypes.push_back(static_cast<uint8_t>(unit(random) < missing ? 3 : genotype(random)));
    }
  }
  for (int j = 0; j < n_snps; ++j) {
    data.names.push_back("rs" + std::to_string(j));
  }
  return data;
}

std::string le32(uint32_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) {
    bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xffu));
  }
  return bytes;
}

namespace {

std::string header(const GenotypeData& data, int label_width) {
  size_t width = static_cast<size_t>(label_width);
  if (width == 0) {
    for (const std::string& name : data.names) {
      width = std::max(width, name.size() + 1);
    }
  }
  std::string bytes = "TAVO" + le32(static_cast<uint32_t>(data.n_samples)) +
                      le32(static_cast<uint32_t>(data.n_snps)) + le32(static_cast<uint32_t>(width));
  for (std::string slot : data.names) {
    slot.resize(width, '\0');
    bytes += slot;
  }
  return bytes;
}

// Packs `count` genotypes given by at(i), 16 to a word.
template <typename At>
std::string packed(int count, At at) {
  std::string bytes;
  uint32_t word = 0;
  for (int i = 0; i < count; ++i) {
    word |= static_cast<uint32_t>(at(i)) << (2 * (i % 16));
    if (i % 16 == 15 || i + 1 == count) {
      bytes += le32(word);
      word = 0;
    }
  }
  return bytes;
}

}  // namespace

std::string normal_file(const GenotypeData& data, int label_width) {
  std::string bytes = header(data, label_width);
  for (int s = 0; s < data.n_samples; ++s) {
    bytes += le32(data.classes[static_cast<size_t>(s)]);
    bytes += packed(data.n_snps, [&](int j) { return data.at(s, j); });
  }
  return bytes;
}

std::string transposed_file(const GenotypeData& data, int label_width) {
  std::string bytes = header(data, label_width);
  std::string classes(data.classes.begin(), data.classes.end());
  classes.resize(4 * static_cast<size_t>(data.n_samples), '\0');
  bytes += classes;
  for (int j = 0; j < data.n_snps; ++j) {
    bytes += packed(data.n_samples, [&](int s) { return data.at(s, j); });
  }
  return bytes;
}

}  // namespace tavo_test
