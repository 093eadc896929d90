// SPDX-License-Identifier: Apache-2.0
//
// Work that the threads of a few cores share.
#pragma once

#include <cstddef>
#include <thread>
#include <vector>

// Calls fill(first, end) for equal shares of 0 .. n - 1, one for each of threads >= 1, and returns when all
// are done. fill: does not throw, and calls of other shares do not get into its way. Where a thread cannot be
// started, the caller's own does its share.
template <class Fill>
void fill_in_shares(size_t n, size_t threads, const Fill& fill) {
  std::vector<std::thread> helpers;
  helpers.reserve(threads);
  const auto border = [&](size_t share) { return n * share / threads; };
  for (size_t share = 1; share < threads; ++share) {
    const auto take = [&fill, first = border(share), end = border(share + 1)] { fill(first, end); };
    try {
      helpers.emplace_back(take);
    } catch (...) {
      take();  // no thread, or no memory for one
    }
  }
  fill(0, border(1));
  for (std::thread& helper : helpers) {
    helper.join();
  }
}
