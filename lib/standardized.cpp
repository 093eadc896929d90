// SPDX-License-Identifier: Apache-2.0
#include "lib/standardized.h"

#include <cmath>

namespace {

// A sum of doubles with compensation (Neumaier).
class CompensatedSum {
 public:
  void add(double x) {
    const double sum = total_ + x;
    lost_ += std::fabs(total_) >= std::fabs(x) ? (total_ - sum) + x : (x - sum) + total_;
    total_ = sum;
  }
  double value() const { return total_ + lost_; }

 private:
  double total_ = 0.0;
  double lost_ = 0.0;
};

}  // namespace

StandardizedCovariates::StandardizedCovariates(const float* covariates, int n_samples, int n_covariates)
    : n_covariates_(static_cast<size_t>(n_covariates)),
      values_(static_cast<size_t>(n_samples) * n_covariates_),
      means_(n_covariates_),
      inverse_deviations_(n_covariates_) {
  const auto n = static_cast<size_t>(n_samples);
  for (size_t c = 0; c < n_covariates_; ++c) {
    CompensatedSum sum;
    bool constant = true;
    for (size_t i = 0; i < n; ++i) {
      sum.add(static_cast<double>(covariates[i * n_covariates_ + c]));
      constant = constant && covariates[i * n_covariates_ + c] == covariates[c];
    }
    means_[c] = sum.value() / static_cast<double>(n);
    if (constant) {
      continue;
    }
    CompensatedSum squares;
    for (size_t i = 0; i < n; ++i) {
      const double d = static_cast<double>(covariates[i * n_covariates_ + c]) - means_[c];
      squares.add(d * d);
    }
    inverse_deviations_[c] = 1.0 / std::sqrt(squares.value() / static_cast<double>(n));
    for (size_t i = 0; i < n; ++i) {
      values_[i * n_covariates_ + c] =
          (static_cast<double>(covariates[i * n_covariates_ + c]) - means_[c]) * inverse_deviations_[c];
    }
  }
}

void StandardizedCovariates::to_original_scale(int columns, const double* covariance, int stride,
                                               double* coefficients, double* standard_errors) const {
  const auto np = static_cast<size_t>(columns);
  const size_t first = np - n_covariates_;
  const auto entry = [&](size_t j, size_t k) { return covariance[j * static_cast<size_t>(stride) + k]; };
  // The intercept is that of the standardised covariates less what their means contribute: a linear
  // combination of the fit's coefficients.
  std::vector<double> weights(np, 0.0);
  weights[0] = 1.0;
  for (size_t c = 0; c < n_covariates_; ++c) {
    weights[first + c] = -means_[c] * inverse_deviations_[c];
  }
  double intercept = 0.0;
  double variance = 0.0;
  for (size_t j = 0; j < np; ++j) {
    intercept += weights[j] * coefficients[j];
    for (size_t k = 0; k < np; ++k) {
      variance += weights[j] * weights[k] * entry(j, k);
    }
  }
  for (size_t j = 0; j < np; ++j) {
    standard_errors[j] = std::sqrt(entry(j, j));
  }
  coefficients[0] = intercept;
  standard_errors[0] = std::sqrt(variance);
  for (size_t c = 0; c < n_covariates_; ++c) {
    coefficients[first + c] *= inverse_deviations_[c];
    standard_errors[first + c] *= inverse_deviations_[c];
  }
}
