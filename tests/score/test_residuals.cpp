// SPDX-License-Identifier: Apache-2.0
#include "tools/residuals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

struct Data {
  Covariates x;
  std::vector<double> y;
};

// Covariates of very different size and place, and a phenotype that depends on them.
Data draw(unsigned seed, size_t n, size_t p, bool binary) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  Data data;
  data.x.n_samples = n;
  data.x.n_covariates = p;
  for (size_t i = 0; i < n; ++i) {
    double eta = -0.3;
    for (size_t j = 0; j < p; ++j) {
      const double z = normal(random);
      eta += 0.5 * z;
      data.x.values.push_back(1000.0 * static_cast<double>(j) +
                              std::pow(10.0, static_cast<double>(j) - 1.0) * z);
    }
    data.y.push_back(binary ? (normal(random) < eta ? 1.0 : 0.0) : eta + normal(random));
  }
  return data;
}

// The residuals of a maximum-likelihood fit, logistic or linear, are orthogonal to the intercept and every
// covariate: that is where the gradient vanishes.
void expect_orthogonal(const Data& data, const std::vector<double>& residuals) {
  for (size_t j = 0; j <= data.x.n_covariates; ++j) {
    double sum = 0.0;
    double size = 0.0;
    for (size_t i = 0; i < data.y.size(); ++i) {
      const double x = j == 0 ? 1.0 : data.x.values[i * data.x.n_covariates + j - 1];
      sum += x * residuals[i];
      size += std::fabs(x * residuals[i]);
    }
    EXPECT_LT(std::fabs(sum), 1e-9 * size) << "column " << j;
  }
}

TEST(LinearResiduals, AreOrthogonalToTheCovariates) {
  const Data data = draw(1, 200, 4, false);
  std::vector<double> coefficients;
  std::vector<double> residuals;
  ASSERT_TRUE(linear_residuals(data.x, data.y, &coefficients, &residuals).ok());
  expect_orthogonal(data, residuals);
  for (size_t i = 0; i < data.y.size(); ++i) {
    double fitted = coefficients[0];
    for (size_t j = 0; j < 4; ++j) {
      fitted += coefficients[j + 1] * data.x.values[i * 4 + j];
    }
    EXPECT_NEAR(data.y[i] - fitted, residuals[i], 1e-9);
  }
}

TEST(LinearResiduals, WithoutCovariatesAreTheDistancesFromTheMean) {
  std::vector<double> coefficients;
  std::vector<double> residuals;
  ASSERT_TRUE(linear_residuals({4, 0, {}}, {1.0, 2.0, 3.0, 6.0}, &coefficients, &residuals).ok());
  EXPECT_DOUBLE_EQ(coefficients[0], 3.0);
  EXPECT_DOUBLE_EQ(residuals[0], -2.0);
  EXPECT_DOUBLE_EQ(residuals[3], 3.0);
}

TEST(LogisticResiduals, AreOrthogonalToTheCovariates) {
  const Data data = draw(2, 400, 3, true);
  std::vector<double> coefficients;
  std::vector<double> residuals;
  ASSERT_TRUE(logistic_residuals(data.x, data.y, &coefficients, &residuals).ok());
  expect_orthogonal(data, residuals);
}

TEST(LogisticResiduals, WithoutCovariatesAreTheDistancesFromTheShareOfCases) {
  std::vector<double> coefficients;
  std::vector<double> residuals;
  ASSERT_TRUE(logistic_residuals({4, 0, {}}, {1.0, 0.0, 0.0, 0.0}, &coefficients, &residuals).ok());
  EXPECT_NEAR(residuals[0], 0.75, 1e-12);
  EXPECT_NEAR(residuals[1], -0.25, 1e-12);
  EXPECT_NEAR(coefficients[0], std::log(1.0 / 3.0), 1e-12);
}

// One covariate of 0 and 1 splits the samples into two groups, each with its own share of cases.
TEST(LogisticResiduals, OfOneBinaryCovariateAreTheDistancesFromTheGroupsShares) {
  const Covariates x{8, 1, {0, 0, 0, 0, 1, 1, 1, 1}};
  std::vector<double> coefficients;
  std::vector<double> residuals;
  ASSERT_TRUE(logistic_residuals(x, {1, 0, 0, 0, 1, 1, 1, 0}, &coefficients, &residuals).ok());
  EXPECT_NEAR(residuals[0], 0.75, 1e-12);
  EXPECT_NEAR(residuals[4], 0.25, 1e-12);
  EXPECT_NEAR(coefficients[0], std::log(1.0 / 3.0), 1e-10);
  EXPECT_NEAR(coefficients[1], 2.0 * std::log(3.0), 1e-10);
}

// No other coefficients have a higher likelihood.
TEST(LogisticResiduals, TheFitIsAMaximumOfTheLikelihood) {
  const Data data = draw(3, 150, 2, true);
  std::vector<double> coefficients;
  std::vector<double> residuals;
  ASSERT_TRUE(logistic_residuals(data.x, data.y, &coefficients, &residuals).ok());
  const auto log_likelihood = [&](const std::vector<double>& beta) {
    double sum = 0.0;
    for (size_t i = 0; i < data.y.size(); ++i) {
      const double eta = beta[0] + beta[1] * data.x.values[2 * i] + beta[2] * data.x.values[2 * i + 1];
      sum += data.y[i] * eta - std::log1p(std::exp(eta));
    }
    return sum;
  };
  const double best = log_likelihood(coefficients);
  for (size_t j = 0; j < 3; ++j) {
    for (const double step : {-1e-3, 1e-3}) {
      std::vector<double> moved = coefficients;
      moved[j] += step * (1.0 + std::fabs(moved[j]));
      EXPECT_LT(log_likelihood(moved), best);
    }
  }
}

TEST(LogisticResiduals, CovariatesThatSeparateTheClassesAreRefused) {
  std::vector<double> coefficients;
  std::vector<double> residuals;
  const Status status =
      logistic_residuals({6, 1, {1, 2, 3, 4, 5, 6}}, {0, 0, 0, 1, 1, 1}, &coefficients, &residuals);
  EXPECT_FALSE(status.ok());
}

TEST(LogisticResiduals, OneClassAloneIsRefused) {
  std::vector<double> coefficients;
  std::vector<double> residuals;
  EXPECT_FALSE(logistic_residuals({3, 0, {}}, {1, 1, 1}, &coefficients, &residuals).ok());
  EXPECT_FALSE(logistic_residuals({3, 0, {}}, {0, 0, 0}, &coefficients, &residuals).ok());
}

TEST(Residuals, DependentAndConstantCovariatesAreRefusedByNumber) {
  Data data = draw(4, 50, 3, true);
  for (size_t i = 0; i < 50; ++i) {
    data.x.values[3 * i + 2] = 2.0 * data.x.values[3 * i] - data.x.values[3 * i + 1] + 7.0;
  }
  std::vector<double> coefficients;
  std::vector<double> residuals;
  const Status dependent = linear_residuals(data.x, data.y, &coefficients, &residuals);
  EXPECT_FALSE(dependent.ok());
  EXPECT_NE(dependent.message().find("covariate 3"), std::string::npos) << dependent.message();
  for (size_t i = 0; i < 50; ++i) {
    data.x.values[3 * i + 1] = 5.1;
  }
  const Status constant = logistic_residuals(data.x, data.y, &coefficients, &residuals);
  EXPECT_FALSE(constant.ok());
  EXPECT_NE(constant.message().find("covariate 2"), std::string::npos) << constant.message();
}

}  // namespace
