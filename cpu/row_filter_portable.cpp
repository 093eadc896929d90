// SPDX-License-Identifier: Apache-2.0
//
// The row filter for any processor.
#include "cpu/row_counts_body.h"
#include "cpu/row_filter_body.h"
#include "cpu/row_lists.h"

const RowKernels& row_kernels_portable() {
  static constexpr RowKernels kKernels = {list, filter, count_rows};
  return kKernels;
}
