// SPDX-License-Identifier: Apache-2.0
#include "src/cv_search.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <limits>

#include "src/notice.h"

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

  std::vector<std::vector<RankedValue>> lists() const {
    std::vector<std::vector<RankedValue>> lists;
    for (const CandidateList& list : best) {
      lists.push_back(list.sorted());
    }
    return lists;
  }
};

// The checkpoint's part in the search of one order.
class OrderCheckpoint {
 public:
  OrderCheckpoint(Checkpoint& checkpoint, int order, uint64_t n_combinations)
      : checkpoint_(checkpoint), order_(order), total_(n_combinations) {}

  Status resume(SearchSoFar* search) const {
    const SearchState* state = checkpoint_.state(order_);
    if (state == nullptr) {
      return {};
    }
    if (state->next > total_ || state->lists.size() != search->best.size()) {
      return Status::failure("the checkpoint does not suit order " + std::to_string(order_));
    }
    search->next = state->next;
    for (size_t f = 0; f < search->best.size(); ++f) {
      for (const RankedValue& entry : state->lists[f]) {
        search->best[f].offer(entry.rank, entry.value);
      }
    }
    notice("order %d: %" PRIu64 " of %" PRIu64 " combinations are known from the checkpoint", order_,
           search->next, total_);
    return {};
  }

  void keep_now_and_then(const SearchSoFar& search) {
    if (checkpoint_.is_due()) {
      keep(search);
    }
  }

  // A run that cannot write its checkpoint goes on: one notice will do.
  void keep(const SearchSoFar& search) {
    const Status status = checkpoint_.keep(order_, {search.next, search.lists()});
    if (!status.ok() && !failed_) {
      notice("the checkpoint is not up to date: %s", status.message().c_str());
      failed_ = true;
    }
  }

 private:
  Checkpoint& checkpoint_;
  const int order_;
  const uint64_t total_;
  bool failed_ = false;
};

}  // namespace

Status search_folds(WorkerPool& pool, const ScoringRules& rules, std::span<const int> samples,
                    std::span<const FoldView> folds, uint64_t n_combinations, size_t list_size,
                    Progress& progress, Checkpoint& checkpoint,
                    std::vector<std::vector<RankedValue>>* lists) {
  SearchSoFar search{std::vector<CandidateList>(folds.size(), CandidateList(list_size))};
  OrderCheckpoint kept(checkpoint, rules.order, n_combinations);
  Status status = kept.resume(&search);
  if (!status.ok()) {
    return status;
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
  progress.begin(rules.order, n_combinations);
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
      // Of what is left, no more than an even share: in the last pass no worker is to wait for another.
      const auto waiting = static_cast<uint64_t>(pool.size() - g);
      batch.n_ranks = std::min(share, (n_combinations - next + waiting - 1) / waiting);
      batch.floors = floors.data();
      batch.candidates = &candidates[static_cast<size_t>(g)];
      next += batch.n_ranks;
    }
    status = pool.dispatch(batches);
    if (!status.ok()) {
      kept.keep(search);
      return status;
    }
    for (const WorkerBatchCommand& batch : batches) {
      for (const SearchCandidate& candidate : *batch.candidates) {
        search.best[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
      }
    }
    search.next = next;
    kept.keep_now_and_then(search);
    progress.update(next);
    share = next_share(share, std::chrono::duration<double>(Clock::now() - started).count());
  }
  progress.end();
  kept.keep(search);
  *lists = search.lists();
  return pool.broadcast(WorkerCommand{kCommandRelease});
}
