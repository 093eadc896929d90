// SPDX-License-Identifier: Apache-2.0
//
// From coefficients of standardised covariates (standardized.h) to those of the original ones.
#pragma once

#include "lib/svd.h"

// A covariate's standardised value is (value - mean) * inverse_deviation; 0 for a constant one.
struct CovariateScale {
  int n_covariates;
  const double* means;
  const double* inverse_deviations;
};

// Coefficients and standard errors of a fit on the standardised covariates, whose columns begin with the
// intercept and end with the covariates, become those of the original ones. covariance: [columns][stride] of
// the fit; standard_errors are computed from it.
TAVO_HOST_DEVICE void to_original_scale(CovariateScale scale, int columns, const double* covariance,
                                        int stride, double* coefficients, double* standard_errors) {
  const int first = columns - scale.n_covariates;
  // The intercept is that of the standardised covariates less what their means contribute: a linear
  // combination of the fit's coefficients.
  const auto weight = [&](int j) {
    return j == 0 ? 1.0 : j >= first ? -scale.means[j - first] * scale.inverse_deviations[j - first] : 0.0;
  };
  double intercept = 0.0;
  double variance = 0.0;
  for (int j = 0; j < columns; ++j) {
    intercept += weight(j) * coefficients[j];
    for (int k = 0; k < columns; ++k) {
      variance += weight(j) * weight(k) * covariance[j * stride + k];
    }
  }
  for (int j = 0; j < columns; ++j) {
    standard_errors[j] = svd_detail::root_of(covariance[j * stride + j]);
  }
  coefficients[0] = intercept;
  standard_errors[0] = svd_detail::root_of(variance);
  for (int c = 0; c < scale.n_covariates; ++c) {
    coefficients[first + c] *= scale.inverse_deviations[c];
    standard_errors[first + c] *= scale.inverse_deviations[c];
  }
}
