// SPDX-License-Identifier: Apache-2.0
//
// The CPU backend: every usable core is a device. Without a limit on samples beyond memory.
#pragma once

#include <memory>
#include <mutex>

#include "cpu/simd.h"
#include "device/backend.h"

struct SearchData;

class CpuBackend : public Backend {
 public:
  std::string name() const override { return "CPU"; }
  CpuBackend();

  // The environment variable TAVO_SIMD, which forces an instruction set for tests, must name one that is
  // here.
  Status ready() const override;
  int device_count() const override;
  int devices_of_machine() const override;
  DeviceProperties properties(int ordinal) const override;
  std::unique_ptr<Device> open(int ordinal) override;

  // Devices that have been opened, less those that are gone.
  void count_open(int more);

  // The read-only data of the current search, built when the first worker asks, by as many threads as there
  // are devices (the others wait for it), and shared by all. It lives until the last worker has released it.
  std::shared_ptr<const SearchData> search_data(const Problem& problem, const WorkerSetupCommand& setup);

  InstructionSet instruction_set() const { return instruction_set_; }

 private:
  InstructionSet instruction_set_ = InstructionSet::kScalar;
  Status ready_;
  std::mutex lock_;
  int n_open_ = 0;
  std::weak_ptr<const SearchData> search_data_;
};
