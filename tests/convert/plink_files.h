// SPDX-License-Identifier: Apache-2.0
//
// PLINK 1 binary files written byte by byte from a data set (no code shared with the program).
#pragma once

#include <filesystem>
#include <string>

#include "tests/support/genotype_file.h"

namespace tavo_test {

// Genotypes are copies of the first allele of the .bim file.
std::string bed_bytes(const GenotypeData& data);

// Lines `1 NAME 0 POSITION A G`, tab-separated.
std::string bim_text(const GenotypeData& data);

// Lines `Fi Ii 0 0 1 PHENOTYPE`, tab-separated, i from 1; 2 case, 1 control.
std::string fam_text(const GenotypeData& data);

// prefix.bed, prefix.bim and prefix.fam.
void write_plink_files(const std::filesystem::path& prefix, const GenotypeData& data);

}  // namespace tavo_test
