// SPDX-License-Identifier: Apache-2.0
//
// The lane search for processors with AVX2 and POPCNT.
#include "cpu/lane_kernels_plain.h"

const LaneKernels& lane_kernels_avx2() {
  return kPlainKernels;
}
