// SPDX-License-Identifier: Apache-2.0
//
// Single-precision functions that must give the same bits on the processor and on the GPU. Only + - * / in a
// fixed order on IEEE floats, so that nothing depends on a mathematical library. Compile without fused
// multiply-add.
#pragma once

#include <stdint.h>

#include "lib/host_device.h"

TAVO_HOST_DEVICE float float_from_bits(uint32_t bits) {
  return __builtin_bit_cast(float, bits);
}
TAVO_HOST_DEVICE uint32_t bits_of_float(float x) {
  return __builtin_bit_cast(uint32_t, x);
}

TAVO_HOST_DEVICE float float_infinity() {
  return float_from_bits(0x7f800000u);
}

// The one NaN that is stored: positive and quiet.
TAVO_HOST_DEVICE float float_nan() {
  return float_from_bits(0x7fc00000u);
}

// x, with any NaN made the one that is stored.
TAVO_HOST_DEVICE float canonical_nan(float x) {
  return x == x ? x : float_nan();
}

// Natural logarithm, at most 1 ulp from the true value (tests/unit/test_float_math.cpp measures it). 0 gives
// -infinity, a negative number or a NaN a NaN, infinity itself.
//
// x = 2^e * m with m in [sqrt(1/2), sqrt(2)), f = m - 1, s = f / (2 + f):
//   ln m = 2 atanh s = 2s + s R,  R = 2/3 s^2 + 2/5 s^4 + 2/7 s^6 + ...,  and 2s = f - s f,
// so ln m = f - s (f - R): a small correction to the exact f, which keeps the rounding errors small.
// As in tavo_expf, choices are between two values at hand.
TAVO_HOST_DEVICE float tavo_logf(float x) {
  const float smallest_normal = 1.17549435e-38f;
  const int denormal = x < smallest_normal;
  // Denormal numbers are scaled by 2^23.
  const uint32_t bits = bits_of_float(denormal ? x * 8388608.0f : x);
  // Split at sqrt(1/2) = 0x3f3504f3, so that m runs from there to twice that.
  const uint32_t shifted = bits - 0x3f3504f3u;
  const int binade = (int)shifted >> 23;
  const int exponent = binade - 23 * denormal;
  const float m = float_from_bits(bits - ((uint32_t)binade << 23));

  const float f = m - 1.0f;
  const float s = f / (2.0f + f);
  const float z = s * s;
  // The coefficients are 2/3, 2/5, 2/7, 2/9, 2/11; |s| <= 0.172, so the first term left out is below 1e-10.
  const float r =
      z * (0.666666667f + z * (0.4f + z * (0.285714286f + z * (0.222222222f + z * 0.181818182f))));
  const float correction = s * (f - r);
  // ln 2 in two parts; the first has few enough bits that its product with the exponent is exact.
  const float e = (float)exponent;
  const float ln2_high = 0.693359375f;
  const float ln2_low = -2.12194440e-4f;
  const float logarithm = e * ln2_high + (f - (correction - e * ln2_low));
  const float of_positive = x == float_infinity() ? x : logarithm;
  const float of_others = x == 0.0f ? -float_infinity() : float_nan();
  return x > 0.0f ? of_positive : of_others;
}

// Exponential, at most 1 ulp from the true value (tests/unit/test_exp.cpp measures it), denormal results
// included. Below -105 it is 0, above 105 infinity, of a NaN the stored NaN. In between the result leaves the
// range of floats as rounding has it: infinity from 88.7229 on, 0 below -103.973.
//
// x = n ln 2 + r with |r| <= ln 2 / 2 (and a rounding), and exp r = 1 + r + r^2 q(r); q has the coefficients
// whose greatest relative error in exp r over that interval is least (3.1e-9). Every choice is between two
// values at hand, not between two ways: compilers put a loop over this function into vector lanes.
TAVO_HOST_DEVICE float tavo_expf(float x) {
  const float limit = 105.0f;  // exp is infinity there and 0 at -limit, so that the bounds need no case
  const float number = x == x ? x : 0.0f;
  const float above = number < -limit ? -limit : number;
  const float bounded = above > limit ? limit : above;
  // 1.5 * 2^23 leaves no bits for a fraction: the sum rounds to the nearest integer.
  const float whole = (bounded * 1.44269504f + 12582912.0f) - 12582912.0f;
  const int n = (int)whole;
  // ln 2 in two parts, as in tavo_logf: the first product and difference are exact. What the second
  // difference loses is kept in tail.
  const float high = bounded - whole * 0.693359375f;
  const float low = whole * -2.12194440e-4f;
  const float r = high - low;
  const float tail = (high - r) - low;
  const float q =
      0.499999934f + r * (0.166665201f + r * (0.0416683942f + r * (0.00836878041f + r * 0.00138144671f)));
  const float m = 1.0f + (r + (r * r * q + tail));
  // 2^n in two factors, each a normal number: only the last product rounds, to a denormal or to infinity.
  const int n_first = n >> 1;
  const float first = float_from_bits((uint32_t)(n_first + 127) << 23);
  const float second = float_from_bits((uint32_t)(n - n_first + 127) << 23);
  const float value = m * first * second;
  return x == x ? value : float_nan();
}
