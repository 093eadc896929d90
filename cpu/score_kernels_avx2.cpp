// SPDX-License-Identifier: Apache-2.0
//
// The score-based search for processors with AVX2 and POPCNT.
#include "cpu/score_kernels_body.h"

ScoreKernel score_kernel_avx2() {
  return score_combinations;
}
