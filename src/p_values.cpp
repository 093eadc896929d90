// SPDX-License-Identifier: Apache-2.0
#include "src/p_values.h"

#include <limits>

#include "lib/permutation.h"

double null_threshold(const std::vector<double>& null_measures, double level) {
  if (null_measures.empty()) {
    return std::numeric_limits<double>::infinity();
  }
  std::vector<double> sorted = null_measures;
  const int n = static_cast<int>(sorted.size());
  return quantile(sorted.data(), &n, &level);
}

void rank_p_values(int measure, bool permutation, MDRResult* result) {
  result->p_values.assign(static_cast<size_t>(result->top_count), 0.0);
  const bool has_p_values = measure == kBalancedAccuracy || measure == kChiSquare || measure == kGamma;
  if (!permutation || !has_p_values || result->null_measures.empty()) {
    return;
  }
  std::vector<double> null_measures = result->null_measures;
  const int n_null = static_cast<int>(null_measures.size());
  const int unsorted = 0;
  pvalueVector(null_measures.data(), &n_null, result->measures[static_cast<size_t>(measure)].training.data(),
               &result->top_count, &unsorted, result->p_values.data());
}
