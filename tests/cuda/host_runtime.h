// SPDX-License-Identifier: Apache-2.0
//
// A stand-in for the CUDA runtime and the kernels' wrappers: device memory is host memory filled with
// garbage, a launch is a loop over the kernel's body. Copies and launches wait in their stream until somebody
// waits for them, so that what is read, changed or freed too early shows. It lets the backend's host code
// run, and fail, without a GPU. Linked in place of the runtime library and the .cu files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "tests/cuda/surplus_threads.h"

struct CUstream_st;

namespace tavo_test {

struct HostRuntime {
  int n_gpus = 1;
  int major = 9;
  size_t shared_bytes = 227 << 10;  // that a block can ask for
  bool properties_fail = false;
  size_t free_bytes = size_t{1} << 30;  // what the runtime reports, and the most that one allocation gets
  std::optional<size_t> memory_left;    // what the runtime reports, where it is not that
  std::string failing_launch;           // the wrapper whose launch fails

  // Seen so far.
  int launches = 0;
  int most_streams_busy = 0;                 // that had copies back waiting at the same time
  int pair_tables = 0;                       // of values
  uint64_t survivors = 0;                    // of the fused search's bound
  std::map<std::string, int> tile_launches;  // of the fused search, by the name of the kernel
  size_t allocations_alive = 0;
  int streams_left_busy = 0;  // that went with work in them
};

// Of whole programs, the environment variables TAVO_STAND_IN_BYTES and TAVO_STAND_IN_FAILS set free_bytes and
// failing_launch from the start.
HostRuntime& host_runtime();

// Counts a launch. False where it is the one that fails, whose error is then remembered.
bool host_launch_begins(const char* wrapper);

// Runs the work when the stream is waited for; at once without a stream.
void host_enqueue(CUstream_st* stream, std::function<void()> work);

}  // namespace tavo_test
