// SPDX-License-Identifier: Apache-2.0
#include "src/MDRResult.h"

#include <utility>

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
  p_values.clear();
  measures = {};
}
