// SPDX-License-Identifier: Apache-2.0
//
// The double-precision counterpart of float_math.h: the exponential and what logistic models need of the
// logarithm, with the same bits on the processor and on the GPU. Only + - * / in a fixed order, so that
// nothing depends on a mathematical library. Compile without fused multiply-add.
#pragma once

#include <stdint.h>

#include "lib/host_device.h"

TAVO_HOST_DEVICE double double_from_bits(uint64_t bits) {
  return __builtin_bit_cast(double, bits);
}
TAVO_HOST_DEVICE uint64_t bits_of_double(double x) {
  return __builtin_bit_cast(uint64_t, x);
}

// ln 2 in two parts; the first has 32 bits.
constexpr double kLn2High = 0.6931471803691238;
constexpr double kLn2Low = 1.9082149292705877e-10;

// Exponential, at most 1 ulp from the true value (tests/unit/test_double_math.cpp measures it), denormal
// results included; 0 and infinity where the result leaves the range of doubles, a NaN of a NaN.
//
// x = n ln 2 + r with |r| <= ln 2 / 2, and exp r = 1 + r + r^2 q(r), q the Taylor series to r^13 of exp: what
// it leaves out is below 1e-17 of the result. Choices are between two values at hand, as in tavo_expf.
TAVO_HOST_DEVICE double tavo_exp(double x) {
  const double limit = 746.0;  // exp is infinity there and 0 at -limit, so that the bounds need no case
  const double number = x == x ? x : 0.0;
  const double above = number < -limit ? -limit : number;
  const double bounded = above > limit ? limit : above;
  // 1.5 * 2^52 leaves no bits for a fraction: the sum rounds to the nearest integer, which stands in its
  // lowest bits.
  const double shifter = 6755399441055744.0;
  const double shifted = bounded * 1.4426950408889634 + shifter;
  const double whole = shifted - shifter;
  const double high = bounded - whole * kLn2High;  // product and difference are exact
  const double low = whole * kLn2Low;
  const double r = high - low;
  const double tail = (high - r) - low;
  double q = 1.0 / 6227020800.0;
  q = q * r + 1.0 / 479001600.0;
  q = q * r + 1.0 / 39916800.0;
  q = q * r + 1.0 / 3628800.0;
  q = q * r + 1.0 / 362880.0;
  q = q * r + 1.0 / 40320.0;
  q = q * r + 1.0 / 5040.0;
  q = q * r + 1.0 / 720.0;
  q = q * r + 1.0 / 120.0;
  q = q * r + 1.0 / 24.0;
  q = q * r + 1.0 / 6.0;
  q = q * r + 0.5;
  const double m = 1.0 + (r + (r * r * q + tail));
  // 2^n in two factors, each a normal number: only the last product rounds, to a denormal or to infinity.
  // n + 2048 is positive, which spares a shift with sign.
  const uint64_t raised = bits_of_double(shifted) - bits_of_double(shifter) + 2048u;
  const uint64_t half = raised >> 1;
  const double first = double_from_bits((half - 1u) << 52);
  const double second = double_from_bits((raised - half - 1u) << 52);
  const double value = m * first * second;
  return x == x ? value : x;
}

// log(1 + t) for t in [0, 1], at most 1.2 ulp from the true value; a NaN of a NaN.
//
// 1 + t = 2 (1 + (t - 1) / 2), so t from 1/2 on, where t - 1 is exact, is replaced by u = (t - 1) / 2, and ln
// 2 added. Then as in tavo_logf with s = u / (2 + u), |s| <= 1/5: ln(1 + u) = u - s (u - R), R = 2/3 s^2 +
// 2/5 s^4
// + ... to s^20; what that leaves out is below 2e-17 of the result.
TAVO_HOST_DEVICE double tavo_log1p_unit(double t) {
  const bool upper = t >= 0.5;
  const double u = upper ? (t - 1.0) * 0.5 : t;
  const double s = u / (2.0 + u);
  const double z = s * s;
  double r = 2.0 / 21.0;
  r = r * z + 2.0 / 19.0;
  r = r * z + 2.0 / 17.0;
  r = r * z + 2.0 / 15.0;
  r = r * z + 2.0 / 13.0;
  r = r * z + 2.0 / 11.0;
  r = r * z + 2.0 / 9.0;
  r = r * z + 2.0 / 7.0;
  r = r * z + 2.0 / 5.0;
  r = r * z + 2.0 / 3.0;
  const double correction = s * (u - r * z);
  return upper ? kLn2High + (u - (correction - kLn2Low)) : u - correction;
}

// log(1 + exp(x)) without overflow.
TAVO_HOST_DEVICE double tavo_softplus(double x) {
  const double size = x < 0.0 ? -x : x;
  return (x > 0.0 ? x : 0.0) + tavo_log1p_unit(tavo_exp(-size));
}
