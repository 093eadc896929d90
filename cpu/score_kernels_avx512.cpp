// SPDX-License-Identifier: Apache-2.0
//
// The score-based search for processors with AVX-512 F, BW, DQ, VL, VBMI2 and POPCNT.
#include "cpu/score_kernels_body.h"

ScoreKernel score_kernel_avx512() {
  return score_combinations;
}
