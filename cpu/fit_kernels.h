// SPDX-License-Identifier: Apache-2.0
//
// The passes over the samples that regressions are made of, one set of functions per instruction set. Plain
// pointers only: the files behind them are compiled for wider processors than the rest.
//
// Lanes are items: the SNP, or pair of SNPs, of a model. Every sum runs over the samples in file order within
// its own lane, so an item's result does not depend on its neighbours or on the number of lanes. Design
// columns: intercept, genotype columns, covariates. A genotype column is 0 or 1, and a 0 adds nothing.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr size_t kMaxFitLanes = 16;

template <typename T>
struct FitInput {
  size_t n_samples;
  size_t n_covariates;  // at most kMaxModelCovariates
  size_t order;    // SNPs of an item: 1 (columns d0, d1) or 2 (d0 .. d3, then d0*d2, d0*d3, d1*d2, d1*d3)
  bool exclusive;  // at most one of a SNP's two dummies is 1, in every sample and lane
  bool binary;     // every response is 0 or 1
  const uint16_t* dummies;  // [n_samples][2 * order]: the lanes whose dummy is 1, lane l in bit l
  const T* responses;       // [n_samples]
  const T* covariates;      // [n_samples][n_covariates]
  // The products of two covariates, 0 0, 0 1, 1 1, 0 2, ...; for passes that gather information.
  const T* covariate_products;  // [n_samples][n_covariates * (n_covariates + 1) / 2]
};

// One pass of a logistic fit. coefficients: [columns][lanes]. Writes the probabilities mu[n_samples][lanes]
// (not when the model has one SNP and no covariates, where they can be had from the coefficients), the
// information matrix [columns][columns][lanes] with entries sum x_j x_k mu (1 - mu), and the gradient sum x_j
// (y - mu) [columns][lanes] where T is double.
//
// In single precision the sums are plain and each term is ((x_j x_k) mu) (1 - mu). In double precision they
// run in blocks whose sums are added with compensation.
template <typename T>
using InformationPass = void (*)(const FitInput<T>& input, const T* coefficients, T* mu, T* information,
                                 T* gradient);

// The inverses of symmetric matrices, [columns][columns][lanes] each, by elimination, and for each lane the
// measure of its condition (sweep_inverse.h): a lane whose measure is not below the limit has no good
// inverse.
template <typename T>
using InversePass = void (*)(const T* matrices, size_t columns, T* inverses, T* measures);

// The Newton step of single-precision fits: sum over the samples of (sum_k inverse_jk x_k) (y - mu),
// [columns] [lanes]; inverse: [columns][columns][lanes].
using StepPass = void (*)(const FitInput<float>& input, const float* coefficients, const float* mu,
                          const float* inverse, float* step);

// The deviance [lanes] of a logistic fit: sum of -2 log mu over y != 0, and -2 log(1 - mu) over y != 1.
template <typename T>
using DeviancePass = void (*)(const FitInput<T>& input, const T* coefficients, T* deviance);

// What least squares needs of the two dummies of one SNP: for each of them the sums over its samples of 1, of
// every covariate, and of the response: [2][n_covariates + 2][lanes].
template <typename T>
using DummySumsPass = void (*)(const FitInput<T>& input, T* sums);

// Sum of the squared residuals (fitted - response), [lanes], of models of one SNP.
template <typename T>
using ResidualPass = void (*)(const FitInput<T>& input, const T* coefficients, T* squares);

template <typename T>
struct FitKernels {
  size_t lanes;  // at most kMaxFitLanes
  InformationPass<T> information;
  InversePass<T> invert;
  StepPass step;  // null where T is double
  DeviancePass<T> deviance;
  DummySumsPass<T> dummy_sums;
  ResidualPass<T> residual_squares;
};

const FitKernels<float>& fit_kernels_portable_float();
const FitKernels<double>& fit_kernels_portable_double();
const FitKernels<float>& fit_kernels_avx2_float();
const FitKernels<double>& fit_kernels_avx2_double();
const FitKernels<float>& fit_kernels_avx512_float();
const FitKernels<double>& fit_kernels_avx512_double();
