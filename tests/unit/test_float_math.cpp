// SPDX-License-Identifier: Apache-2.0
#include "lib/float_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

// Distance between a float result and the true value in units of the last place of the true value.
double float_ulps(float result, double truth) {
  const float rounded = std::fabs(static_cast<float>(truth));
  const double unit =
      static_cast<double>(std::nextafter(rounded, std::numeric_limits<float>::infinity())) - rounded;
  return std::fabs(static_cast<double>(result) - truth) / unit;
}

TEST(FloatMath, LogarithmIsWithinOneUlpOverAllPositiveFloats) {
  // 1009 is coprime to the binade size, so every part of every binade is visited.
  double worst = 0.0;
  for (uint32_t bits = 1; bits < 0x7f800000u; bits += 1009) {
    const float x = float_from_bits(bits);
    worst = std::max(worst, float_ulps(tavo_logf(x), std::log(static_cast<double>(x))));
  }
  RecordProperty("worst_ulp_thousandths", static_cast<int>(worst * 1000.0));
  EXPECT_LT(worst, 1.0);
}

TEST(FloatMath, LogarithmNearOneKeepsItsRelativePrecision) {
  for (uint32_t bits = 0x3f7f0000u; bits < 0x3f810000u; ++bits) {
    const float x = float_from_bits(bits);
    if (x != 1.0f) {
      ASSERT_LT(float_ulps(tavo_logf(x), std::log(static_cast<double>(x))), 1.0) << x;
    }
  }
  EXPECT_EQ(bits_of_float(tavo_logf(1.0f)), bits_of_float(0.0f));
}

TEST(FloatMath, LogarithmOfSpecialValues) {
  const float infinity = float_infinity();
  EXPECT_EQ(tavo_logf(0.0f), -infinity);
  EXPECT_EQ(tavo_logf(-0.0f), -infinity);
  EXPECT_EQ(tavo_logf(infinity), infinity);
  EXPECT_TRUE(std::isnan(tavo_logf(-1.0f)));
  EXPECT_TRUE(std::isnan(tavo_logf(-infinity)));
  EXPECT_TRUE(std::isnan(tavo_logf(float_nan())));
}

TEST(FloatMath, TheStoredNanIsPositive) {
  const float negative_nan = float_from_bits(0xffc00001u);
  EXPECT_EQ(bits_of_float(canonical_nan(negative_nan)), 0x7fc00000u);
  EXPECT_EQ(canonical_nan(2.5f), 2.5f);
}

// The flags of the build must keep a product and a sum two roundings also where the processor could join
// them: records would differ between processors.
__attribute__((target("fma"), noinline)) float product_plus(float a, float b, float c) {
  return a * b + c;
}

TEST(FloatMath, ProductsAndSumsAreRoundedSeparatelyEvenWithFusedInstructionsAtHand) {
  if (!__builtin_cpu_supports("fma")) {
    GTEST_SKIP() << "this processor has no fused multiply-add";
  }
  // (1 + 2^-13) (1 - 2^-13) = 1 - 2^-26 rounds to 1: separate roundings give 0, a fused one -2^-26.
  EXPECT_EQ(product_plus(1.0f + 0x1p-13f, 1.0f - 0x1p-13f, -1.0f), 0.0f);
}

}  // namespace
