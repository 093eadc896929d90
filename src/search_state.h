// SPDX-License-Identifier: Apache-2.0
//
// How far a cross-validated analysis of one order has come, for its checkpoint.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "device/candidate_list.h"
#include "src/checkpoint.h"

// The section of an order.
std::string order_section(int order);

// The notice of a run that goes on.
void say_what_is_known(int order, uint64_t next, uint64_t n_combinations);

// A search takes all folds at once, a run above a threshold one after the other.
struct SearchState {
  size_t folds = 0;                             // that are done
  uint64_t next = 0;                            // of all others, or of the next one: all ranks below are done
  std::vector<std::vector<RankedValue>> lists;  // of each fold, best first: what they gave
};

// What the sizes of a run allow.
struct SearchLimits {
  uint64_t n_combinations = 0;
  size_t n_folds = 0;
  size_t list_size = 0;  // of a fold
  bool fold_by_fold = false;
  double floor = 0.0;  // every value is above it
};

std::string lines_of(const SearchState& state);

// Reads the state of an order from the checkpoint, if it has one, and says so in a notice. Fails when it
// cannot be one of this run.
Status restore_search(Checkpoint& checkpoint, int order, const SearchLimits& limits, SearchState* state);
