// SPDX-License-Identifier: Apache-2.0
#include "lib/precise_fit.h"

#include <array>
#include <cmath>

#include "lib/fit_math.h"
#include "lib/precise_inverse.h"

namespace {

constexpr int kStride = kPreciseStride;
constexpr size_t kEntries = size_t{kPreciseStride} * kPreciseStride;

// The columns of one sample: the intercept and its covariates.
struct NullDesign {
  const std::vector<double>& values;
  size_t n_covariates;

  double x(size_t i, size_t j) const { return j == 0 ? 1.0 : values[i * n_covariates + j - 1]; }

  double eta(size_t i, const std::array<double, kStride>& beta) const {
    double sum = 0.0;
    for (size_t j = 0; j <= n_covariates; ++j) {
      sum += beta[j] * x(i, j);
    }
    return sum;
  }
};

}  // namespace

bool precise_inverse(double* matrix, int n, double* inverse, int* rank) {
  return scaled_inverse<kStride>(matrix, n, inverse, rank);
}

bool fit_precise_null(const StandardizedCovariates& covariates, int n_covariates, const float* phenotypes,
                      int n_samples, int iterations, PreciseNull* fit) {
  const NullDesign design{covariates.values(), static_cast<size_t>(n_covariates)};
  const auto n = static_cast<size_t>(n_samples);
  const size_t np = design.n_covariates + 1;
  std::array<double, kStride> beta{};
  for (int pass = 0; pass < iterations && !fit->converged; ++pass) {
    std::array<long double, kEntries> information{};
    std::array<long double, kStride> gradient{};
    for (size_t i = 0; i < n; ++i) {
      const double mu = fit_probability(design.eta(i, beta));
      for (size_t j = 0; j < np; ++j) {
        gradient[j] += design.x(i, j) * (static_cast<double>(phenotypes[i]) - mu);
        for (size_t k = j; k < np; ++k) {
          information[j * kStride + k] += design.x(i, j) * design.x(i, k) * mu * (1.0 - mu);
        }
      }
    }
    std::array<double, kEntries> matrix{};
    std::array<double, kEntries> inverse{};
    for (size_t j = 0; j < np; ++j) {
      for (size_t k = j; k < np; ++k) {
        matrix[j * kStride + k] = matrix[k * kStride + j] = static_cast<double>(information[j * kStride + k]);
      }
    }
    if (!precise_inverse(matrix.data(), static_cast<int>(np), inverse.data(), &fit->rank)) {
      return false;
    }
    double total = 0.0;
    for (size_t j = 0; j < np; ++j) {
      double step = 0.0;
      for (size_t k = 0; k < np; ++k) {
        step += inverse[j * kStride + k] * static_cast<double>(gradient[k]);
      }
      beta[j] += step;
      total += std::fabs(step);
    }
    fit->converged = fit_converged(total, 1);
  }
  long double deviance = 0.0;
  for (size_t i = 0; i < n; ++i) {
    const double eta = design.eta(i, beta);
    const float y = phenotypes[i];
    deviance += 2.0 * ((y != 1.0f ? tavo_softplus(eta) : 0.0) + (y != 0.0f ? tavo_softplus(-eta) : 0.0));
  }
  fit->deviance = static_cast<double>(deviance);
  return true;
}
