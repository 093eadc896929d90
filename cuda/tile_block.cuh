// SPDX-License-Identifier: Apache-2.0
//
// The team and the warps of tile_search_body.h on the GPU.
#pragma once

#include "cuda/matrix_instructions.cuh"
#include "cuda/tile_search_body.h"

// A thread as its lane of a warp. Members that the host compiler sees do nothing there.
struct DeviceWarp {
  TileLane lane;

  template <typename Step>
  __host__ __device__ void each([[maybe_unused]] Step step) {
#ifdef __CUDA_ARCH__
    step((int)threadIdx.x % kWarpLanes, lane);
#endif
  }
  __host__ __device__ void multiply_b1_256([[maybe_unused]] int m, [[maybe_unused]] int j) {
#ifdef __CUDA_ARCH__
    ::multiply_b1_256(lane.rows[m], lane.columns[j], lane.sums[m][j]);
#endif
  }
  __host__ __device__ void multiply_b1_128([[maybe_unused]] int m, [[maybe_unused]] int j) {
#ifdef __CUDA_ARCH__
    ::multiply_b1_128(lane.rows[m], lane.columns[j], lane.sums[m][j]);
#endif
  }
  __host__ __device__ void multiply_u8([[maybe_unused]] int m, [[maybe_unused]] int j) {
#ifdef __CUDA_ARCH__
    ::multiply_u8(lane.rows[m], lane.columns[j], lane.sums[m][j]);
#endif
  }
};

// A block as the team of a search: phases end with a barrier.
struct TileBlock {
  TileShared memory;

  __host__ __device__ TileShared shared() const { return memory; }
  template <typename Phase>
  __host__ __device__ void phase([[maybe_unused]] Phase run) {
#ifdef __CUDA_ARCH__
    run((int)threadIdx.x);
    __syncthreads();
#endif
  }
  template <typename Phase>
  __host__ __device__ bool any([[maybe_unused]] Phase run) {
#ifdef __CUDA_ARCH__
    return __syncthreads_or(run((int)threadIdx.x) ? 1 : 0) != 0;
#else
    return false;
#endif
  }
  template <typename Phase>
  __host__ __device__ void warps([[maybe_unused]] Phase run) {
#ifdef __CUDA_ARCH__
    DeviceWarp warp;
    run((int)threadIdx.x / kWarpLanes, warp);
    __syncthreads();
#endif
  }
};
