// SPDX-License-Identifier: Apache-2.0
//
// The search of one order: every combination, all folds at once, on all workers.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "device/candidate_list.h"
#include "device/worker_pool.h"
#include "src/MDRResult.h"
#include "src/checkpoint.h"
#include "src/progress.h"
#include "src/top_list.h"

// What is searched for.
struct FoldSearch {
  ScoringRules rules;
  std::span<const int> samples;  // the run's sample list, of which the folds are parts
  std::span<const FoldView> folds;
  size_t list_size = 1;              // of each fold, >= 1
  const Problem* problem = nullptr;  // see WorkerSetupCommand
  // Only values above it get into a list. Lists that are full in the end are those of a search without it.
  float floor = 0.0f;
};

// Searches the n_combinations combinations of rules.order SNPs. On success (*lists)[f] holds the best
// list_size of folds[f], best first, in the total order of the lists: the same for any number of workers and
// any timing. Goes on from what the checkpoint holds of the order, and keeps in it how far it has come, now
// and then, at the end, and when it fails.
Status search_folds(WorkerPool& pool, const FoldSearch& wanted, uint64_t n_combinations, Progress& progress,
                    Checkpoint& checkpoint, std::vector<std::vector<RankedValue>>* lists);

// What the search found for a fold, as the record path takes it: [found][order] SNP indices, in the order of
// the enumeration, so that equal values end up as if all combinations had come by.
std::vector<int> combinations_of(const std::vector<RankedValue>& found, int n_snps, int order);

// Fails when the records of `found` combinations, merged into this list, do not confirm what the search
// found.
Status check_confirmed(const TopList& list, size_t found);

// The entries as the result of a run keeps them.
std::vector<KeptCombination> kept_combinations(const std::vector<TopList::Entry>& entries);
