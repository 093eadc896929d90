// SPDX-License-Identifier: Apache-2.0
//
// The lane search for any processor.
#include "cpu/lane_kernels_plain.h"

const LaneKernels& lane_kernels_portable() {
  return kPlainKernels;
}
