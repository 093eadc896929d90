// SPDX-License-Identifier: Apache-2.0
#include "lib/double_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

// Distance from the true value in units of its last place.
double ulps(double result, long double truth) {
  const auto rounded = static_cast<double>(truth);
  const double unit = std::nextafter(rounded, std::numeric_limits<double>::infinity()) - rounded;
  return static_cast<double>(std::fabs(static_cast<long double>(result) - truth) /
                             static_cast<long double>(unit));
}

TEST(DoubleExponential, IsWithinTwoUlp) {
  double worst = 0.0;
  for (double x = -708.0; x <= 709.0; x += 0.00317) {
    worst = std::max(worst, ulps(tavo_exp(x), std::exp(static_cast<long double>(x))));
  }
  for (double x = 1e-300; x < 1.0; x *= 1.01) {
    worst = std::max(worst, ulps(tavo_exp(x), std::exp(static_cast<long double>(x))));
    worst = std::max(worst, ulps(tavo_exp(-x), std::exp(static_cast<long double>(-x))));
  }
  RecordProperty("worst_ulp_thousandths", static_cast<int>(worst * 1000.0));
  EXPECT_LT(worst, 2.0);
}

TEST(DoubleExponential, OfSpecialValues) {
  EXPECT_EQ(tavo_exp(0.0), 1.0);
  EXPECT_EQ(tavo_exp(-0.0), 1.0);
  EXPECT_LT(tavo_exp(-1e6), 1e-300);
  EXPECT_EQ(tavo_exp(-1e6), tavo_exp(-745.0));
  EXPECT_TRUE(std::isfinite(tavo_exp(1e6)));
  EXPECT_GT(tavo_exp(1e6), 1e307);
  EXPECT_TRUE(std::isnan(tavo_exp(std::nan(""))));
}

TEST(DoubleLogarithm, OfOneAndAUnitIsWithinThreeUlp) {
  double worst = 0.0;
  for (double u = 1e-300; u < 1e-3; u *= 1.07) {
    worst = std::max(worst, ulps(tavo_log1p_of_unit(u), std::log1p(static_cast<long double>(u))));
  }
  for (double u = 1e-3; u <= 1.0; u += 1.37e-5) {
    worst = std::max(worst, ulps(tavo_log1p_of_unit(u), std::log1p(static_cast<long double>(u))));
  }
  RecordProperty("worst_ulp_thousandths", static_cast<int>(worst * 1000.0));
  EXPECT_LT(worst, 3.0);
  EXPECT_EQ(tavo_log1p_of_unit(0.0), 0.0);
}

TEST(Softplus, IsTheLogarithmOfOnePlusTheExponential) {
  for (double x = -700.0; x <= 700.0; x += 0.37) {
    const long double truth = x > 40.0 ? static_cast<long double>(x) + std::exp(static_cast<long double>(-x))
                                       : std::log1p(std::exp(static_cast<long double>(x)));
    EXPECT_LT(ulps(tavo_softplus(x), truth), 5.0) << x;
  }
}

}  // namespace
