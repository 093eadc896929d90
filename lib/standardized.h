// SPDX-License-Identifier: Apache-2.0
//
// Covariates on a common scale for fits in double precision: mean 0 and standard deviation 1, so that neither
// their units nor their origin cost digits. Coefficients come back on the original scale.
#pragma once

#include <cstddef>
#include <vector>

#include "lib/covariate_scale.h"

class StandardizedCovariates {
 public:
  // covariates: [n_samples][n_covariates], or null without any.
  StandardizedCovariates(const float* covariates, int n_samples, int n_covariates);

  // [n_samples][n_covariates]; a covariate that is the same in all samples is 0.
  const std::vector<double>& values() const { return values_; }

  // What leads back to the original covariates. Refers to this object.
  CovariateScale scale() const {
    return {static_cast<int>(n_covariates_), means_.data(), inverse_deviations_.data()};
  }

 private:
  size_t n_covariates_;
  std::vector<double> values_;
  std::vector<double> means_;
  std::vector<double> inverse_deviations_;  // 0 for a constant covariate
};
