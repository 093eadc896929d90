// SPDX-License-Identifier: Apache-2.0
//
// The search of one order: every combination, all folds at once, on all workers.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "device/candidate_list.h"
#include "device/worker_pool.h"
#include "src/checkpoint.h"
#include "src/progress.h"

// Searches the n_combinations combinations of rules.order SNPs. samples: the run's sample list, of which
// folds are parts. On success (*lists)[f] holds the best list_size (>= 1) of folds[f], best first, in the
// total order of the lists: the same for any number of workers and any timing. Goes on from what the
// checkpoint holds of the order, and keeps in it how far it has come, now and then, at the end, and when it
// fails.
Status search_folds(WorkerPool& pool, const ScoringRules& rules, std::span<const int> samples,
                    std::span<const FoldView> folds, uint64_t n_combinations, size_t list_size,
                    Progress& progress, Checkpoint& checkpoint, std::vector<std::vector<RankedValue>>* lists);
