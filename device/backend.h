// SPDX-License-Identifier: Apache-2.0
//
// The seam between the drivers and the processors that do the work. A backend offers devices; each device is
// opened by, belongs to and is used by one worker thread (worker.h). A third back end implements these two
// classes and adds itself to the list in device/backends.cpp.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "device/commands.h"
#include "device/problem.h"
#include "util/status.h"

struct DeviceProperties {
  std::string description;  // for the line that says what runs, such as "avx512"
  std::string choices;      // all that could run here, best first, such as "avx512 scalar"
  int registers_per_block = 0;
  size_t shared_memory_per_block = 0;  // bytes
};

class Device {
 public:
  virtual ~Device() = default;

  // Once, in this order, at the start of the worker.
  virtual Status bind() = 0;
  virtual Status send_genotypes(const Problem& problem) = 0;
  virtual Status send_base_data(const Problem& problem) = 0;

  // A loop: set_up, any number of calls of the kind that was set up, release.
  virtual Status set_up(const WorkerSetupCommand& command) = 0;
  virtual Status evaluate_list(const WorkerBatchCommand& command) = 0;
  virtual Status search_range(const WorkerBatchCommand& command) = 0;
  virtual void release() = 0;

  // Regressions: set-up, any number of batches, release.
  virtual Status set_up_regression(const RegressionSetupCommand& command) = 0;
  virtual Status fit_items(const RegressionBatchCommand& command) = 0;
};

class Backend {
 public:
  virtual ~Backend() = default;

  // "CPU", "CUDA".
  virtual std::string name() const = 0;

  // Fails when the backend was asked, through the environment, for something that it does not have.
  virtual Status ready() const { return {}; }

  // Devices of this machine that the process may use; 0 when the backend cannot run here. A run may ask for
  // more workers than that.
  virtual int device_count() const = 0;
  virtual DeviceProperties properties(int ordinal) const = 0;

  // Devices of this machine, also those that the process may not use.
  virtual int devices_of_machine() const { return device_count(); }

  // Thread-safe: each worker opens its own.
  virtual std::unique_ptr<Device> open(int ordinal) = 0;

  // Seconds that a range of a search should take on the device: long against its hand-over, short for whoever
  // waits for progress.
  virtual double range_seconds(int) const { return 0.25; }

  // Workers that a pool starts besides those that the run asks for; their devices come behind the others.
  virtual int workers_elsewhere() const { return 0; }

  // On the driver's thread, before the workers of a pool start.
  virtual Status prepare(const Problem&) { return {}; }
};
