// SPDX-License-Identifier: Apache-2.0
//
// The wrappers of the regression kernels over the stand-in of host_runtime.h.
#include <string>

#include "cuda/cuda_check.h"
#include "cuda/regression_ordered.h"
#include "tests/cuda/host_runtime.h"
#include "tests/cuda/host_team.h"

namespace {

void check(const char* wrapper) {
  cuda_check_launch((std::string(wrapper) + " execution failed.\n").c_str());
}

template <typename T, int Order>
void launch_logistic(const char* wrapper, const LogisticArguments<T>& arguments, cudaStream_t stream) {
  if (tavo_test::host_launch_begins(wrapper)) {
    tavo_test::host_enqueue(stream, [arguments] {
      with_covariate_class(arguments.samples.n_covariates, [&](auto most) {
        for (uint64_t t = 0; t < arguments.active + tavo_test::kSurplusThreads; ++t) {
          fit_logistic<T, Order, decltype(most)::kMost>(arguments, t);
        }
      });
    });
  }
  check("cuRegLogistic()");
}

template <typename T>
void launch_linear(const LinearArguments<T>& arguments, cudaStream_t stream) {
  if (tavo_test::host_launch_begins("cuRegLinear()")) {
    tavo_test::host_enqueue(stream, [arguments] {
      for (uint64_t t = 0; t < arguments.active + tavo_test::kSurplusThreads; ++t) {
        fit_linear(arguments, t);
      }
    });
  }
  check("cuRegLinear()");
}

template <typename T>
void launch_distinct(const LogisticArguments<T>& arguments, cudaStream_t stream) {
  if (tavo_test::host_launch_begins("cuRegOrderedLogisticDistinct()")) {
    tavo_test::host_enqueue(stream, [arguments] {
      for (uint32_t pair = 0; pair < arguments.active; ++pair) {
        tavo_test::HostTeam<T> team(pair);
        fit_distinct(arguments, pair, team);
      }
    });
  }
  check("cuRegLogistic()");
}

}  // namespace

void cuRegSendBase(RegressionSampleData& data, std::span<const float> phenotype,
                   std::span<const float> covariates, cudaStream_t stream) {
  upload(data.response, phenotype, "phenotypes", stream);
  upload(data.pCOV, covariates, "covariates", stream);
}
void cuRegOrderedSendBase(RegressionSampleData& data, std::span<const float> phenotype,
                          std::span<const float> covariates, cudaStream_t stream) {
  cuRegSendBase(data, phenotype, covariates, stream);
}
void cuRegLogistic(const LogisticArguments<float>& arguments, cudaStream_t stream) {
  launch_logistic<float, 1>("cuRegLogistic()", arguments, stream);
}
void cuRegLogistic(const LogisticArguments<double>& arguments, cudaStream_t stream) {
  launch_logistic<double, 1>("cuRegLogistic()", arguments, stream);
}
void cuRegLinear(const LinearArguments<float>& arguments, cudaStream_t stream) {
  launch_linear(arguments, stream);
}
void cuRegLinear(const LinearArguments<double>& arguments, cudaStream_t stream) {
  launch_linear(arguments, stream);
}
void cuRegOrderedLogistic(const LogisticArguments<float>& arguments, cudaStream_t stream) {
  launch_logistic<float, 2>("cuRegOrderedLogistic()", arguments, stream);
}
void cuRegOrderedLogistic(const LogisticArguments<double>& arguments, cudaStream_t stream) {
  launch_logistic<double, 2>("cuRegOrderedLogistic()", arguments, stream);
}
void cuRegOrderedLogisticDistinct(const LogisticArguments<float>& arguments, cudaStream_t stream) {
  launch_distinct(arguments, stream);
}
void cuRegOrderedLogisticDistinct(const LogisticArguments<double>& arguments, cudaStream_t stream) {
  launch_distinct(arguments, stream);
}
