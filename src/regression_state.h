// SPDX-License-Identifier: Apache-2.0
//
// How far a regression run has come, for its checkpoint. The best items stand as their ranks and p-values: a
// run that goes on fits them again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "src/checkpoint.h"

struct RegressionState {
  uint64_t next = 0;      // rank of the first item that is not fitted
  uint64_t n_failed = 0;  // fits before it
  std::vector<uint64_t> top;
  std::vector<double> p_values;  // of each of top
};

inline constexpr const char* kRegressionSection = "regression";

std::string lines_of(const RegressionState& state);

// Reads the state from the checkpoint, if it has one, and says so in a notice. Fails when it cannot be one of
// a run over n_items that keeps the best n_top.
Status restore_regression(Checkpoint& checkpoint, uint64_t n_items, size_t n_top, RegressionState* state);
