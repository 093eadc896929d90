// SPDX-License-Identifier: Apache-2.0
//
// The normal equations of least squares for models of one SNP: what all SNPs share, summed once on the host,
// and what a SNP's two dummies add.
#pragma once

#include <stddef.h>

#include "lib/host_device.h"

constexpr int kNormalStride = 16;
constexpr int kNormalDummyColumns = 3;  // the intercept and two dummies; the covariates follow

// X'X and X'y of one design.
template <typename T>
struct NormalEquations {
  T products[kNormalStride * kNormalStride] = {};
  T responses[kNormalStride] = {};
};

// Sums over a SNP's dummies: for each of them the sums over its samples of 1, of every covariate, and of the
// response, which makes n_covariates + 2.
constexpr int dummy_sum_width(int n_covariates) {
  return n_covariates + 2;
}

// Fills in the two dummies; sum(d, s) is sum s of dummy d. The rest of *equations are the shared sums.
template <typename T, typename DummySum>
TAVO_HOST_DEVICE void put_dummy_sums(NormalEquations<T>* equations, int n_covariates, DummySum sum) {
  const auto put = [&](int j, int k, T value) {
    equations->products[j * kNormalStride + k] = equations->products[k * kNormalStride + j] = value;
  };
  for (int d = 0; d < 2; ++d) {
    put(0, 1 + d, sum(d, 0));
    put(1 + d, 1 + d, sum(d, 0));
    for (int c = 0; c < n_covariates; ++c) {
      put(1 + d, kNormalDummyColumns + c, sum(d, 1 + c));
    }
    equations->responses[1 + d] = sum(d, dummy_sum_width(n_covariates) - 1);
  }
}

// Leaves column j out of the products.
template <typename T>
TAVO_HOST_DEVICE void leave_out(NormalEquations<T>* equations, int columns, int j) {
  for (int k = 0; k < columns; ++k) {
    equations->products[j * kNormalStride + k] = equations->products[k * kNormalStride + j] = T(0);
  }
}

// The part of the normal equations that all SNPs share: intercept, covariates [n_samples][n_covariates] and
// responses. In single precision plain sums in file order; in double precision Wide is long double.
template <typename Wide, typename T>
NormalEquations<T> shared_sums(const T* responses, const T* covariates, size_t n_samples,
                               size_t n_covariates) {
  constexpr size_t kStride = kNormalStride;
  Wide products[kStride * kStride] = {};
  Wide sums_of_responses[kStride] = {};
  const size_t columns = kNormalDummyColumns + n_covariates;
  for (size_t i = 0; i < n_samples; ++i) {
    const T* z = covariates + i * n_covariates;
    const auto x = [&](size_t j) {
      return j == 0 ? T(1) : j < kNormalDummyColumns ? T(0) : z[j - kNormalDummyColumns];
    };
    for (size_t j = 0; j < columns; ++j) {
      for (size_t k = j; k < columns; ++k) {
        products[j * kStride + k] += x(j) * x(k);
      }
      sums_of_responses[j] += x(j) * responses[i];
    }
  }
  NormalEquations<T> sums;
  for (size_t j = 0; j < columns; ++j) {
    sums.responses[j] = static_cast<T>(sums_of_responses[j]);
    for (size_t k = j; k < columns; ++k) {
      sums.products[j * kStride + k] = sums.products[k * kStride + j] =
          static_cast<T>(products[j * kStride + k]);
    }
  }
  return sums;
}
