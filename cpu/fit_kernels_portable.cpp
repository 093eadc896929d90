// SPDX-License-Identifier: Apache-2.0
#include "cpu/fit_kernels_body.h"

const FitKernels<float>& fit_kernels_portable_float() {
  return kFloatKernels;
}

const FitKernels<double>& fit_kernels_portable_double() {
  return kDoubleKernels;
}
