// SPDX-License-Identifier: Apache-2.0
//
// The record path: all measures of listed combinations for one fold, straight from the packed matrix. It is
// the truth that every search is held against, so it stays simple.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "device/problem.h"
#include "lib/cv_measures.h"

class RecordPath {
 public:
  // The views outlive the object.
  RecordPath(const Problem& problem, const ScoringRules& rules, const FoldView& fold);

  // Writes the record of comb[order] to record[32].
  void evaluate(const int* comb, float* record);

  // The two count tables of the last combination and their totals, for tests: [2 * cells] each, or, for
  // orders with more cells than there is sense in holding, the occupied cells in ascending order.
  const std::vector<int32_t>& training_table() const { return training_; }
  const std::vector<int32_t>& testing_table() const { return testing_; }
  SetTotals training_totals() const { return training_totals_; }
  SetTotals testing_totals() const { return testing_totals_; }

 private:
  // Calls count(cell, is_case) for every listed sample that has all genotypes of comb; returns the class
  // totals.
  template <typename Count>
  SetTotals visit(std::span<const int> samples, const int* comb, Count count) const;

  void count_dense(const int* comb);
  void count_occupied(const int* comb);

  const Problem& problem_;
  const ScoringRules rules_;
  const FoldView fold_;
  const int64_t cells_;
  const int64_t counted_cells_;
  std::vector<int64_t> weights_;  // [order], base^j
  std::vector<int32_t> training_;
  std::vector<int32_t> testing_;
  std::vector<std::pair<int64_t, int>> counted_;  // scratch of count_occupied: cell, column
  SetTotals training_totals_{};
  SetTotals testing_totals_{};
};
