// SPDX-License-Identifier: Apache-2.0
//
// Weighted cross-validation consistency: how often, and how high, a combination stands in the folds' top
// lists.
#pragma once

#include <array>
#include <vector>

#include "lib/cv_measures.h"
#include "src/MDRResult.h"

// A combination merged over the folds whose lists hold it.
struct MergedCombination {
  std::vector<int> snps;
  double weight = 0.0;  // sum over those folds of its training value over the fold's largest
  int multiplicity = 0;
  std::array<double, kRecordSize> record{};  // sum over those folds
};

// One list entry as mdrColSum takes it in.
struct WeightedEntry {
  std::vector<int> snps;
  double weight = 0.0;
  std::array<double, kRecordSize> record{};
};

// Merges equal combinations. The first n_first entries, those of the first fold that has any, stay distinct
// without being compared with each other; every later entry joins the first that it equals, or is appended.
std::vector<MergedCombination> mdrColSum(const std::vector<WeightedEntry>& entries, size_t n_first);

// Ranks the combinations of the folds' lists, result->kept, by weighted consistency in `measure` into the
// summary of *result, but its p-values.
void rank_kept_combinations(int measure, MDRResult* result);
