// SPDX-License-Identifier: Apache-2.0
//
// Counts the multi-locus genotypes of the best combinations in the genotype file of the run.
#pragma once

#include <string>
#include <vector>

#include "report/mdr_results.h"

// Combinations of each order that get cells.
inline constexpr size_t kRecountedRanks = 100;

// Replaces the cells, counts and thresholds of the best combinations, and fills in positions that the results
// do not have. The labels are those that the run's settings ask for. Refuses a file that is not that of the
// run, as far as its SNP names tell. What cannot be recounted stays as it is, with a line in *warnings.
Status recount_cells(const std::string& genotypes, MdrResults* results, std::vector<std::string>* warnings);
