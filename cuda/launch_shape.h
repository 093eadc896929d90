// SPDX-License-Identifier: Apache-2.0
//
// One-dimensional launches with a thread per item.
#pragma once

#include <cstdint>

constexpr unsigned kThreadsPerBlock = 128;

// Blocks that hold n >= 1 threads. A grid takes 2^31 - 1 of them: n stays below that times the block's
// threads.
constexpr unsigned blocks_for(uint64_t n, unsigned threads = kThreadsPerBlock) {
  return static_cast<unsigned>((n + threads - 1) / threads);
}

// Blocks of a launch whose blocks go on to further work by themselves.
constexpr unsigned kMostBlocks = 1u << 24;

#ifdef __CUDACC__
// The item of the calling thread; threads of the last block may have one beyond the last.
__device__ inline uint64_t thread_item() {
  return static_cast<uint64_t>(blockIdx.x) * blockDim.x + threadIdx.x;
}
#endif
