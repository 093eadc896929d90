// SPDX-License-Identifier: Apache-2.0
#include "cuda/cuda_check.h"
#include "cuda/launch_shape.h"
#include "cuda/mdr_search.h"

namespace {

__global__ void mdr_build_planes(PlaneBuildArguments arguments) {
  build_planes(arguments, thread_item());
}

template <int kOrder>
__global__ void __launch_bounds__(kThreadsPerBlock) mdr_search_planes(PlaneSearchArguments arguments) {
  search_planes<kOrder>(arguments, thread_item());
}

using SearchKernel = void (*)(PlaneSearchArguments);
constexpr SearchKernel kKernels[kMaxCudaPlaneOrder] = {mdr_search_planes<1>, mdr_search_planes<2>,
                                                       mdr_search_planes<3>, mdr_search_planes<4>,
                                                       mdr_search_planes<5>, mdr_search_planes<6>};

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
  const SearchKernel kernel = kKernels[arguments.range.order - 1];
  kernel<<<blocks_for(arguments.range.n_ranks), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuMdrSearch() execution failed.\n");
}
