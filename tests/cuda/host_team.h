// SPDX-License-Identifier: Apache-2.0
//
// A block of threads as a loop: the team of cuda/distinct_body.h on the host. Each phase runs the threads in
// an order of its own, so that a phase that depended on one gave other results in another order.
#pragma once

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "cuda/distinct_body.h"

namespace tavo_test {

template <typename T>
class HostTeam {
 public:
  // Shared memory and the threads' own begin as garbage.
  explicit HostTeam(unsigned seed) : random_(seed), sums_(kDistinctThreads), order_(kDistinctThreads) {
    std::memset(static_cast<void*>(&shared), 0x7f, sizeof(shared));
    std::memset(static_cast<void*>(sums_.data()), 0x7f, sums_.size() * sizeof(sums_[0]));
    std::iota(order_.begin(), order_.end(), 0);
  }

  template <typename Phase>
  void phase(Phase run) {
    // A few cuts and turns: a full shuffle takes longer than most phases.
    std::rotate(order_.begin(), order_.begin() + static_cast<ptrdiff_t>(random_() % kDistinctThreads),
                order_.end());
    if (random_() % 2 == 0) {
      std::reverse(order_.begin(), order_.end());
    }
    for (const int t : order_) {
      run(t % kDistinctColumns, t / kDistinctColumns, sums_[static_cast<size_t>(t)]);
    }
  }

  DistinctShared<T> shared;

 private:
  std::mt19937 random_;
  std::vector<DistinctSum<T>> sums_;
  std::vector<int> order_;
};

}  // namespace tavo_test
