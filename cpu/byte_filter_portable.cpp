// SPDX-License-Identifier: Apache-2.0
//
// The byte filter for any processor.
#include "cpu/byte_filter_body.h"

uint64_t byte_filter_portable(const ByteFilterInput& input) {
  return filter(input);
}
