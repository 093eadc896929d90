// SPDX-License-Identifier: Apache-2.0
//
// What tavo-score reads: the phenotypes of a genotype file, and a covariate file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib/genotype_file.h"
#include "tools/residuals.h"
#include "util/status.h"

enum class PhenotypeKind { kLogistic, kLinear };

// One value per sample: 1 for class 1 and 0 for any other, or the quantitative value (kLinear: the class
// field is a float). Reads past the genotypes, in little memory. A float that is no number is refused.
// n_other_classes: how many classes are neither 0 nor 1; 0 for quantitative values.
Status read_phenotypes(const std::string& path, Layout layout, PhenotypeKind kind,
                       std::vector<double>* phenotypes, size_t* n_other_classes);

struct CovariateTable {
  Covariates covariates;
  std::vector<uint8_t> missing;  // [n_samples], 1 where a value is missing; its row is 0 then
  size_t n_missing = 0;
  uint64_t first_missing_line = 0;
};

// Tab-separated: a header line, then n_samples lines, each with two identifiers and the covariates; NA is
// missing.
Status read_covariate_table(const std::string& path, size_t n_samples, CovariateTable* table);
