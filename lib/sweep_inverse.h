// SPDX-License-Identifier: Apache-2.0
//
// Inverses of small symmetric positive definite matrices by Gauss-Jordan elimination, and a bound on how ill
// they are conditioned. The same operations in the same order for one matrix of numbers and for many side by
// side in vector lanes: V is float, double or a vector of them.
#pragma once

#include <stddef.h>

#include "lib/host_device.h"

// What a product of condition measures must stay below for the elimination to be good; what does not (or is
// no number) needs an inverse that can also leave columns out (information_inverse.h).
//
// In single precision the squared Frobenius norms of the matrix and of its inverse: their product is at least
// the squared condition number, and at 1e6 of it no singular value is near the cut-off (1.2e-7).
constexpr float kSweepLimitSingle = 1e12f;
// In double precision the same of the matrix scaled to a diagonal of ones.
constexpr double kSweepLimitDouble = 1e14;

// One step of the elimination: sweeps pivot p of the matrix [n][n]. When the pivots of a set of columns have
// been swept, their block holds its own inverse.
template <typename V>
TAVO_HOST_DEVICE void sweep_pivot(V* inverse, size_t p, size_t n, size_t row) {
  const V pivot = 1 / inverse[p * row + p];
  for (size_t k = 0; k < n; ++k) {
    if (k != p) {
      inverse[p * row + k] = inverse[p * row + k] * pivot;
    }
  }
  for (size_t j = 0; j < n; ++j) {
    if (j == p) {
      continue;
    }
    const V factor = inverse[j * row + p];
    for (size_t k = 0; k < n; ++k) {
      if (k != p) {
        inverse[j * row + k] = inverse[j * row + k] - factor * inverse[p * row + k];
      }
    }
    inverse[j * row + p] = -(factor * pivot);
  }
  inverse[p * row + p] = pivot;
}

// inverse = matrix^-1, both [n][n] with the given row length. Without pivoting, which a positive definite
// matrix does not need. A pivot of 0 makes entries that are no numbers.
template <typename V>
TAVO_HOST_DEVICE void sweep_inverse(const V* matrix, size_t n, size_t row, V* inverse) {
  for (size_t j = 0; j < n; ++j) {
    for (size_t k = 0; k < n; ++k) {
      inverse[j * row + k] = matrix[j * row + k];
    }
  }
  for (size_t p = 0; p < n; ++p) {
    sweep_pivot(inverse, p, n, row);
  }
}

// The product of the squared Frobenius norms; scaled: of the matrix scaled to a diagonal of ones.
template <typename V>
TAVO_HOST_DEVICE V condition_measure(const V* matrix, const V* inverse, size_t n, size_t row, bool scaled) {
  V of_matrix = matrix[0] - matrix[0];
  V of_inverse = of_matrix;
  for (size_t j = 0; j < n; ++j) {
    for (size_t k = 0; k < n; ++k) {
      const V a = matrix[j * row + k];
      const V b = inverse[j * row + k];
      if (scaled) {
        const V scale = matrix[j * row + j] * matrix[k * row + k];
        of_matrix = of_matrix + a * a / scale;
        of_inverse = of_inverse + b * b * scale;
      } else {
        of_matrix = of_matrix + a * a;
        of_inverse = of_inverse + b * b;
      }
    }
  }
  return of_matrix * of_inverse;
}
