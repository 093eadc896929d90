// SPDX-License-Identifier: Apache-2.0
#include "tools/residuals.h"

#include <cmath>
#include <numeric>

namespace {

// A column that loses this share of its length when those before it are taken out depends on them.
constexpr double kDependence = 1e-10;
constexpr int kMostIterations = 100;
constexpr double kConverged = 1e-12;
// A linear predictor beyond this is a probability of 0 or 1 for all purposes.
constexpr double kSeparated = 30.0;

// The design with its intercept, columns centred and scaled but for it: the fit does not depend on units
// then.
struct Design {
  size_t rows = 0;
  size_t columns = 0;
  std::vector<double> values;  // [columns][rows]
  std::vector<double> centre;  // [columns]
  std::vector<double> scale;   // [columns]

  const double* column(size_t j) const { return values.data() + j * rows; }

  explicit Design(const Covariates& x)
      : rows(x.n_samples),
        columns(x.n_covariates + 1),
        values(rows * columns, 1.0),
        centre(columns, 0.0),
        scale(columns, 1.0) {
    for (size_t j = 1; j < columns; ++j) {
      double sum = 0.0;
      for (size_t i = 0; i < rows; ++i) {
        sum += x.values[i * x.n_covariates + j - 1];
      }
      centre[j] = sum / static_cast<double>(rows);
      double squares = 0.0;
      for (size_t i = 0; i < rows; ++i) {
        double& value = values[j * rows + i];
        value = x.values[i * x.n_covariates + j - 1] - centre[j];
        squares += value * value;
      }
      const double deviation = std::sqrt(squares / static_cast<double>(rows));
      // A constant column keeps its rounding errors, which the solver then finds to depend on the intercept.
      scale[j] = deviation > kDependence * (std::fabs(centre[j]) + 1e-300) ? deviation : 0.0;
      for (size_t i = 0; i < rows; ++i) {
        values[j * rows + i] = scale[j] > 0.0 ? values[j * rows + i] / scale[j] : 0.0;
      }
    }
  }

  // Coefficients of the columns as they were given.
  std::vector<double> on_original_scale(const std::vector<double>& scaled) const {
    std::vector<double> original = scaled;
    for (size_t j = 1; j < columns; ++j) {
      original[j] = scaled[j] / scale[j];
      original[0] -= original[j] * centre[j];
    }
    return original;
  }
};

double dot(const double* a, const double* b, size_t n) {
  return std::inner_product(a, a + n, b, 0.0);
}

// Minimises sum of weight * (target - design * coefficients)^2 by orthogonalising the weighted columns one
// after the other (twice each, which keeps them orthogonal to rounding). Fails with the number of the first
// dependent covariate.
Status weighted_least_squares(const Design& design, const std::vector<double>& weights,
                              const std::vector<double>& target, std::vector<double>* coefficients) {
  const size_t n = design.rows;
  const size_t p = design.columns;
  std::vector<double> q(n * p);
  std::vector<double> r(p * p, 0.0);
  std::vector<double> projected(p);
  std::vector<double> root(n);
  std::vector<double> rest(n);
  for (size_t i = 0; i < n; ++i) {
    root[i] = std::sqrt(weights[i]);
    rest[i] = root[i] * target[i];
  }
  for (size_t j = 0; j < p; ++j) {
    double* column = q.data() + j * n;
    for (size_t i = 0; i < n; ++i) {
      column[i] = root[i] * design.column(j)[i];
    }
    const double length = std::sqrt(dot(column, column, n));
    for (int pass = 0; pass < 2; ++pass) {
      for (size_t k = 0; k < j; ++k) {
        const double share = dot(q.data() + k * n, column, n);
        r[k * p + j] += share;
        for (size_t i = 0; i < n; ++i) {
          column[i] -= share * q[k * n + i];
        }
      }
    }
    const double left = std::sqrt(dot(column, column, n));
    if (!(left > kDependence * length) || length == 0.0) {
      return Status::failure(j == 0 ? "no sample carries weight"
                                    : "covariate " + std::to_string(j) +
                                          " is constant or depends on those before it");
    }
    r[j * p + j] = left;
    for (size_t i = 0; i < n; ++i) {
      column[i] /= left;
    }
    projected[j] = dot(column, rest.data(), n);
    for (size_t i = 0; i < n; ++i) {
      rest[i] -= projected[j] * column[i];
    }
  }
  coefficients->assign(p, 0.0);
  for (size_t j = p; j-- > 0;) {
    double value = projected[j];
    for (size_t k = j + 1; k < p; ++k) {
      value -= r[j * p + k] * (*coefficients)[k];
    }
    (*coefficients)[j] = value / r[j * p + j];
  }
  return {};
}

std::vector<double> predictor(const Design& design, const std::vector<double>& coefficients) {
  std::vector<double> eta(design.rows, 0.0);
  for (size_t j = 0; j < design.columns; ++j) {
    for (size_t i = 0; i < design.rows; ++i) {
      eta[i] += coefficients[j] * design.column(j)[i];
    }
  }
  return eta;
}

}  // namespace

Status linear_residuals(const Covariates& x, const std::vector<double>& y, std::vector<double>* coefficients,
                        std::vector<double>* residuals) {
  const Design design(x);
  std::vector<double> scaled;
  Status status = weighted_least_squares(design, std::vector<double>(design.rows, 1.0), y, &scaled);
  if (!status.ok()) {
    return status;
  }
  const std::vector<double> fitted = predictor(design, scaled);
  residuals->resize(y.size());
  for (size_t i = 0; i < y.size(); ++i) {
    (*residuals)[i] = y[i] - fitted[i];
  }
  *coefficients = design.on_original_scale(scaled);
  return {};
}

Status logistic_residuals(const Covariates& x, const std::vector<double>& y,
                          std::vector<double>* coefficients, std::vector<double>* residuals) {
  const Design design(x);
  const double n_cases = std::accumulate(y.begin(), y.end(), 0.0);
  if (n_cases == 0.0 || n_cases == static_cast<double>(y.size())) {
    return Status::failure("all samples have one class");
  }
  std::vector<double> scaled(design.columns, 0.0);
  std::vector<double> weights(design.rows);
  std::vector<double> target(design.rows);
  std::vector<double> mu(design.rows);
  bool converged = false;
  for (int iteration = 0; iteration < kMostIterations && !converged; ++iteration) {
    const std::vector<double> eta = predictor(design, scaled);
    for (size_t i = 0; i < design.rows; ++i) {
      if (std::fabs(eta[i]) > kSeparated) {
        return Status::failure("the covariates separate cases from controls: the model has no best fit");
      }
      mu[i] = 1.0 / (1.0 + std::exp(-eta[i]));
      weights[i] = mu[i] * (1.0 - mu[i]);
      target[i] = eta[i] + (y[i] - mu[i]) / weights[i];
    }
    std::vector<double> next;
    Status status = weighted_least_squares(design, weights, target, &next);
    if (!status.ok()) {
      return status;
    }
    double step = 0.0;
    double size = 1.0;
    for (size_t j = 0; j < next.size(); ++j) {
      step = std::fmax(step, std::fabs(next[j] - scaled[j]));
      size = std::fmax(size, std::fabs(next[j]));
    }
    converged = step <= kConverged * size;
    scaled = next;
  }
  if (!converged) {
    return Status::failure("the logistic model of the covariates did not converge in " +
                           std::to_string(kMostIterations) + " iterations");
  }
  const std::vector<double> eta = predictor(design, scaled);
  residuals->resize(y.size());
  for (size_t i = 0; i < y.size(); ++i) {
    (*residuals)[i] = y[i] - 1.0 / (1.0 + std::exp(-eta[i]));
  }
  *coefficients = design.on_original_scale(scaled);
  return {};
}
