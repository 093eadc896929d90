// SPDX-License-Identifier: Apache-2.0
#include "src/cv_search.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

#include "lib/comb.h"
#include "lib/comb_rank.h"
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

Status search_folds(WorkerPool& pool, const FoldSearch& wanted, uint64_t n_combinations, Progress& progress,
                    Checkpoint& checkpoint, std::vector<std::vector<RankedValue>>* lists) {
  SearchSoFar search{
      std::vector<CandidateList>(wanted.folds.size(), CandidateList(wanted.list_size, {wanted.floor, 0}))};
  SearchState known;
  Status status = restore_search(checkpoint, wanted.rules.order,
                                 {n_combinations, wanted.folds.size(), wanted.list_size, false}, &known);
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
  setup.rules = wanted.rules;
  setup.folds = wanted.folds;
  setup.samples = wanted.samples;
  setup.list_size = static_cast<int>(std::min<size_t>(wanted.list_size, std::numeric_limits<int>::max()));
  setup.problem = wanted.problem;
  status = pool.broadcast(setup);
  if (!status.ok()) {
    return status;
  }
  progress.begin(wanted.rules.order, n_combinations, search.next);
  std::vector<SearchFloor> floors(wanted.folds.size());
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
      // Of what is left, no more than an even share: in the last pass no worker is to wait for another.
      const auto waiting = static_cast<uint64_t>(pool.size() - g);
      batch.n_ranks = std::min(share, (n_combinations - next + waiting - 1) / waiting);
      batch.floors = floors.data();
      batch.candidates = &candidates[static_cast<size_t>(g)];
      next += batch.n_ranks;
    }
    status = pool.dispatch(batches);
    if (!status.ok()) {
      search.keep(checkpoint, wanted.rules.order);
      return status;
    }
    for (const WorkerBatchCommand& batch : batches) {
      for (const SearchCandidate& candidate : *batch.candidates) {
        search.best[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
      }
    }
    search.next = next;
    if (checkpoint.is_due()) {
      search.keep(checkpoint, wanted.rules.order);
    }
    progress.update(next);
    share = next_share(share, std::chrono::duration<double>(Clock::now() - started).count());
  }
  progress.end();
  search.keep(checkpoint, wanted.rules.order);
  *lists = search.lists();
  return pool.broadcast(WorkerCommand{kCommandRelease});
}

std::vector<int> combinations_of(const std::vector<RankedValue>& found, int n_snps, int order) {
  std::vector<uint64_t> ranks;
  ranks.reserve(found.size());
  for (const RankedValue& entry : found) {
    ranks.push_back(entry.rank);
  }
  return comb_unrank_all(n_snps, order, std::move(ranks));
}

Status check_confirmed(const TopList& list, size_t found) {
  if (list.filled() == found) {
    return {};
  }
  return Status::failure("internal error: the search found " + std::to_string(found) +
                         " combinations, but the records confirm " + std::to_string(list.filled()));
}

std::vector<KeptCombination> kept_combinations(const std::vector<TopList::Entry>& entries) {
  std::vector<KeptCombination> kept;
  kept.reserve(entries.size());
  for (const TopList::Entry& entry : entries) {
    kept.push_back({comb_key(entry.comb.data(), static_cast<int>(entry.comb.size())), entry.comb,
                    std::vector<double>(entry.record.begin(), entry.record.end())});
  }
  return kept;
}
