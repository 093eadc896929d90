// SPDX-License-Identifier: Apache-2.0
//
// How far an exhaustive analysis of one order has come, for its checkpoint. Combinations stand as their
// ranks: a run that goes on scores them again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "src/checkpoint.h"

// Top-N mode.
struct BestOfBlocksState {
  uint64_t next = 0;            // all ranks below are scored
  std::vector<uint64_t> slots;  // what the blocks that are done have left, first slot first
  // The ranking measure of the combinations of the next block that are scored. All of them: which of equal
  // ones come first depends on the others.
  std::vector<double> values;
};

// Permutation mode.
struct AboveThresholdState {
  uint64_t next = 0;           // all ranks below are scored
  std::vector<uint64_t> kept;  // those of them that are kept
};

std::string lines_of(const BestOfBlocksState& state);
std::string lines_of(const AboveThresholdState& state);

// Read the state of an order of n_combinations from the checkpoint, if it has one, and say so in a notice.
// They fail when it cannot be one of this run.
Status restore_blocks(Checkpoint& checkpoint, int order, uint64_t n_combinations, uint64_t block_size,
                      size_t n_slots, BestOfBlocksState* state);
Status restore_above_threshold(Checkpoint& checkpoint, int order, uint64_t n_combinations, size_t n_slots,
                               AboveThresholdState* state);
