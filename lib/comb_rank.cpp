// SPDX-License-Identifier: Apache-2.0
#include "lib/comb_rank.h"

#include <algorithm>
#include <limits>
#include <numeric>

std::optional<uint64_t> comb_count(int n, int k) {
  if (k < 0 || n < 0 || k > n) {
    return 0;
  }
  constexpr auto kLimit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  const auto steps = static_cast<uint64_t>(std::min(k, n - k));
  const auto size = static_cast<uint64_t>(n);
  uint64_t count = 1;
  for (uint64_t i = 1; i <= steps; ++i) {
    // count * (n - steps + i) / i is exact; divide first what divides, so that only a result that is itself
    // too large overflows.
    uint64_t factor = size - steps + i;
    uint64_t divisor = i;
    const uint64_t common = std::gcd(factor, divisor);
    factor /= common;
    divisor /= common;
    count /= divisor;
    if (count > kLimit / factor) {
      return std::nullopt;
    }
    count *= factor;
  }
  return count;
}

namespace {
// n choose k for operands that are part of a count already known to fit.
uint64_t count_of(int n, int k) {
  return comb_count(n, k).value_or(std::numeric_limits<uint64_t>::max());
}
}  // namespace

uint64_t comb_rank(int n, int k, const int* comb) {
  // Combinations that come after comb: those that agree on the first i positions and are larger at position
  // i. Summed over the complement this is the combinatorial number system read from the end.
  uint64_t after = 0;
  for (int i = 0; i < k; ++i) {
    after += count_of(n - 1 - comb[i], k - i);
  }
  return count_of(n, k) - 1 - after;
}

void comb_unrank(int n, int k, uint64_t rank, int* comb) {
  uint64_t after = count_of(n, k) - 1 - rank;
  for (int i = 0; i < k; ++i) {
    // The largest remainder r = n - 1 - comb[i] with (r choose k - i) <= after; the counts grow with r.
    const int width = k - i;
    int low = width - 1;
    int high = i == 0 ? n - 1 : n - 2 - comb[i - 1];
    while (low < high) {
      const int middle = low + (high - low + 1) / 2;
      if (count_of(middle, width) <= after) {
        low = middle;
      } else {
        high = middle - 1;
      }
    }
    comb[i] = n - 1 - low;
    after -= count_of(low, width);
  }
}

std::vector<int> comb_unrank_all(int n, int k, std::vector<uint64_t> ranks) {
  std::sort(ranks.begin(), ranks.end());
  const auto width = static_cast<size_t>(k);
  std::vector<int> combinations(ranks.size() * width);
  for (size_t i = 0; i < ranks.size(); ++i) {
    comb_unrank(n, k, ranks[i], combinations.data() + i * width);
  }
  return combinations;
}
