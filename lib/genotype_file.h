// SPDX-License-Identifier: Apache-2.0
//
// The constants of a genotype file (docs/formats.md): a header, the slots of the SNP names, and a body in one
// of two layouts. The one place that knows them; lib/packed_genotypes.h knows the bits of a word.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "lib/packed_genotypes.h"

static_assert(std::endian::native == std::endian::little,
              "genotype files are little-endian and are read and written as they are");

inline constexpr char kGenotypeMagic[4] = {'T', 'A', 'V', 'O'};
inline constexpr int kLargestLabel = 255;  // bytes of a slot, the name's NUL included
inline constexpr int64_t kClassSize = 4;   // bytes of a class
inline constexpr int64_t kPackedWordSize = sizeof(uint32_t);

// The first bytes of the file.
struct GenotypeFileHeader {
  char magic[4];
  int32_t n_samples;
  int32_t n_snps;
  int32_t label_width;
};
inline constexpr int64_t kGenotypeHeaderSize = 16;
static_assert(sizeof(GenotypeFileHeader) == kGenotypeHeaderSize);

enum class Layout {
  kNormal,      // sample-major: for each sample its class and its genotypes
  kTransposed,  // SNP-major: a block with the class bytes, then for each SNP the samples' genotypes
};

// Bytes in front of the body, where the slots end. No overflow for any header of positive numbers.
constexpr int64_t genotype_body_offset(int64_t n_snps, int64_t label_width) {
  return kGenotypeHeaderSize + n_snps * label_width;
}

// Bytes of one sample's record in the normal layout.
constexpr int64_t sample_record_size(int64_t n_snps) {
  return kClassSize + kPackedWordSize * packed_words(n_snps);
}

// Bytes of the body. The two layouts have the same number of classes.
constexpr int64_t genotype_body_size(Layout layout, int64_t n_samples, int64_t n_snps) {
  const int64_t words =
      layout == Layout::kNormal ? n_samples * packed_words(n_snps) : n_snps * packed_words(n_samples);
  return kClassSize * n_samples + kPackedWordSize * words;
}
