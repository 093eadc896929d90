// SPDX-License-Identifier: Apache-2.0
#include "lib/permutation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "lib/mdr.h"
#include "lib/rng.h"
#include "tests/unit/packed_rows.h"

namespace {

const double kNan = std::numeric_limits<double>::quiet_NaN();

std::vector<int> identity(int n) {
  std::vector<int> values(static_cast<size_t>(n));
  std::iota(values.begin(), values.end(), 0);
  return values;
}

double quantile_of(std::vector<double> values, double p) {
  const int n = static_cast<int>(values.size());
  return quantile(values.data(), &n, &p);
}

double pvalue_of(std::vector<double> null, double x, int sorted = 0) {
  const int n = static_cast<int>(null.size());
  return pvalue(null.data(), &n, x, &sorted);
}

std::vector<double> pvalues_of(std::vector<double> null, const std::vector<double>& values, int sorted = 0) {
  const int n = static_cast<int>(null.size());
  const int n_values = static_cast<int>(values.size());
  std::vector<double> out(values.size(), -5.0);
  pvalueVector(null.data(), &n, values.data(), &n_values, &sorted, out.data());
  return out;
}

TEST(Permutation, AShuffleKeepsTheValuesAndDrawsOnceForEachButTheFirst) {
  init_rng(5489);
  std::vector<uint8_t> values(50);
  std::iota(values.begin(), values.end(), uint8_t{0});
  const int n = 50;
  permuteValues(values.data(), &n);
  const unsigned long next = int32_rand();
  EXPECT_NE(values.front() + 256 * values.back(), 256 * 49);
  std::sort(values.begin(), values.end());
  for (size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(values[i], i);
  }
  init_rng(5489);
  for (int i = 0; i < 49; ++i) {
    int32_rand();
  }
  EXPECT_EQ(int32_rand(), next);
}

TEST(Permutation, AShuffleByIndexTouchesOnlyTheIndexedPositions) {
  init_rng(5489);
  std::vector<uint8_t> values(40);
  std::iota(values.begin(), values.end(), uint8_t{0});
  const std::vector<int> index = {30, 2, 17, 5, 39, 0};
  const int n = 6;
  permuteValuesByIndex(values.data(), index.data(), &n);
  int n_moved = 0;
  for (int i = 0; i < 40; ++i) {
    if (std::find(index.begin(), index.end(), i) == index.end()) {
      EXPECT_EQ(values[static_cast<size_t>(i)], i);
    } else {
      n_moved += values[static_cast<size_t>(i)] != i ? 1 : 0;
    }
  }
  EXPECT_GT(n_moved, 0);
  std::sort(values.begin(), values.end());
  EXPECT_EQ(std::adjacent_find(values.begin(), values.end()), values.end());
}

TEST(Permutation, AShuffleByIndexOverAllPositionsIsTheWholeShuffle) {
  std::vector<uint8_t> whole(20);
  std::iota(whole.begin(), whole.end(), uint8_t{0});
  std::vector<uint8_t> by_index = whole;
  const int n = 20;
  init_rng(1);
  permuteValues(whole.data(), &n);
  init_rng(1);
  permuteValuesByIndex(by_index.data(), identity(20).data(), &n);
  EXPECT_EQ(by_index, whole);
}

TEST(Permutation, AChoiceOfNoneOrOfMoreThanThereAreChangesNothing) {
  init_rng(5489);
  const int n = 5;
  for (const int k : {6, 0, -1, 100}) {
    std::vector<int> index = identity(5);
    permuteIndex(index.data(), &n, &k);
    EXPECT_EQ(index, identity(5)) << "k = " << k;
  }
  EXPECT_EQ(int32_rand(), 3499211612U) << "it drew";
}

TEST(Permutation, AChoiceCountsItsPositionFromTheStartSoThatAChosenEntryCanMoveOut) {
  // The default seed draws 3499211612 and 581869302: positions 3499211612 mod 5 = 2 and 581869302 mod 4 = 2.
  init_rng(5489);
  std::vector<int> index = identity(5);
  const int n = 5;
  const int k = 2;
  permuteIndex(index.data(), &n, &k);
  EXPECT_EQ(index, std::vector<int>({2, 0, 1, 3, 4}));
}

TEST(Permutation, AQuantileInterpolatesBetweenOrderStatistics) {
  EXPECT_EQ(quantile_of({1, 2, 3, 4}, 0.5), 2.5);
  EXPECT_EQ(quantile_of({1, 2, 3, 4}, 1.0), 4.0);
  EXPECT_EQ(quantile_of({4, 2, 1, 3}, 0.0), 1.0);
  EXPECT_EQ(quantile_of({7}, 0.999), 7.0);
  EXPECT_DOUBLE_EQ(quantile_of({10, 0}, 0.999), 9.99);
}

TEST(Permutation, AQuantileLeavesTheValuesSorted) {
  std::vector<double> values = {3, 1, 2};
  const int n = 3;
  const double p = 0.5;
  EXPECT_EQ(quantile(values.data(), &n, &p), 2.0);
  EXPECT_EQ(values, std::vector<double>({1, 2, 3}));
}

TEST(Permutation, TheLargestNullValueHasOneOverN) {
  EXPECT_EQ(pvalue_of({0.3, 0.9, 0.1, 0.5}, 0.9), 0.25);
}

TEST(Permutation, AValueAboveTheWholeNullHasZero) {
  EXPECT_EQ(pvalue_of({0.3, 0.9, 0.1, 0.5}, 0.91), 0.0);
  EXPECT_EQ(pvalues_of({0.3, 0.9, 0.1, 0.5}, {0.91}), std::vector<double>({0.0}));
}

TEST(Permutation, EqualNullValuesAllCount) {
  EXPECT_EQ(pvalue_of({1, 2, 2, 3}, 2.0), 0.75);
  EXPECT_EQ(pvalue_of({1, 2, 2, 3}, 0.0), 1.0);
  EXPECT_EQ(pvalue_of({1, 2, 2, 3}, 2.5, 1), 0.25);
}

TEST(Permutation, AValueNotAboveTheSmallestNullValueGetsNothingWritten) {
  EXPECT_EQ(pvalues_of({3, 1, 2, 2}, {1.0, 2.0, 0.5, 1.5, 3.5}),
            std::vector<double>({-5.0, 0.75, -5.0, 0.75, 0.0}));
}

TEST(Permutation, PValuesTogetherEqualPValuesOneByOne) {
  constexpr unsigned kSeed = 20240306;
  std::mt19937 random(kSeed);
  std::vector<double> null;
  std::vector<double> values;
  for (int i = 0; i < 300; ++i) {
    null.push_back(static_cast<double>(random() % 100));
    values.push_back(static_cast<double>(random() % 120));
  }
  const double smallest = *std::min_element(null.begin(), null.end());
  const auto together = pvalues_of(null, values);
  std::vector<double> sorted_null = null;
  std::sort(sorted_null.begin(), sorted_null.end());
  EXPECT_EQ(pvalues_of(sorted_null, values, 1), together);
  for (size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(together[i], values[i] > smallest ? pvalue_of(null, values[i]) : -5.0) << "seed " << kSeed;
  }
}

TEST(Permutation, ANullValueThatIsNoNumberRanksBelowAllNumbers) {
  EXPECT_EQ(pvalue_of({kNan, 2, kNan, 1}, 1.5), 0.25);
  EXPECT_EQ(pvalue_of({kNan, 2, kNan, 1}, kNan), 0.0);
  EXPECT_EQ(pvalues_of({kNan, 2, kNan, 1}, {1.5, 1.0, kNan}), std::vector<double>({0.25, -5.0, -5.0}));
  EXPECT_EQ(pvalues_of({kNan, kNan}, {1.5}), std::vector<double>({-5.0}));
  EXPECT_EQ(quantile_of({kNan, 2, kNan, 1}, 1.0), 2.0);
  EXPECT_TRUE(std::isnan(quantile_of({kNan, 2, kNan, 1}, 0.0)));
}

// The records of a null distribution put together from its parts.
TEST(Permutation, TheNullShufflesOnAndOnAndScoresEachShuffle) {
  constexpr unsigned kSeed = 20240307;
  std::mt19937 random(kSeed);
  const auto rows = tavo_test::random_rows(random, 40, 20, 3);
  const std::vector<uint8_t> classes = tavo_test::random_classes(random, 40);
  const std::vector<uint32_t> words = tavo_test::packed_rows(rows);
  const int n_words = tavo_test::words_per_row(rows);
  const std::vector<int> combs = {0, 17, 4, 5, 19, 1};
  const int k = 2;
  const int n_combs = 3;
  const int n_perm = 4;
  const int n_samples = 40;
  // A part of the samples: the shuffle moves the classes of all.
  const std::vector<int> list = {1, 2, 3, 5, 8, 13, 21, 34, 39, 30, 29, 28, 27, 26, 25, 10, 11, 12};
  const int n = static_cast<int>(list.size());
  const int cases = 8;
  const int controls = 10;
  const double threshold = 0.8;
  const int tie = kTieLow;
  for (const int missing : {+kMissingLevel, +kMissingAvailable}) {
    std::vector<double> records(12 * 16, 77.0);
    std::vector<uint8_t> passed = classes;
    int n_records = -1;
    init_rng(5489);
    generateNull(combs.data(), &k, &n_combs, words.data(), &n_words, passed.data(), &n_samples, list.data(),
                 &n, &cases, &controls, &threshold, &tie, &missing, &n_perm, &n_records, records.data());
    const unsigned long next = int32_rand();
    EXPECT_EQ(n_records, 12);
    EXPECT_EQ(passed, classes) << "the caller's classes were shuffled";

    init_rng(5489);
    std::vector<uint8_t> shuffled = classes;
    for (size_t r = 0; r < 12; ++r) {
      permuteValues(shuffled.data(), &n_samples);
      const int base = table_base(missing);
      const int weight[2] = {2, 2 * base};
      const int n_entries = 2 * base * base;
      std::vector<int> table(static_cast<size_t>(n_entries), 0);
      int own_cases = cases;
      int own_controls = controls;
      int own_n = n;
      double own_threshold = threshold;
      count_function(missing)(&n_words, weight, &combs[2 * (r / 4)], &k, &base, list.data(), &n, words.data(),
                              shuffled.data(), &own_cases, &own_controls, table.data());
      if (missing == kMissingAvailable) {
        own_n = own_cases + own_controls;
        own_threshold = static_cast<double>(own_cases) / own_controls;
      }
      std::vector<double> expected(16, 0.0);
      calculateMeasuresAll(&own_n, &own_cases, &own_controls, table.data(), &n_entries, &own_threshold, &tie,
                           expected.data());
      const auto first = records.begin() + static_cast<std::ptrdiff_t>(16 * r);
      EXPECT_EQ(std::vector<double>(first, first + 16), expected) << "record " << r << ", seed " << kSeed;
    }
    EXPECT_EQ(int32_rand(), next) << "a different number of draws";
  }
}

}  // namespace
