// SPDX-License-Identifier: Apache-2.0
#include "cluster/device_team.h"

#include <utility>

#include "util/without_exceptions.h"

DeviceTeam::DeviceTeam(Backend& backend, const std::vector<int>& ordinals)
    : devices_(ordinals.size()), outcomes_(ordinals.size()) {
  // What each thread makes of its first task is its device.
  const Task open = [&](Device&, size_t) { return Status(); };
  failure_ = without_exceptions([&] {
    for (size_t i = 0; i < ordinals.size(); ++i) {
      threads_.emplace_back([this, &backend, ordinal = ordinals[i], i] { run(backend, ordinal, i); });
    }
    return Status();
  });
  call(open);
  keep_first_failure();
}

DeviceTeam::~DeviceTeam() {
  {
    const std::lock_guard guard(lock_);
    ending_ = true;
    begun_.notify_all();
  }
  for (std::thread& thread : threads_) {
    thread.join();
  }
}

Status DeviceTeam::each(const Task& task) {
  if (!failure_.ok()) {
    return failure_;
  }
  call(task);
  keep_first_failure();
  return failure_;
}

void DeviceTeam::keep_first_failure() {
  for (Status& outcome : outcomes_) {
    if (failure_.ok() && !outcome.ok()) {
      failure_ = std::move(outcome);  // a copy could want memory, with threads that nobody would join
    }
  }
}

void DeviceTeam::release_all() {
  call([](Device& device, size_t) {
    device.release();
    return Status();
  });
}

void DeviceTeam::call(const Task& task) {
  std::unique_lock guard(lock_);
  task_ = &task;
  n_working_ = threads_.size();
  ++round_;
  begun_.notify_all();
  done_.wait(guard, [this] { return n_working_ == 0; });
}

void DeviceTeam::run(Backend& backend, int ordinal, size_t number) {
  uint64_t seen = 0;
  for (;;) {
    const Task* task = nullptr;
    {
      std::unique_lock guard(lock_);
      begun_.wait(guard, [&] { return ending_ || round_ != seen; });
      if (ending_) {
        break;
      }
      seen = round_;
      task = task_;
    }
    outcomes_[number] = without_exceptions([&] {
      std::unique_ptr<Device>& device = devices_[number];
      if (device == nullptr) {
        device = backend.open(ordinal);
      }
      return (*task)(*device, number);
    });
    const std::lock_guard guard(lock_);
    if (--n_working_ == 0) {
      done_.notify_one();
    }
  }
  devices_[number].reset();
}
