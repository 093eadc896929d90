// SPDX-License-Identifier: Apache-2.0
#include "lib/rng.h"

#include <cstdint>
#include <random>

namespace {

// Made at the first use, with the generator's default seed 5489; in a function so that no order of
// initialisation between files matters.
std::mt19937& generator() {
  static std::mt19937 state;
  return state;
}

}  // namespace

unsigned long int32_rand() {
  return generator()();
}

void init_rng(unsigned long seed) {
  generator().seed(static_cast<uint32_t>(seed));
}
