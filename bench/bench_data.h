// SPDX-License-Identifier: Apache-2.0
//
// Random data for the micro-benchmarks, and the set-ups of searches over it.
#pragma once

#include <cstdint>
#include <vector>

#include "device/commands.h"
#include "device/problem.h"

struct BenchOptions {
  int samples = 2000;
  int snps = 1000;
  double cases = 0.5;    // share of the samples
  double missing = 0.0;  // share of the genotypes
};

// Genotypes in Hardy-Weinberg proportions, minor allele frequencies from 0.05 to 0.5, classes and scores by
// chance, ten folds. The problem points into the object.
class BenchData {
 public:
  explicit BenchData(const BenchOptions& options);
  BenchData(const BenchData&) = delete;
  BenchData& operator=(const BenchData&) = delete;

  const Problem& problem() const { return problem_; }

  // The same with scores: score-based.
  Problem scored() const;

  // The same as a regression on the classes, with n_covariates covariates, at most kMaxModelCovariates.
  Problem fitted(int n_covariates) const;

  // Lists of ten combinations.
  WorkerSetupCommand search_setup(const ScoringRules& rules) const;

 private:
  std::vector<uint32_t> words_;
  std::vector<uint8_t> classes_;
  std::vector<float> scores_;
  std::vector<float> phenotypes_;
  std::vector<float> covariates_[8];  // of each number of them: [samples][number]
  std::vector<int> samples_;
  std::vector<std::vector<int>> training_;
  std::vector<std::vector<int>> testing_;
  std::vector<FoldView> folds_;
  Problem problem_;
};
