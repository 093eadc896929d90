// SPDX-License-Identifier: Apache-2.0
//
// What the fits of every device share: probabilities and their logarithms, when a Newton iteration has
// converged, how sums of doubles are kept, and which products of dummies a model's columns are. Float fits
// have the bits of float_math.h, double ones those of double_math.h.
#pragma once

#include <stdint.h>

#include "lib/double_math.h"
#include "lib/float_math.h"

TAVO_HOST_DEVICE float fit_exp(float x) {
  return tavo_expf(x);
}
TAVO_HOST_DEVICE double fit_exp(double x) {
  return tavo_exp(x);
}

// 1 / (1 + exp(-eta)).
template <typename T>
TAVO_HOST_DEVICE T fit_probability(T eta) {
  return T(1) / (T(1) + fit_exp(-eta));
}

// -log of the probability, or of its complement. In double precision from the predictor, so that nothing is
// lost where the probability is all but 0 or 1.
TAVO_HOST_DEVICE float fit_minus_log(float eta, bool complement) {
  const float mu = fit_probability(eta);
  return -tavo_logf(complement ? 1.0f - mu : mu);
}
TAVO_HOST_DEVICE double fit_minus_log(double eta, bool complement) {
  return tavo_softplus(complement ? eta : -eta);
}

// A Newton iteration in double precision has converged when the absolute steps add up to less than this.
constexpr double kPreciseConvergence = 1e-10;

// Whether it has, from the sum of the absolute steps. Single-precision fits of one SNP compare with the
// double 1e-6, those of two with the float.
TAVO_HOST_DEVICE bool fit_converged(float total, int order) {
  return order == 2 ? total < 1e-6f : (double)total < 1e-6;
}
TAVO_HOST_DEVICE bool fit_converged(double total, int) {
  return total < kPreciseConvergence;
}

// Samples of a block: sums of doubles are plain within one, and compensated over the blocks. Sums of floats
// are plain.
constexpr int kFitBlockSamples = 128;

// Adds the sum of a block to *total, and what the addition lost, whichever of the two is larger, to *lost
// (Knuth). T is a number or a vector of them.
template <typename T>
TAVO_HOST_DEVICE void add_compensated(T block, T* total, T* lost) {
  const T sum = *total + block;
  const T part = sum - *total;
  *lost += (*total - (sum - part)) + (block - part);
  *total = sum;
}

// The genotype columns of a model, the intercept first, and all products of its dummies: those of the
// columns, then, of pairs, those that meet in the information matrix only where a SNP has both its dummies.
constexpr int genotype_columns(int order) {
  return order == 2 ? 9 : 3;
}
constexpr int dummy_products(int order) {
  return order == 2 ? 16 : 3;
}

// A product as the dummies that it is of, one bit per dummy. 0, the intercept, is the product of none.
template <int Order>
TAVO_HOST_DEVICE constexpr unsigned product_dummies(int product) {
  // A digit per product.
  constexpr uint64_t kDigits = Order == 2 ? 0xfedcb73a69584210ull : 0x210ull;
  return (unsigned)(kDigits >> (4 * product)) & 15u;
}
