// SPDX-License-Identifier: Apache-2.0
#include "tests/reference/precise_regression.h"

#include <algorithm>
#include <cmath>

namespace tavo_test {

namespace {

// What is left of a column's squared length when those before it have had their share: below the first it is
// determined by them, above the second it is not. Between them two good programs can differ.
constexpr Extended kDetermined = 1e-22L;
constexpr Extended kFree = 1e-7L;

Extended dot(const std::vector<Extended>& a, const std::vector<Extended>& b) {
  Extended sum = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    sum += a[i] * b[i];
  }
  return sum;
}

// The columns that those before them do not determine.
std::vector<size_t> free_columns(const DesignMatrix& columns, bool* clear) {
  std::vector<size_t> kept;
  DesignMatrix basis;
  *clear = true;
  for (size_t j = 0; j < columns.size(); ++j) {
    std::vector<Extended> rest = columns[j];
    for (int pass = 0; pass < 2; ++pass) {
      for (const std::vector<Extended>& q : basis) {
        const Extended share = dot(q, rest);
        for (size_t i = 0; i < rest.size(); ++i) {
          rest[i] -= share * q[i];
        }
      }
    }
    const Extended length = dot(columns[j], columns[j]);
    const Extended left = length > 0 ? dot(rest, rest) / length : 0;
    if (left <= kDetermined) {
      continue;
    }
    *clear = *clear && left > kFree;
    const Extended norm = std::sqrt(dot(rest, rest));
    for (Extended& value : rest) {
      value /= norm;
    }
    basis.push_back(rest);
    kept.push_back(j);
  }
  return kept;
}

using Square = std::vector<std::vector<Extended>>;

// The inverse of a symmetric positive definite matrix, by Gauss and Jordan. False when there is none.
bool invert(Square a, Square* inverse) {
  const size_t n = a.size();
  inverse->assign(n, std::vector<Extended>(n, 0));
  for (size_t i = 0; i < n; ++i) {
    (*inverse)[i][i] = 1;
  }
  for (size_t p = 0; p < n; ++p) {
    const Extended pivot = a[p][p];
    if (!(pivot > 0)) {
      return false;
    }
    for (size_t j = 0; j < n; ++j) {
      a[p][j] /= pivot;
      (*inverse)[p][j] /= pivot;
    }
    for (size_t i = 0; i < n; ++i) {
      const Extended factor = a[i][p];
      for (size_t j = 0; j < n && i != p; ++j) {
        a[i][j] -= factor * a[p][j];
        (*inverse)[i][j] -= factor * (*inverse)[p][j];
      }
    }
  }
  return true;
}

// X' W X of the kept columns.
Square information(const DesignMatrix& columns, const std::vector<size_t>& kept,
                   const std::vector<Extended>& weights) {
  Square matrix(kept.size(), std::vector<Extended>(kept.size(), 0));
  for (size_t a = 0; a < kept.size(); ++a) {
    for (size_t b = 0; b < kept.size(); ++b) {
      for (size_t i = 0; i < weights.size(); ++i) {
        matrix[a][b] += columns[kept[a]][i] * columns[kept[b]][i] * weights[i];
      }
    }
  }
  return matrix;
}

PreciseFit start(const DesignMatrix& columns, std::vector<size_t>* kept) {
  PreciseFit fit;
  *kept = free_columns(columns, &fit.clear);
  fit.rank = static_cast<int>(kept->size());
  fit.estimated.resize(columns.size(), false);
  fit.coefficients.resize(columns.size(), 0);
  fit.standard_errors.resize(columns.size(), 0);
  for (const size_t j : *kept) {
    fit.estimated[j] = true;
  }
  return fit;
}

}  // namespace

PreciseFit precise_logistic(const DesignMatrix& columns, const std::vector<Extended>& y) {
  std::vector<size_t> kept;
  PreciseFit fit = start(columns, &kept);
  const size_t n = y.size();
  std::vector<Extended> predictor(n, 0);
  std::vector<Extended> mu(n);
  std::vector<Extended> weights(n);
  Square covariance;
  while (!fit.converged && fit.iterations < 40) {
    for (size_t i = 0; i < n; ++i) {
      mu[i] = 1 / (1 + std::exp(-predictor[i]));
      weights[i] = mu[i] * (1 - mu[i]);
    }
    if (!invert(information(columns, kept, weights), &covariance)) {
      return fit;
    }
    std::vector<Extended> gradient;
    for (const size_t j : kept) {
      Extended sum = 0;
      for (size_t i = 0; i < n; ++i) {
        sum += columns[j][i] * (y[i] - mu[i]);
      }
      gradient.push_back(sum);
    }
    Extended total = 0;
    for (size_t a = 0; a < kept.size(); ++a) {
      const Extended step = dot(covariance[a], gradient);
      fit.coefficients[kept[a]] += step;
      total += std::fabs(step);
    }
    for (size_t i = 0; i < n; ++i) {
      predictor[i] = 0;
      for (const size_t j : kept) {
        predictor[i] += fit.coefficients[j] * columns[j][i];
      }
    }
    ++fit.iterations;
    fit.converged = total < 1e-13L;
  }
  for (size_t a = 0; a < kept.size(); ++a) {
    fit.standard_errors[kept[a]] = std::sqrt(covariance[a][a]);
  }
  for (size_t i = 0; i < n; ++i) {
    // log(1 + exp(-z)) of the observed class.
    const Extended z = y[i] != 0 ? predictor[i] : -predictor[i];
    fit.deviance += 2 * (z > 0 ? std::log1p(std::exp(-z)) : -z + std::log1p(std::exp(z)));
    fit.largest_predictor = std::max(fit.largest_predictor, std::fabs(predictor[i]));
  }
  return fit;
}

PreciseFit precise_linear(const DesignMatrix& columns, const std::vector<Extended>& y) {
  std::vector<size_t> kept;
  PreciseFit fit = start(columns, &kept);
  const size_t n = y.size();
  Square covariance;
  if (!invert(information(columns, kept, std::vector<Extended>(n, 1)), &covariance)) {
    fit.clear = false;
    return fit;
  }
  std::vector<Extended> products;
  for (const size_t j : kept) {
    products.push_back(dot(columns[j], y));
  }
  for (size_t a = 0; a < kept.size(); ++a) {
    fit.coefficients[kept[a]] = dot(covariance[a], products);
  }
  for (size_t i = 0; i < n; ++i) {
    Extended residual = y[i];
    for (const size_t j : kept) {
      residual -= fit.coefficients[j] * columns[j][i];
    }
    fit.deviance += residual * residual;
  }
  const auto df = static_cast<Extended>(n) - static_cast<Extended>(kept.size());
  for (size_t a = 0; a < kept.size(); ++a) {
    fit.standard_errors[kept[a]] = std::sqrt(covariance[a][a] * fit.deviance / df);
  }
  return fit;
}

Extended precise_upper_tail(Extended x, int df) {
  if (x <= 0) {
    return 1;
  }
  const Extended h = x / 2;
  Extended tail = df % 2 == 0 ? std::exp(-h) : std::erfc(std::sqrt(h));
  for (Extended s = df % 2 == 0 ? 1 : 0.5L; s < df / 2.0L; s += 1) {
    tail += std::exp(s * std::log(h) - h - std::lgamma(s + 1));
  }
  return tail;
}

}  // namespace tavo_test
