// SPDX-License-Identifier: Apache-2.0
//
// What the host-run kernel bodies and a real device are both held against: the record path of the CPU, on
// bits.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

#include "cpu/record_path.h"
#include "device/commands.h"
#include "lib/comb_rank.h"
#include "tests/support/search_scene.h"

namespace tavo_test {

// Computes the records [active][32] of combinations [active][order].
using RecordFunction = std::function<std::vector<float>(const Scene&, const ScoringRules&, const FoldView&,
                                                        const std::vector<int>& combinations)>;

// Runs a search over all ranks of its set-up, from the floors of empty lists.
using SearchFunction =
    std::function<std::vector<SearchCandidate>(const Scene&, const WorkerSetupCommand&, uint64_t total)>;

// Every combination of the order, one after the other.
std::vector<int> all_combinations(int n_snps, int order);

void expect_records(const Scene& scene, const ScoringRules& rules, const FoldView& fold,
                    const RecordFunction& records);

// For each fold, the candidates must be the very combinations whose record is above 0, with its bits.
void expect_search(const Scene& scene, const ScoringRules& rules, int first_fold,
                   const SearchFunction& search);

// All measures, missing methods and tie rules over problems of one order: word borders, missing genotypes,
// samples in no fold, one class alone. With and without scores. every: searches one in so many of them.
void sweep_records(int order, const RecordFunction& records);
void sweep_searches(int order, bool with_scores, const SearchFunction& search, int every = 1);

}  // namespace tavo_test
