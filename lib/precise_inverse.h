// SPDX-License-Identifier: Apache-2.0
//
// The inverse of information matrices and normal equations in double precision, where columns may depend on
// others.
#pragma once

#include "lib/svd.h"
#include "lib/sweep_inverse.h"

// A column depends on those before it when they leave less than this of its square.
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
// destroyed. A column that depends on those before it is left out: its row and column are 0, so it has no
// estimate and the others have those of the model without it. *rank: columns kept. False when an entry is no
// number.
template <int Stride>
TAVO_HOST_DEVICE bool scaled_inverse(double* matrix, int n, double* inverse, int* rank) {
  double scale[Stride];
  for (int j = 0; j < n; ++j) {
    const double diagonal = matrix[j * Stride + j];
    scale[j] = diagonal > 0.0 ? 1.0 / svd_detail::root_of(diagonal) : 0.0;
  }
  scale_both_sides<Stride>(matrix, n, scale);
  for (int j = 0; j < n; ++j) {
    for (int k = 0; k < n; ++k) {
      inverse[j * Stride + k] = matrix[j * Stride + k];
    }
  }
  bool kept[Stride];
  *rank = 0;
  for (int p = 0; p < n; ++p) {
    const double left = inverse[p * Stride + p];
    if (left != left) {
      return false;
    }
    kept[p] = left > kPreciseCutOff;
    if (kept[p]) {
      ++*rank;
      sweep_pivot(inverse, (size_t)p, (size_t)n, (size_t)Stride);
    }
  }
  for (int j = 0; j < n; ++j) {
    for (int k = 0; k < n; ++k) {
      if (!kept[j] || !kept[k]) {
        inverse[j * Stride + k] = 0.0;
      }
    }
  }
  scale_both_sides<Stride>(inverse, n, scale);
  return true;
}
