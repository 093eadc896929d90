// SPDX-License-Identifier: Apache-2.0
//
// What every device computes on: read-only views of the loaded data, made once on the main thread, which owns
// the arrays and keeps them until the workers have ended. Everything random or order-dependent (classes,
// folds, thresholds) is decided there; devices never draw a random number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct Problem {
  // Packed genotypes (lib/packed_genotypes.h). Normal layout: [n_samples][words_per_row]. Transposed layout:
  // [n_snps][words_per_row]; cross-validated runs do not count it, every table stays zero.
  const uint32_t* words = nullptr;
  int64_t words_per_row = 0;
  bool transposed = false;
  int n_samples = 0;
  int n_snps = 0;
  const uint8_t* classes = nullptr;  // [n_samples], 1 case, 0 control; null in regressions
  const float* scores = nullptr;     // [n_samples] of a score-based run, else null

  // Regressions only. covariates: [n_samples][n_covariates].
  const float* phenotypes = nullptr;  // [n_samples]: 0 and 1, or quantitative
  const float* covariates = nullptr;
  int n_covariates = 0;
  bool ordered_regression = false;  // pairs of SNPs

  const uint32_t* row(size_t index) const { return words + index * static_cast<size_t>(words_per_row); }
};

// One fold of a cross-validation: sample numbers of both sets in the order of the run's sample list, and the
// threshold that holds for every combination unless each has its own (kMissingAvailable).
struct FoldView {
  std::span<const int> training;
  std::span<const int> testing;
  float threshold = 0.0f;
};

// How combinations of one order are scored; the same for all folds.
struct ScoringRules {
  int order = 2;
  int missing = 4;  // internal code of lib/mdr.h
  int tie = 1;      // internal code of lib/mdr.h
  int measure = 0;  // the ranking measure, 0 to 9 (lib/cv_measures.h)

  bool own_thresholds() const;  // each combination is judged by its own samples (kMissingAvailable)
  int base() const;             // of the cell number: 3, or 4 where missing is a level
  int64_t cells() const;        // base^order
  // Cells that a count table of this order holds, counted from 0: orders 2 and 3 have tables of 9 and 27
  // cells under either base, and counts beyond them are dropped.
  int64_t counted_cells() const;
};

// The models of a regression. Design columns: intercept, genotype dummies (and their products), covariates.
enum class RegressionModel {
  kLogistic,         // one SNP: intercept, 2 dummies, covariates
  kLinear,           // the same columns, least squares
  kOrderedLogistic,  // two SNPs: intercept, 2 + 2 dummies, their 4 products, covariates
};

enum class Precision { kSingle, kDouble };

struct RegressionRules {
  RegressionModel model = RegressionModel::kLogistic;
  Precision precision = Precision::kSingle;
  int iterations = 20;    // limit of a logistic fit
  bool distinct = false;  // two SNPs: all processors of a device on one pair after the other

  int order() const { return model == RegressionModel::kOrderedLogistic ? 2 : 1; }
  int columns(int n_covariates) const { return n_covariates + (order() == 2 ? 9 : 3); }
};

// Covariates that a model can have: 10 or 16 columns at most.
inline constexpr int kMaxModelCovariates = 7;

// Columns of the largest model.
inline constexpr int kMaxModelColumns = 16;

enum class FitState {
  kFitted,
  kFailed,     // a decomposition gave up in a pass
  kUnwritten,  // one gave up after the last pass: there are no results
};

// What a device returns of one fitted item. A fit in single precision holds floats, widened.
struct ItemFit {
  FitState state = FitState::kFitted;  // nothing below holds otherwise
  bool converged = false;              // logistic
  int iterations = 0;
  int rank = 0;            // columns less those that depend on others (logistic: at coefficients of 0)
  double last_step = 0.0;  // sum of the absolute Newton steps of the last pass
  double deviance = 0.0;   // logistic: -2 log likelihood; linear: residual sum of squares
  double coefficients[kMaxModelColumns] = {};
  double standard_errors[kMaxModelColumns] = {};
};
