// SPDX-License-Identifier: Apache-2.0
#include "cpu/fit_kernels_body.h"

const FitKernels<float>& fit_kernels_avx512_float() {
  return kFloatKernels;
}

const FitKernels<double>& fit_kernels_avx512_double() {
  return kDoubleKernels;
}
