// SPDX-License-Identifier: Apache-2.0
#include "cuda/cuda_check.h"
#include "cuda/launch_shape.h"
#include "cuda/mdr_search.h"
#include "cuda/tile_shape.h"

namespace {

__global__ void mdr_build_planes(PlaneBuildArguments arguments) {
  build_planes(arguments, thread_item());
}

template <int kOrder>
__global__ void __launch_bounds__(kThreadsPerBlock) mdr_search_planes(PlaneSearchArguments arguments) {
  search_planes<kOrder>(arguments, thread_item());
}

template <int kOrder>
__global__ void __launch_bounds__(kThreadsPerBlock)
    mdr_search_listed(PlaneSearchArguments arguments, RankSink list) {
  search_listed<kOrder>(arguments, list, thread_item(), static_cast<uint64_t>(gridDim.x) * blockDim.x);
}

// Blocks for a list of unknown length.
constexpr unsigned kListBlocks = 512;

using PlaneKernel = void (*)(PlaneSearchArguments);
constexpr PlaneKernel kKernels[kMaxCudaPlaneOrder] = {mdr_search_planes<1>, mdr_search_planes<2>,
                                                      mdr_search_planes<3>, mdr_search_planes<4>,
                                                      mdr_search_planes<5>, mdr_search_planes<6>};
using ListKernel = void (*)(PlaneSearchArguments, RankSink);
// Of the orders of the fused search.
constexpr ListKernel kListKernels[] = {mdr_search_listed<2>, mdr_search_listed<3>, mdr_search_listed<4>};

}  // namespace

void cuMdrBuildPlanes(const PlaneBuildArguments& arguments, cudaStream_t stream) {
  const uint64_t items = (uint64_t)arguments.genotypes.words_per_row * (uint64_t)arguments.n_words;
  if (items == 0) {
    return;
  }
  mdr_build_planes<<<blocks_for(items), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrBuildPlanes() execution failed.\n");
}

void cuMdrSearch(const PlaneSearchArguments& arguments, cudaStream_t stream) {
  const PlaneKernel kernel = kKernels[arguments.range.order - 1];
  kernel<<<blocks_for(arguments.range.n_ranks), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrSearch() execution failed.\n");
}

void cuMdrSearchListed(const PlaneSearchArguments& arguments, RankSink list, cudaStream_t stream) {
  const ListKernel kernel = kListKernels[arguments.range.order - kLeastTileOrder];
  kernel<<<kListBlocks, kThreadsPerBlock, 0, stream>>>(arguments, list);
  cuda_check_launch("cuMdrSearchListed() execution failed.\n");
}
