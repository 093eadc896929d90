// SPDX-License-Identifier: Apache-2.0
#include "cuda/launch_shape.h"
#include "cuda/regression_ordered.h"

namespace {

// A block as the team of a fit: phases end with a barrier.
template <typename T>
struct BlockTeam {
  DistinctShared<T>& shared;
  DistinctSum<T> sum;

  template <typename Phase>
  __host__ __device__ void phase(Phase run) {
#ifdef __CUDA_ARCH__
    run((int)threadIdx.x, (int)threadIdx.y, sum);
    __syncthreads();
#endif
  }
};

template <typename T, int Most>
__global__ void regression_ordered_logistic(LogisticArguments<T> arguments) {
  fit_logistic<T, 2, Most>(arguments, thread_item());
}

template <typename T>
__global__ void __launch_bounds__(kDistinctThreads)
    regression_ordered_logistic_distinct(LogisticArguments<T> arguments) {
  __shared__ DistinctShared<T> shared;
  BlockTeam<T> team{shared, {}};
  fit_distinct<T>(arguments, blockIdx.x, team);
}

template <typename T>
void launch_ordered(const LogisticArguments<T>& arguments, cudaStream_t stream) {
  with_covariate_class(arguments.samples.n_covariates, [&](auto most) {
    regression_ordered_logistic<T, decltype(most)::kMost>
        <<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  });
}

template <typename T>
void launch_distinct(const LogisticArguments<T>& arguments, cudaStream_t stream) {
  const dim3 threads(kDistinctColumns, kDistinctRows);
  regression_ordered_logistic_distinct<T><<<arguments.active, threads, 0, stream>>>(arguments);
}

}  // namespace

void cuRegOrderedSendBase(RegressionSampleData& data, std::span<const float> phenotype,
                          std::span<const float> covariates, cudaStream_t stream) {
  upload(data.response, phenotype, "phenotypes", stream);
  upload(data.pCOV, covariates, "covariates", stream);
}

// Launches of pairs report themselves under the name of those of single SNPs, in this file.
void cuRegOrderedLogistic(const LogisticArguments<float>& arguments, cudaStream_t stream) {
  launch_ordered(arguments, stream);
  cuda_check_launch("cuRegLogistic() execution failed.\n", SourceName::kWithExtension);
}

void cuRegOrderedLogistic(const LogisticArguments<double>& arguments, cudaStream_t stream) {
  launch_ordered(arguments, stream);
  cuda_check_launch("cuRegLogistic() execution failed.\n", SourceName::kWithExtension);
}

void cuRegOrderedLogisticDistinct(const LogisticArguments<float>& arguments, cudaStream_t stream) {
  launch_distinct(arguments, stream);
  cuda_check_launch("cuRegLogistic() execution failed.\n", SourceName::kWithExtension);
}

void cuRegOrderedLogisticDistinct(const LogisticArguments<double>& arguments, cudaStream_t stream) {
  launch_distinct(arguments, stream);
  cuda_check_launch("cuRegLogistic() execution failed.\n", SourceName::kWithExtension);
}
