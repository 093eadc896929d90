// SPDX-License-Identifier: Apache-2.0
#include "device/worker_pool.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "device/worker.h"
#include "device/worker_state.h"
#include "util/stop_signal.h"
#include "util/thread_start.h"

namespace {

void wait_for_count_down() {
  const WorkerLock lock;
  while (getCnt > 0) {
    pthread_cond_wait(&g_counted_down, &g_gpuSync);
  }
}

// Waits for all workers on the way out, whatever that is: what they were given belongs to the driver.
class CountDownGuard {
 public:
  CountDownGuard() = default;
  ~CountDownGuard() { wait_for_count_down(); }
  CountDownGuard(const CountDownGuard&) = delete;
  CountDownGuard& operator=(const CountDownGuard&) = delete;
};

// Wakes, on the way out, the workers that have been given a command: once for all, since each call wakes
// every worker that has nothing to do. A worker that is not woken would be waited for without end, so this
// happens even when the next command cannot be made.
class WakeGuard {
 public:
  WakeGuard() = default;
  ~WakeGuard() {
    if (any_) {
      pthread_cond_broadcast(&g_command_posted);
    }
  }
  WakeGuard(const WakeGuard&) = delete;
  WakeGuard& operator=(const WakeGuard&) = delete;

  void posted() { any_ = true; }

 private:
  bool any_ = false;
};

}  // namespace

WorkerPool::WorkerPool(Backend& backend, const Problem& problem) : backend_(backend) {
  const int n_workers = g_cntDevCuda + backend.workers_elsewhere();
  const auto workers = static_cast<size_t>(n_workers);
  outcomes_.resize(workers);
  counted_.resize(workers);
  busy_.resize(workers);
  if (problem.phenotypes != nullptr) {
    std::printf("CUDA::SENDBASEDATA (%d covars) ENTER\n", problem.n_covariates);
  } else {
    std::puts("CUDA::SENDBASEDATA ENTER");
  }
  try {
    g_pThrCuda = new pthread_t[workers]();
    g_pThrData = new const WorkerCommand*[workers]();
    g_pThrResult = new void*[workers]();
    start_failure_ = backend.prepare(problem);
    start_workers(problem, start_failure_.ok() ? n_workers : 0);
  } catch (...) {
    // What those that have started work with goes now.
    end_workers();
    throw;
  }
  std::puts("CUDA::SENDBASEDATA END");
  g_isCopied = 1;
  wait_for_count_down();
}

WorkerPool::~WorkerPool() {
  end_workers();
}

void WorkerPool::start_workers(const Problem& problem, int n_wanted) {
  {
    const WorkerLock lock;
    getCnt = n_wanted;
  }
  for (int g = 0; g < n_wanted; ++g) {
    const auto index = static_cast<size_t>(g);
    auto* start = new CUDA_THREAD_DATA{g, &problem, &backend_, &outcomes_[index], &counted_[index]};
    if (!cutStartThread(threadCudaMain, start, &g_pThrCuda[g])) {
      delete start;
      start_failure_ = Status::failure("cannot start worker thread " + std::to_string(g + 1) + " of " +
                                       std::to_string(n_wanted) + "; ask for fewer with --gpu");
      const WorkerLock lock;
      getCnt -= n_wanted - g;
      break;
    }
    n_started_ = g + 1;
  }
}

void WorkerPool::end_workers() {
  const WorkerCommand terminate{kCommandTerminate};
  {
    const WorkerLock lock;
    for (int g = 0; g < n_started_; ++g) {
      g_pThrData[g] = &terminate;
    }
    pthread_cond_broadcast(&g_command_posted);
  }
  for (int g = 0; g < n_started_; ++g) {
    cutEndThread(g_pThrCuda[g]);
  }
  delete[] g_pThrCuda;
  delete[] g_pThrData;
  delete[] g_pThrResult;
  g_pThrCuda = nullptr;
  g_pThrData = nullptr;
  g_pThrResult = nullptr;
  g_isCopied = 0;
}

template <typename CommandOf>
void WorkerPool::post_and_wait(int n, CommandOf command_of) {
  {
    const WorkerLock lock;
    getCnt = n;
    for (int g = 0; g < n; ++g) {
      g_pThrData[g] = command_of(g);
    }
    pthread_cond_broadcast(&g_command_posted);
  }
  wait_for_count_down();
}

Status WorkerPool::broadcast(const WorkerCommand& command) {
  post_and_wait(n_started_, [&](int) { return &command; });
  return status();
}

template <typename Command>
Status WorkerPool::dispatch_all(const std::vector<Command>& commands) {
  const int n = static_cast<int>(commands.size());
  for (int g = 0; g < n; ++g) {
    g_pThrResult[g] = commands[static_cast<size_t>(g)].results;
  }
  post_and_wait(n, [&](int g) { return &commands[static_cast<size_t>(g)]; });
  return status();
}

Status WorkerPool::dispatch(const std::vector<WorkerBatchCommand>& commands) {
  return dispatch_all(commands);
}

Status WorkerPool::dispatch(const std::vector<RegressionBatchCommand>& commands) {
  return dispatch_all(commands);
}

void WorkerPool::give(CommandStream& commands) {
  WakeGuard wake;
  for (int g = 0; g < n_started_; ++g) {
    uint8_t& busy = busy_[static_cast<size_t>(g)];
    const WorkerCommand* command = busy == 0 ? commands.next(g) : nullptr;
    if (command != nullptr) {
      busy = 1;
      if (command->code == kCommandRegressionBatch) {
        g_pThrResult[g] = static_cast<const RegressionBatchCommand*>(command)->results;
      }
      const WorkerLock lock;
      counted_[static_cast<size_t>(g)] = 0;
      ++getCnt;
      g_pThrData[g] = command;
      wake.posted();
    }
  }
}

Status WorkerPool::stream(CommandStream& commands) {
  // Of workers that are busy the outcome is not to be looked at.
  bool failed = !status().ok();
  std::fill(busy_.begin(), busy_.end(), uint8_t{0});
  const CountDownGuard guard;
  int n_busy = 0;
  std::vector<int> done;
  do {
    if (!failed) {
      give(commands);
    }
    n_busy = static_cast<int>(std::count(busy_.begin(), busy_.end(), uint8_t{1}));
    const bool settled = commands.settle();
    done.clear();
    {
      const WorkerLock lock;
      const auto look = [&] {
        for (int g = 0; g < n_started_; ++g) {
          const auto index = static_cast<size_t>(g);
          if (busy_[index] != 0 && counted_[index] != 0) {
            done.push_back(g);
          }
        }
      };
      for (look(); done.empty() && !settled && n_busy > 0; look()) {
        pthread_cond_wait(&g_counted_down, &g_gpuSync);
      }
    }
    for (const int g : done) {
      const auto index = static_cast<size_t>(g);
      busy_[index] = 0;
      failed = failed || stop_signal() != 0 || !outcomes_[index].ok();
      if (outcomes_[index].ok() && stop_signal() == 0) {
        commands.finished(g);
      }
    }
    n_busy += settled ? 1 : 0;
  } while (n_busy > 0);
  return status();
}

Status WorkerPool::status() const {
  if (stop_signal() != 0) {
    return stopped(stop_signal());
  }
  if (!start_failure_.ok()) {
    return start_failure_;
  }
  for (const Status& outcome : outcomes_) {
    if (!outcome.ok()) {
      return outcome;
    }
  }
  return {};
}
