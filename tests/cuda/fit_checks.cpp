// SPDX-License-Identifier: Apache-2.0
#include "tests/cuda/fit_checks.h"

#include <cmath>
#include <cstring>
#include <random>

#include "cpu/item_fits.h"

namespace tavo_test {

namespace {

bool same_bits(double a, double b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b));
}

}  // namespace

RegressionRules regression_rules(RegressionModel model, Precision precision, int iterations) {
  RegressionRules rules;
  rules.model = model;
  rules.precision = precision;
  rules.iterations = iterations;
  return rules;
}

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

std::vector<ItemFit> cpu_fits(const Problem& problem, const RegressionRules& rules,
                              const std::vector<int>& items) {
  std::vector<ItemFit> fits(items.size() / static_cast<size_t>(rules.order()));
  make_item_fits(problem, rules, InstructionSet::kScalar)->run(items.data(), fits.size(), fits.data());
  return fits;
}

void expect_same_fit(const ItemFit& expected, const ItemFit& found, int columns) {
  ASSERT_EQ(expected.state, found.state);
  if (expected.state != FitState::kFitted) {
    return;
  }
  ASSERT_EQ(expected.converged, found.converged);
  ASSERT_EQ(expected.iterations, found.iterations);
  ASSERT_EQ(expected.rank, found.rank);
  ASSERT_TRUE(same_bits(expected.last_step, found.last_step)) << expected.last_step << " " << found.last_step;
  ASSERT_TRUE(same_bits(expected.deviance, found.deviance)) << expected.deviance << " " << found.deviance;
  for (int j = 0; j < columns; ++j) {
    ASSERT_TRUE(same_bits(expected.coefficients[j], found.coefficients[j]))
        << j << ": " << expected.coefficients[j] << " " << found.coefficients[j];
    ASSERT_TRUE(same_bits(expected.standard_errors[j], found.standard_errors[j]))
        << j << ": " << expected.standard_errors[j] << " " << found.standard_errors[j];
  }
}

void make_hard(std::mt19937& random, int n_samples, int n_snps, int n_covariates, double missing,
               bool quantitative, RegressionData* data) {
  make_random(random, n_samples, n_snps, n_covariates, missing, quantitative, data);
  for (size_t i = 0; i < data->genotypes.size(); ++i) {
    std::vector<int>& row = data->genotypes[i];
    row[2] = 0;
    row[3] = quantitative ? row[3] : data->phenotypes[i] == 1.0f ? 1 : 0;
    row[4] = row[4] == 0 ? 1 : row[4];
  }
  data->finish(n_covariates);
}

void sweep_fits(RegressionModel model, Precision precision, const FitFunction& fit) {
  std::mt19937 random(40);
  const bool quantitative = model == RegressionModel::kLinear;
  for (int n_covariates = 0; n_covariates <= kMaxModelCovariates; ++n_covariates) {
    for (const int n_samples : {3, 37, 128, 300}) {
      const int n_snps = model == RegressionModel::kOrderedLogistic ? 7 : 35;
      RegressionData data;
      make_hard(random, n_samples, n_snps, n_covariates, n_samples == 37 || n_samples == 300 ? 0.1 : 0.0,
                quantitative, &data);
      const int iterations = n_samples == 3 ? 3 : n_samples == 37 && n_covariates % 3 == 1 ? 0 : 20;
      const RegressionRules rules = regression_rules(model, precision, iterations);
      const std::vector<int> items = all_items(n_snps, rules.order());
      const std::vector<ItemFit> expected = cpu_fits(data.problem, rules, items);
      const std::vector<ItemFit> found = fit(data.problem, rules, items);
      ASSERT_EQ(found.size(), expected.size());
      for (size_t k = 0; k < expected.size(); ++k) {
        expect_same_fit(expected[k], found[k], rules.columns(n_covariates));
        ASSERT_FALSE(testing::Test::HasFatalFailure())
            << n_samples << " samples, " << n_covariates << " covariates, item " << k;
      }
    }
  }
}

}  // namespace tavo_test
