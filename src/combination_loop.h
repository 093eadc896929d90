// SPDX-License-Identifier: Apache-2.0
//
// The combination loop: records of listed combinations for one fold, on all workers.
#pragma once

#include <cstdint>
#include <vector>

#include "device/worker_pool.h"
#include "src/top_list.h"

// What the records of a loop are wanted for: one of the two, or both.
struct LoopOutput {
  TopList* top = nullptr;                  // keep-top: combinations are merged into the list
  std::vector<double>* records = nullptr;  // all results: replaced by [count][32]
};

// Evaluates combinations, [count][order] SNP indices, in passes of at most launch_size per worker.
// milliseconds becomes the time of the loop.
Status mdrCombinationCV(WorkerPool& pool, const ScoringRules& rules, const FoldView& fold,
                        const std::vector<int>& combinations, uint64_t launch_size, const LoopOutput& output,
                        double extra_milliseconds, double* milliseconds);

// The same without the lines and marks of a loop, for one fold of the records that the workers are set up
// for.
Status evaluate_in_passes(WorkerPool& pool, const ScoringRules& rules, size_t fold,
                          const std::vector<int>& combinations, uint64_t launch_size,
                          const LoopOutput& output);

// The share of each worker in a pass over `remaining` combinations: launch_size each while that many remain;
// then equal shares, the remainder to worker 0. Workers at the end may have none.
std::vector<uint64_t> pass_shares(uint64_t remaining, uint64_t launch_size, int workers);
