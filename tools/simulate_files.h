// SPDX-License-Identifier: Apache-2.0
//
// What tavo-simulate writes beside the genotypes: the truth and the covariates.
#pragma once

#include <string>
#include <vector>

#include "tools/simulate_source.h"
#include "util/output_file.h"
#include "util/status.h"

// Normal covariates, of variance 1 within cases and within controls.
struct CovariateRules {
  int count = 0;
  std::vector<double> effects;  // [count] log odds ratio per unit, given the other covariates
  double correlation = 0.0;     // of any two, within cases and within controls; 0 to below 1
};

// A table, one row for each cell of each model (docs/simulate.md). Both functions write to a file that is
// open and leave it to be committed.
Status write_truth(const SimulationPlan& plan, OutputFile* file);

// The covariate file of the samples, in their order.
Status write_covariates(const GenotypeSource& source, const CovariateRules& rules, uint64_t seed,
                        OutputFile* file);
