// SPDX-License-Identifier: Apache-2.0
//
// What fits in double precision share: their convergence, the inverse of their information matrices, and the
// covariates-only logistic model.
#pragma once

#include "lib/standardized.h"

// A Newton iteration has converged when the absolute steps add up to less than this.
inline constexpr double kPreciseConvergence = 1e-10;

// Singular values of an information matrix, scaled to a diagonal of ones, that count as 0, relative to the
// largest: those of columns that depend on others.
inline constexpr double kPreciseCutOff = 1e-13;

// inverse = generalised inverse of the symmetric matrix [n][stride 16] with a diagonal >= 0; matrix is
// destroyed. *rank: columns less those that depend on others. False when its decomposition gives up.
bool precise_inverse(double* matrix, int n, double* inverse, int* rank);
inline constexpr int kPreciseStride = 16;

struct PreciseNull {
  double deviance = 0.0;
  int rank = 0;  // of the intercept and the covariates
  bool converged = false;
};

// Fits the covariates-only model; phenotypes are 0 and 1 (any other number counts as both in the deviance).
// False when a decomposition gives up.
bool fit_precise_null(const StandardizedCovariates& covariates, int n_covariates, const float* phenotypes,
                      int n_samples, int iterations, PreciseNull* fit);
