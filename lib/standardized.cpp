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
