// SPDX-License-Identifier: Apache-2.0
//
// Host numerics of regressions: the covariates-only logistic model and the small matrix routines in single
// precision, as the host has always computed them (square roots of pythag in double). Matrices are arrays of
// rows of kRegressionRowLength floats, of which the first n are used.
#pragma once

inline constexpr int kRegressionRowLength = 10;
using RegressionRowC = float[kRegressionRowLength];

// Singular value decomposition of a [n][n] and of a [m][n], in place: a becomes U, w[n] the singular values,
// v[n][n] V. 1, or 0 when a singular value has not converged after 30 sweeps (lib/svd.h).
int svdcmp_regr_C(RegressionRowC* a, float* w, RegressionRowC* v, int n);
int svdcmp_nl_regr_C(RegressionRowC* a, float* w, RegressionRowC* v, int m, int n);

// x[n] = V diag(1/w) U' b[m]; singular values of exactly 0 are left out.
void svbksb_regr_C(const RegressionRowC* u, const float* w, const RegressionRowC* v, const float* b, float* x,
                   int m, int n);

// inv = generalised inverse of a [n][n], without singular values below 1.1920929e-7 of the largest. Returns
// the success of the decomposition; a is destroyed.
int svd_inverse_regr_C(RegressionRowC* a, int n, RegressionRowC* inv);

// sqrt(a^2 + b^2).
float pythag_regr_C(float a, float b);

// One sample's share in the log-likelihood: 0 for y == 0, else -log(mu). y is an indicator, 0 or not.
float ylogy_regr_C(float y, float mu);

// Fits the logistic model with np0 = number of covariates + 1 columns by iteratively reweighted least
// squares, at most maxiter passes. cov: [nind][np0 - 1]; y: [nind]. *dev becomes the deviance and *df = nind
// - 1, whatever np0 is; returns nind - 1. When a decomposition gives up in a pass *dev = 0 and *df = -1, and
// when the last one does neither is written and 0 is returned. np0 <= kRegressionRowLength.
int regression_null_logistic(int nind, int np0, const float* cov, int maxiter, const float* y, float* dev,
                             float* df);

// How many of those np0 columns single precision tells apart: np0 less the singular values of the information
// matrix at coefficients of 0 that its inverse leaves out.
int regression_null_rank(int nind, int np0, const float* cov);
