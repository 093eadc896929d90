// SPDX-License-Identifier: Apache-2.0
//
// The result record of one combination order: the kept combinations of every candidate group (a fold of a
// cross-validation, or the whole of an exhaustive analysis) and the summary of the ranked ones. Filled by an
// analysis, read by the reports.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "lib/cv_measures.h"

// A kept combination of one group.
struct KeptCombination {
  std::string key;             // lib/comb.h, such as ",3,17,"
  std::vector<int> snps;       // [order]
  std::vector<double> record;  // [32] training and testing measures, or [16] of an exhaustive analysis

  // Places of a list that no combination filled hold the first SNP throughout and zeros.
  bool is_filled() const;
};

// Training and testing value of one measure, per rank.
struct MeasurePair {
  std::vector<double> training;
  std::vector<double> testing;
};

class MDRResult {
 public:
  // n_groups: folds, or 1; n_slots: entries kept per group at most; top: ranks reported at most; mode: 0 and
  // 1 cross-validated, 2 and 3 exhaustive. The subset values and array are passed through.
  MDRResult(int maximum_order, int minimum_order_minus_1, int n_groups, int n_slots, int top, int mode,
            int subset_value_1, int subset_value_2, std::vector<int> subset);

  // Empties the summary.
  void clear_ranking();

  // Whether a combination stands at this rank: places of the lists that none filled are ranked, too.
  bool is_filled(size_t rank) const;

  int maximum_order;
  int minimum_order_minus_1;
  int groups;
  int slots;
  int top_count;          // lowered by the ranking to the number of ranked combinations
  int64_t record_length;  // doubles of measure records per group
  int mode;
  int subset_value_1;
  int subset_value_2;
  std::vector<int> subset;

  std::vector<std::vector<KeptCombination>> kept;  // [groups][at most slots], best first

  // Permutation runs only: the ranking measure of the null records, and the threshold taken from it.
  std::vector<double> null_measures;
  double threshold = 0.0;

  // One entry per rank, filled in rank order.
  std::vector<std::vector<int>> best_snps;
  std::vector<std::string> best_keys;
  std::vector<double> weighted_cvc;
  std::vector<double> ranking_testing;              // testing value of the ranking measure; cross-validated
  std::vector<double> p_values;                     // permutation runs only
  std::array<MeasurePair, kMeasureCount> measures;  // [measure]; accuracy (1) is not kept
};
