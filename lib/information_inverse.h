// SPDX-License-Identifier: Apache-2.0
//
// Inverses of information matrices in single precision: by elimination where that is good, else by singular
// value decomposition.
#pragma once

#include "lib/svd.h"
#include "lib/sweep_inverse.h"

// inverse = generalised inverse of the symmetric matrix [n][Stride] with a diagonal >= 0; matrix is
// destroyed. *rank: columns less those whose singular values count as 0. 1, or 0 when the decomposition gave
// up.
template <int Stride>
TAVO_HOST_DEVICE int information_inverse(float* matrix, int n, float* inverse, int* rank) {
  const size_t columns = (size_t)n;
  sweep_inverse(matrix, columns, Stride, inverse);
  if (condition_measure(matrix, inverse, columns, Stride, false) < kSweepLimitSingle) {
    *rank = n;
    return 1;
  }
  return svd_inverse<float, Stride>(matrix, n, inverse, kInverseCutOff, rank);
}
