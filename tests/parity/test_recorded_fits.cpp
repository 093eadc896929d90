// SPDX-License-Identifier: Apache-2.0
//
// Regression fits of the CPU backend against those of R's glm and lm.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>

#include "lib/precise_fit.h"
#include "lib/standardized.h"
#include "tests/parity/cpu_fits.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/regression_data.h"
#include "tests/support/required.h"
#include "tests/support/run_program.h"

namespace tavo_test {
namespace {

// One recorded fit of R.
struct RecordedFit {
  RegressionModel model;
  std::vector<int> snps;
  int n_covariates;
  double deviance;
  int rank;
  std::vector<double> coefficients;  // NaN where R has no estimate
  std::vector<double> standard_errors;
};

double number_of(const std::string& text) {
  return text == "NA" ? std::nan("") : std::stod(text);
}

std::vector<RecordedFit> recorded_fits(const std::string& wanted) {
  std::vector<RecordedFit> fits;
  const std::vector<std::vector<std::string>> table = recorded_table("fits.tsv");
  for (size_t r = 1; r < table.size(); ++r) {
    const std::vector<std::string>& row = table[r];
    if (row[0] != wanted) {
      continue;
    }
    RecordedFit& fit = fits.emplace_back();
    fit.model = wanted == "linear" ? RegressionModel::kLinear
                : wanted == "pair" ? RegressionModel::kOrderedLogistic
                                   : RegressionModel::kLogistic;
    for (const size_t field : {1, 2}) {
      if (row[field] != "0") {
        fit.snps.push_back(std::stoi(row[field]) - 1);
      }
    }
    fit.n_covariates = std::stoi(row[3]);
    fit.deviance = std::stod(row[4]);
    fit.rank = std::stoi(row[5]);
    for (size_t field = 6; field + 1 < row.size(); field += 2) {
      fit.coefficients.push_back(number_of(row[field]));
      fit.standard_errors.push_back(number_of(row[field + 1]));
    }
  }
  return fits;
}

void compare_with_r(const RecordedFit& recorded, Precision precision, double deviance_tolerance,
                    double coefficient_tolerance) {
  RegressionData data;
  load_recorded(recorded.model == RegressionModel::kLinear ? "trait" : "case", recorded.n_covariates, &data);
  const RegressionRules rules = rules_of(recorded.model, precision);
  const ItemFit fit = fit_all(data.problem, rules, recorded.snps, sets_here().back()).at(0);
  ASSERT_EQ(fit.state, FitState::kFitted);
  EXPECT_EQ(fit.rank, recorded.rank);
  if (precision == Precision::kDouble && recorded.model != RegressionModel::kLinear) {
    EXPECT_TRUE(fit.converged);
  }
  EXPECT_NEAR(fit.deviance, recorded.deviance, deviance_tolerance * recorded.deviance);
  for (size_t j = 0; j < recorded.coefficients.size(); ++j) {
    if (std::isnan(recorded.coefficients[j])) {
      EXPECT_EQ(fit.standard_errors[j], 0.0);  // no estimate
      continue;
    }
    // Of coefficients of size 1: those of intercepts far away are as much larger as their standard errors.
    const double scale = std::max(1.0, recorded.standard_errors[j]);
    EXPECT_NEAR(fit.coefficients[j], recorded.coefficients[j], coefficient_tolerance * scale) << j;
    EXPECT_NEAR(fit.standard_errors[j], recorded.standard_errors[j], coefficient_tolerance * scale) << j;
  }
}

TEST(DoublePrecisionFits, EqualGlmAndLmOfR) {
  for (const char* model : {"logistic", "linear", "pair"}) {
    const std::vector<RecordedFit> fits = recorded_fits(model);
    ASSERT_GE(fits.size(), 10u);
    for (const RecordedFit& recorded : fits) {
      SCOPED_TRACE(std::string(model) + " of SNP " + std::to_string(recorded.snps[0] + 1) + ", " +
                   std::to_string(recorded.n_covariates) + " covariates");
      compare_with_r(recorded, Precision::kDouble, 1e-11, 1e-8);
    }
  }
}

// With n samples and the rounding error u of single precision: a sum of n terms is off by n u of the sum of
// their absolute values at most, which makes n u of a deviance; and a Newton step, a sum of terms whose
// squares add up to about the squared standard error, by n u sqrt(n) of that standard error.
TEST(SinglePrecisionFits, EqualGlmAndLmOfRAsFarAsRoundingLets) {
  constexpr double kRounding = 6e-8;
  constexpr double kSamples = 400.0;
  for (const char* model : {"logistic", "linear", "pair"}) {
    for (const RecordedFit& recorded : recorded_fits(model)) {
      if (recorded.n_covariates == 0) {  // the second covariate, a year, is beyond single precision
        SCOPED_TRACE(std::string(model) + " of SNP " + std::to_string(recorded.snps[0] + 1));
        compare_with_r(recorded, Precision::kSingle, kSamples * kRounding,
                       kSamples * kRounding * std::sqrt(kSamples));
      }
    }
  }
}

// The recorded values are those of R, which computes them again.
TEST(RecordedFits, AreWhatRPrints) {
  const std::filesystem::path rscript = "/usr/bin/Rscript";
  TAVO_NEEDS(std::filesystem::exists(rscript), "Rscript");
  const std::filesystem::path root = source_root();
  const RunResult run = run_program(rscript,
                                    {(root / "tests/reference/regression.R").string(), "fits",
                                     (root / "tests/data/regression/samples.tsv").string()},
                                    root);
  ASSERT_EQ(run.status, 0) << run.err;
  const std::vector<std::string> lines = split_lines(run.out);
  const std::vector<std::vector<std::string>> recorded = recorded_table("fits.tsv");
  ASSERT_EQ(lines.size(), recorded.size());
  for (size_t r = 1; r < lines.size(); ++r) {
    std::istringstream text(lines[r]);
    size_t c = 0;
    for (std::string field; std::getline(text, field, '\t'); ++c) {
      const std::string& expected = recorded[r].at(c);
      if (field != expected) {
        EXPECT_NEAR(std::stod(field), std::stod(expected),
                    1e-8 * std::max(1.0, std::fabs(std::stod(expected))));
      }
    }
    EXPECT_EQ(c, recorded[r].size());
  }
}

TEST(DoublePrecisionNullModel, EqualsGlmOfR) {
  for (const std::vector<std::string>& row : recorded_table("fits.tsv")) {
    if (row[0] != "null") {
      continue;
    }
    const int n_covariates = std::stoi(row[3]);
    RegressionData data;
    load_recorded("case", n_covariates, &data);
    const StandardizedCovariates covariates(data.problem.covariates, data.problem.n_samples, n_covariates);
    PreciseNull fit;
    ASSERT_TRUE(fit_precise_null(covariates, n_covariates, data.problem.phenotypes, data.problem.n_samples,
                                 20, &fit));
    EXPECT_TRUE(fit.converged);
    EXPECT_EQ(fit.rank, std::stoi(row[5]));
    EXPECT_NEAR(fit.deviance, std::stod(row[4]), 1e-9);
  }
}

}  // namespace
}  // namespace tavo_test
