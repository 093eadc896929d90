// SPDX-License-Identifier: Apache-2.0
//
// A linear fit of one SNP as one GPU thread runs it, with the steps and bits of the CPU's
// (cpu/linear_fits.cpp): normal equations in double precision on standardised covariates, residuals and
// covariance in the run's.
#pragma once

#include "cuda/fit_body.h"
#include "lib/covariate_scale.h"
#include "lib/information_inverse.h"
#include "lib/normal_equations.h"

// One launch, one thread per SNP. Arrays are the device's.
template <typename T>
struct LinearArguments {
  uint32_t active;
  const int* items;                               // [active] SNP indices
  FitSamples<T> samples;                          // of the run's precision
  FitSamples<double> precise_samples;             // the same where T is double
  const NormalEquations<T>* shared;               // one: what all SNPs share
  const NormalEquations<double>* precise_shared;  // one; the same where T is double
  CovariateScale scale;
  ItemFit* stat;  // [active], out
};

static_assert(kNormalStride == kFitStride);

// Fills in the sums over the item's dummies.
template <typename T>
TAVO_HOST_DEVICE void add_dummies(const FitSamples<T>& in, const int* item, NormalEquations<T>* equations) {
  constexpr int kMost = kMaxModelCovariates;
  constexpr int kWidth = dummy_sum_width(kMost);
  const int n = in.n_covariates;
  ItemSums<T, 2 * kWidth> sums;  // of the covariates that there are, then at the end the response
  for_item_samples<T, 1>(in, item, sums, [&](unsigned code, const T* z, T y) {
    TAVO_UNROLL
    for (int d = 0; d < 2; ++d) {
      if (code_has<1>(code, 1 + d)) {
        T* row = sums.block + d * kWidth;
        row[0] += T(1);
        TAVO_UNROLL
        for (int c = 0; c < kMost; ++c) {
          if (c < n) {
            row[1 + c] += z[c];
          }
        }
        row[kWidth - 1] += y;
      }
    }
  });
  put_dummy_sums(equations, n, [&](int d, int s) {
    return sums.value(d * kWidth + (s == dummy_sum_width(n) - 1 ? kWidth - 1 : s));
  });
}

template <typename T>
TAVO_HOST_DEVICE T sum_residual_squares(const FitSamples<T>& in, const int* item, const T* coefficients) {
  const ItemPredictor<T, 1, kMaxModelCovariates> predictor(coefficients, in.n_covariates);
  ItemSums<T, 1> sums;
  for_item_samples<T, 1>(in, item, sums, [&](unsigned code, const T* z, T y) {
    const T residual = predictor.eta(code, z, in.n_covariates) - y;
    sums.block[0] += residual * residual;
  });
  return sums.value(0);
}

template <typename T>
TAVO_HOST_DEVICE void fit_linear(const LinearArguments<T>& arguments, uint64_t t) {
  if (t >= arguments.active) {
    return;
  }
  constexpr bool kPrecise = sizeof(T) == 8;
  const int* item = arguments.items + t;
  const int columns = genotype_columns(1) + arguments.samples.n_covariates;
  ItemFit fit;
  // On standardised covariates; the covariance but for the residual variance.
  double solution[kFitStride] = {};
  double covariance[kFitStride * kFitStride] = {};
  {
    NormalEquations<double> equations = *arguments.precise_shared;
    add_dummies(arguments.precise_samples, item, &equations);
    if (information_inverse<kFitStride>(equations.products, columns, covariance, &fit.rank)) {
      for (int j = 0; j < columns; ++j) {
        for (int k = 0; k < columns; ++k) {
          solution[j] += covariance[j * kFitStride + k] * equations.responses[k];
        }
      }
    } else {
      fit.state = FitState::kFailed;
    }
  }
  T coefficients[kFitStride] = {};  // that residuals are computed from
  for (int j = 0; j < columns; ++j) {
    fit.coefficients[j] = solution[j];
  }
  to_original_scale(arguments.scale, columns, covariance, kFitStride, fit.coefficients, fit.standard_errors);
  for (int j = 0; j < columns; ++j) {
    if constexpr (kPrecise) {
      coefficients[j] = solution[j];
    } else {
      coefficients[j] = (T)fit.coefficients[j];
      fit.coefficients[j] = (double)coefficients[j];
    }
  }
  const T squares = sum_residual_squares(arguments.samples, item, coefficients);
  fit.deviance = (double)squares;
  // Single precision takes off the columns, whether they depend on others or not.
  const double parameters = kPrecise ? fit.rank : columns;
  const T variance = squares / (T)((double)arguments.samples.n_samples - parameters);
  if constexpr (kPrecise) {
    for (int j = 0; j < columns; ++j) {
      fit.standard_errors[j] *= svd_detail::root_of(variance);
    }
  } else {
    NormalEquations<float> equations = *arguments.shared;
    add_dummies(arguments.samples, item, &equations);
    // What the solution leaves out has no error, and no part in those of the others.
    const auto left_out = [&](int j) { return covariance[j * kFitStride + j] == 0.0; };
    for (int j = 0; j < columns; ++j) {
      if (left_out(j)) {
        leave_out(&equations, columns, j);
      }
    }
    float inverse[kFitStride * kFitStride] = {};
    int rank = 0;
    information_inverse<kFitStride>(equations.products, columns, inverse, &rank);
    for (int j = 0; j < columns; ++j) {
      fit.standard_errors[j] =
          left_out(j) ? 0.0 : (double)svd_detail::root_of(inverse[j * kFitStride + j] * variance);
    }
  }
  arguments.stat[t] = fit;
}
