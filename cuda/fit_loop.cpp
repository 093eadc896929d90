// SPDX-License-Identifier: Apache-2.0
#include "cuda/fit_loop.h"

#include <algorithm>
#include <type_traits>
#include <vector>

namespace {

// Fits of a pass at most, so that the page-locked buffers stay near 32 MiB.
constexpr size_t kMostFitsPerPass = (1 << 17) / kPassLanes;

}  // namespace

FitLoop::FitLoop(DeviceData& data, const RegressionRules& rules) : data_(data), rules_(rules) {
  if (rules_.precision == Precision::kDouble || rules_.model == RegressionModel::kLinear) {
    send_standardized();
  }
  if (rules_.model == RegressionModel::kLinear) {
    send_shared_sums();
  }
  const size_t bytes_per_item = static_cast<size_t>(rules_.order()) * sizeof(int) + sizeof(ItemFit);
  plan_.emplace(bytes_per_item, kMostFitsPerPass);
}

void FitLoop::send_standardized() {
  const Problem& problem = *data_.problem;
  standardized_.emplace(problem.covariates, problem.n_samples, problem.n_covariates);
  const CovariateScale scale = standardized_->scale();
  const auto n = static_cast<size_t>(scale.n_covariates);
  upload<double>(values_, standardized_->values(), "standardised covariates", data_.stream.get());
  upload_pair<double>(scale_, {scale.means, n}, {scale.inverse_deviations, n}, "scales of covariates",
                      data_.stream.get());
}

void FitLoop::send_shared_sums() {
  const Problem& problem = *data_.problem;
  const auto n = static_cast<size_t>(problem.n_samples);
  const auto n_covariates = static_cast<size_t>(problem.n_covariates);
  const std::vector<double> responses(problem.phenotypes, problem.phenotypes + n);
  const NormalEquations<double> precise =
      shared_sums<long double>(responses.data(), standardized_->values().data(), n, n_covariates);
  upload<NormalEquations<double>>(precise_shared_, {&precise, 1}, "normal equations", data_.stream.get());
  if (rules_.precision == Precision::kSingle) {
    const NormalEquations<float> single =
        shared_sums<float>(problem.phenotypes, problem.covariates, n, n_covariates);
    upload<NormalEquations<float>>(shared_, {&single, 1}, "normal equations", data_.stream.get());
  }
}

template <typename T>
FitSamples<T> FitLoop::samples() const {
  const Problem& problem = *data_.problem;
  FitSamples<T> samples{data_.matrix(), problem.n_samples, problem.n_covariates,
                        data_.regression.response.data(), nullptr};
  if constexpr (std::is_same_v<T, double>) {
    samples.covariates = values_.data();
  } else {
    samples.covariates = data_.regression.pCOV.data();
  }
  return samples;
}

template <typename T>
void FitLoop::launch_as(const Lane& lane) const {
  const cudaStream_t stream = lane.stream.get();
  const auto active = static_cast<uint32_t>(lane.n);
  const int n_covariates = data_.problem->n_covariates;
  const CovariateScale scale{n_covariates, scale_.data(), scale_.data() + n_covariates};
  if (rules_.model == RegressionModel::kLinear) {
    LinearArguments<T> arguments{};
    arguments.active = active;
    arguments.items = lane.pComb.data();
    arguments.samples = samples<T>();
    arguments.precise_samples = samples<double>();
    arguments.precise_shared = precise_shared_.data();
    if constexpr (std::is_same_v<T, double>) {
      arguments.shared = precise_shared_.data();
    } else {
      arguments.shared = shared_.data();
    }
    arguments.scale = scale;
    arguments.stat = lane.pStat.data();
    cuRegLinear(arguments, stream);
    return;
  }
  const LogisticArguments<T> arguments{active, lane.pComb.data(), samples<T>(), rules_.iterations,
                                       scale,  lane.pStat.data()};
  if (rules_.order() == 1) {
    cuRegLogistic(arguments, stream);
  } else if (rules_.distinct) {
    cuRegOrderedLogisticDistinct(arguments, stream);
  } else {
    cuRegOrderedLogistic(arguments, stream);
  }
}

void FitLoop::launch(const Lane& lane) const {
  if (rules_.precision == Precision::kDouble) {
    launch_as<double>(lane);
  } else {
    launch_as<float>(lane);
  }
}

void FitLoop::fit(const int* items, uint32_t active, ItemFit* results) {
  const auto order = static_cast<size_t>(rules_.order());
  const auto start = [&](Lane& lane) {
    const cudaStream_t stream = lane.stream.get();
    lane.pStat.reserve(lane.n, "fits");
    lane.host_stat.reserve(lane.n, "fits");
    upload<int>(lane.pComb, {items + lane.first * order, lane.n * order}, "items", stream);
    launch(lane);
    cuda_safe_call(cudaMemcpyAsync(lane.host_stat.data(), lane.pStat.data(), lane.n * sizeof(ItemFit),
                                   cudaMemcpyDeviceToHost, stream));
  };
  const auto finish = [&](const Lane& lane) {
    std::copy_n(lane.host_stat.data(), lane.n, results + lane.first);
  };
  run_passes(lanes_, *plan_, active, start, finish);
}
