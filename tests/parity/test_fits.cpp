// SPDX-License-Identifier: Apache-2.0
//
// Regression fits of the CPU backend: against a naive computation and among instruction sets on bits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <set>

#include "cpu/item_fits.h"
#include "tests/parity/cpu_fits.h"
#include "tests/reference/naive_regression.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/regression_data.h"
#include "tests/support/sweep.h"

namespace tavo_test {
namespace {

// All pairs, or all SNPs.
std::vector<int> all_items(int n_snps, int order) {
  std::vector<int> items;
  for (int i = 0; i < n_snps; ++i) {
    if (order == 1) {
      items.push_back(i);
    }
    for (int j = i + 1; order == 2 && j < n_snps; ++j) {
      items.insert(items.end(), {i, j});
    }
  }
  return items;
}

bool same_bits(double a, double b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b));
}

void expect_same(const ItemFit& a, const ItemFit& b, int columns) {
  ASSERT_EQ(a.state, b.state);
  if (a.state != FitState::kFitted) {
    return;
  }
  EXPECT_EQ(a.converged, b.converged);
  EXPECT_EQ(a.iterations, b.iterations);
  EXPECT_EQ(a.rank, b.rank);
  EXPECT_TRUE(same_bits(a.last_step, b.last_step)) << a.last_step << " " << b.last_step;
  EXPECT_TRUE(same_bits(a.deviance, b.deviance)) << a.deviance << " " << b.deviance;
  for (int j = 0; j < columns; ++j) {
    EXPECT_TRUE(same_bits(a.coefficients[j], b.coefficients[j]))
        << j << ": " << a.coefficients[j] << " " << b.coefficients[j];
    EXPECT_TRUE(same_bits(a.standard_errors[j], b.standard_errors[j]))
        << j << ": " << a.standard_errors[j] << " " << b.standard_errors[j];
  }
}

// Sample numbers from fewer than columns to many, every number of covariates, iteration limits from none on.
TEST(SinglePrecisionLogisticFits, HaveTheBitsOfTheNaiveFit) {
  std::mt19937 random(11);
  for (const RegressionModel model : {RegressionModel::kLogistic, RegressionModel::kOrderedLogistic}) {
    for (int n_covariates = 0; n_covariates <= 7; ++n_covariates) {
      for (const int n_samples : {9, 37, 180}) {
        const double missing = n_samples == 37 ? 0.1 : 0.0;
        const int n_snps = model == RegressionModel::kLogistic ? 37 : 8;
        RegressionData data;
        make_random(random, n_samples, n_snps, n_covariates, missing, false, &data);
        for (size_t i = 0; i < data.genotypes.size(); ++i) {
          data.genotypes[i][2] = 0;                                   // one genotype only
          data.genotypes[i][3] = data.phenotypes[i] == 1.0f ? 1 : 0;  // separates the classes
          data.genotypes[i][4] = data.genotypes[i][4] == 0 ? 1 : data.genotypes[i][4];  // dummies add up to 1
        }
        data.finish(n_covariates);
        const int iterations = n_samples == 9 ? 3 : n_covariates == 7 && n_samples == 37 ? 0 : 20;
        const RegressionRules rules = rules_of(model, Precision::kSingle, iterations);
        const std::vector<int> items = all_items(n_snps, rules.order());
        for (const InstructionSet set : sets_here()) {
          const std::vector<ItemFit> fits = fit_all(data.problem, rules, items, set);
          for (size_t k = 0; k < fits.size(); ++k) {
            SCOPED_TRACE(std::string(name_of(set)) + ", order " + std::to_string(rules.order()) + ", " +
                         std::to_string(n_samples) + " samples, " + std::to_string(n_covariates) +
                         " covariates, item " + std::to_string(k));
            expect_same(
                naive_logistic(data.problem, rules, items.data() + k * static_cast<size_t>(rules.order())),
                fits[k], rules.columns(n_covariates));
            if (testing::Test::HasFailure()) {
              return;
            }
          }
        }
      }
    }
  }
}

// Makes items slow: rare genotypes, and SNPs that all but separate the classes, whose coefficients grow pass
// after pass.
void make_slow(RegressionData* data) {
  for (size_t i = 0; i < data->genotypes.size(); ++i) {
    for (size_t s = 0; s < data->genotypes[i].size(); s += 5) {
      const bool exception = i == s % data->genotypes.size();
      data->genotypes[i][s] = (data->phenotypes[i] == 1.0f) != exception && s % 2 == 0 ? 1 : i < 3 ? 2 : 0;
    }
  }
  data->finish(data->problem.n_covariates);
}

// Items that end after few passes and after many, and some at the limit: lanes are filled again and again,
// and coefficients that come back in a cycle do not end an iteration early or late.
TEST(SinglePrecisionLogisticFits, HaveTheBitsOfTheNaiveFitWhereItemsNeedManyPasses) {
  std::mt19937 random(15);
  for (const int n_covariates : {0, 1, 4}) {
    RegressionData data;
    make_random(random, 60, 150, n_covariates, 0.05, false, &data);
    make_slow(&data);
    const std::vector<int> items = all_items(150, 1);
    for (const int iterations : {1, 20, 45}) {
      const RegressionRules rules = rules_of(RegressionModel::kLogistic, Precision::kSingle, iterations);
      std::vector<ItemFit> naive(items.size());
      std::set<int> passes;
      for (size_t k = 0; k < items.size(); ++k) {
        naive[k] = naive_logistic(data.problem, rules, &items[k]);
        passes.insert(naive[k].iterations);
      }
      EXPECT_TRUE(passes.count(iterations)) << "no item reaches the limit";
      if (iterations > 1) {
        EXPECT_GE(passes.size(), 6u) << "items of one kind only";
      }
      for (const InstructionSet set : sets_here()) {
        const std::vector<ItemFit> fits = fit_all(data.problem, rules, items, set);
        for (size_t k = 0; k < fits.size(); ++k) {
          SCOPED_TRACE(std::string(name_of(set)) + ", " + std::to_string(n_covariates) +
                       " covariates, limit " + std::to_string(iterations) + ", item " + std::to_string(k));
          expect_same(naive[k], fits[k], rules.columns(n_covariates));
        }
      }
    }
  }
}

// Without finite covariates no probability of the first pass is known beforehand.
TEST(SinglePrecisionLogisticFits, HaveTheBitsOfTheNaiveFitWithAnInfiniteCovariate) {
  std::mt19937 random(16);
  RegressionData data;
  make_random(random, 60, 20, 2, 0.0, false, &data);
  data.covariates[31] = std::numeric_limits<float>::infinity();
  const RegressionRules rules = rules_of(RegressionModel::kLogistic, Precision::kSingle);
  const std::vector<int> items = all_items(20, 1);
  for (const InstructionSet set : sets_here()) {
    const std::vector<ItemFit> fits = fit_all(data.problem, rules, items, set);
    for (size_t k = 0; k < fits.size(); ++k) {
      SCOPED_TRACE(std::string(name_of(set)) + ", item " + std::to_string(k));
      expect_same(naive_logistic(data.problem, rules, &items[k]), fits[k], rules.columns(2));
    }
  }
}

// Every kind of fit.
TEST(Fits, HaveTheSameBitsOnEveryInstructionSet) {
  std::mt19937 random(12);
  for (const RegressionModel model :
       {RegressionModel::kLogistic, RegressionModel::kOrderedLogistic, RegressionModel::kLinear}) {
    for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
      for (const int n_covariates : {0, 1, 3, 7}) {
        for (const int n_samples : {50, 129, 300}) {
          if ((n_covariates + n_samples) % tavo_test::kSweepStep != 0) {
            continue;
          }
          RegressionData data;
          make_random(random, n_samples, 21, n_covariates, 0.03, model == RegressionModel::kLinear, &data);
          const RegressionRules rules = rules_of(model, precision);
          const std::vector<int> items = all_items(21, rules.order());
          const std::vector<ItemFit> expected = fit_all(data.problem, rules, items, InstructionSet::kScalar);
          for (const InstructionSet set : sets_here()) {
            const std::vector<ItemFit> fits = fit_all(data.problem, rules, items, set);
            for (size_t k = 0; k < fits.size(); ++k) {
              SCOPED_TRACE(std::string(name_of(set)) + ", item " + std::to_string(k));
              expect_same(expected[k], fits[k], rules.columns(n_covariates));
            }
          }
        }
      }
    }
  }
}

TEST(Fits, DoNotDependOnTheOtherItemsOfTheBatch) {
  std::mt19937 random(13);
  for (const RegressionModel model :
       {RegressionModel::kLogistic, RegressionModel::kOrderedLogistic, RegressionModel::kLinear}) {
    for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
      const bool linear = model == RegressionModel::kLinear;
      RegressionData data;
      make_random(random, 150, 40, 2, 0.02, linear, &data);
      if (!linear) {
        make_slow(&data);
      }
      const RegressionRules rules = rules_of(model, precision);
      const auto width = static_cast<size_t>(rules.order());
      const std::vector<int> items = all_items(40, rules.order());
      for (const InstructionSet set : sets_here()) {
        const std::vector<ItemFit> together = fit_all(data.problem, rules, items, set);
        for (size_t k = 0; k < together.size(); k += 7) {
          const std::vector<int> one(items.begin() + static_cast<ptrdiff_t>(k * width),
                                     items.begin() + static_cast<ptrdiff_t>((k + 1) * width));
          SCOPED_TRACE(std::string(name_of(set)) + ", item " + std::to_string(k));
          expect_same(fit_all(data.problem, rules, one, set)[0], together[k], rules.columns(2));
        }
      }
    }
  }
}

// The naive fit decomposes the design matrix in single precision; ours solves the normal equations in double.
// The residual sums differ by the rounding of the sum, coefficients by that of the decomposition.
TEST(SinglePrecisionLinearFits, AgreeWithTheNaiveDecomposition) {
  std::mt19937 random(14);
  for (const int n_covariates : {0, 2, 7}) {
    RegressionData data;
    make_random(random, 400, 30, n_covariates, 0.02, true, &data);
    const RegressionRules rules = rules_of(RegressionModel::kLinear, Precision::kSingle);
    const std::vector<int> items = all_items(30, 1);
    const std::vector<ItemFit> fits = fit_all(data.problem, rules, items, sets_here().back());
    for (size_t k = 0; k < fits.size(); ++k) {
      const ItemFit naive = naive_linear(data.problem, &items[k]);
      ASSERT_EQ(fits[k].state, naive.state);
      EXPECT_NEAR(fits[k].deviance, naive.deviance, 400 * 6e-8 * naive.deviance);
      for (int j = 0; j < rules.columns(n_covariates); ++j) {
        EXPECT_NEAR(fits[k].coefficients[j], naive.coefficients[j], 5e-4 * naive.standard_errors[j])
            << k << " " << j;
        EXPECT_NEAR(fits[k].standard_errors[j], naive.standard_errors[j], 5e-5 * naive.standard_errors[j]);
      }
    }
  }
}

// Everyone carries SNP 0, so its dummies add up to the intercept; SNP 1 has the same heterozygotes and no
// homozygotes. R leaves the homozygotes of both out, which makes the models one.
TEST(Fits, LeaveOutAColumnThatThoseBeforeItDetermine) {
  std::mt19937 random(17);
  for (const RegressionModel model : {RegressionModel::kLogistic, RegressionModel::kLinear}) {
    for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
      if (model == RegressionModel::kLogistic && precision == Precision::kSingle) {
        continue;  // shares the effect among the columns
      }
      for (const int n_covariates : {0, 1, 3}) {
        RegressionData data;
        make_random(random, 200, 2, n_covariates, 0.0, model == RegressionModel::kLinear, &data);
        for (std::vector<int>& row : data.genotypes) {
          row[0] = row[0] == 0 ? 2 : 1;
          row[1] = row[0] == 1 ? 1 : 0;
        }
        for (size_t i = 0; n_covariates == 3 && i < data.genotypes.size(); ++i) {
          data.covariates[3 * i + 1] = 2.0f * data.covariates[3 * i] + 1.0f;  // twice the same
        }
        data.finish(n_covariates);
        const std::vector<ItemFit> fits =
            fit_all(data.problem, rules_of(model, precision), {0, 1}, sets_here().back());
        const int independent = n_covariates == 3 ? 4 : 2 + n_covariates;
        for (const ItemFit& fit : fits) {
          ASSERT_EQ(fit.state, FitState::kFitted);
          EXPECT_EQ(fit.rank, independent);
          EXPECT_EQ(fit.coefficients[2], 0.0);
          EXPECT_EQ(fit.standard_errors[2], 0.0);
          if (n_covariates == 3) {
            EXPECT_EQ(fit.coefficients[4], 0.0);
            EXPECT_EQ(fit.standard_errors[4], 0.0);
          }
        }
        const double tolerance = precision == Precision::kDouble ? 1e-8 : 1e-4;
        for (int j = 0; j < 3 + n_covariates; ++j) {
          EXPECT_NEAR(fits[0].coefficients[j], fits[1].coefficients[j], tolerance) << j;
          EXPECT_NEAR(fits[0].standard_errors[j], fits[1].standard_errors[j], tolerance) << j;
        }
        EXPECT_GT(fits[0].standard_errors[1], 0.0);
      }
    }
  }
}

// The weights of a separated genotype's samples vanish, its column does not.
TEST(Fits, CountTheColumnsOfASeparatedGenotype) {
  RegressionData data;
  for (int i = 0; i < 200; ++i) {
    const bool is_case = i % 2 == 0;
    data.genotypes.push_back({i % 3 == 2 && !is_case ? 0 : i % 3});
    data.phenotypes.push_back(is_case ? 1.0f : 0.0f);
  }
  data.finish(0);
  for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
    const ItemFit fit =
        fit_all(data.problem, rules_of(RegressionModel::kLogistic, precision), {0}, sets_here().back())[0];
    EXPECT_GT(fit.coefficients[2], 10.0);
    EXPECT_EQ(fit.rank, 3);
  }
}

// SNP 0 separates cases from controls: the estimates run away, and the fit says so.
TEST(PerfectSeparation, EndsWithoutConvergenceAtADevianceNearZero) {
  std::mt19937 random(15);
  RegressionData data;
  make_random(random, 100, 1, 0, 0.0, false, &data);
  for (size_t i = 0; i < data.genotypes.size(); ++i) {
    data.genotypes[i][0] = data.phenotypes[i] == 1.0f ? 2 : 0;
  }
  data.finish(0);
  const ItemFit precise = fit_all(data.problem, rules_of(RegressionModel::kLogistic, Precision::kDouble), {0},
                                  sets_here().back())[0];
  EXPECT_EQ(precise.state, FitState::kFitted);
  EXPECT_FALSE(precise.converged);
  EXPECT_EQ(precise.iterations, 20);
  EXPECT_LT(precise.deviance, 1e-5);
  EXPECT_GT(precise.coefficients[2], 15.0);
}

TEST(NoIteration, LeavesCoefficientsAtZeroAndTheDevianceOfAHalf) {
  std::mt19937 random(16);
  RegressionData data;
  make_random(random, 64, 3, 1, 0.0, false, &data);
  for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
    const ItemFit fit =
        fit_all(data.problem, rules_of(RegressionModel::kLogistic, precision, 0), {1}, sets_here().back())[0];
    EXPECT_EQ(fit.state, FitState::kFitted);
    EXPECT_EQ(fit.iterations, 0);
    EXPECT_EQ(fit.coefficients[1], 0.0);
    EXPECT_NEAR(fit.deviance, 2.0 * 64.0 * std::log(2.0), 1e-4);
    EXPECT_GT(fit.standard_errors[0], 0.0);
  }
}

// As many samples as columns: nothing is left for the residual variance.
TEST(LinearFits, WithoutResidualDegreesOfFreedomHaveNoFiniteStandardErrors) {
  RegressionData data;
  data.genotypes = {{0}, {1}, {2}};
  data.phenotypes = {1.0f, 2.5f, 4.0f};
  data.finish(0);
  for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
    const ItemFit fit =
        fit_all(data.problem, rules_of(RegressionModel::kLinear, precision), {0}, sets_here().back())[0];
    EXPECT_EQ(fit.state, FitState::kFitted);
    EXPECT_NEAR(fit.coefficients[0], 1.0, 1e-6);
    EXPECT_NEAR(fit.coefficients[1], 1.5, 1e-6);
    EXPECT_NEAR(fit.coefficients[2], 3.0, 1e-6);
    EXPECT_FALSE(std::isfinite(fit.standard_errors[1]) && fit.standard_errors[1] > 0.0);
  }
}

}  // namespace
}  // namespace tavo_test
