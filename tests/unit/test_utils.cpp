// SPDX-License-Identifier: Apache-2.0
#include "lib/utils.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace {

std::vector<int> order_of(const std::vector<double>& values) {
  const int n = static_cast<int>(values.size());
  const size_t size = sizeof(double);
  std::vector<int> index(values.size(), -1);
  shellsortIndex(index.data(), values.data(), &n, &size, cmp_double);
  return index;
}

TEST(Utils, ThreeOneTwoIsOrderedByTheIndicesOneTwoZero) {
  EXPECT_EQ(order_of({3.0, 1.0, 2.0}), std::vector<int>({1, 2, 0}));
}

TEST(Utils, SortingNothingWritesNothing) {
  const int n = 0;
  const size_t size = sizeof(double);
  int guard = -7;
  shellsortIndex(&guard, nullptr, &n, &size, cmp_double);
  EXPECT_EQ(guard, -7);
}

TEST(Utils, TheIndexIsAPermutationThatAscendsAndTheValuesStay) {
  constexpr unsigned kSeed = 20240302;
  std::mt19937 random(kSeed);
  for (const int n : {1, 2, 7, 8, 9, 22, 23, 24, 281, 282, 5000}) {
    std::vector<double> values;
    for (int i = 0; i < n; ++i) {
      values.push_back(static_cast<double>(random() % 50));
    }
    const std::vector<double> before = values;
    const std::vector<int> index = order_of(values);
    EXPECT_EQ(values, before);
    std::vector<int> seen(values.size(), 0);
    for (const int i : index) {
      ++seen.at(static_cast<size_t>(i));
    }
    EXPECT_EQ(seen, std::vector<int>(values.size(), 1)) << "seed " << kSeed;
    for (size_t i = 0; i + 1 < index.size(); ++i) {
      EXPECT_LE(values[static_cast<size_t>(index[i])], values[static_cast<size_t>(index[i + 1])]);
    }
  }
}

TEST(Utils, BelowTheSecondGapEqualValuesKeepTheirOrder) {
  EXPECT_EQ(order_of({1, 0, 1, 0, 1, 0, 1}), std::vector<int>({1, 3, 5, 0, 2, 4, 6}));
}

// All equal but the last, which is smaller and one gap from the first: the pass of that gap swaps the two,
// which carries the first past its equals. Any other gap would leave another order.
TEST(Utils, EachGapCarriesAValuePastItsEquals) {
  for (const int gap : {8, 23, 77, 281, 1073, 4193, 16577, 65921, 262913, 1050113, 4197377}) {
    std::vector<double> values(static_cast<size_t>(gap) + 1, 1.0);
    values.back() = 0.0;
    std::vector<int> expected(values.size());
    std::iota(expected.begin(), expected.end(), 0);
    std::swap(expected.front(), expected.back());
    EXPECT_TRUE(order_of(values) == expected) << "gap " << gap;
  }
}

TEST(Utils, AnyElementSizeCanBeSorted) {
  const std::vector<int> values = {INT_MAX, 5, INT_MIN, -3};
  const int n = 4;
  const size_t size = sizeof(int);
  std::vector<int> index(4);
  shellsortIndex(index.data(), values.data(), &n, &size, cmp_int);
  EXPECT_EQ(index, std::vector<int>({2, 3, 1, 0}));
}

TEST(Utils, IntegersAtTheEndsOfTheirRangeCompareWithoutOverflow) {
  const int low = INT_MIN;
  const int high = INT_MAX;
  EXPECT_EQ(cmp_int(&low, &high), -1);
  EXPECT_EQ(cmp_int(&high, &low), 1);
  EXPECT_EQ(cmp_int(&low, &low), 0);
}

TEST(Utils, DoublesThatCannotBeComparedAreNeither) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double one = 1.0;
  const double two = 2.0;
  EXPECT_EQ(cmp_double(&nan, &one), 0);
  EXPECT_EQ(cmp_double(&one, &nan), 0);
  EXPECT_EQ(cmp_double(&one, &two), -1);
  EXPECT_EQ(cmp_double(&two, &one), 1);
}

}  // namespace
