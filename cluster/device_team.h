// SPDX-License-Identifier: Apache-2.0
//
// The devices of a rank that works for rank 0, each with a thread of its own: what a pool of workers is to a
// driver, but silent, and with work that its threads share out among themselves.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "device/backend.h"

class DeviceTeam {
 public:
  // Opens these devices of the backend, which outlives the team. Look at status().
  DeviceTeam(Backend& backend, const std::vector<int>& ordinals);
  ~DeviceTeam();
  DeviceTeam(const DeviceTeam&) = delete;
  DeviceTeam& operator=(const DeviceTeam&) = delete;

  size_t size() const { return threads_.size(); }

  // Calls task(device, its number) on every thread and waits for all. The first failure, also of an earlier
  // call: after one nothing is called any more but by release_all.
  Status each(const std::function<Status(Device&, size_t)>& task);

  // Device::release of all.
  void release_all();

 private:
  using Task = std::function<Status(Device&, size_t)>;

  void run(Backend& backend, int ordinal, size_t number);
  void call(const Task& task);
  // Of all tasks so far.
  void keep_first_failure();

  std::mutex lock_;
  std::condition_variable begun_;
  std::condition_variable done_;
  const Task* task_ = nullptr;
  uint64_t round_ = 0;  // tasks so far
  size_t n_working_ = 0;
  bool ending_ = false;
  std::vector<std::unique_ptr<Device>> devices_;  // [thread], made and used by it
  std::vector<Status> outcomes_;                  // [thread], of the latest task
  Status failure_;
  std::vector<std::thread> threads_;
};
