// SPDX-License-Identifier: Apache-2.0
//
// What fits in double precision share on the host: the inverse of their information matrices, and the
// covariates-only logistic model.
#pragma once

#include "lib/standardized.h"

// scaled_inverse of lib/precise_inverse.h for matrices [n][stride 16].
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
