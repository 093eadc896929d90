// SPDX-License-Identifier: Apache-2.0
#include "tests/reference/naive_regression.h"

#include <cmath>
#include <limits>

#include "lib/float_math.h"
#include "lib/information_inverse.h"

namespace tavo_test {
namespace {

constexpr int kRow = 16;

int genotype(const Problem& problem, int sample, int snp) {
  return static_cast<int>(problem.row(static_cast<size_t>(sample))[snp / 16] >> (2 * (snp % 16)) & 3u);
}

std::vector<float> design_row(const Problem& problem, int order, const int* item, int sample) {
  std::vector<float> x = {1.0f};
  if (order == 1) {
    const int g = genotype(problem, sample, item[0]);
    x.push_back(g == 1 ? 1.0f : 0.0f);
    x.push_back(g == 2 ? 1.0f : 0.0f);
  } else {
    const int g = genotype(problem, sample, item[0]);
    const int h = genotype(problem, sample, item[1]);
    const float a[] = {static_cast<float>(g % 2), static_cast<float>(g / 2)};
    const float b[] = {static_cast<float>(h % 2), static_cast<float>(h / 2)};
    x.insert(x.end(), {a[0], a[1], b[0], b[1], a[0] * b[0], a[0] * b[1], a[1] * b[0], a[1] * b[1]});
  }
  for (int c = 0; c < problem.n_covariates; ++c) {
    x.push_back(problem.covariates[sample * problem.n_covariates + c]);
  }
  return x;
}

std::vector<std::vector<float>> design_matrix(const Problem& problem, int order, const int* item) {
  std::vector<std::vector<float>> x;
  for (int i = 0; i < problem.n_samples; ++i) {
    x.push_back(design_row(problem, order, item, i));
  }
  return x;
}

float share(float y, float mu) {
  return y == 0.0f ? 0.0f : -tavo_logf(mu);
}

}  // namespace

ItemFit naive_logistic(const Problem& problem, const RegressionRules& rules, const int* item) {
  const std::vector<std::vector<float>> x = design_matrix(problem, rules.order(), item);
  const size_t np = x[0].size();
  const size_t n = x.size();
  std::vector<float> mu(n, 0.5f);
  float coef[kRow] = {};
  float covariance[kRow * kRow] = {};
  ItemFit fit;
  const auto predict = [&] {
    for (size_t i = 0; i < n; ++i) {
      float eta = 0.0f;
      for (size_t j = 0; j < np; ++j) {
        eta += coef[j] * x[i][j];
      }
      mu[i] = 1.0f / (1.0f + tavo_expf(-eta));
    }
  };
  const auto invert = [&] {
    float information[kRow * kRow] = {};
    for (size_t j = 0; j < np; ++j) {
      for (size_t k = j; k < np; ++k) {
        float sum = 0.0f;
        for (size_t i = 0; i < n; ++i) {
          sum += x[i][j] * x[i][k] * mu[i] * (1.0f - mu[i]);
        }
        information[j * kRow + k] = information[k * kRow + j] = sum;
      }
    }
    int rank = 0;
    const bool inverted = information_inverse<kRow>(information, static_cast<int>(np), covariance, &rank);
    fit.rank = fit.iterations == 0 ? rank : fit.rank;
    return inverted;
  };
  while (!fit.converged && fit.iterations < rules.iterations) {
    predict();
    if (!invert()) {
      fit.state = FitState::kFailed;
      return fit;
    }
    float step[kRow] = {};
    for (size_t j = 0; j < np; ++j) {
      for (size_t i = 0; i < n; ++i) {
        float projected = 0.0f;
        for (size_t k = 0; k < np; ++k) {
          projected += covariance[j * kRow + k] * x[i][k];
        }
        step[j] += projected * (problem.phenotypes[i] - mu[i]);
      }
    }
    float total = 0.0f;
    for (size_t j = 0; j < np; ++j) {
      total += std::fabs(step[j]);
      coef[j] += step[j];
    }
    fit.converged = rules.order() == 2 ? total < 1e-6f : static_cast<double>(total) < 1e-6;
    fit.last_step = static_cast<double>(total);
    ++fit.iterations;
  }
  if (!invert()) {
    fit.state = FitState::kUnwritten;
    return fit;
  }
  predict();
  float deviance = 0.0f;
  for (size_t i = 0; i < n; ++i) {
    const float y = problem.phenotypes[i];
    deviance += 2.0f * (share(1.0f - y, 1.0f - mu[i]) + share(y, mu[i]));
  }
  fit.deviance = static_cast<double>(deviance);
  for (size_t j = 0; j < np; ++j) {
    fit.coefficients[j] = static_cast<double>(coef[j]);
    fit.standard_errors[j] = static_cast<double>(std::sqrt(covariance[j * kRow + j]));
  }
  return fit;
}

ItemFit naive_linear(const Problem& problem, const int* item) {
  const std::vector<std::vector<float>> x = design_matrix(problem, 1, item);
  const size_t np = x[0].size();
  const size_t n = x.size();
  const int columns = static_cast<int>(np);
  const float sigma = std::sqrt(1.0f / std::sqrt(static_cast<float>(n)));
  std::vector<float> u(n * kRow);
  std::vector<float> b(n);
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j < np; ++j) {
      u[i * kRow + j] = x[i][j] / sigma;
    }
    b[i] = problem.phenotypes[i] / sigma;
  }
  ItemFit fit;
  float w[kRow];
  float v[kRow * kRow];
  if (svd_decompose<float, kRow>(u.data(), w, v, static_cast<int>(n), columns) == 0) {
    fit.state = FitState::kFailed;
    return fit;
  }
  float largest = 0.0f;
  for (size_t j = 0; j < np; ++j) {
    largest = std::max(largest, w[j]);
  }
  for (size_t j = 0; j < np; ++j) {
    if (static_cast<double>(w[j]) < static_cast<double>(largest) * 1e-13) {
      w[j] = 0.0f;
    }
  }
  float coef[kRow];
  svd_solve<float, kRow>(u.data(), w, v, b.data(), coef, static_cast<int>(n), columns);
  float products[kRow * kRow] = {};
  float squares = 0.0f;
  for (size_t i = 0; i < n; ++i) {
    float fitted = 0.0f;
    for (size_t j = 0; j < np; ++j) {
      fitted += x[i][j] * coef[j];
      for (size_t k = 0; k < np; ++k) {
        products[j * kRow + k] += x[i][j] * x[i][k];
      }
    }
    squares += (fitted - problem.phenotypes[i]) * (fitted - problem.phenotypes[i]);
  }
  float covariance[kRow * kRow];
  svd_inverse<float, kRow>(products, columns, covariance, kInverseCutOff, &fit.rank);
  const float variance = squares / static_cast<float>(static_cast<int>(n) - columns);
  fit.deviance = static_cast<double>(squares);
  for (size_t j = 0; j < np; ++j) {
    fit.coefficients[j] = static_cast<double>(coef[j]);
    fit.standard_errors[j] = static_cast<double>(std::sqrt(covariance[j * kRow + j] * variance));
  }
  return fit;
}

}  // namespace tavo_test
