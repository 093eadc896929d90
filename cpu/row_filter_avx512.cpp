// SPDX-License-Identifier: Apache-2.0
//
// The row filter for processors with AVX-512 F, BW, VL, VBMI2, GFNI and POPCNT.
#include "cpu/row_counts_body.h"
#include "cpu/row_filter_body.h"
#include "cpu/row_lists.h"

const RowKernels& row_kernels_avx512() {
  static constexpr RowKernels kKernels = {list, filter, count_rows};
  return kKernels;
}
