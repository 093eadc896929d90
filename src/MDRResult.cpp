// SPDX-License-Identifier: Apache-2.0
#include "src/MDRResult.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace {

bool is_filled(const std::vector<int>& snps, const std::vector<double>& values) {
  return std::adjacent_find(snps.begin(), snps.end(), std::greater_equal<>()) == snps.end() &&
         std::any_of(values.begin(), values.end(), [](double value) { return value != 0.0; });
}

}  // namespace

bool KeptCombination::is_filled() const {
  return ::is_filled(snps, record);
}

MDRResult::MDRResult(int maximum_order_, int minimum_order_minus_1_, int n_groups, int n_slots, int top,
                     int mode_, int subset_value_1_, int subset_value_2_, std::vector<int> subset_)
    : maximum_order(maximum_order_),
      minimum_order_minus_1(minimum_order_minus_1_),
      groups(n_groups),
      slots(n_slots),
      top_count(top),
      record_length(int64_t{n_slots} * (mode_ <= 1 ? kRecordSize : kMeasureCount)),
      mode(mode_),
      subset_value_1(subset_value_1_),
      subset_value_2(subset_value_2_),
      subset(std::move(subset_)),
      kept(static_cast<size_t>(n_groups)) {}

void MDRResult::clear_ranking() {
  best_snps.clear();
  best_keys.clear();
  weighted_cvc.clear();
  ranking_testing.clear();
  p_values.clear();
  measures = {};
}

bool MDRResult::is_filled(size_t rank) const {
  std::vector<double> values;
  for (const MeasurePair& pair : measures) {
    for (const std::vector<double>* column : {&pair.training, &pair.testing}) {
      if (!column->empty()) {
        values.push_back((*column)[rank]);
      }
    }
  }
  return ::is_filled(best_snps[rank], values);
}
