// SPDX-License-Identifier: Apache-2.0
//
// Which kernel a search of plain MDR runs. All find the same candidates; what differs is the time. Plain C++.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "device/problem.h"
#include "device/segments.h"
#include "util/status.h"

enum class SearchKernel {
  kThreads,        // a thread per combination counts every cell (plane_body.h): takes everything
  kPopcountTiles,  // the fused search (tile_search_body.h) by population counts,
  kBinaryTiles,    // by matrix products of bits,
  kByteTiles,      // by matrix products of bytes
};

// What the choice depends on of a GPU.
struct GpuTraits {
  int major = 0;  // compute capability
  int minor = 0;
  size_t shared_bytes = 0;  // shared memory that a block can ask for
};

// The name as TAVO_GPU_SEARCH knows it: "threads", "popcount", "mma-b1", "mma-u8".
const char* name_of(SearchKernel kernel);

// Whether this program has code of the kernel for the GPU.
bool has(const GpuTraits& gpu, SearchKernel kernel);

// The kernel that the environment variable TAVO_GPU_SEARCH forces on this GPU (for tests and measurements):
// one of the names, or "mma" for whichever of the matrix kernels default_kernel prefers. Nothing where the
// variable is not set. Fails when it names no kernel or one that the GPU has not.
Status forced_search_kernel(const GpuTraits& gpu, std::optional<SearchKernel>* kernel);

// The fused kernel that is expected to be the fastest on the GPU; see docs/gpu.md for the reasons.
SearchKernel default_kernel(const GpuTraits& gpu);

// Whether the fused search takes a run: orders 2 to 4 with tables that hold all cells, samples and folds that
// fit its counts and a block's shared memory.
bool tiles_fit(const GpuTraits& gpu, const Problem& problem, const ScoringRules& rules,
               const Segments& segments);

// The kernel of a run: the forced one or else the default one where the fused search takes the run, kThreads
// where it does not.
SearchKernel search_kernel_for(const GpuTraits& gpu, std::optional<SearchKernel> forced,
                               const Problem& problem, const ScoringRules& rules, const Segments& segments);
