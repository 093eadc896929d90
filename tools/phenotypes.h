// SPDX-License-Identifier: Apache-2.0
//
// The phenotype of every sample, from wherever it stands, as the word that a genotype file holds.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/genotype_source.h"
#include "tools/sample_index.h"
#include "util/status.h"

struct Phenotypes {
  bool quantitative = false;
  std::vector<uint8_t> present;  // [samples] 0 where the phenotype is missing
  std::vector<uint32_t> words;   // [samples] 1 case, 0 control; or the bits of a float
  std::string note;              // what was read and how it is coded, a line; "" when it goes without saying
};

// From the sixth column of a .fam file: 1 control, 2 case, 0, -9 or NA missing; or numbers, -9 or NA missing.
// From the classes of a genotype file or a text table: 1 case, 0 control; or the bits of floats.
Status own_phenotypes(const std::string& input, const GenotypeSource& source, bool quantitative,
                      Phenotypes* phenotypes);

// From a column of a file; without a name the file must have one only. For cases and controls the coding is
// 1/2 when there is a 2 (0 is missing then) and else 0/1; -9 and NA are missing in both. A sample without a
// line has no phenotype.
Status file_phenotypes(const std::string& path, const std::optional<std::string>& name, bool quantitative,
                       const GenotypeSource& source, const SampleIndex& index, Phenotypes* phenotypes);

// The word of a quantitative phenotype, and back.
uint32_t word_of_float(float value);
float float_of_word(uint32_t word);
