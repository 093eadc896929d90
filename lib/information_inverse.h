// SPDX-License-Identifier: Apache-2.0
//
// Inverses of information matrices and normal equations: by elimination where that is good, else leaving out
// what depends on others: in single precision the directions of vanishing singular values, in double
// precision columns.
#pragma once

#include "lib/precise_inverse.h"
#include "lib/svd.h"
#include "lib/sweep_inverse.h"

// inverse = generalised inverse of the symmetric matrix [n][Stride] with a diagonal >= 0; matrix is
// destroyed. *rank: columns less what is left out. False when the decomposition gave up, or an entry is no
// number.
template <int Stride>
TAVO_HOST_DEVICE bool information_inverse(float* matrix, int n, float* inverse, int* rank) {
  const size_t columns = (size_t)n;
  sweep_inverse(matrix, columns, Stride, inverse);
  if (condition_measure(matrix, inverse, columns, Stride, false) < kSweepLimitSingle) {
    *rank = n;
    return true;
  }
  return svd_inverse<float, Stride>(matrix, n, inverse, kInverseCutOff, rank) != 0;
}

template <int Stride>
TAVO_HOST_DEVICE bool information_inverse(double* matrix, int n, double* inverse, int* rank) {
  const size_t columns = (size_t)n;
  sweep_inverse(matrix, columns, Stride, inverse);
  if (condition_measure(matrix, inverse, columns, Stride, true) < kSweepLimitDouble) {
    *rank = n;
    return true;
  }
  return scaled_inverse<Stride>(matrix, n, inverse, rank);
}
