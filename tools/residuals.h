// SPDX-License-Identifier: Apache-2.0
//
// Residuals of covariates-only models, in double precision: the scores of a score-based run. Every routine
// takes its data as arguments and prints nothing.
#pragma once

#include <vector>

#include "util/status.h"

// A design without its intercept, which every model has.
struct Covariates {
  size_t n_samples = 0;
  size_t n_covariates = 0;
  std::vector<double> values;  // [n_samples][n_covariates]
};

// Least squares: residuals[i] = y[i] - fitted[i]. coefficients: intercept, then one per covariate. Fails when
// a covariate depends linearly on those before it (or is constant).
Status linear_residuals(const Covariates& x, const std::vector<double>& y, std::vector<double>* coefficients,
                        std::vector<double>* residuals);

// Maximum likelihood for y of 0 and 1, by iteratively reweighted least squares (McCullagh and Nelder 1989,
// section 2.5): residuals[i] = y[i] - probability[i]. Fails as above, when one class is empty, and when the
// covariates separate the classes, so that the likelihood has no maximum.
Status logistic_residuals(const Covariates& x, const std::vector<double>& y,
                          std::vector<double>* coefficients, std::vector<double>* residuals);
