// SPDX-License-Identifier: Apache-2.0
//
// The score-based search for any processor.
#include "cpu/score_kernels_body.h"

ScoreKernel score_kernel_portable() {
  return score_combinations;
}
