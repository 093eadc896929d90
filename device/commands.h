// SPDX-License-Identifier: Apache-2.0
//
// The commands that a driver gives to the worker threads. Each worker has one mailbox (g_pThrData) that holds
// the address of one record; every record starts with its code. Records, and all they point to, belong to the
// driver and stay valid until the worker has counted down.
#pragma once

#include <cstdint>
#include <vector>

#include "device/problem.h"

enum CommandCode : uint32_t {
  kCommandSetup = 1,            // a combination loop or a search of one order: WorkerSetupCommand
  kCommandBatch = 2,            // a list or a range of combinations: WorkerBatchCommand
  kCommandRelease = 3,          // end of what kCommandSetup began: bare code
  kCommandTerminate = 4,        // end of the thread: bare code, not counted down
  kCommandRegressionBatch = 5,  // a list of SNPs or SNP pairs: RegressionBatchCommand
  kCommandLogisticSetup = 6,    // logistic regression: RegressionSetupCommand
  kCommandLinearSetup = 7,      // linear regression: the same
};

// Every record begins with its code. A bare code is a record of its own.
struct WorkerCommand {
  uint32_t code = 0;
};

// What a set-up prepares for.
enum class LoopKind {
  kRecords,  // listed combinations of one fold, all measures
  kSearch,   // ranges of the enumeration, all folds at once, the ranking measure only
};

struct WorkerSetupCommand : WorkerCommand {
  WorkerSetupCommand() : WorkerCommand{kCommandSetup} {}

  LoopKind kind = LoopKind::kRecords;
  ScoringRules rules;
  std::span<const FoldView> folds;
  std::span<const int> samples;  // kSearch: the run's sample list; scores are summed from its end
  int list_size = 0;             // kSearch: entries N of each fold's list, >= 1
  // Whose classes and scores hold in place of those that the workers started with, or null. Everything else
  // in it is the same.
  const Problem* problem = nullptr;
  bool quiet = false;  // kRecords: without the marks of a combination loop
};

// The last entry of a fold's list. Lists are in a total order, measure descending, rank ascending: a
// combination passes when its value is above the floor's, or equal to it at a lower rank. The floor of a list
// that is not full is value 0 at rank 0, so that only values strictly above 0 pass.
struct SearchFloor {
  float value = 0.0f;
  uint64_t rank = 0;

  // False for a NaN.
  constexpr bool lets_pass(float candidate, uint64_t candidate_rank) const {
    return candidate > value || (candidate == value && candidate_rank < rank);
  }
};

// A combination that passed a fold's floor. value has the bits of the record's entry for the ranking measure.
struct SearchCandidate {
  uint64_t rank = 0;
  int fold = 0;  // index into the folds of the set-up
  float value = 0.0f;
};

struct WorkerBatchCommand : WorkerCommand {
  WorkerBatchCommand() { code = kCommandBatch; }

  // After kRecords: `active` combinations, [active][order] SNP indices, and their records [active][32], for
  // one of the folds of the set-up.
  uint32_t active = 0;
  const int* combinations = nullptr;
  float* results = nullptr;
  size_t fold = 0;
  // After kSearch: the ranks first_rank .. first_rank + n_ranks - 1; floors[folds]. The worker replaces
  // *candidates by all combinations of the range that pass and could be in a list of list_size entries; more
  // may come, none is missing. In no particular order.
  uint64_t first_rank = 0;
  uint64_t n_ranks = 0;
  const SearchFloor* floors = nullptr;
  std::vector<SearchCandidate>* candidates = nullptr;
};

struct RegressionSetupCommand : WorkerCommand {
  explicit RegressionSetupCommand(const RegressionRules& rules_) : rules(rules_) {
    code = rules.model == RegressionModel::kLinear ? kCommandLinearSetup : kCommandLogisticSetup;
  }

  RegressionRules rules;
  uint64_t launch_size = 1;  // items per batch and worker at most
};

struct RegressionBatchCommand : WorkerCommand {
  RegressionBatchCommand() { code = kCommandRegressionBatch; }

  uint32_t active = 0;
  const int* items = nullptr;  // [active][order] SNP indices
  ItemFit* results = nullptr;  // [active], cleared by the driver
};
