// SPDX-License-Identifier: Apache-2.0
#include "lib/utils.h"

#include <array>
#include <numeric>

namespace {

// Largest first. Changing an entry changes the order of equal measures, and with it every report.
constexpr std::array<int, 16> kGaps = {1073790977, 268460033, 67121153, 16783361, 4197377, 1050113,
                                       262913,     65921,     16577,    4193,     1073,    281,
                                       77,         23,        8,        1};

template <typename Number>
int compare_numbers(const void* a, const void* b) {
  const Number x = *static_cast<const Number*>(a);
  const Number y = *static_cast<const Number*>(b);
  return static_cast<int>(x > y) - static_cast<int>(x < y);
}

}  // namespace

int cmp_double(const void* a, const void* b) {
  return compare_numbers<double>(a, b);
}

int cmp_int(const void* a, const void* b) {
  return compare_numbers<int>(a, b);
}

void shellsortIndex(int* index, const void* values, const int* n, const size_t* elementSize,
                    CompareFunction compare) {
  const auto* bytes = static_cast<const unsigned char*>(values);
  const auto element = [&](int i) { return bytes + static_cast<size_t>(i) * *elementSize; };
  std::iota(index, index + *n, 0);
  // Only the indices move; the values are looked up through them.
  for (const int gap : kGaps) {
    for (int i = gap; i < *n; ++i) {
      const int moving = index[i];
      int place = i;
      while (place >= gap && compare(element(index[place - gap]), element(moving)) > 0) {
        index[place] = index[place - gap];
        place -= gap;
      }
      index[place] = moving;
    }
  }
}
