// SPDX-License-Identifier: Apache-2.0
//
// A logistic fit as one GPU thread runs it: Newton's method on the binomial log-likelihood from coefficients
// of 0, with the steps, tests and bits of the CPU's (cpu/logistic_fits.cpp).
#pragma once

#include "cuda/fit_body.h"
#include "lib/covariate_scale.h"
#include "lib/information_inverse.h"

// One launch, one thread per item. Arrays are the device's.
template <typename T>
struct LogisticArguments {
  uint32_t active;
  const int* items;  // [active][order] SNP indices
  FitSamples<T> samples;
  int iterations;        // limit
  CovariateScale scale;  // where T is double
  ItemFit* stat;         // [active], out
};

// The estimates of a fit.
template <typename T>
TAVO_HOST_DEVICE void put_estimates(const LogisticArguments<T>& arguments, int columns, const T* coefficients,
                                    const T* covariance, ItemFit* fit) {
  for (int j = 0; j < columns; ++j) {
    fit->coefficients[j] = (double)coefficients[j];
    fit->standard_errors[j] = (double)svd_detail::root_of(covariance[j * kFitStride + j]);
  }
  if constexpr (sizeof(T) == 8) {
    to_original_scale(arguments.scale, columns, covariance, kFitStride, fit->coefficients,
                      fit->standard_errors);
  }
}

template <typename T, int Order, int Most>
TAVO_HOST_DEVICE void fit_logistic(const LogisticArguments<T>& arguments, uint64_t t) {
  if (t >= arguments.active) {
    return;
  }
  const FitSamples<T>& samples = arguments.samples;
  const int* item = arguments.items + t * Order;
  const int columns = genotype_columns(Order) + samples.n_covariates;
  T coefficients[kFitStride] = {};
  T covariance[kFitStride * kFitStride] = {};
  T last_step = T(0);
  ItemFit fit;
  const bool no_pass = arguments.iterations <= 0;  // the covariance is that at coefficients of 0
  do {
    T information[kFitStride * kFitStride];
    T step[kFitStride] = {};
    T gradient[kFitStride] = {};
    sum_information<T, Order, Most>(samples, item, coefficients, information, gradient);
    int rank = 0;
    if (!information_inverse<kFitStride>(information, columns, covariance, &rank)) {
      fit.state = no_pass ? FitState::kUnwritten : FitState::kFailed;
      break;
    }
    if (fit.iterations == 0) {
      fit.rank = rank;
    }
    if (no_pass) {
      break;
    }
    if constexpr (sizeof(T) == 4) {
      sum_step<Order, Most>(samples, item, coefficients, covariance, step);
    } else {
      for (int j = 0; j < columns; ++j) {
        for (int k = 0; k < columns; ++k) {
          step[j] += covariance[j * kFitStride + k] * gradient[k];
        }
      }
    }
    T total = T(0);
    for (int j = 0; j < columns; ++j) {
      total += svd_detail::magnitude(step[j]);
      coefficients[j] += step[j];
    }
    ++fit.iterations;
    last_step = total;
    fit.converged = fit_converged(total, Order);
  } while (!fit.converged && fit.iterations < arguments.iterations);
  fit.last_step = (double)last_step;
  fit.deviance = (double)sum_deviance<T, Order, Most>(samples, item, coefficients);
  put_estimates(arguments, columns, coefficients, covariance, &fit);
  arguments.stat[t] = fit;
}
