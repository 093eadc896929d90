// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "cpu/item_fits.h"

namespace tavo_test {

inline std::vector<ItemFit> fit_all(const Problem& problem, const RegressionRules& rules,
                                    const std::vector<int>& items, InstructionSet set) {
  std::vector<ItemFit> fits(items.size() / static_cast<size_t>(rules.order()));
  make_item_fits(problem, rules, set)->run(items.data(), fits.size(), fits.data());
  return fits;
}

inline RegressionRules rules_of(RegressionModel model, Precision precision, int iterations = 20) {
  RegressionRules rules;
  rules.model = model;
  rules.precision = precision;
  rules.iterations = iterations;
  return rules;
}

}  // namespace tavo_test
