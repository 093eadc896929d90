// SPDX-License-Identifier: Apache-2.0
#include "cuda/device_buffer.h"

#include <string>

namespace {

// The line of the failed call, then what the user can do about it.
void check_allocation(cudaError_t result, size_t bytes, const char* kind, const char* what,
                      std::source_location where) {
  try {
    cuda_safe_call(result, where);
  } catch (const CudaError& error) {
    // An allocation that fails leaves its error behind for the next launch check.
    cudaGetLastError();
    throw CudaError("cannot allocate " + std::to_string(bytes) + " bytes of " + kind + " for the " + what +
                    " (" + error.what() + "); lower --thread, --block or --order, or run with --device cpu");
  }
}

}  // namespace

void* allocate_on_device(size_t bytes, const char* what, std::source_location where) {
  void* memory = nullptr;
  check_allocation(cudaMalloc(&memory, bytes), bytes, "device memory", what, where);
  return memory;
}

void* allocate_page_locked(size_t bytes, const char* what, std::source_location where) {
  void* memory = nullptr;
  check_allocation(cudaHostAlloc(&memory, bytes, cudaHostAllocDefault), bytes, "page-locked memory", what,
                   where);
  return memory;
}

// Owners let go on every path, also after a failure that has been reported: the results are not looked at.
void free_on_device(void* memory) {
  cudaFree(memory);
}

void free_page_locked(void* memory) {
  cudaFreeHost(memory);
}

DeviceStream::~DeviceStream() {
  if (stream_ != nullptr) {
    cudaStreamSynchronize(stream_);
    cudaStreamDestroy(stream_);
  }
}

void DeviceStream::open() {
  cuda_safe_call(cudaStreamCreateWithFlags(&stream_, cudaStreamNonBlocking));
}

void DeviceStream::wait(std::source_location where) const {
  cuda_safe_call(cudaStreamSynchronize(stream_), where);
}

size_t memory_budget() {
  size_t free_bytes = 0;
  size_t total_bytes = 0;
  cuda_safe_call(cudaMemGetInfo(&free_bytes, &total_bytes));
  return free_bytes / 2;
}
