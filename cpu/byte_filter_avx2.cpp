// SPDX-License-Identifier: Apache-2.0
//
// The byte filter for processors with AVX2.
#include "cpu/byte_filter_body.h"

uint64_t byte_filter_avx2(const ByteFilterInput& input) {
  return filter(input);
}
