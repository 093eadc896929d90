// SPDX-License-Identifier: Apache-2.0
//
// The permutation test of a whole search. The classes of the analysed samples (of a score-based run the pairs
// of class and score) are permuted again and again, and each time every order of the run is searched as the
// run was. What the best combinations reach there by chance alone is what those of the run are held against,
// so their p-values are corrected for the whole search (Westfall and Young 1993, the maximum over all tests).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "device/worker_pool.h"
#include "src/TFmMDR.h"
#include "src/folds.h"
#include "src/permutation_null.h"

// What the run decided, as far as a permuted run needs it. The views outlive the test.
struct PermutationPlan {
  const RunSettings* settings = nullptr;
  const Problem* problem = nullptr;   // of the run
  std::span<const uint8_t> left_out;  // [samples] non-zero: not analysed; or empty
  std::span<const int> labels;        // fold labels, as split_folds takes them
};

// Draws settings.permutations permutations, fewer where --stop-after ends the test, with the process-wide
// generator (seeded by --seed), and fills *null with what their searches reach. Those that the checkpoint
// knows are drawn, but not searched again. observed: [order], of the run, for --stop-after. Nothing goes to
// standard output.
Status permutation_test(WorkerPool& pool, const PermutationPlan& plan, std::span<const BestOfOrder> observed,
                        Checkpoint& checkpoint, PermutationNull* null);
