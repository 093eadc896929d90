// SPDX-License-Identifier: Apache-2.0
//
// A backend without hardware: fails where it is told to, answers late, and returns ties.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device/backend.h"
#include "lib/cv_measures.h"

namespace tavo_test {

// What the devices do and what they saw.
struct FakeScript {
  std::string fail_in;  // "bind", "send_genotypes", "set_up", "evaluate_list", "search_range" or "release"
  int fail_device = 0;  // the device that fails there, or kWhichever
  int fail_call = 0;    // at this call, from 0, of that device or of all
  bool throws = false;  // by an exception
  std::chrono::milliseconds late{0};  // device 0 takes this much longer for a batch
  float value = 0.5f;                 // every record entry and every search value

  static constexpr int kWhichever = -1;

  std::atomic<int> calls{0};  // so far of those that may fail
  std::mutex lock;
  std::vector<std::string> seen;  // "set_up 0", "evaluate_list 1 5", ... in the order of arrival
  std::vector<std::pair<uint64_t, uint64_t>> ranges;
  std::atomic<int> released{0};

  void note(const std::string& what) {
    const std::lock_guard guard(lock);
    seen.push_back(what);
  }
};

class FakeDevice : public Device {
 public:
  FakeDevice(FakeScript& script, int ordinal) : script_(script), ordinal_(ordinal) {}

  Status bind() override { return step("bind"); }
  Status send_genotypes(const Problem&) override { return step("send_genotypes"); }
  Status send_base_data(const Problem&) override { return step("send_base_data"); }
  Status set_up(const WorkerSetupCommand& command) override {
    n_folds_ = command.folds.size();
    return step("set_up");
  }

  Status evaluate_list(const WorkerBatchCommand& command) override {
    delay();
    for (size_t i = 0; i < static_cast<size_t>(command.active) * kRecordSize; ++i) {
      command.results[i] = script_.value;
    }
    return step("evaluate_list", std::to_string(command.active));
  }

  Status search_range(const WorkerBatchCommand& command) override {
    delay();
    {
      const std::lock_guard guard(script_.lock);
      script_.ranges.emplace_back(command.first_rank, command.n_ranks);
    }
    command.candidates->clear();
    for (size_t f = 0; f < n_folds_; ++f) {
      for (uint64_t i = 0; i < command.n_ranks; ++i) {
        if (command.floors[f].lets_pass(script_.value, command.first_rank + i)) {
          command.candidates->push_back({command.first_rank + i, static_cast<int>(f), script_.value});
        }
      }
    }
    return step("search_range");
  }

  void release() override {
    ++script_.released;
    (void)step("release").ok();
  }

  Status set_up_regression(const RegressionSetupCommand&) override { return step("set_up_regression"); }
  Status fit_items(const RegressionBatchCommand& command) override {
    delay();
    for (size_t i = 0; i < command.active; ++i) {
      command.results[i].deviance = static_cast<double>(script_.value);
    }
    return step("fit_items", std::to_string(command.active));
  }

 private:
  void delay() const {
    if (ordinal_ == 0) {
      std::this_thread::sleep_for(script_.late);
    }
  }

  Status step(const std::string& name, const std::string& detail = "") {
    script_.note(name + " " + std::to_string(ordinal_) + (detail.empty() ? "" : " " + detail));
    const bool may_fail = name == script_.fail_in &&
                          (script_.fail_device == ordinal_ || script_.fail_device == FakeScript::kWhichever);
    if (may_fail && script_.calls++ == script_.fail_call) {
      if (script_.throws) {
        throw std::bad_alloc();
      }
      return Status::failure("device " + std::to_string(ordinal_) + " failed in " + name);
    }
    return {};
  }

  FakeScript& script_;
  const int ordinal_;
  size_t n_folds_ = 0;
};

class FakeBackend : public Backend {
 public:
  explicit FakeBackend(FakeScript& script) : script_(script) {}
  std::string name() const override { return "fake"; }
  int device_count() const override { return 1; }
  DeviceProperties properties(int) const override { return {"fake", "fake", 1, 1}; }
  std::unique_ptr<Device> open(int ordinal) override {
    return std::make_unique<FakeDevice>(script_, ordinal);
  }

 private:
  FakeScript& script_;
};

// Keeps what the workers print out of the test's output.
class QuietStdout {
 public:
  QuietStdout();
  ~QuietStdout();
  QuietStdout(const QuietStdout&) = delete;
  QuietStdout& operator=(const QuietStdout&) = delete;

  // What was printed so far; ends the capture.
  std::string text();

 private:
  bool capturing_ = true;
};

}  // namespace tavo_test
