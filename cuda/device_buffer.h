// SPDX-License-Identifier: Apache-2.0
//
// Memory of the current device, page-locked host memory, and a stream, each with an owner.
#pragma once

#include <cuda_runtime_api.h>

#include <cstddef>
#include <source_location>
#include <span>
#include <utility>

#include "cuda/cuda_check.h"

// Throws a CudaError that names the bytes and what to lower. what: "count tables" and the like.
void* allocate_on_device(size_t bytes, const char* what, std::source_location where);
void* allocate_page_locked(size_t bytes, const char* what, std::source_location where);
void free_on_device(void* memory);
void free_page_locked(void* memory);

// An array that only grows; what it held is lost when it does.
template <typename T, void* (*kAllocate)(size_t, const char*, std::source_location), void (*kFree)(void*)>
class CudaArray {
 public:
  CudaArray() = default;
  ~CudaArray() { kFree(data_); }
  CudaArray(const CudaArray&) = delete;
  CudaArray& operator=(const CudaArray&) = delete;
  CudaArray(CudaArray&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), capacity_(std::exchange(other.capacity_, 0)) {}
  CudaArray& operator=(CudaArray&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(capacity_, other.capacity_);
    return *this;
  }

  // Makes room for at least n elements.
  void reserve(size_t n, const char* what, std::source_location where = std::source_location::current()) {
    if (n <= capacity_) {
      return;
    }
    kFree(std::exchange(data_, nullptr));
    capacity_ = 0;
    data_ = static_cast<T*>(kAllocate(n * sizeof(T), what, where));
    capacity_ = n;
  }

  T* data() const { return data_; }
  size_t capacity() const { return capacity_; }

 private:
  T* data_ = nullptr;
  size_t capacity_ = 0;
};

template <typename T>
using DeviceBuffer = CudaArray<T, allocate_on_device, free_on_device>;
template <typename T>
using PageLockedBuffer = CudaArray<T, allocate_page_locked, free_page_locked>;

// Makes room for both lists and copies them, one behind the other; they may go once this returns.
template <typename T>
void upload_pair(DeviceBuffer<T>& buffer, std::span<const T> first, std::span<const T> second,
                 const char* what, cudaStream_t stream,
                 std::source_location where = std::source_location::current()) {
  buffer.reserve(first.size() + second.size(), what, where);
  T* target = buffer.data();
  for (const std::span<const T> part : {first, second}) {
    if (!part.empty()) {
      cuda_safe_call(cudaMemcpyAsync(target, part.data(), part.size_bytes(), cudaMemcpyHostToDevice, stream),
                     where);
    }
    target += part.size();
  }
  // A copy from pageable memory may still be under way where the GPU reads that memory by itself.
  cuda_safe_call(cudaStreamSynchronize(stream), where);
}

template <typename T>
void upload(DeviceBuffer<T>& buffer, std::span<const T> elements, const char* what, cudaStream_t stream,
            std::source_location where = std::source_location::current()) {
  upload_pair(buffer, elements, std::span<const T>(), what, stream, where);
}

// Fills the first n elements with zero bits.
template <typename T>
void clear(const DeviceBuffer<T>& buffer, size_t n, cudaStream_t stream,
           std::source_location where = std::source_location::current()) {
  if (n > 0) {
    cuda_safe_call(cudaMemsetAsync(buffer.data(), 0, n * sizeof(T), stream), where);
  }
}

// A stream of the device that is current when it is opened. Waits for what was queued when it goes, so that
// memory declared before it outlasts the copies and kernels that use it.
class DeviceStream {
 public:
  DeviceStream() = default;
  ~DeviceStream();
  DeviceStream(const DeviceStream&) = delete;
  DeviceStream& operator=(const DeviceStream&) = delete;

  void open();
  // Waits for all that was queued, and throws if some of it failed.
  void wait(std::source_location where = std::source_location::current()) const;
  cudaStream_t get() const { return stream_; }

 private:
  cudaStream_t stream_ = nullptr;
};

// Bytes of device memory that a pass may take for itself: half of what is free.
size_t memory_budget();
