// SPDX-License-Identifier: Apache-2.0
//
// The byte filter for processors with AVX-512 F, BW, VL and BITALG.
#include "cpu/byte_filter_body.h"

uint64_t byte_filter_avx512(const ByteFilterInput& input) {
  return filter(input);
}
