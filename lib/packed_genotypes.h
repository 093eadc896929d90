// SPDX-License-Identifier: Apache-2.0
//
// The packed genotype matrix: two-bit codes, 16 to a 32-bit word, lowest bits first. 0, 1 and 2 are the
// genotypes, 3 is missing. The one place that knows the bit layout of a word.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/host_device.h"

inline constexpr int kGenotypesPerWord = 16;
inline constexpr unsigned kMissingGenotype = 3;

// Words that `count` genotypes take, count >= 0.
constexpr int64_t packed_words(int64_t count) {
  return (count + kGenotypesPerWord - 1) / kGenotypesPerWord;
}

// Genotype `column` of the row that starts at `row_words`.
TAVO_HOST_DEVICE unsigned packed_genotype(const uint32_t* row_words, size_t column) {
  return (row_words[column / kGenotypesPerWord] >> (2 * (column % kGenotypesPerWord))) & 3u;
}

// Sets genotype `column` of the row that starts at `row_words`, where it still is 0.
inline void put_packed_genotype(uint32_t* row_words, size_t column, unsigned code) {
  row_words[column / kGenotypesPerWord] |= code << (2 * (column % kGenotypesPerWord));
}
