// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "cuda/cuda_check.h"
#include "cuda/launch_shape.h"
#include "cuda/mdr_tiles.h"
#include "cuda/tile_block.cuh"

namespace {

// Whether the code that is compiled at the moment has the product's instructions.
template <typename Product>
constexpr bool kHasInstructions = true;
#ifndef TAVO_BINARY_PRODUCTS
template <>
constexpr bool kHasInstructions<BinaryProduct> = false;
#endif
#ifndef TAVO_BYTE_PRODUCTS
template <>
constexpr bool kHasInstructions<ByteProduct> = false;
#endif

// Two blocks to a multiprocessor: one waits for memory while the other counts.
template <typename Product, int kOrder>
__global__ void __launch_bounds__(kTileThreads, 2)
    mdr_search_tiles(const __grid_constant__ TileSearchArguments arguments) {
  if constexpr (kHasInstructions<Product>) {
    extern __shared__ __align__(16) unsigned char memory[];
    TileBlock block{tile_shared(memory, arguments.n_pairs, arguments.range.n_folds)};
    const uint64_t n = tile_units(arguments);
    for (uint64_t unit = blockIdx.x; unit < n; unit += gridDim.x) {
      search_unit<Product, kOrder>(arguments, block, unit);
    }
  } else {
    __trap();
  }
}

__global__ void mdr_snp_values(ValueArguments arguments) {
  value_snp(arguments, thread_item());
}

__global__ void __launch_bounds__(kThreadsPerBlock) mdr_pair_values(ValueArguments arguments) {
  value_pair(arguments, thread_item());
}

using TileKernel = void (*)(TileSearchArguments);

template <typename Product>
TileKernel kernel_of_order(int order) {
  constexpr TileKernel kKernels[] = {mdr_search_tiles<Product, 2>, mdr_search_tiles<Product, 3>,
                                     mdr_search_tiles<Product, 4>};
  return kKernels[order - kLeastTileOrder];
}

TileKernel tile_kernel(SearchKernel kernel, int order) {
  switch (kernel) {
    case SearchKernel::kBinaryTiles:
      return kernel_of_order<BinaryProduct>(order);
    case SearchKernel::kByteTiles:
      return kernel_of_order<ByteProduct>(order);
    default:
      return kernel_of_order<PopcountProduct>(order);
  }
}

}  // namespace

void cuMdrSnpValues(const ValueArguments& arguments, cudaStream_t stream) {
  const auto items = 2 * static_cast<uint64_t>(arguments.n_snps);
  mdr_snp_values<<<blocks_for(items), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrSnpValues() execution failed.\n");
}

void cuMdrPairValues(const ValueArguments& arguments, cudaStream_t stream) {
  const auto n = static_cast<uint64_t>(arguments.n_snps);
  mdr_pair_values<<<blocks_for(n * n), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrPairValues() execution failed.\n");
}

void cuMdrSearchTiles(SearchKernel kernel, const TileSearchArguments& arguments, cudaStream_t stream) {
  const TileKernel launched = tile_kernel(kernel, arguments.shape.order);
  const size_t bytes = tile_shared_bytes(arguments.n_pairs, arguments.range.n_folds);
  cuda_safe_call(
      cudaFuncSetAttribute(launched, cudaFuncAttributeMaxDynamicSharedMemorySize, static_cast<int>(bytes)));
  const auto blocks = static_cast<unsigned>(std::min<uint64_t>(tile_units(arguments), kMostBlocks));
  launched<<<blocks, kTileThreads, bytes, stream>>>(arguments);
  cuda_check_launch("cuMdrSearchTiles() execution failed.\n");
}
