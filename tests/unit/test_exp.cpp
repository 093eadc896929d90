// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "lib/float_math.h"

namespace {

// Distance between a float result and the true value in units of the last place of the true value. A truth
// beyond the largest float counts as the power of two that would come next.
double capped_ulps(float result, double truth) {
  const double largest = std::numeric_limits<float>::max();
  const double next = 0x1p128;
  const double value = std::isinf(result) ? next : result;
  truth = std::min(truth, next);
  const float below = static_cast<float>(std::min(truth, largest));
  const double unit =
      below < std::numeric_limits<float>::max()
          ? static_cast<double>(std::nextafter(below, std::numeric_limits<float>::infinity())) - below
          : 0x1p104;
  return std::fabs(value - truth) / unit;
}

// The worst error over the floats of one sign from smallest to largest magnitude, every stride-th.
double worst_error(uint32_t sign, float smallest, float largest, uint32_t stride) {
  double worst = 0.0;
  for (uint32_t bits = bits_of_float(smallest); bits <= bits_of_float(largest); bits += stride) {
    const float x = float_from_bits(bits | sign);
    worst = std::max(worst, capped_ulps(tavo_expf(x), std::exp(static_cast<double>(x))));
  }
  return worst;
}

constexpr uint32_t kPlus = 0;
constexpr uint32_t kMinus = 0x80000000u;

TEST(Exponential, IsWithinOneUlpOverItsWholeRange) {
  // 1009 is coprime to the binade size, so every part of every binade is visited.
  const double worst =
      std::max(worst_error(kPlus, 0.0f, 105.0f, 1009), worst_error(kMinus, 0.0f, 105.0f, 1009));
  RecordProperty("worst_ulp_thousandths", static_cast<int>(worst * 1000.0));
  EXPECT_LT(worst, 1.0);
}

TEST(Exponential, IsWithinOneUlpWhereProbabilitiesLie) {
  const double worst = std::max(worst_error(kPlus, 0.01f, 40.0f, 17), worst_error(kMinus, 0.01f, 40.0f, 17));
  RecordProperty("worst_ulp_thousandths", static_cast<int>(worst * 1000.0));
  EXPECT_LT(worst, 1.0);
}

TEST(Exponential, IsWithinOneUlpWhereResultsAreDenormalOrOverflow) {
  EXPECT_LT(worst_error(kMinus, 87.0f, 105.0f, 1), 1.0);
  EXPECT_LT(worst_error(kPlus, 88.0f, 89.0f, 1), 1.0);
}

TEST(Exponential, LeavesTheRangeOfFloatsGradually) {
  // exp(-104) is 0.49 and exp(-103.5) 0.81 of the smallest float; exp(-90) is a denormal number.
  const float smallest = std::numeric_limits<float>::denorm_min();
  EXPECT_EQ(tavo_expf(-104.0f), 0.0f);
  EXPECT_EQ(tavo_expf(-103.5f), smallest);
  EXPECT_GT(tavo_expf(-90.0f), 0.0f);
  EXPECT_LT(tavo_expf(-90.0f), std::numeric_limits<float>::min());
  EXPECT_TRUE(std::isfinite(tavo_expf(88.72283f)));
  EXPECT_EQ(tavo_expf(88.73f), float_infinity());
}

TEST(Exponential, OfSpecialValues) {
  const float infinity = float_infinity();
  const float largest = std::numeric_limits<float>::max();
  EXPECT_EQ(bits_of_float(tavo_expf(0.0f)), bits_of_float(1.0f));
  EXPECT_EQ(bits_of_float(tavo_expf(-0.0f)), bits_of_float(1.0f));
  EXPECT_EQ(tavo_expf(std::numeric_limits<float>::denorm_min()), 1.0f);
  for (const float x : {105.0f, std::nextafter(105.0f, infinity), 1e10f, largest, infinity}) {
    EXPECT_EQ(tavo_expf(x), infinity) << x;
    EXPECT_EQ(bits_of_float(tavo_expf(-x)), bits_of_float(0.0f)) << x;
  }
  EXPECT_EQ(bits_of_float(tavo_expf(float_nan())), bits_of_float(float_nan()));
  EXPECT_EQ(bits_of_float(tavo_expf(float_from_bits(0xffc00001u))), bits_of_float(float_nan()));
}

TEST(Exponential, NeverDecreasesWhereItsPolynomialChangesPieces) {
  // The pieces meet at odd multiples of ln 2 / 2.
  for (int n = -140; n < 128; ++n) {
    const float meeting = static_cast<float>((n + 0.5) * 0.693147180559945309);
    float x = meeting;
    for (int i = 0; i < 50; ++i) {
      x = std::nextafter(x, -float_infinity());
    }
    for (int i = 0; i < 100; ++i) {
      const float next = std::nextafter(x, float_infinity());
      ASSERT_LE(tavo_expf(x), tavo_expf(next)) << x;
      x = next;
    }
  }
}

TEST(Exponential, UndoesTheLogarithm) {
  for (float x = 1e-30f; x < 1e30f; x *= 1.37f) {
    const float y = tavo_logf(x);
    // An error of one ulp of the logarithm is one of |y| * 2^-23 of its exponential.
    EXPECT_NEAR(tavo_expf(y) / x, 1.0f, (std::fabs(y) + 2.0f) * 1.2e-7f) << x;
  }
}

}  // namespace
