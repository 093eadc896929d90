// SPDX-License-Identifier: Apache-2.0
#include "lib/double_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

// Distance between a result and the true value in units of the last place of the true value.
double double_ulps(double result, long double truth) {
  const double below = std::fabs(static_cast<double>(truth));
  const long double unit = std::nextafter(below, std::numeric_limits<double>::infinity()) - below;
  return static_cast<double>(std::fabs(static_cast<long double>(result) - truth) / unit);
}

// The worst error of tavo_exp over random numbers of an interval.
double worst_exp(double from, double to, int count) {
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> uniform(from, to);
  double worst = 0.0;
  for (int i = 0; i < count; ++i) {
    const double x = uniform(random);
    worst = std::max(worst, double_ulps(tavo_exp(x), std::exp(static_cast<long double>(x))));
  }
  return worst;
}

TEST(DoubleExponential, IsWithinOneUlp) {
  EXPECT_LT(worst_exp(-1.0, 1.0, 1000000), 1.0);
  EXPECT_LT(worst_exp(-40.0, 40.0, 1000000), 1.0);
  EXPECT_LT(worst_exp(-708.0, 709.78, 1000000), 1.0);
  EXPECT_LT(worst_exp(-745.0, -708.0, 100000), 1.0);  // denormal results
  EXPECT_LT(worst_exp(-1e-9, 1e-9, 100000), 1.0);
}

TEST(DoubleExponential, LeavesTheRangeOfDoubles) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(tavo_exp(0.0), 1.0);
  EXPECT_EQ(tavo_exp(-0.0), 1.0);
  EXPECT_EQ(tavo_exp(-745.0), std::exp(-745.0));
  EXPECT_EQ(tavo_exp(-746.0), 0.0);
  EXPECT_EQ(tavo_exp(-1e300), 0.0);
  EXPECT_EQ(tavo_exp(-infinity), 0.0);
  EXPECT_TRUE(std::isfinite(tavo_exp(709.78)));
  EXPECT_EQ(tavo_exp(709.8), infinity);
  EXPECT_EQ(tavo_exp(infinity), infinity);
  EXPECT_TRUE(std::isnan(tavo_exp(std::nan(""))));
}

TEST(LogarithmOfOnePlus, IsWithinOneUlpAndAFifth) {
  std::mt19937_64 random(6);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  double worst = 0.0;
  for (int i = 0; i < 1000000; ++i) {
    // All of the interval, the border of the two halves, and small numbers.
    const double u = uniform(random);
    for (const double t : {u, 0.5 + 1e-7 * (u - 0.5), u * std::ldexp(1.0, -(i % 1000))}) {
      worst = std::max(worst, double_ulps(tavo_log1p_unit(t), std::log1p(static_cast<long double>(t))));
    }
  }
  EXPECT_LT(worst, 1.2);
  EXPECT_EQ(tavo_log1p_unit(0.0), 0.0);
  EXPECT_EQ(tavo_log1p_unit(1.0), std::log(2.0));
  EXPECT_TRUE(std::isnan(tavo_log1p_unit(std::nan(""))));
}

TEST(Softplus, IsTheLogarithmOfOnePlusTheExponential) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> uniform(-60.0, 60.0);
  for (int i = 0; i < 100000; ++i) {
    const double x = uniform(random);
    const auto wide = static_cast<long double>(x);
    EXPECT_LT(double_ulps(tavo_softplus(x), std::log1p(std::exp(wide))), 2.5) << x;
  }
  EXPECT_EQ(tavo_softplus(1e308), 1e308);
  EXPECT_EQ(tavo_softplus(-std::numeric_limits<double>::infinity()), 0.0);
  EXPECT_TRUE(std::isnan(tavo_softplus(std::nan(""))));
}

}  // namespace
