// SPDX-License-Identifier: Apache-2.0
#include "src/cv_search.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "src/search_state.h"

namespace {

using Clock = std::chrono::steady_clock;

// Combinations of a worker's first range: few, so that the floors rise early, and that the range is short
// also where a combination takes milliseconds.
constexpr uint64_t kFirstShare = 64;
// A share grows at most by this factor from one range to the next.
constexpr double kGrowth = 16.0;
// Towards the end a range is this part of what falls to its worker, so that none works on alone for long; but
// not a smaller part of the time that it should take, which would go into the beginnings of ranges.
constexpr double kPartOfRest = 0.5;
constexpr double kSmallestPart = 0.16;

// The ranges of one search: who has which, and the best lists of those that are searched. A worker's ranges
// follow its own speed.
class RangeStream : public CommandStream {
 public:
  RangeStream(const WorkerPool& pool, const FoldSearch& wanted, uint64_t n_combinations, Progress& progress,
              Checkpoint& checkpoint)
      : order_(wanted.rules.order),
        n_combinations_(n_combinations),
        best_(wanted.folds.size(), CandidateList(wanted.list_size, {wanted.floor, 0})),
        progress_(progress),
        checkpoint_(checkpoint),
        workers_(static_cast<size_t>(pool.size())) {
    for (size_t g = 0; g < workers_.size(); ++g) {
      workers_[g].wanted_seconds = pool.range_seconds(static_cast<int>(g));
      workers_[g].rate = static_cast<double>(kFirstShare) / workers_[g].wanted_seconds;
      all_rates_ += workers_[g].rate;
      workers_[g].floors.resize(best_.size());
    }
  }

  // What an earlier run found in the ranks below state.next.
  void begin_with(const SearchState& state) {
    handed_ = searched_ = state.next;
    for (size_t f = 0; f < state.lists.size(); ++f) {
      for (const RankedValue& entry : state.lists[f]) {
        best_[f].offer(entry.rank, entry.value);
      }
    }
  }

  const WorkerCommand* next(int worker) override {
    if (handed_ == n_combinations_) {
      return nullptr;
    }
    WorkerRange& range = workers_[static_cast<size_t>(worker)];
    WorkerBatchCommand& batch = range.batch;
    batch.first_rank = handed_;
    batch.n_ranks = size_of_next(range);
    std::transform(best_.begin(), best_.end(), range.floors.begin(),
                   [](const CandidateList& list) { return list.floor(); });
    batch.floors = range.floors.data();
    batch.candidates = &range.candidates;
    handed_ += batch.n_ranks;
    range.is_out = true;
    range.started = Clock::now();
    return &batch;
  }

  void finished(int worker) override {
    WorkerRange& range = workers_[static_cast<size_t>(worker)];
    const double seconds =
        std::max(std::chrono::duration<double>(Clock::now() - range.started).count(), 1e-9);
    for (const SearchCandidate& candidate : range.candidates) {
      best_[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
    }
    range.is_out = false;
    all_rates_ -= range.rate;
    range.rate = static_cast<double>(range.batch.n_ranks) / seconds;
    all_rates_ += range.rate;
    range.share = next_share(range, seconds);
    searched_ += range.batch.n_ranks;
    progress_.update(searched_);
    if (checkpoint_.is_due()) {
      keep();
    }
  }

  // Into the checkpoint goes what is known of the ranks below the first one that is not searched. Later ones
  // have kept nothing out of it that they would not again.
  void keep() const {
    SearchState state{0, handed_, lists()};
    for (const WorkerRange& range : workers_) {
      state.next = range.is_out ? std::min(state.next, range.batch.first_rank) : state.next;
    }
    for (std::vector<RankedValue>& list : state.lists) {
      std::erase_if(list, [&](const RankedValue& entry) { return entry.rank >= state.next; });
    }
    checkpoint_.keep(order_section(order_), lines_of(state));
  }

  // Of each fold, best first.
  std::vector<std::vector<RankedValue>> lists() const {
    std::vector<std::vector<RankedValue>> lists;
    for (const CandidateList& list : best_) {
      lists.push_back(list.sorted());
    }
    return lists;
  }

 private:
  // The latest range of a worker.
  struct WorkerRange {
    WorkerBatchCommand batch;
    std::vector<SearchFloor> floors;  // [folds], when it was handed out
    std::vector<SearchCandidate> candidates;
    bool is_out = false;  // not searched, as far as the driver knows
    Clock::time_point started;
    uint64_t share = kFirstShare;  // combinations of the next
    double rate = 0.0;             // combinations per second
    double wanted_seconds = 0.0;   // of a range
  };

  // Combinations of the next range of a worker that took `seconds` for its latest.
  static uint64_t next_share(const WorkerRange& range, double seconds) {
    const double factor = std::clamp(range.wanted_seconds / seconds, 1.0 / kGrowth, kGrowth);
    // One that was cut short says something of the speed, but not how far to grow.
    const auto size = static_cast<double>(range.batch.n_ranks);
    return std::max<uint64_t>(1, static_cast<uint64_t>(size * factor));
  }

  uint64_t size_of_next(const WorkerRange& range) const {
    const uint64_t rest = n_combinations_ - handed_;
    const double even = static_cast<double>(rest) * range.rate / all_rates_;
    const double smallest = kSmallestPart * range.rate * range.wanted_seconds;
    const double size = std::ceil(std::max(kPartOfRest * even, std::min(smallest, even)));
    return std::min({rest, range.share, std::max<uint64_t>(1, static_cast<uint64_t>(size))});
  }

  int order_;
  uint64_t n_combinations_;
  std::vector<CandidateList> best_;  // of each fold
  Progress& progress_;
  Checkpoint& checkpoint_;
  std::vector<WorkerRange> workers_;
  double all_rates_ = 0.0;  // the sum of theirs
  uint64_t handed_ = 0;     // all ranks below are searched or handed out
  uint64_t searched_ = 0;   // ranks
};

}  // namespace

Status search_folds(WorkerPool& pool, const FoldSearch& wanted, uint64_t n_combinations, Progress& progress,
                    Checkpoint& checkpoint, std::vector<std::vector<RankedValue>>* lists) {
  SearchState known;
  Status status = restore_search(checkpoint, wanted.rules.order,
                                 {n_combinations, wanted.folds.size(), wanted.list_size, false}, &known);
  if (!status.ok()) {
    return status;
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
  RangeStream ranges(pool, wanted, n_combinations, progress, checkpoint);
  ranges.begin_with(known);
  progress.begin(wanted.rules.order, n_combinations, known.next);
  status = pool.stream(ranges);
  if (status.ok()) {
    progress.end();
  }
  ranges.keep();
  if (!status.ok()) {
    return status;
  }
  *lists = ranges.lists();
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
