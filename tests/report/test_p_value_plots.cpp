// SPDX-License-Identifier: Apache-2.0
#include "report/p_value_plots.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>

namespace {

std::vector<double> even_p(size_t n) {
  std::vector<double> p;
  for (size_t i = 0; i < n; ++i) {
    p.push_back((static_cast<double>(i) + 0.5) / static_cast<double>(n));
  }
  return p;
}

TEST(GenomicInflation, IsOneForEvenlySpreadPValues) {
  EXPECT_NEAR(genomic_inflation(even_p(1001)), 1.0, 1e-12);
  EXPECT_NEAR(genomic_inflation(even_p(1000)), 1.0, 1e-5);
}

TEST(GenomicInflation, IsTheFactorOfTheStatistics) {
  // p of 1.3 times a chi-square statistic x with one degree of freedom: erfc(sqrt(1.3 x / 2)).
  std::mt19937 random(3);
  std::normal_distribution<double> normal;
  std::vector<double> p;
  std::vector<double> statistics;
  for (int i = 0; i < 2001; ++i) {
    const double z = normal(random);
    statistics.push_back(1.3 * z * z);
    p.push_back(std::erfc(std::sqrt(1.3 * z * z / 2.0)));
  }
  std::nth_element(statistics.begin(), statistics.begin() + 1000, statistics.end());
  // The median of the distribution, from a table.
  EXPECT_NEAR(genomic_inflation(p), statistics[1000] / 0.454936423119572, 1e-9);
}

TEST(GenomicInflation, TakesPValuesOfZeroAndOne) {
  EXPECT_EQ(genomic_inflation({1.0}), 0.0);
  EXPECT_TRUE(std::isfinite(genomic_inflation({0.0})));
  EXPECT_GT(genomic_inflation({0.0}), 1000.0);
}

TEST(LogP, IsFiniteForZero) {
  EXPECT_DOUBLE_EQ(log_p(1e-5), 5.0);
  EXPECT_NEAR(log_p(0.0), 323.3, 0.1);
}

TEST(QqPoints, LieOnTheDiagonalForEvenlySpreadPValues) {
  const std::vector<QqPoint> points = qq_points(even_p(5000));
  EXPECT_GT(points.size(), 1000u);
  EXPECT_LT(points.size(), 1500u);
  for (const QqPoint& point : points) {
    EXPECT_NEAR(point.observed, point.expected, 1e-12);
    EXPECT_LT(point.low, point.expected);
    EXPECT_GT(point.high, point.expected);
  }
}

TEST(QqPoints, HaveTheBandOfTheSmallestOfTen) {
  // The smallest of n uniform numbers is below x with probability 1 - (1 - x)^n.
  const QqPoint first = qq_points(even_p(10)).front();
  EXPECT_NEAR(first.low, -std::log10(1.0 - std::pow(0.025, 0.1)), 1e-9);
  EXPECT_NEAR(first.high, -std::log10(1.0 - std::pow(0.975, 0.1)), 1e-9);
}

TEST(DrawnPoints, AreAllWhereThereAreFew) {
  EXPECT_EQ(drawn_points({1, 2, 3}, {0.5, std::nan(""), 0.1}), (std::vector<size_t>{0, 2}));
}

TEST(DrawnPoints, KeepTheSmallestAndOneForEachSpot) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> uniform(1e-9, 1.0);
  const size_t n = 300000;
  std::vector<double> x(n);
  std::vector<double> p(n);
  for (size_t i = 0; i < n; ++i) {
    x[i] = static_cast<double>(i);
    p[i] = uniform(random);
  }
  const std::vector<size_t> drawn = drawn_points(x, p, 1000);
  EXPECT_TRUE(std::is_sorted(drawn.begin(), drawn.end()));
  EXPECT_LT(drawn.size(), 60000u);
  const std::set<size_t> chosen(drawn.begin(), drawn.end());
  std::vector<double> sorted = p;
  std::sort(sorted.begin(), sorted.end());
  std::set<std::pair<int, int>> spots;
  const auto spot = [&](size_t i) {
    return std::pair(static_cast<int>(x[i] / ((static_cast<double>(n) - 1.0) / 800.0)),
                     static_cast<int>(-std::log10(p[i]) / 0.05));
  };
  for (const size_t i : drawn) {
    spots.insert(spot(i));
  }
  for (size_t i = 0; i < n; ++i) {
    if (p[i] <= sorted[999]) {
      EXPECT_TRUE(chosen.contains(i)) << "among the smallest";
    }
    ASSERT_TRUE(spots.contains(spot(i))) << "nothing is drawn where point " << i << " is";
  }
}

}  // namespace
