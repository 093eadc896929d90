// SPDX-License-Identifier: Apache-2.0
//
// Problems for regression fits: random ones, and the one that R's values were recorded for.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "device/problem.h"

namespace tavo_test {

// A problem with its data. Not copied or moved: the problem points into it.
struct RegressionData {
  RegressionData() = default;
  RegressionData(const RegressionData&) = delete;
  RegressionData& operator=(const RegressionData&) = delete;

  std::vector<std::vector<int>> genotypes;  // [samples][SNPs]
  std::vector<uint32_t> words;
  std::vector<float> phenotypes;
  std::vector<float> covariates;
  Problem problem;

  // Fills words and problem from the rest.
  void finish(int n_covariates);
};

// Genotypes with the given share of missing ones, and phenotypes (0 and 1, or quantitative) that depend on
// SNP 0 and on covariate 0.
void make_random(std::mt19937& random, int n_samples, int n_snps, int n_covariates, double missing,
                 bool quantitative, RegressionData* data);

// The genotype file: classes as integers, or quantitative phenotypes as floats. Names are rs0, rs1, ...
std::string regression_file(const RegressionData& data, bool quantitative);

// The covariate file, names cov0, cov1, ... missing: samples whose line has an NA.
std::string covariate_text(const RegressionData& data, const std::vector<bool>& missing);

// The samples without a missing covariate, as *kept.
void keep_complete(const RegressionData& data, const std::vector<bool>& missing, RegressionData* kept);

// tests/data/regression/samples.tsv with its first n_covariates covariates; phenotype "case" or "trait".
void load_recorded(const std::string& phenotype, int n_covariates, RegressionData* data);

// The lines of a tab-separated file below tests/data/regression, split, the header first.
std::vector<std::vector<std::string>> recorded_table(const std::string& file);

}  // namespace tavo_test
