// SPDX-License-Identifier: Apache-2.0
//
// Narrows a selection down by lists of names and by counts of genotypes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sample_index.h"
#include "tools/selection.h"
#include "util/status.h"
#include "util/stop_signal.h"

struct FilterOptions {
  std::optional<std::string> keep;  // files of samples
  std::optional<std::string> remove;
  std::optional<std::string> extract;  // files of variant names
  std::optional<std::string> exclude;
  std::optional<double> mind;  // largest share of missing genotypes of a sample
  std::optional<double> geno;  // of a variant
  std::optional<double> maf;   // smallest minor allele frequency
};

// In this order: keep, remove, samples without a phenotype, extract, exclude, mind, geno, maf. Each works on
// what those before it left, geno and maf on the same samples. notes: a line for each that was asked for or
// dropped something. Refuses to leave no sample or no variant.
Status apply_filters(const FilterOptions& options, GenotypeSource& source, const SampleIndex& index,
                     const StopFlag& stop, Selection* selection, std::vector<std::string>* notes);
