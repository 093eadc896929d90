// SPDX-License-Identifier: Apache-2.0
#include "bench/gpu/ceilings.h"

#include <cuda_runtime_api.h>

#include <algorithm>
#include <cstdint>

#include "cuda/device_buffer.h"
#include "cuda/matrix_instructions.cuh"

namespace {

constexpr int kThreads = 256;
constexpr int kSteps = 4096;
constexpr int kChains = 8;  // results that do not wait for each other

__global__ void __launch_bounds__(kThreads) count_words(uint32_t seed, uint32_t* out) {
  uint32_t words[kChains];
  uint32_t sums[kChains] = {};
#pragma unroll
  for (int i = 0; i < kChains; ++i) {
    words[i] = seed * (threadIdx.x + 1) + i;
  }
  for (int step = 0; step < kSteps; ++step) {
#pragma unroll
    for (int i = 0; i < kChains; ++i) {
      sums[i] += __popc(words[i] & (seed + step));
    }
  }
  uint32_t sum = 0;
#pragma unroll
  for (int i = 0; i < kChains; ++i) {
    sum += sums[i];
  }
  out[blockIdx.x * kThreads + threadIdx.x] = sum;
}

template <bool kBits>
__global__ void __launch_bounds__(kThreads) multiply(uint32_t seed, uint32_t* out) {
#ifdef TAVO_BYTE_PRODUCTS
#ifndef TAVO_BINARY_PRODUCTS
  if constexpr (!kBits)
#endif
  {
    uint32_t rows[4] = {seed, seed + 1, seed ^ threadIdx.x, seed + 3};
    uint32_t columns[2] = {seed * 3, seed * 5};
    int32_t sums[kChains][4] = {};
    for (int step = 0; step < kSteps; ++step) {
#pragma unroll
      for (int i = 0; i < kChains; ++i) {
        if constexpr (kBits) {
          multiply_b1_256(rows, columns, sums[i]);
        } else {
          multiply_u8(rows, columns, sums[i]);
        }
      }
    }
    uint32_t sum = 0;
#pragma unroll
    for (int i = 0; i < kChains; ++i) {
      sum += static_cast<uint32_t>(sums[i][0] + sums[i][1] + sums[i][2] + sums[i][3]);
    }
    out[blockIdx.x * kThreads + threadIdx.x] = sum;
  }
#endif
}

__global__ void __launch_bounds__(kThreads) copy(const uint4* from, uint4* to, uint64_t n) {
  const uint64_t threads = static_cast<uint64_t>(gridDim.x) * kThreads;
  for (uint64_t i = static_cast<uint64_t>(blockIdx.x) * kThreads + threadIdx.x; i < n; i += threads) {
    to[i] = from[i];
  }
}

int attribute(cudaDeviceAttr which) {
  int device = 0;
  int value = 0;
  cuda_safe_call(cudaGetDevice(&device));
  cuda_safe_call(cudaDeviceGetAttribute(&value, which, device));
  return value;
}

// Sixteen blocks to a multiprocessor: all that fit run, and the last ones end together.
unsigned full_grid() {
  return 16u * static_cast<unsigned>(attribute(cudaDevAttrMultiProcessorCount));
}

// The shortest of several runs, in seconds.
template <typename Launch>
double seconds_of(Launch launch) {
  cudaEvent_t start = nullptr;
  cudaEvent_t end = nullptr;
  cuda_safe_call(cudaEventCreate(&start));
  cuda_safe_call(cudaEventCreate(&end));
  float least = 0.0f;
  for (int run = 0; run < 6; ++run) {
    cuda_safe_call(cudaEventRecord(start));
    launch();
    cuda_safe_call(cudaGetLastError());
    cuda_safe_call(cudaEventRecord(end));
    cuda_safe_call(cudaEventSynchronize(end));
    float milliseconds = 0.0f;
    cuda_safe_call(cudaEventElapsedTime(&milliseconds, start, end));
    // The first run warms up.
    least = run <= 1 ? milliseconds : std::min(least, milliseconds);
  }
  cuda_safe_call(cudaEventDestroy(start));
  cuda_safe_call(cudaEventDestroy(end));
  return 1e-3 * static_cast<double>(least);
}

// Operations per second of a kernel whose threads, or whose warps, do `each` per step and chain.
template <typename Kernel>
double rate(Kernel kernel, double each) {
  const unsigned blocks = full_grid();
  DeviceBuffer<uint32_t> out;
  out.reserve(static_cast<size_t>(blocks) * kThreads, "results");
  const double seconds = seconds_of([&] { kernel<<<blocks, kThreads>>>(0x9e3779b9u, out.data()); });
  return each * static_cast<double>(blocks) * kSteps * kChains / seconds;
}

}  // namespace

double popcount_words() {
  return rate(count_words, kThreads);
}

double binary_products() {
  const int major = attribute(cudaDevAttrComputeCapabilityMajor);
  return major == 8 || major == 9 ? rate(multiply<true>, kThreads / 32 * 16.0 * 8 * 256) : 0.0;
}

double byte_products() {
  return attribute(cudaDevAttrComputeCapabilityMajor) >= 8
             ? rate(multiply<false>, kThreads / 32 * 16.0 * 8 * 32)
             : 0.0;
}

double copied_bytes() {
  constexpr uint64_t kBytes = uint64_t{1} << 30;
  constexpr uint64_t kElements = kBytes / sizeof(uint4);
  DeviceBuffer<uint4> from;
  DeviceBuffer<uint4> to;
  from.reserve(kElements, "the copy");
  to.reserve(kElements, "the copy");
  cuda_safe_call(cudaMemset(from.data(), 1, kBytes));
  const double seconds =
      seconds_of([&] { copy<<<full_grid(), kThreads>>>(from.data(), to.data(), kElements); });
  return 2.0 * static_cast<double>(kBytes) / seconds;
}
