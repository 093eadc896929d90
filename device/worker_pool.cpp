// SPDX-License-Identifier: Apache-2.0
#include "device/worker_pool.h"

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
    pthread_cond_wait(&g_count_reached_0, &g_gpuSync);
  }
}

}  // namespace

WorkerPool::WorkerPool(Backend& backend, const Problem& problem) {
  const auto workers = static_cast<size_t>(g_cntDevCuda);
  outcomes_.resize(workers);
  if (problem.phenotypes != nullptr) {
    std::printf("CUDA::SENDBASEDATA (%d covars) ENTER\n", problem.n_covariates);
  } else {
    std::puts("CUDA::SENDBASEDATA ENTER");
  }
  g_pThrCuda = new pthread_t[workers]();
  g_pThrData = new const WorkerCommand*[workers]();
  g_pThrResult = new void*[workers]();
  {
    const WorkerLock lock;
    getCnt = g_cntDevCuda;
  }
  for (int g = 0; g < g_cntDevCuda; ++g) {
    auto* start = new CUDA_THREAD_DATA{g, &problem, &backend, &outcomes_[static_cast<size_t>(g)]};
    if (!cutStartThread(threadCudaMain, start, &g_pThrCuda[g])) {
      delete start;
      start_failure_ = Status::failure("cannot start worker thread " + std::to_string(g + 1) + " of " +
                                       std::to_string(workers) + "; ask for fewer with --gpu");
      const WorkerLock lock;
      getCnt -= g_cntDevCuda - g;
      break;
    }
    n_started_ = g + 1;
  }
  std::puts("CUDA::SENDBASEDATA END");
  g_isCopied = 1;
  wait_for_count_down();
}

WorkerPool::~WorkerPool() {
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
