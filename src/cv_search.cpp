// SPDX-License-Identifier: Apache-2.0
#include "src/cv_search.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "src/search_state.h"

namespace {

using Clock = std::chrono::steady_clock;

// Combinations per worker of the first pass: few, so that the floors rise early, and that the pass is short
// also where a combination takes milliseconds.
constexpr uint64_t kFirstShare = 64;
// What a pass should last: long against its hand-over, short for whoever waits for progress.
constexpr double kPassSeconds = 0.25;
// A share grows at most by this factor from one pass to the next.
constexpr double kGrowth = 4.0;

// The share of the next pass after one of `share` combinations per worker took `seconds`.
uint64_t next_share(uint64_t share, double seconds) {
  const double factor = std::clamp(kPassSeconds / std::max(seconds, 1e-9), 1.0 / kGrowth, kGrowth);
  return std::max<uint64_t>(1, static_cast<uint64_t>(static_cast<double>(share) * factor));
}

// The best lists of a search, and how much of the enumeration they are of.
struct SearchSoFar {
  std::vector<CandidateList> best;  // of each fold
  uint64_t next = 0;                // all ranks below are searched

  void keep(Checkpoint& checkpoint, int order) const {
    checkpoint.keep(order_section(order), lines_of({0, next, lists()}));
  }

  std::vector<std::vector<RankedValue>> lists() const {
    std::vector<std::vector<RankedValue>> lists;
    for (const CandidateList& list : best) {
      lists.push_back(list.sorted());
    }
    return lists;
  }
};

}  // namespace

Status search_folds(WorkerPool& pool, const ScoringRules& rules, std::span<const int> samples,
                    std::span<const FoldView> folds, uint64_t n_combinations, size_t list_size,
                    Progress& progress, Checkpoint& checkpoint,
                    std::vector<std::vector<RankedValue>>* lists) {
  SearchSoFar search{std::vector<CandidateList>(folds.size(), CandidateList(list_size))};
  SearchState known;
  Status status =
      restore_search(checkpoint, rules.order, {n_combinations, folds.size(), list_size, false}, &known);
  if (!status.ok()) {
    return status;
  }
  search.next = known.next;
  for (size_t f = 0; f < known.lists.size(); ++f) {
    for (const RankedValue& entry : known.lists[f]) {
      search.best[f].offer(entry.rank, entry.value);
    }
  }
  WorkerSetupCommand setup;
  setup.kind = LoopKind::kSearch;
  setup.rules = rules;
  setup.folds = folds;
  setup.samples = samples;
  setup.list_size = static_cast<int>(std::min<size_t>(list_size, std::numeric_limits<int>::max()));
  status = pool.broadcast(setup);
  if (!status.ok()) {
    return status;
  }
  progress.begin(rules.order, n_combinations, search.next);
  std::vector<SearchFloor> floors(folds.size());
  std::vector<std::vector<SearchCandidate>> candidates(static_cast<size_t>(pool.size()));
  uint64_t share = kFirstShare;
  while (search.next < n_combinations) {
    const Clock::time_point started = Clock::now();
    std::transform(search.best.begin(), search.best.end(), floors.begin(),
                   [](const CandidateList& list) { return list.floor(); });
    std::vector<WorkerBatchCommand> batches;
    uint64_t next = search.next;
    for (int g = 0; g < pool.size() && next < n_combinations; ++g) {
      WorkerBatchCommand& batch = batches.emplace_back();
      batch.first_rank = next;
      batch.n_ranks = std::min(share, n_combinations - next);
      batch.floors = floors.data();
      batch.candidates = &candidates[static_cast<size_t>(g)];
      next += batch.n_ranks;
    }
    status = pool.dispatch(batches);
    if (!status.ok()) {
      search.keep(checkpoint, rules.order);
      return status;
    }
    for (const WorkerBatchCommand& batch : batches) {
      for (const SearchCandidate& candidate : *batch.candidates) {
        search.best[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
      }
    }
    search.next = next;
    if (checkpoint.is_due()) {
      search.keep(checkpoint, rules.order);
    }
    progress.update(next);
    share = next_share(share, std::chrono::duration<double>(Clock::now() - started).count());
  }
  progress.end();
  search.keep(checkpoint, rules.order);
  *lists = search.lists();
  return pool.broadcast(WorkerCommand{kCommandRelease});
}
