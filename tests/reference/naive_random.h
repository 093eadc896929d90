// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <random>

namespace naive {

class Random {
 public:
  // 0 .. n - 1.
  size_t below(size_t n) { return generator_() % n; }

 private:
  std::mt19937 generator_;
};

// The sequence of the run that is being computed.
Random& process_random();

// Begins a new run.
void restart_random();

}  // namespace naive
