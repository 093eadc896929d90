// SPDX-License-Identifier: Apache-2.0
#include "cuda/cuda_check.h"
#include "cuda/gmdr_search.h"
#include "cuda/launch_shape.h"

namespace {

__global__ void gmdr_build_codes(CodeBuildArguments arguments) {
  build_codes(arguments, thread_item());
}

template <int kOrder>
__global__ void __launch_bounds__(kThreadsPerBlock) gmdr_search_scores(ScoreSearchArguments arguments) {
  search_scores<kOrder>(arguments, thread_item());
}

using SearchKernel = void (*)(ScoreSearchArguments);
constexpr SearchKernel kKernels[kMaxCudaScoreOrder] = {gmdr_search_scores<1>, gmdr_search_scores<2>,
                                                       gmdr_search_scores<3>, gmdr_search_scores<4>};

}  // namespace

void cuGmdrBuildCodes(const CodeBuildArguments& arguments, cudaStream_t stream) {
  const uint64_t items = (uint64_t)arguments.genotypes.words_per_row * (uint64_t)arguments.n_words;
  if (items == 0) {
    return;
  }
  gmdr_build_codes<<<blocks_for(items), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuGmdrBuildCodes() execution failed.\n");
}

void cuGmdrSearch(const ScoreSearchArguments& arguments, cudaStream_t stream) {
  const SearchKernel kernel = kKernels[arguments.range.order - 1];
  kernel<<<blocks_for(arguments.range.n_ranks), kThreadsPerBlock, 0, stream>>>(arguments);
  cuda_check_launch("cuGmdrSearch() execution failed.\n");
}
