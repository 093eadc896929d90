// SPDX-License-Identifier: Apache-2.0
//
// What regression fits of the CUDA backend are held against: those of the CPU, on bits.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "device/problem.h"
#include "tests/support/regression_data.h"

namespace tavo_test {

// Fits items [count][order].
using FitFunction = std::function<std::vector<ItemFit>(const Problem&, const RegressionRules&,
                                                       const std::vector<int>& items)>;

RegressionRules regression_rules(RegressionModel model, Precision precision, int iterations = 20);

// All SNPs, or all pairs.
std::vector<int> all_items(int n_snps, int order);

// The CPU's fits.
std::vector<ItemFit> cpu_fits(const Problem& problem, const RegressionRules& rules,
                              const std::vector<int>& items);

// Every field on bits; of a fit that failed the state alone.
void expect_same_fit(const ItemFit& expected, const ItemFit& found, int columns);

// A random problem in which SNP 2 has one genotype only, SNP 3 separates the classes (unless quantitative)
// and the dummies of SNP 4 add up to 1.
void make_hard(std::mt19937& random, int n_samples, int n_snps, int n_covariates, double missing,
               bool quantitative, RegressionData* data);

// Holds fits of the model against the CPU's: every number of covariates, few and many samples with and
// without missing genotypes, block borders of the sums, iteration limits of 0, 3 and 20.
void sweep_fits(RegressionModel model, Precision precision, const FitFunction& fit);

}  // namespace tavo_test
