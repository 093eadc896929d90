// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

// No input of a target needs much memory: whoever asks for more than this in the name of a header gets
// nothing, as where there is none. Freed memory is held back from reuse only as far as it stays in the
// processor's caches.
extern "C" const char* __asan_default_options() {
  return "max_allocation_size_mb=64:allocator_may_return_null=1:quarantine_size_mb=1";
}

uint8_t FuzzInput::byte() {
  if (rest_.empty()) {
    return 0;
  }
  const auto first = static_cast<uint8_t>(rest_.front());
  rest_.remove_prefix(1);
  return first;
}

int FuzzInput::number(int lowest, int highest) {
  return lowest + byte() % (highest - lowest + 1);
}

std::string_view FuzzInput::part() {
  const size_t end = std::min(rest_.find(kPartSeparator), rest_.size());
  const std::string_view found = rest_.substr(0, end);
  rest_.remove_prefix(std::min(end + 1, rest_.size()));
  return found;
}

void require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}
