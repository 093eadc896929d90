// SPDX-License-Identifier: Apache-2.0
//
// The inverse of information matrices in double precision.
#pragma once

#include "lib/svd.h"

// Singular values of an information matrix, scaled to a diagonal of ones, that count as 0, relative to the
// largest: those of columns that depend on others.
constexpr double kPreciseCutOff = 1e-13;

// matrix[j][k] *= scale[j] * scale[k].
template <int Stride>
TAVO_HOST_DEVICE void scale_both_sides(double* matrix, int n, const double* scale) {
  for (int j = 0; j < n; ++j) {
    for (int k = 0; k < n; ++k) {
      matrix[j * Stride + k] *= scale[j] * scale[k];
    }
  }
}

// inverse = generalised inverse of the symmetric matrix [n][Stride] with a diagonal >= 0; matrix is
// destroyed. *rank: columns less those that depend on others. False when its decomposition gives up.
template <int Stride>
TAVO_HOST_DEVICE bool scaled_inverse(double* matrix, int n, double* inverse, int* rank) {
  double scale[Stride];
  for (int j = 0; j < n; ++j) {
    const double diagonal = matrix[j * Stride + j];
    scale[j] = diagonal > 0.0 ? 1.0 / svd_detail::root_of(diagonal) : 0.0;
  }
  scale_both_sides<Stride>(matrix, n, scale);
  if (svd_inverse<double, Stride>(matrix, n, inverse, kPreciseCutOff, rank) == 0) {
    return false;
  }
  scale_both_sides<Stride>(inverse, n, scale);
  return true;
}
