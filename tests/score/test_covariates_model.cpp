// SPDX-License-Identifier: Apache-2.0
//
// The fits of tavo-score against a slow second way to the same maximum: derivatives by differences of the
// log-likelihood, in long double, and steps by Gaussian elimination.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tools/residuals.h"

namespace {

using Real = long double;
using Point = std::vector<Real>;

struct ModelData {
  Covariates x;
  std::vector<double> y;
};

ModelData draw(unsigned seed, size_t n, size_t p) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform;
  ModelData data{{n, p, {}}, {}};
  for (size_t i = 0; i < n; ++i) {
    double eta = 0.2;
    for (size_t j = 0; j < p; ++j) {
      data.x.values.push_back(j == 0 ? (uniform(random) < 0.4 ? 1.0 : 0.0) : normal(random));
      eta += (j % 2 == 0 ? 0.8 : -0.6) * data.x.values.back();
    }
    data.y.push_back(uniform(random) < 1.0 / (1.0 + std::exp(-eta)) ? 1.0 : 0.0);
  }
  return data;
}

Real predictor(const ModelData& data, const Point& beta, size_t i) {
  Real eta = beta[0];
  for (size_t j = 0; j < data.x.n_covariates; ++j) {
    eta += beta[j + 1] * static_cast<Real>(data.x.values[i * data.x.n_covariates + j]);
  }
  return eta;
}

Real log_likelihood(const ModelData& data, const Point& beta) {
  Real sum = 0;
  for (size_t i = 0; i < data.y.size(); ++i) {
    const Real eta = predictor(data, beta, i);
    sum += static_cast<Real>(data.y[i]) * eta - std::log1p(std::exp(eta));
  }
  return sum;
}

// Solves a * x = b for a small definite matrix; a: [p][p].
Point solve(std::vector<Point> a, Point b) {
  const size_t p = b.size();
  for (size_t k = 0; k < p; ++k) {
    for (size_t i = k + 1; i < p; ++i) {
      const Real factor = a[i][k] / a[k][k];
      for (size_t j = k; j < p; ++j) {
        a[i][j] -= factor * a[k][j];
      }
      b[i] -= factor * b[k];
    }
  }
  for (size_t k = p; k-- > 0;) {
    for (size_t j = k + 1; j < p; ++j) {
      b[k] -= a[k][j] * b[j];
    }
    b[k] /= a[k][k];
  }
  return b;
}

// Central differences: error about step^2 in the slope, rounding over step^2 in the curvature, which only
// has to point the right way.
Point maximise(const ModelData& data) {
  constexpr Real kSlopeStep = 1e-6L;
  constexpr Real kCurvatureStep = 1e-4L;
  const size_t p = data.x.n_covariates + 1;
  Point beta(p, 0);
  const auto at = [&](size_t j, Real dj, size_t k, Real dk) {
    Point moved = beta;
    moved[j] += dj;
    moved[k] += dk;
    return log_likelihood(data, moved);
  };
  for (int iteration = 0; iteration < 30; ++iteration) {
    Point slope(p);
    std::vector<Point> curvature(p, Point(p));
    for (size_t j = 0; j < p; ++j) {
      slope[j] = (at(j, kSlopeStep, j, 0) - at(j, -kSlopeStep, j, 0)) / (2 * kSlopeStep);
      for (size_t k = 0; k < p; ++k) {
        const Real h = kCurvatureStep;
        curvature[j][k] =
            (at(j, h, k, h) - at(j, h, k, -h) - at(j, -h, k, h) + at(j, -h, k, -h)) / (4 * h * h);
      }
    }
    const Point step = solve(curvature, slope);
    for (size_t j = 0; j < p; ++j) {
      beta[j] -= step[j];
    }
  }
  return beta;
}

TEST(CovariatesModel, LogisticFitsAgreeWithASecondWayToTheMaximum) {
  for (const unsigned seed : {1u, 2u, 3u}) {
    const ModelData data = draw(seed, 160, 1 + seed);
    std::vector<double> coefficients;
    std::vector<double> residuals;
    ASSERT_TRUE(logistic_residuals(data.x, data.y, &coefficients, &residuals).ok());
    const Point expected = maximise(data);
    ASSERT_EQ(coefficients.size(), expected.size());
    for (size_t j = 0; j < expected.size(); ++j) {
      EXPECT_NEAR(coefficients[j], static_cast<double>(expected[j]), 1e-9) << "seed " << seed << ", " << j;
    }
    for (size_t i = 0; i < data.y.size(); ++i) {
      const Real mu = 1 / (1 + std::exp(-predictor(data, expected, i)));
      EXPECT_NEAR(residuals[i], data.y[i] - static_cast<double>(mu), 1e-9) << "seed " << seed << ", " << i;
    }
  }
}

// The normal equations, which the fit itself does not use.
TEST(CovariatesModel, LinearFitsSolveTheNormalEquations) {
  ModelData data = draw(4, 90, 3);
  for (size_t i = 0; i < data.y.size(); ++i) {
    data.y[i] += 2.5 * data.x.values[3 * i] - data.x.values[3 * i + 1] + std::sin(static_cast<double>(i));
  }
  std::vector<Point> gram(4, Point(4, 0));
  Point right(4, 0);
  for (size_t i = 0; i < data.y.size(); ++i) {
    const Point row{1, data.x.values[3 * i], data.x.values[3 * i + 1], data.x.values[3 * i + 2]};
    for (size_t j = 0; j < 4; ++j) {
      right[j] += row[j] * static_cast<Real>(data.y[i]);
      for (size_t k = 0; k < 4; ++k) {
        gram[j][k] += row[j] * row[k];
      }
    }
  }
  const Point expected = solve(gram, right);
  std::vector<double> coefficients;
  std::vector<double> residuals;
  ASSERT_TRUE(linear_residuals(data.x, data.y, &coefficients, &residuals).ok());
  for (size_t j = 0; j < 4; ++j) {
    EXPECT_NEAR(coefficients[j], static_cast<double>(expected[j]), 1e-12);
  }
  for (size_t i = 0; i < data.y.size(); ++i) {
    EXPECT_NEAR(residuals[i],
                static_cast<double>(static_cast<Real>(data.y[i]) - predictor(data, expected, i)), 1e-12);
  }
}

// A refusal has to give its true reason: what a user does next depends on it.
TEST(CovariatesModel, SeparationIsRefusedAsSeparation) {
  Covariates line{40, 1, {}};
  Covariates group{40, 1, {}};
  std::vector<double> halves;
  std::vector<double> one_sided;
  for (int i = 0; i < 40; ++i) {
    line.values.push_back(i);
    halves.push_back(i < 20 ? 0.0 : 1.0);
    // Everyone in the group is a case, half of the others are: one coefficient grows without end.
    group.values.push_back(i % 2);
    one_sided.push_back(i % 2 == 1 || i % 4 == 0 ? 1.0 : 0.0);
  }
  std::vector<double> coefficients;
  std::vector<double> residuals;
  const Status complete = logistic_residuals(line, halves, &coefficients, &residuals);
  EXPECT_NE(complete.message().find("separate"), std::string::npos) << complete.message();
  const Status partial = logistic_residuals(group, one_sided, &coefficients, &residuals);
  EXPECT_NE(partial.message().find("separate"), std::string::npos) << partial.message();
  // One case fewer in the group, and there is a best fit.
  one_sided[1] = 0.0;
  EXPECT_TRUE(logistic_residuals(group, one_sided, &coefficients, &residuals).ok());
  EXPECT_NEAR(residuals[3], 1.0 / 20.0, 1e-12);
}

// The middle group is mixed and lies where the column is 0 once centred.
TEST(CovariatesModel, SeparationAroundAMixedMiddleIsRefusedAsSeparation) {
  const Covariates x{9, 1, {0, 0, 0, 1, 1, 1, 2, 2, 2}};
  std::vector<double> coefficients;
  std::vector<double> residuals;
  const Status status = logistic_residuals(x, {0, 0, 0, 0, 1, 1, 1, 1, 1}, &coefficients, &residuals);
  EXPECT_NE(status.message().find("separate"), std::string::npos) << status.message();
}

// A case far out on the side of the cases says next to nothing: the fit is that of the two groups, and the
// predictor of about 2,000 no reason to refuse it.
TEST(CovariatesModel, AFarSampleOnItsSideDoesNotSeparate) {
  const Covariates x{9, 1, {0, 0, 0, 0, 1, 1, 1, 1, 1000}};
  std::vector<double> coefficients;
  std::vector<double> residuals;
  const Status status = logistic_residuals(x, {1, 0, 0, 0, 1, 1, 1, 0, 1}, &coefficients, &residuals);
  ASSERT_TRUE(status.ok()) << status.message();
  EXPECT_NEAR(coefficients[0], std::log(1.0 / 3.0), 1e-10);
  EXPECT_NEAR(coefficients[1], 2.0 * std::log(3.0), 1e-10);
  EXPECT_NEAR(residuals[0], 0.75, 1e-11);
  EXPECT_NEAR(residuals[7], -0.75, 1e-11);
  // It stays a case in a score file.
  EXPECT_GT(static_cast<float>(residuals[8]), 0.0f);
}

}  // namespace
