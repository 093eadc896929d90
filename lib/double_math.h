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

// As in float_math.h: the functions below are templates over D, double or a type of many doubles.
TAVO_HOST_DEVICE double choose(bool first, double a, double b) {
  return first ? a : b;
}
TAVO_HOST_DEVICE uint64_t bits_of(double x) {
  return bits_of_double(x);
}
TAVO_HOST_DEVICE double number_from_bits(uint64_t bits) {
  return double_from_bits(bits);
}

// ln 2 in two parts; the first has 32 bits.
constexpr double kLn2High = 0.6931471803691238;
constexpr double kLn2Low = 1.9082149292705877e-10;

// Exponential, at most 1 ulp from the true value (tests/unit/test_double_math.cpp measures it), denormal
// results included; 0 and infinity where the result leaves the range of doubles, a NaN of a NaN.
//
// x = n ln 2 + r with |r| <= ln 2 / 2, and exp r = 1 + r + r^2 q(r), q the Taylor series to r^13 of exp: what
// it leaves out is below 1e-17 of the result. Choices are between two values at hand, as in tavo_expf.
template <typename D>
TAVO_HOST_DEVICE_INLINED D double_exp(D x) {
  const double limit = 746.0;  // exp is infinity there and 0 at -limit, so that the bounds need no case
  const D number = choose(x == x, x, D(0.0));
  const D above = choose(number < -limit, D(-limit), number);
  const D bounded = choose(above > limit, D(limit), above);
  // 1.5 * 2^52 leaves no bits for a fraction: the sum rounds to the nearest integer, which stands in its
  // lowest bits.
  const double shifter = 6755399441055744.0;
  const D shifted = bounded * 1.4426950408889634 + shifter;
  const D whole = shifted - shifter;
  const D high = bounded - whole * kLn2High;  // product and difference are exact
  const D low = whole * kLn2Low;
  const D r = high - low;
  const D tail = (high - r) - low;
  D q = 1.0 / 6227020800.0 * r + 1.0 / 479001600.0;
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
  const D m = 1.0 + (r + (r * r * q + tail));
  // 2^n in two factors, each a normal number: only the last product rounds, to a denormal or to infinity.
  // n + 2048 is positive, which spares a shift with sign.
  const auto raised = bits_of(shifted) - bits_of_double(shifter) + 2048u;
  const auto half = raised >> 1;
  const D first = number_from_bits((half - 1u) << 52);
  const D second = number_from_bits((raised - half - 1u) << 52);
  const D value = m * first * second;
  return choose(x == x, value, x);
}
TAVO_HOST_DEVICE double tavo_exp(double x) {
  return double_exp(x);
}

// log(1 + t) for t in [0, 1], at most 1.2 ulp from the true value; a NaN of a NaN.
//
// 1 + t = 2 (1 + (t - 1) / 2), so t from 1/2 on, where t - 1 is exact, is replaced by u = (t - 1) / 2, and ln
// 2 added. Then as in tavo_logf with s = u / (2 + u), |s| <= 1/5: ln(1 + u) = u - s (u - R), R = 2/3 s^2 +
// 2/5 s^4
// + ... to s^20; what that leaves out is below 2e-17 of the result.
template <typename D>
TAVO_HOST_DEVICE_INLINED D double_log1p_unit(D t) {
  const auto upper = t >= 0.5;
  const D u = choose(upper, (t - 1.0) * 0.5, t);
  const D s = u / (2.0 + u);
  const D z = s * s;
  D r = 2.0 / 21.0 * z + 2.0 / 19.0;
  r = r * z + 2.0 / 17.0;
  r = r * z + 2.0 / 15.0;
  r = r * z + 2.0 / 13.0;
  r = r * z + 2.0 / 11.0;
  r = r * z + 2.0 / 9.0;
  r = r * z + 2.0 / 7.0;
  r = r * z + 2.0 / 5.0;
  r = r * z + 2.0 / 3.0;
  const D correction = s * (u - r * z);
  return choose(upper, kLn2High + (u - (correction - kLn2Low)), u - correction);
}
TAVO_HOST_DEVICE double tavo_log1p_unit(double t) {
  return double_log1p_unit(t);
}

// log(1 + exp(x)) without overflow.
template <typename D>
TAVO_HOST_DEVICE_INLINED D double_softplus(D x) {
  const D size = choose(x < 0.0, -x, x);
  return choose(x > 0.0, x, D(0.0)) + double_log1p_unit(double_exp(-size));
}
TAVO_HOST_DEVICE double tavo_softplus(double x) {
  return double_softplus(x);
}
