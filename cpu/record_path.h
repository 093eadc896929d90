// SPDX-License-Identifier: Apache-2.0
//
// The record path: all measures of listed combinations for one fold, straight from the packed matrix. It is
// the truth that every search is held against, so it stays simple.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "cpu/genotype_columns.h"
#include "device/problem.h"
#include "lib/cv_measures.h"

class RecordPath {
 public:
  // The views outlive the object. A problem with scores makes score-based records. columns: of the problem,
  // for objects that follow one another to share; null: its own.
  RecordPath(const Problem& problem, const ScoringRules& rules, const FoldView& fold,
             std::shared_ptr<GenotypeColumns> columns = nullptr);

  // Writes the record of comb[order] to record[32].
  void evaluate(const int* comb, float* record);

  // Of the last combination, for tests: its count tables and score sums, [2 * cells] each, or, for orders
  // with more cells than there is sense in holding, the occupied cells in ascending order; and its totals.
  const std::vector<int32_t>& training_table() const { return training_; }
  const std::vector<int32_t>& testing_table() const { return testing_; }
  const std::vector<float>& score_sums() const { return scores_; }
  SetTotals training_totals() const { return training_totals_; }
  SetTotals testing_totals() const { return testing_totals_; }

 private:
  // One sample in one cell.
  struct Counted {
    int64_t cell;
    bool is_training;
    int is_case;
    int sample;
  };

  // Calls count for every listed sample that has all genotypes of the combination and whose cell the table
  // holds, from the last of the list to the first: the order in which scores are summed. Returns the class
  // totals.
  template <typename Count>
  SetTotals visit(std::span<const int> samples, bool is_training, Count count) const;

  void count_dense();
  void count_occupied();
  void count(const Counted& counted, size_t cell);

  const Problem& problem_;
  const ScoringRules rules_;
  const FoldView fold_;
  const int64_t cells_;
  const int64_t counted_cells_;
  std::vector<int64_t> weights_;  // [order], base^j
  std::shared_ptr<GenotypeColumns> columns_;
  std::vector<const uint8_t*> genotypes_;  // [order][samples] of the combination
  std::vector<int32_t> training_;
  std::vector<int32_t> testing_;
  std::vector<float> scores_;     // of the training samples; empty without scores
  std::vector<Counted> counted_;  // scratch of count_occupied
  SetTotals training_totals_{};
  SetTotals testing_totals_{};
};
