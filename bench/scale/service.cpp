// SPDX-License-Identifier: Apache-2.0
//
// What rank 0 of a large job has to do: its own drivers, workers and link serve a search of other ranks that
// compute nothing. Those answer when a real one would, with as many candidates as an answer can have, so that
// all processor time of this process is rank 0's; MPI's own part is hand_out.cpp's to measure.
//
//   service RANKS SECONDS [COMBINATIONS_PER_SECOND]
//   service checkpoint PATH
//
// SECONDS: how long the search would take if handing out took no time. The second form: the time of writing
// the checkpoint of such a search.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <queue>
#include <thread>

#include "bench/scale/processor_time.h"
#include "cluster/cluster_backend.h"
#include "cluster/link.h"
#include "cluster/messages.h"
#include "device/worker.h"
#include "device/worker_pool.h"
#include "src/cv_search.h"
#include "src/search_state.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kFolds = 10;     // as --cv
constexpr size_t kListSize = 10;  // as --top

Clock::duration duration_of(uint64_t n_combinations, double per_second) {
  return std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(static_cast<double>(n_combinations) / per_second));
}

// All ranks but 0 in one. The link's thread alone calls it.
class AnsweringTransport : public Transport {
 public:
  AnsweringTransport(int size, double per_second)
      : size_(size), per_second_(per_second), is_size_known_(static_cast<size_t>(size)) {}

  int rank() const override { return 0; }
  int size() const override { return size_; }
  int local_rank() const override { return 0; }
  int local_size() const override { return 1; }
  std::string host(int rank) const override { return "host" + std::to_string(rank); }
  bool is_gone(int) const override { return false; }

  // The first part of a message is its size; these messages have one more.
  bool send(int to, const void* bytes, size_t size, int* ticket) override {
    *ticket = 0;
    uint8_t& known = is_size_known_[static_cast<size_t>(to)];
    if (known != 0) {
      reply(to, Bytes(static_cast<const uint8_t*>(bytes), static_cast<const uint8_t*>(bytes) + size));
    }
    known ^= 1;
    return true;
  }
  bool look(int* from, size_t* size) override {
    const bool is_there = !parts_.empty() && parts_.top().due <= Clock::now();
    *from = is_there ? parts_.top().from : -1;
    *size = is_there ? parts_.top().bytes->size() : 0;
    return true;
  }
  bool take(void* bytes, int* ticket) override {
    *ticket = 0;
    std::copy(parts_.top().bytes->begin(), parts_.top().bytes->end(), static_cast<uint8_t*>(bytes));
    parts_.pop();
    return true;
  }
  bool broadcast(void*, size_t, int* ticket) override {
    *ticket = 0;
    return true;
  }
  bool is_done(int, bool* done) override {
    *done = true;
    return true;
  }
  std::string error() const override { return ""; }
  void finish() override {}
  void abort(int) override {}

  uint64_t answered_ranges() const { return answered_ranges_; }

 private:
  struct Part {
    Clock::time_point due;
    uint64_t number = 0;  // of equal times, those of one rank in their order
    int from = 0;
    std::shared_ptr<const Bytes> bytes;
    bool operator<(const Part& other) const {
      return due > other.due || (due == other.due && number > other.number);
    }
  };

  void reply(int rank, const Bytes& question) {
    ByteReader reader(question);
    const auto kind = reader.get<MessageKind>();
    if (kind == MessageKind::kEnd) {
      return;
    }
    ByteWriter writer = answer();
    Clock::time_point due = Clock::now();
    if (kind == MessageKind::kRange) {
      const auto first = reader.get<uint64_t>();
      const auto n = reader.get<uint64_t>();
      put_candidates(first, n, writer);
      due += duration_of(n, per_second_);
      ++answered_ranges_;
    }
    const Bytes bytes = writer.take();
    ByteWriter frame;
    frame.put(static_cast<uint64_t>(bytes.size()));
    parts_.push({due, n_parts_++, rank, std::make_shared<const Bytes>(frame.take())});
    parts_.push({due, n_parts_++, rank, std::make_shared<const Bytes>(bytes)});
  }

  // Whole lists, each entry better than all of lower ranks.
  static void put_candidates(uint64_t first, uint64_t n, ByteWriter& writer) {
    std::vector<SearchCandidate> candidates;
    for (size_t f = 0; f < kFolds; ++f) {
      for (uint64_t i = 0; i < std::min<uint64_t>(n, kListSize); ++i) {
        candidates.push_back({first + i, static_cast<int>(f), static_cast<float>(first + i)});
      }
    }
    writer.put_all(candidates.data(), candidates.size());
  }

  const int size_;
  const double per_second_;
  std::vector<uint8_t> is_size_known_;  // [rank]: whether the next part is a message
  std::priority_queue<Part> parts_;
  uint64_t n_parts_ = 0;
  uint64_t answered_ranges_ = 0;
};

// Rank 0's own device finds nothing, as fast as the others.
class SleepingDevice : public Device {
 public:
  explicit SleepingDevice(double per_second) : per_second_(per_second) {}
  Status bind() override { return {}; }
  Status send_genotypes(const Problem&) override { return {}; }
  Status send_base_data(const Problem&) override { return {}; }
  Status set_up(const WorkerSetupCommand&) override { return {}; }
  Status evaluate_list(const WorkerBatchCommand&) override { return {}; }
  Status search_range(const WorkerBatchCommand& command) override {
    std::this_thread::sleep_for(duration_of(command.n_ranks, per_second_));
    command.candidates->clear();
    return {};
  }
  void release() override {}
  Status set_up_regression(const RegressionSetupCommand&) override { return {}; }
  Status fit_items(const RegressionBatchCommand&) override { return {}; }

 private:
  const double per_second_;
};

class SleepingBackend : public Backend {
 public:
  explicit SleepingBackend(double per_second) : per_second_(per_second) {}
  std::string name() const override { return "none"; }
  int device_count() const override { return 1; }
  DeviceProperties properties(int) const override { return {}; }
  std::unique_ptr<Device> open(int) override { return std::make_unique<SleepingDevice>(per_second_); }

 private:
  const double per_second_;
};

Status run(int ranks, double seconds, double per_second, std::FILE* out) {
  auto transport = std::make_unique<AnsweringTransport>(ranks, per_second);
  const AnsweringTransport& others = *transport;
  Link link(std::move(transport));
  SleepingBackend here(per_second);
  ClusterBackend backend(here, link, 1, 0.0);
  const Problem problem;
  g_cntDevCuda = 1;
  WorkerPool pool(backend, problem);
  const std::vector<FoldView> folds(kFolds);
  Progress progress("off");
  Checkpoint checkpoint;
  std::vector<std::vector<RankedValue>> lists;
  const auto n_combinations = static_cast<uint64_t>(ranks * seconds * per_second);
  const double before = processor_seconds();
  const Clock::time_point begin = Clock::now();
  const Status status = search_folds(pool, {ScoringRules{}, {}, folds, kListSize}, n_combinations, progress,
                                     checkpoint, &lists);
  const double took = std::chrono::duration<double>(Clock::now() - begin).count();
  const double used = processor_seconds() - before;
  const auto answers = static_cast<double>(others.answered_ranges());
  std::fprintf(
      out, "%d ranks: %.2f s, efficiency %.1f%%, %.0f answers, %.1f us of processor each, %.1f%% of a core\n",
      ranks, took, 100.0 * seconds / took, answers, 1e6 * used / answers, 100.0 * used / took);
  return status;
}

Status time_checkpoint(const std::string& path) {
  constexpr size_t kTimes = 101;
  Checkpoint checkpoint;
  if (Status status = checkpoint.open(path, {{"bench", "service"}}); !status.ok()) {
    return status;
  }
  const std::vector<RankedValue> list(kListSize, RankedValue{uint64_t{1} << 36, 0.6180339f});
  const SearchState state{uint64_t{1} << 37, uint64_t{1} << 37,
                          std::vector<std::vector<RankedValue>>(kFolds, list)};
  std::vector<double> seconds;
  const double before = processor_seconds();
  for (size_t i = 0; i < kTimes; ++i) {
    const Clock::time_point begin = Clock::now();
    checkpoint.keep(order_section(2), lines_of(state));
    seconds.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
  }
  const double used = processor_seconds() - before;
  checkpoint.remove();
  std::sort(seconds.begin(), seconds.end());
  std::printf("a checkpoint: %.2f ms (median; the longest %.2f), %.2f ms of processor\n",
              1e3 * seconds[kTimes / 2], 1e3 * seconds.back(), 1e3 * used / kTimes);
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "checkpoint") == 0) {
    const Status status = time_checkpoint(argv[2]);
    if (!status.ok()) {
      std::fprintf(stderr, "service: %s\n", status.message().c_str());
    }
    return status.ok() ? 0 : 1;
  }
  const int ranks = argc > 1 ? std::atoi(argv[1]) : 0;
  const double seconds = argc > 2 ? std::atof(argv[2]) : 0.0;
  const double per_second = argc > 3 ? std::atof(argv[3]) : 1e9;
  if (ranks < 2 || !(seconds > 0.0) || !(per_second > 0.0)) {
    std::fputs("service: RANKS (from 2 on) SECONDS [COMBINATIONS_PER_SECOND], or checkpoint PATH\n", stderr);
    return 1;
  }
  // The workers' own lines are not wanted.
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  if (out == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
    std::perror("service");
    return 1;
  }
  const Status status = run(ranks, seconds, per_second, out);
  std::fclose(out);
  if (!status.ok()) {
    std::fprintf(stderr, "service: %s\n", status.message().c_str());
  }
  return status.ok() ? 0 : 1;
}
