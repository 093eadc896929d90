// SPDX-License-Identifier: Apache-2.0
#include "src/combination_loop.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>

#include "util/stopwatch.h"

namespace {
int loops_done = 0;

// Times one loop and prints the line that ends it.
class LoopClock {
 public:
  explicit LoopClock(double extra_milliseconds) : extra_(extra_milliseconds) {
    cutCreateTimer(&timer_);
    cutStartTimer(timer_);
  }
  ~LoopClock() { cutDeleteTimer(timer_); }
  LoopClock(const LoopClock&) = delete;
  LoopClock& operator=(const LoopClock&) = delete;

  // The milliseconds of the loop.
  double finish() {
    cutStopTimer(timer_);
    const double milliseconds = extra_ + static_cast<double>(cutGetTimerValue(timer_));
    std::printf("[%8d loop] - %.3lf ms\n", loops_done++, milliseconds);
    return milliseconds;
  }

 private:
  unsigned timer_ = 0;
  double extra_;
};

std::array<double, kRecordSize> widened(const float* record) {
  std::array<double, kRecordSize> wide{};
  std::copy_n(record, kRecordSize, wide.begin());
  return wide;
}
}  // namespace

std::vector<uint64_t> pass_shares(uint64_t remaining, uint64_t launch_size, int workers) {
  const auto n = static_cast<uint64_t>(workers);
  if (remaining / n >= launch_size) {
    return std::vector<uint64_t>(n, launch_size);
  }
  std::vector<uint64_t> shares(n, remaining / n);
  shares[0] += remaining % n;
  return shares;
}

Status evaluate_in_passes(WorkerPool& pool, const ScoringRules& rules, size_t fold,
                          const std::vector<int>& combinations, uint64_t launch_size,
                          const LoopOutput& output) {
  const auto order = static_cast<size_t>(rules.order);
  const uint64_t count = combinations.size() / order;
  if (output.records != nullptr) {
    output.records->clear();
    output.records->reserve(count * kRecordSize);
  }
  std::vector<float> staging;
  for (uint64_t offset = 0; offset < count;) {
    const std::vector<uint64_t> shares = pass_shares(count - offset, launch_size, pool.size());
    const uint64_t pass = std::accumulate(shares.begin(), shares.end(), uint64_t{0});
    staging.resize(pass * kRecordSize);
    std::vector<WorkerBatchCommand> batches;
    uint64_t start = 0;
    for (const uint64_t share : shares) {
      if (share == 0) {
        break;
      }
      WorkerBatchCommand& batch = batches.emplace_back();
      batch.fold = fold;
      batch.active = static_cast<uint32_t>(share);
      batch.combinations = combinations.data() + (offset + start) * order;
      batch.results = staging.data() + start * kRecordSize;
      start += share;
    }
    Status status = pool.dispatch(batches);
    if (!status.ok()) {
      return status;
    }
    for (uint64_t i = 0; i < pass; ++i) {
      const std::array<double, kRecordSize> record = widened(staging.data() + i * kRecordSize);
      if (output.top != nullptr) {
        output.top->insert(combinations.data() + (offset + i) * order, record.data());
      }
      if (output.records != nullptr) {
        output.records->insert(output.records->end(), record.begin(), record.end());
      }
    }
    offset += pass;
  }
  return {};
}

Status mdrCombinationCV(WorkerPool& pool, const ScoringRules& rules, const FoldView& fold,
                        const std::vector<int>& combinations, uint64_t launch_size, const LoopOutput& output,
                        double extra_milliseconds, double* milliseconds) {
  WorkerSetupCommand setup;
  setup.kind = LoopKind::kRecords;
  setup.rules = rules;
  setup.folds = {&fold, 1};
  Status status = pool.broadcast(setup);
  if (!status.ok()) {
    return status;
  }
  LoopClock clock(extra_milliseconds);
  status = evaluate_in_passes(pool, rules, 0, combinations, launch_size, output);
  if (!status.ok()) {
    return status;
  }
  *milliseconds = clock.finish();
  return pool.broadcast(WorkerCommand{kCommandRelease});
}
