// SPDX-License-Identifier: Apache-2.0
//
// PLINK 1 binary: PREFIX.bed, PREFIX.bim and PREFIX.fam, variant-major. The counted allele is A1, the fifth
// column of the .bim file.
#pragma once

#include <string>
#include <vector>

#include "tools/genotype_source.h"
#include "tools/input_file.h"

// The endings of the three files.
inline constexpr const char* kBedEnding = ".bed";
inline constexpr const char* kBimEnding = ".bim";
inline constexpr const char* kFamEnding = ".fam";

// The first bytes of a .bed file: two that name the format, and 1 for variant-major.
inline constexpr unsigned char kBedMagic[3] = {0x6c, 0x1b, 0x01};
inline constexpr unsigned char kSampleMajorMode = 0;

// Bytes of a variant in a .bed file.
constexpr int64_t bed_row_size(int64_t n_samples) {
  return (n_samples + 3) / 4;
}

class BedSource : public GenotypeSource {
 public:
  // Reads the .fam and the .bim file, and checks the size of the .bed file against them.
  Status open(const std::string& prefix);

  Status read(int64_t first, int64_t count, uint32_t* rows) override;

 private:
  Status read_fam(const std::string& path);
  Status read_bim(const std::string& path);
  Status check_bed(const std::string& prefix);

  InputFile bed_;
  std::vector<unsigned char> bytes_;
};
