// SPDX-License-Identifier: Apache-2.0
#include "device/worker.h"

#include <cstdio>
#include <utility>

#include "device/worker_state.h"
#include "util/stopwatch.h"
#include "util/without_exceptions.h"

int g_cntDevCuda = 0;
pthread_mutex_t g_gpuSync = PTHREAD_MUTEX_INITIALIZER;
int getCnt = 0;
int g_isCopied = 0;
pthread_t* g_pThrCuda = nullptr;
const WorkerCommand** g_pThrData = nullptr;
void** g_pThrResult = nullptr;

pthread_cond_t g_command_posted = PTHREAD_COND_INITIALIZER;
pthread_cond_t g_counted_down = PTHREAD_COND_INITIALIZER;

WorkerLock::WorkerLock() {
  pthread_mutex_lock(&g_gpuSync);
}
WorkerLock::~WorkerLock() {
  pthread_mutex_unlock(&g_gpuSync);
}

namespace {

void count_down(uint8_t* counted) {
  const WorkerLock lock;
  --getCnt;
  *counted = 1;
  pthread_cond_signal(&g_counted_down);
}

// Waits for this worker's mailbox to be filled and empties it.
const WorkerCommand* take_command(int worker) {
  const WorkerLock lock;
  while (g_pThrData[worker] == nullptr) {
    pthread_cond_wait(&g_command_posted, &g_gpuSync);
  }
  const WorkerCommand* command = g_pThrData[worker];
  g_pThrData[worker] = nullptr;
  return command;
}

// Prints a line with the time of one step of the start-up.
class StepTimer {
 public:
  StepTimer() {
    cutCreateTimer(&timer_);
    restart();
  }
  ~StepTimer() { cutDeleteTimer(timer_); }
  StepTimer(const StepTimer&) = delete;
  StepTimer& operator=(const StepTimer&) = delete;

  void restart() {
    cutResetTimer(timer_);
    cutStartTimer(timer_);
  }

  // format takes the worker's number and the milliseconds.
  void report(const char* format, int worker) {
    cutStopTimer(timer_);
    std::printf(format, worker, static_cast<double>(cutGetTimerValue(timer_)));
    restart();
  }

 private:
  unsigned timer_ = 0;
};

class Worker {
 public:
  explicit Worker(const CUDA_THREAD_DATA& start)
      : gpu_(start.gpu),
        problem_(*start.problem),
        backend_(*start.backend),
        outcome_(*start.outcome),
        counted_(start.counted) {}

  void run() {
    attempt([this] { return start_up(); });
    count_down(counted_);
    for (;;) {
      const WorkerCommand* command = take_command(gpu_);
      switch (command->code) {
        case kCommandSetup: {
          const auto* setup = static_cast<const WorkerSetupCommand*>(command);
          kind_ = setup->kind;
          quiet_ = setup->quiet;
          attempt([&] { return device_->set_up(*setup); });
          count_down(counted_);
          break;
        }
        case kCommandBatch: {
          const auto* batch = static_cast<const WorkerBatchCommand*>(command);
          attempt([&] {
            return kind_ == LoopKind::kSearch ? device_->search_range(*batch)
                                              : device_->evaluate_list(*batch);
          });
          count_down(counted_);
          break;
        }
        case kCommandLogisticSetup:
        case kCommandLinearSetup: {
          const auto* setup = static_cast<const RegressionSetupCommand*>(command);
          regression_ = setup->rules;
          attempt([&] { return device_->set_up_regression(*setup); });
          count_down(counted_);
          break;
        }
        case kCommandRegressionBatch: {
          const auto* batch = static_cast<const RegressionBatchCommand*>(command);
          announce(*batch);
          attempt([&] { return device_->fit_items(*batch); });
          count_down(counted_);
          break;
        }
        case kCommandRelease:
          release();
          break;
        case kCommandTerminate:
          device_.reset();
          return;
        default:  // not a command: no count-down
          break;
      }
    }
  }

 private:
  // Runs a step unless one failed before; keeps the first failure for the driver.
  template <typename Step>
  void attempt(Step step) {
    if (!outcome_.ok()) {
      return;
    }
    outcome_ = without_exceptions(step);
  }

  Status start_up() {
    std::printf("Thread %d start...\n", gpu_);
    StepTimer total;
    StepTimer step;
    device_ = backend_.open(gpu_);
    Status status = device_->bind();
    if (!status.ok()) {
      return status;
    }
    step.report("SET_DEVICE %d END (%.3lf ms taken)\n", gpu_);
    status = device_->send_genotypes(problem_);
    if (!status.ok()) {
      return status;
    }
    step.report("SEND_DATA %d END (%.3lf ms taken)\n", gpu_);
    if (problem_.ordered_regression) {
      std::puts("Ordered sendbase");
    }
    status = device_->send_base_data(problem_);
    if (!status.ok()) {
      return status;
    }
    step.report("COPY_BASEDATA %d END (%.3lf ms taken)\n", gpu_);
    total.report("%d INIT END (%.3lf ms taken)\n", gpu_);
    return status;
  }

  // A combination loop of plain MDR leaves one pair of marks per worker; searches, score-based loops and
  // regressions none.
  void release() {
    const bool marks = kind_ == LoopKind::kRecords && !quiet_ && problem_.scores == nullptr &&
                       problem_.phenotypes == nullptr;
    if (marks) {
      std::fputs(".", stdout);
    }
    if (device_ != nullptr) {
      Status released = without_exceptions([this] {
        device_->release();
        return Status();
      });
      if (outcome_.ok()) {
        outcome_ = std::move(released);
      }
    }
    if (marks) {
      std::fputs("*", stdout);
    }
    count_down(counted_);
  }

  // The line of one regression batch. Pairs on separate threads have none.
  void announce(const RegressionBatchCommand& batch) const {
    const int columns = regression_.columns(problem_.n_covariates);
    switch (regression_.model) {
      case RegressionModel::kLogistic:
        std::printf("Enter to logistic NP %d\n", columns);
        break;
      case RegressionModel::kLinear:
        std::printf("Enter to linear NP %d\n", columns);
        break;
      case RegressionModel::kOrderedLogistic:
        if (regression_.distinct) {
          std::printf("Enter to ordered logistic NP %d, distincted to %u blocks and 16,32 threads\n", columns,
                      batch.active / 512 + 1);
        }
        break;
    }
  }

  const int gpu_;
  const Problem& problem_;
  Backend& backend_;
  Status& outcome_;
  uint8_t* const counted_;
  std::unique_ptr<Device> device_;
  LoopKind kind_ = LoopKind::kRecords;
  bool quiet_ = false;
  RegressionRules regression_;
};

}  // namespace

void* threadCudaMain(void* argument) {
  auto* start = static_cast<CUDA_THREAD_DATA*>(argument);
  Worker worker(*start);
  delete start;
  worker.run();
  return nullptr;
}
