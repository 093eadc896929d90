// SPDX-License-Identifier: Apache-2.0
#include "cuda/cuda_check.h"
#include "cuda/gmdr_search.h"
#include "cuda/launch_shape.h"

namespace {

__global__ void gmdr_build_codes(CodeBuildArguments arguments) {
  build_codes(arguments, thread_item());
}

// Shared memory that every GPU gives a block without being asked.
constexpr int kSharedBytes = 48 * 1024;
constexpr int kWarp = 32;

// Bytes of one thread's scratch.
template <int kOrder, int kWords>
constexpr int kScratchBytes = kScoreEntries<kOrder>* static_cast<int>(sizeof(FoldSums) +
                                                                      sizeof(FoldCounts<kWords>));

// Threads whose scratch fits shared memory, in whole warps; 0 where not even one warp does.
template <int kOrder, int kWords>
constexpr int kSharedThreads = kSharedBytes / kScratchBytes<kOrder, kWords> / kWarp* kWarp < kThreadsPerBlock
                                   ? kSharedBytes / kScratchBytes<kOrder, kWords> / kWarp* kWarp
                                   : kThreadsPerBlock;

template <int kOrder, int kWords>
constexpr int kScoreThreads =
    kSharedThreads<kOrder, kWords> > 0 ? kSharedThreads<kOrder, kWords> : kThreadsPerBlock;

// Entry e of thread t at e * threads + t: neighbours use neighbouring banks, whatever cells they are at.
template <int kOrder, int kWords>
__global__ void __launch_bounds__(kScoreThreads<kOrder, kWords>)
    gmdr_search_scores(ScoreSearchArguments arguments) {
  constexpr int kEntries = kScoreEntries<kOrder>;
  constexpr int kThreads = kSharedThreads<kOrder, kWords>;
  if constexpr (kThreads > 0) {
    __shared__ FoldSums sums[kEntries * kThreads];
    __shared__ FoldCounts<kWords> counts[kEntries * kThreads];
    search_scores<kOrder>(arguments, thread_item(), sums + threadIdx.x, counts + threadIdx.x, kThreads);
  } else {
    FoldSums sums[kEntries];
    FoldCounts<kWords> counts[kEntries];
    search_scores<kOrder>(arguments, thread_item(), sums, counts, 1);
  }
}

template <int kOrder, int kWords>
void launch_search(const ScoreSearchArguments& arguments, cudaStream_t stream) {
  constexpr unsigned kThreads = kScoreThreads<kOrder, kWords>;
  gmdr_search_scores<kOrder, kWords>
      <<<blocks_for(arguments.range.n_ranks, kThreads), kThreads, 0, stream>>>(arguments);
}

using SearchLaunch = void (*)(const ScoreSearchArguments&, cudaStream_t);
constexpr SearchLaunch kNarrow[kMaxCudaScoreOrder] = {launch_search<1, 1>, launch_search<2, 1>,
                                                      launch_search<3, 1>, launch_search<4, 1>};
constexpr SearchLaunch kWide[kMaxCudaScoreOrder] = {launch_search<1, 2>, launch_search<2, 2>,
                                                    launch_search<3, 2>, launch_search<4, 2>};

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
  const auto& launches = arguments.n_positions <= kMostNarrowSamples ? kNarrow : kWide;
  launches[arguments.range.order - 1](arguments, stream);
  cuda_check_launch("cuGmdrSearch() execution failed.\n");
}
