// SPDX-License-Identifier: Apache-2.0
#include "cuda/launch_shape.h"
#include "cuda/regression.h"

namespace {

template <typename T, int Most>
__global__ void regression_logistic(LogisticArguments<T> arguments) {
  fit_logistic<T, 1, Most>(arguments, thread_item());
}

template <typename T>
__global__ void regression_linear(LinearArguments<T> arguments) {
  fit_linear<T>(arguments, thread_item());
}

template <typename T>
void launch_logistic(const LogisticArguments<T>& arguments, cudaStream_t stream) {
  with_covariate_class(arguments.samples.n_covariates, [&](auto most) {
    regression_logistic<T, decltype(most)::kMost>
        <<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
  });
}

template <typename T>
void launch_linear(const LinearArguments<T>& arguments, cudaStream_t stream) {
  regression_linear<T><<<blocks_for(arguments.active), kThreadsPerBlock, 0, stream>>>(arguments);
}

}  // namespace

void cuRegSendBase(RegressionSampleData& data, std::span<const float> phenotype,
                   std::span<const float> covariates, cudaStream_t stream) {
  upload(data.response, phenotype, "phenotypes", stream);
  upload(data.pCOV, covariates, "covariates", stream);
}

void cuRegLogistic(const LogisticArguments<float>& arguments, cudaStream_t stream) {
  launch_logistic(arguments, stream);
  cuda_check_launch("cuRegLogistic() execution failed.\n", SourceName::kWithExtension);
}

void cuRegLogistic(const LogisticArguments<double>& arguments, cudaStream_t stream) {
  launch_logistic(arguments, stream);
  cuda_check_launch("cuRegLogistic() execution failed.\n", SourceName::kWithExtension);
}

void cuRegLinear(const LinearArguments<float>& arguments, cudaStream_t stream) {
  launch_linear(arguments, stream);
  cuda_check_launch("cuRegLinear() execution failed.\n", SourceName::kWithExtension);
}

void cuRegLinear(const LinearArguments<double>& arguments, cudaStream_t stream) {
  launch_linear(arguments, stream);
  cuda_check_launch("cuRegLinear() execution failed.\n", SourceName::kWithExtension);
}
