// SPDX-License-Identifier: Apache-2.0
//
// Double-precision functions that must give the same bits in every vector width and on the GPU: only + - * /
// in a fixed order, and choices between two values at hand, so that loops over them go into vector lanes.
// Compile without fused multiply-add.
#pragma once

#include <stdint.h>

#include "lib/host_device.h"

// Exponential of -745 <= x <= 709, at most 2 ulp from the true value where that is a normal number
// (tests/unit/test_double_math.cpp measures it); of other numbers that of the nearest bound; of a NaN a NaN.
//
// x = n ln 2 + r with |r| <= ln 2 / 2 (and a rounding); the series of exp r ends with r^13 / 13!, the first
// term left out is below 5e-18.
TAVO_HOST_DEVICE double tavo_exp(double x) {
  const double lowest = -745.0;
  const double highest = 709.0;
  const double above = x < lowest ? lowest : x;
  const double bounded = above > highest ? highest : above;
  // 1.5 * 2^52 leaves no bits for a fraction: the sum rounds to the nearest integer, and holds it in its last
  // bits.
  const double magic = 6755399441055744.0;
  const double shifted = bounded * 1.4426950408889634 + magic;
  const double whole = shifted - magic;
  // ln 2 in two parts: the first has few enough bits that its product is exact.
  const double r = (bounded - whole * 0.693147180369123816490) - whole * 1.90821492927058770002e-10;
  double sum = 1.0 / 6227020800.0;
  sum = sum * r + 1.0 / 479001600.0;
  sum = sum * r + 1.0 / 39916800.0;
  sum = sum * r + 1.0 / 3628800.0;
  sum = sum * r + 1.0 / 362880.0;
  sum = sum * r + 1.0 / 40320.0;
  sum = sum * r + 1.0 / 5040.0;
  sum = sum * r + 1.0 / 720.0;
  sum = sum * r + 1.0 / 120.0;
  sum = sum * r + 1.0 / 24.0;
  sum = sum * r + 1.0 / 6.0;
  sum = sum * r + 0.5;
  const double m = 1.0 + (r + r * r * sum);
  // 2^n in two factors, each a normal number, from the last bits of shifted.
  const int64_t n = __builtin_bit_cast(int64_t, shifted) - __builtin_bit_cast(int64_t, magic);
  const int64_t bias =
      2046;  // twice that of a double's exponent, so that the shift below is of a positive number
  const int64_t first = (int64_t)((uint64_t)(n + bias) >> 1);
  const int64_t second = n + bias - first;
  return m * __builtin_bit_cast(double, (uint64_t)first << 52) *
         __builtin_bit_cast(double, (uint64_t)second << 52);
}

// log(1 + u) for 0 <= u <= 1, at most 3 ulp from the true value: 2 atanh s with s = u / (2 + u) <= 1/3; the
// first term left out of the series is below 4e-18 of the sum.
TAVO_HOST_DEVICE double tavo_log1p_of_unit(double u) {
  const double s = u / (2.0 + u);
  const double z = s * s;
  double sum = 1.0 / 35.0;
  sum = sum * z + 1.0 / 33.0;
  sum = sum * z + 1.0 / 31.0;
  sum = sum * z + 1.0 / 29.0;
  sum = sum * z + 1.0 / 27.0;
  sum = sum * z + 1.0 / 25.0;
  sum = sum * z + 1.0 / 23.0;
  sum = sum * z + 1.0 / 21.0;
  sum = sum * z + 1.0 / 19.0;
  sum = sum * z + 1.0 / 17.0;
  sum = sum * z + 1.0 / 15.0;
  sum = sum * z + 1.0 / 13.0;
  sum = sum * z + 1.0 / 11.0;
  sum = sum * z + 1.0 / 9.0;
  sum = sum * z + 1.0 / 7.0;
  sum = sum * z + 1.0 / 5.0;
  sum = sum * z + 1.0 / 3.0;
  return 2.0 * (s + s * z * sum);
}

// log(1 + exp(x)), without overflow, for |x| up to 709.
TAVO_HOST_DEVICE double tavo_softplus(double x) {
  const double magnitude = x < 0.0 ? -x : x;
  const double positive = x > 0.0 ? x : 0.0;
  return positive + tavo_log1p_of_unit(tavo_exp(-magnitude));
}
