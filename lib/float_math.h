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

// What the functions below need of a number besides arithmetic. They are templates over F: float, or a type
// of many floats that has the same operations (cpu/fit_lanes.h).
TAVO_HOST_DEVICE float choose(bool first, float a, float b) {
  return first ? a : b;
}
TAVO_HOST_DEVICE uint32_t bits_of(float x) {
  return bits_of_float(x);
}
TAVO_HOST_DEVICE float number_from_bits(uint32_t bits) {
  return float_from_bits(bits);
}
TAVO_HOST_DEVICE int32_t as_signed(uint32_t x) {
  return (int32_t)x;
}
TAVO_HOST_DEVICE uint32_t as_unsigned(int32_t x) {
  return (uint32_t)x;
}
TAVO_HOST_DEVICE int32_t integer_of(float x) {  // x is one
  return (int32_t)x;
}
TAVO_HOST_DEVICE float number_of(int32_t x) {
  return (float)x;
}

// Natural logarithm, at most 1 ulp from the true value (tests/unit/test_float_math.cpp measures it). 0 gives
// -infinity, a negative number or a NaN a NaN, infinity itself.
//
// x = 2^e * m with m in [sqrt(1/2), sqrt(2)), f = m - 1, s = f / (2 + f):
//   ln m = 2 atanh s = 2s + s R,  R = 2/3 s^2 + 2/5 s^4 + 2/7 s^6 + ...,  and 2s = f - s f,
// so ln m = f - s (f - R): a small correction to the exact f, which keeps the rounding errors small.
// As in tavo_expf, choices are between two values at hand.
template <typename F>
TAVO_HOST_DEVICE_INLINED F float_log(F x) {
  const float smallest_normal = 1.17549435e-38f;
  const auto denormal = x < smallest_normal;
  // Denormal numbers are scaled by 2^23.
  const auto bits = bits_of(choose(denormal, x * 8388608.0f, x));
  // Split at sqrt(1/2) = 0x3f3504f3, so that m runs from there to twice that.
  const auto binade = as_signed(bits - 0x3f3504f3u) >> 23;
  const F m = number_from_bits(bits - (as_unsigned(binade) << 23));

  const F f = m - 1.0f;
  const F s = f / (2.0f + f);
  const F z = s * s;
  // The coefficients are 2/3, 2/5, 2/7, 2/9, 2/11; |s| <= 0.172, so the first term left out is below 1e-10.
  const F r = z * (0.666666667f + z * (0.4f + z * (0.285714286f + z * (0.222222222f + z * 0.181818182f))));
  const F correction = s * (f - r);
  // ln 2 in two parts; the first has few enough bits that its product with the exponent is exact.
  const F exponent = number_of(binade);
  const F e = choose(denormal, exponent - 23.0f, exponent);
  const float ln2_high = 0.693359375f;
  const float ln2_low = -2.12194440e-4f;
  const F logarithm_of_normal = e * ln2_high + (f - (correction - e * ln2_low));
  const F of_positive = choose(x == float_infinity(), x, logarithm_of_normal);
  const F of_others = choose(x == 0.0f, F(-float_infinity()), F(float_nan()));
  return choose(x > 0.0f, of_positive, of_others);
}
TAVO_HOST_DEVICE float tavo_logf(float x) {
  return float_log(x);
}

// Exponential, at most 1 ulp from the true value (tests/unit/test_exp.cpp measures it), denormal results
// included. Below -105 it is 0, above 105 infinity, of a NaN the stored NaN. In between the result leaves the
// range of floats as rounding has it: infinity from 88.7229 on, 0 below -103.973.
//
// x = n ln 2 + r with |r| <= ln 2 / 2 (and a rounding), and exp r = 1 + r + r^2 q(r); q has the coefficients
// whose greatest relative error in exp r over that interval is least (3.1e-9). Every choice is between two
// values at hand, not between two ways: compilers put a loop over this function into vector lanes.
template <typename F>
TAVO_HOST_DEVICE_INLINED F float_exp(F x) {
  const float limit = 105.0f;  // exp is infinity there and 0 at -limit, so that the bounds need no case
  const F number = choose(x == x, x, F(0.0f));
  const F above = choose(number < -limit, F(-limit), number);
  const F bounded = choose(above > limit, F(limit), above);
  // 1.5 * 2^23 leaves no bits for a fraction: the sum rounds to the nearest integer.
  const F whole = (bounded * 1.44269504f + 12582912.0f) - 12582912.0f;
  const auto n = integer_of(whole);
  // ln 2 in two parts, as in tavo_logf: the first product and difference are exact. What the second
  // difference loses is kept in tail.
  const F high = bounded - whole * 0.693359375f;
  const F low = whole * -2.12194440e-4f;
  const F r = high - low;
  const F tail = (high - r) - low;
  const F q =
      0.499999934f + r * (0.166665201f + r * (0.0416683942f + r * (0.00836878041f + r * 0.00138144671f)));
  const F m = 1.0f + (r + (r * r * q + tail));
  // 2^n in two factors, each a normal number: only the last product rounds, to a denormal or to infinity.
  const auto n_first = n >> 1;
  const F first = number_from_bits(as_unsigned(n_first + 127) << 23);
  const F second = number_from_bits(as_unsigned(n - n_first + 127) << 23);
  const F value = m * first * second;
  return choose(x == x, value, F(float_nan()));
}
TAVO_HOST_DEVICE float tavo_expf(float x) {
  return float_exp(x);
}
