// SPDX-License-Identifier: Apache-2.0
//
// The cooperative fit of a pair, with a block's threads in a loop, against the fit by one thread.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "lib/standardized.h"
#include "tests/cuda/fit_checks.h"
#include "tests/cuda/host_team.h"

namespace {

using tavo_test::RegressionData;

template <typename T>
std::vector<ItemFit> distinct_fits_on(const Problem& problem, const RegressionRules& rules,
                                      const std::vector<int>& items, unsigned seed, const T* covariates,
                                      CovariateScale scale) {
  std::vector<ItemFit> fits(items.size() / 2);
  const LogisticArguments<T> arguments{static_cast<uint32_t>(fits.size()),
                                       items.data(),
                                       {{problem.words, problem.words_per_row},
                                        problem.n_samples,
                                        problem.n_covariates,
                                        problem.phenotypes,
                                        covariates},
                                       rules.iterations,
                                       scale,
                                       fits.data()};
  for (uint32_t pair = 0; pair < fits.size(); ++pair) {
    tavo_test::HostTeam<T> team(seed + pair);
    fit_distinct(arguments, pair, team);
  }
  return fits;
}

std::vector<ItemFit> distinct_fits(const Problem& problem, const RegressionRules& rules,
                                   const std::vector<int>& items, unsigned seed = 1) {
  if (rules.precision == Precision::kSingle) {
    return distinct_fits_on<float>(problem, rules, items, seed, problem.covariates, {});
  }
  const StandardizedCovariates covariates(problem.covariates, problem.n_samples, problem.n_covariates);
  return distinct_fits_on<double>(problem, rules, items, seed, covariates.values().data(),
                                  covariates.scale());
}

// A cell of two genotypes whose samples are all of one class has no finite estimate: its coefficient runs
// away, and where to depends on rounding.
bool has_estimates(const ItemFit& precise, int columns) {
  bool finite = precise.converged;
  for (int j = 0; j < columns; ++j) {
    finite = finite && precise.standard_errors[j] < 5.0;
  }
  return finite;
}

struct Tolerance {
  double deviance;     // of itself
  double coefficient;  // of the standard error
};

// Each of the two fits is off by n u of a deviance, and by n u sqrt(n) of a standard error
// (docs/numerics.md). Sums of doubles are compensated: what is left is the rounding of steps and inverses.
Tolerance tolerance_of(Precision precision, int n_samples) {
  if (precision == Precision::kDouble) {
    return {1e-12, 1e-10};
  }
  const double n = n_samples;
  return {2.0 * n * 6e-8, 2.0 * n * 6e-8 * std::sqrt(n)};
}

class DistinctFits : public testing::TestWithParam<Precision> {};

TEST_P(DistinctFits, AgreeWithThoseOfOneThread) {
  std::mt19937 random(51);
  size_t compared = 0;
  for (const int n_covariates : {0, 1, 4, 7}) {
    for (const int n_samples : {32, 417, 1000}) {
      RegressionData data;
      tavo_test::make_random(random, n_samples, 6, n_covariates, n_samples == 417 ? 0.05 : 0.0, false, &data);
      for (std::vector<int>& row : data.genotypes) {
        row[2] = 0;
      }
      data.finish(n_covariates);
      const std::vector<int> items = tavo_test::all_items(6, 2);
      const RegressionRules rules =
          tavo_test::regression_rules(RegressionModel::kOrderedLogistic, GetParam());
      RegressionRules precise_rules = rules;
      precise_rules.precision = Precision::kDouble;
      const std::vector<ItemFit> precise = tavo_test::cpu_fits(data.problem, precise_rules, items);
      const std::vector<ItemFit> expected = tavo_test::cpu_fits(data.problem, rules, items);
      const std::vector<ItemFit> found = distinct_fits(data.problem, rules, items);
      const int columns = rules.columns(n_covariates);
      const Tolerance tolerance = tolerance_of(GetParam(), n_samples);
      for (size_t k = 0; k < found.size(); ++k) {
        SCOPED_TRACE(std::to_string(n_samples) + " samples, " + std::to_string(n_covariates) +
                     " covariates, pair " + std::to_string(k));
        if (!has_estimates(precise[k], columns)) {
          continue;
        }
        ++compared;
        ASSERT_EQ(found[k].state, FitState::kFitted);
        EXPECT_EQ(found[k].rank, expected[k].rank);
        if (GetParam() == Precision::kDouble) {
          EXPECT_TRUE(found[k].converged);
        }
        EXPECT_NEAR(found[k].deviance, expected[k].deviance, tolerance.deviance * expected[k].deviance);
        for (int j = 0; j < columns; ++j) {
          const double error = expected[k].standard_errors[j];
          if (precise[k].standard_errors[j] == 0.0) {  // a column of zeros, or one that others determine
            EXPECT_NEAR(found[k].coefficients[j], expected[k].coefficients[j],
                        1e-5 + tolerance.coefficient * std::fmax(0.0, error));
            continue;
          }
          EXPECT_NEAR(found[k].coefficients[j], expected[k].coefficients[j], tolerance.coefficient * error);
          EXPECT_NEAR(found[k].standard_errors[j], error, tolerance.coefficient * error);
        }
      }
    }
  }
  EXPECT_GT(compared, 40u);
}

// Barriers stand wherever a thread reads what another wrote.
TEST_P(DistinctFits, DoNotDependOnTheOrderOfTheThreads) {
  std::mt19937 random(52);
  for (const int iterations : {0, 3, 20}) {
    RegressionData data;
    tavo_test::make_hard(random, 150, 5, 2, 0.05, false, &data);
    const RegressionRules rules =
        tavo_test::regression_rules(RegressionModel::kOrderedLogistic, GetParam(), iterations);
    const std::vector<int> items = tavo_test::all_items(5, 2);
    const std::vector<ItemFit> first = distinct_fits(data.problem, rules, items, 1);
    for (unsigned seed = 100; seed <= 300; seed += 100) {
      const std::vector<ItemFit> again = distinct_fits(data.problem, rules, items, seed);
      for (size_t k = 0; k < first.size(); ++k) {
        tavo_test::expect_same_fit(first[k], again[k], rules.columns(2));
      }
    }
  }
}

TEST_P(DistinctFits, TakeTheIterationsThatTheyMay) {
  std::mt19937 random(53);
  RegressionData data;
  tavo_test::make_random(random, 200, 4, 1, 0.0, false, &data);
  for (const int iterations : {0, 1, 3}) {
    const RegressionRules rules =
        tavo_test::regression_rules(RegressionModel::kOrderedLogistic, GetParam(), iterations);
    const std::vector<int> items = tavo_test::all_items(4, 2);
    const std::vector<ItemFit> expected = tavo_test::cpu_fits(data.problem, rules, items);
    const std::vector<ItemFit> found = distinct_fits(data.problem, rules, items);
    for (size_t k = 0; k < found.size(); ++k) {
      EXPECT_EQ(found[k].iterations, iterations);
      EXPECT_FALSE(found[k].converged);
      EXPECT_NEAR(found[k].deviance, expected[k].deviance, 200 * 12e-8 * expected[k].deviance);
      EXPECT_NEAR(found[k].last_step, expected[k].last_step, 1e-3 * expected[k].last_step);
    }
  }
}

// A covariate without end leaves no matrix to invert.
TEST_P(DistinctFits, FailTheWayOfOneThread) {
  std::mt19937 random(54);
  RegressionData data;
  tavo_test::make_random(random, 60, 3, 1, 0.0, false, &data);
  data.covariates[7] = std::numeric_limits<float>::infinity();
  data.finish(1);
  for (const int iterations : {0, 20}) {
    const RegressionRules rules =
        tavo_test::regression_rules(RegressionModel::kOrderedLogistic, GetParam(), iterations);
    const std::vector<int> items = tavo_test::all_items(3, 2);
    const std::vector<ItemFit> expected = tavo_test::cpu_fits(data.problem, rules, items);
    const std::vector<ItemFit> found = distinct_fits(data.problem, rules, items);
    for (size_t k = 0; k < found.size(); ++k) {
      EXPECT_EQ(found[k].state, iterations == 0 ? FitState::kUnwritten : FitState::kFailed);
      EXPECT_EQ(found[k].state, expected[k].state);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Precisions, DistinctFits, testing::Values(Precision::kSingle, Precision::kDouble),
                         [](const auto& test) {
                           return test.param == Precision::kSingle ? "Single" : "Double";
                         });

}  // namespace
