// SPDX-License-Identifier: Apache-2.0
//
// The bodies of the regression kernels in host loops, against the CPU's fits on bits.
#include <gtest/gtest.h>

#include <cstring>

#include "cuda/linear_body.h"
#include "cuda/logistic_body.h"
#include "lib/standardized.h"
#include "tests/cuda/fit_checks.h"
#include "tests/cuda/surplus_threads.h"

namespace {

using tavo_test::FitFunction;
using tavo_test::RegressionData;

// Fits to begin with: garbage, so that what a kernel leaves unwritten shows.
std::vector<ItemFit> garbage(size_t n) {
  std::vector<ItemFit> fits(n);
  std::memset(static_cast<void*>(fits.data()), 0x5a, n * sizeof(ItemFit));
  return fits;
}

template <typename T>
FitSamples<T> samples_of(const Problem& problem, const T* covariates) {
  return {{problem.words, problem.words_per_row},
          problem.n_samples,
          problem.n_covariates,
          problem.phenotypes,
          covariates};
}

template <typename T, int Order>
std::vector<ItemFit> logistic_fits(const Problem& problem, const RegressionRules& rules,
                                   const std::vector<int>& items, const T* covariates, CovariateScale scale) {
  const size_t active = items.size() / Order;
  std::vector<ItemFit> fits = garbage(active + 1);
  const LogisticArguments<T> arguments{static_cast<uint32_t>(active),
                                       items.data(),
                                       samples_of(problem, covariates),
                                       rules.iterations,
                                       scale,
                                       fits.data()};
  with_covariate_class(problem.n_covariates, [&](auto most) {
    for (uint64_t t = 0; t < active + tavo_test::kSurplusThreads; ++t) {
      fit_logistic<T, Order, decltype(most)::kMost>(arguments, t);
    }
  });
  EXPECT_EQ(std::memcmp(&fits[active], &garbage(1)[0], sizeof(ItemFit)), 0);
  fits.pop_back();
  return fits;
}

template <int Order>
std::vector<ItemFit> single_logistic(const Problem& problem, const RegressionRules& rules,
                                     const std::vector<int>& items) {
  return logistic_fits<float, Order>(problem, rules, items, problem.covariates, {});
}

template <int Order>
std::vector<ItemFit> double_logistic(const Problem& problem, const RegressionRules& rules,
                                     const std::vector<int>& items) {
  const StandardizedCovariates covariates(problem.covariates, problem.n_samples, problem.n_covariates);
  return logistic_fits<double, Order>(problem, rules, items, covariates.values().data(), covariates.scale());
}

template <typename T>
std::vector<ItemFit> linear_fits(const Problem& problem, const RegressionRules&,
                                 const std::vector<int>& items) {
  const auto n = static_cast<size_t>(problem.n_samples);
  const auto n_covariates = static_cast<size_t>(problem.n_covariates);
  const StandardizedCovariates covariates(problem.covariates, problem.n_samples, problem.n_covariates);
  const std::vector<double> responses(problem.phenotypes, problem.phenotypes + n);
  const NormalEquations<double> precise =
      shared_sums<long double>(responses.data(), covariates.values().data(), n, n_covariates);
  const NormalEquations<float> single =
      shared_sums<float>(problem.phenotypes, problem.covariates, n, n_covariates);
  std::vector<ItemFit> fits = garbage(items.size() + 1);
  LinearArguments<T> arguments{};
  arguments.active = static_cast<uint32_t>(items.size());
  arguments.items = items.data();
  arguments.precise_samples = samples_of(problem, covariates.values().data());
  arguments.precise_shared = &precise;
  if constexpr (sizeof(T) == 8) {
    arguments.samples = arguments.precise_samples;
    arguments.shared = &precise;
  } else {
    arguments.samples = samples_of(problem, problem.covariates);
    arguments.shared = &single;
  }
  arguments.scale = covariates.scale();
  arguments.stat = fits.data();
  for (uint64_t t = 0; t < items.size() + tavo_test::kSurplusThreads; ++t) {
    fit_linear(arguments, t);
  }
  EXPECT_EQ(std::memcmp(&fits[items.size()], &garbage(1)[0], sizeof(ItemFit)), 0);
  fits.pop_back();
  return fits;
}

TEST(FitBodies, LogisticFitsOfOneSnpHaveTheBitsOfTheCpu) {
  tavo_test::sweep_fits(RegressionModel::kLogistic, Precision::kSingle, single_logistic<1>);
  tavo_test::sweep_fits(RegressionModel::kLogistic, Precision::kDouble, double_logistic<1>);
}

TEST(FitBodies, LogisticFitsOfPairsHaveTheBitsOfTheCpu) {
  tavo_test::sweep_fits(RegressionModel::kOrderedLogistic, Precision::kSingle, single_logistic<2>);
  tavo_test::sweep_fits(RegressionModel::kOrderedLogistic, Precision::kDouble, double_logistic<2>);
}

TEST(FitBodies, LinearFitsHaveTheBitsOfTheCpu) {
  tavo_test::sweep_fits(RegressionModel::kLinear, Precision::kSingle, linear_fits<float>);
  tavo_test::sweep_fits(RegressionModel::kLinear, Precision::kDouble, linear_fits<double>);
}

// Covariates without end: matrices that no decomposition converges on.
TEST(FitBodies, FailTheWayOfTheCpu) {
  std::mt19937 random(3);
  RegressionData data;
  tavo_test::make_random(random, 60, 5, 1, 0.0, false, &data);
  data.covariates[7] = std::numeric_limits<float>::infinity();
  data.finish(1);
  const std::vector<int> items = tavo_test::all_items(5, 1);
  for (const int iterations : {0, 20}) {
    const RegressionRules rules =
        tavo_test::regression_rules(RegressionModel::kLogistic, Precision::kSingle, iterations);
    const std::vector<ItemFit> expected = tavo_test::cpu_fits(data.problem, rules, items);
    const std::vector<ItemFit> found = single_logistic<1>(data.problem, rules, items);
    for (size_t k = 0; k < items.size(); ++k) {
      EXPECT_EQ(expected[k].state, iterations == 0 ? FitState::kUnwritten : FitState::kFailed);
      tavo_test::expect_same_fit(expected[k], found[k], 4);
    }
  }
}

}  // namespace
