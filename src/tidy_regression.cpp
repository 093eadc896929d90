// SPDX-License-Identifier: Apache-2.0
#include "src/tidy_regression.h"

#include <cmath>

#include "lib/dcdflib.h"
#include "src/tidy_table.h"

namespace {

// The two-sided p-value of a coefficient: Wald's for a logistic model, Student's for a linear one.
double coefficient_p_value(double statistic, bool linear, double residual_df) {
  if (linear) {
    const double p = pT(statistic, residual_df);
    return p == kNoPValue ? std::nan("") : p;
  }
  return std::erfc(std::fabs(statistic) / std::sqrt(2.0));
}

// Whether a column has an estimate of its own. The standard error of an intercept or dummy in a logistic
// model is at least 2 / sqrt(samples), for a sample adds at most 1/4 to the information; single precision
// leaves less where it has cut the column's direction off.
bool has_estimate(double se, bool logistic_dummy, int n_samples) {
  return se > 0.0 && !(logistic_dummy && se < 1.9 / std::sqrt(n_samples));
}

}  // namespace

TidyRegression::TidyRegression(const RegressionRules& rules, int n_samples,
                               const std::vector<std::string>& names,
                               const std::vector<std::string>& covariate_names)
    : rules_(rules), n_samples_(n_samples), names_(names), covariate_names_(covariate_names) {}

bool TidyRegression::open(const std::string& path) {
  return writer_.SaveWhenComplete(path.c_str());
}

std::vector<std::string> TidyRegression::terms() const {
  std::vector<std::string> terms = {"het", "hom"};
  if (rules_.order() == 2) {
    terms = {"snp1_1",        "snp1_2",        "snp2_1",        "snp2_2",
             "snp1_1*snp2_1", "snp1_1*snp2_2", "snp1_2*snp2_1", "snp1_2*snp2_2"};
  }
  for (const std::string& name : covariate_names_) {
    terms.push_back("covariate_" + tidy_text(name));
  }
  return terms;
}

void TidyRegression::write_header() {
  TidyRow row;
  row.add("number");
  if (rules_.order() == 2) {
    for (const char* column : {"snp1", "snp2", "position1", "position2"}) {
      row.add(column);
    }
  } else {
    row.add("snp");
    row.add("position");
  }
  row.add("n");
  row.add("status");
  if (rules_.model == RegressionModel::kLinear) {
    row.add("rss");
    row.add("df_residual");
  } else {
    for (const char* column : {"converged", "iterations", "deviance", "null_deviance", "lr_statistic",
                               "df_reported", "p_reported", "df", "p"}) {
      row.add(column);
    }
  }
  std::vector<std::string> columns = terms();
  columns.insert(columns.begin(), "intercept");
  for (const std::string& column : columns) {
    for (const char* quantity : {"beta_", "se_", "statistic_", "p_"}) {
      row.add(quantity + column);
    }
  }
  writer_.WriteLine(row.line());
}

void TidyRegression::write_row(const FittedItem& item, const NullModel& null_model) {
  const ItemFit& fit = item.fit;
  const bool linear = rules_.model == RegressionModel::kLinear;
  const bool fitted = fit.state == FitState::kFitted;
  const double none = std::nan("");
  TidyRow row;
  row.add(std::to_string(++n_rows_));
  for (const int snp : item.snps) {
    row.add(tidy_text(names_[static_cast<size_t>(snp)]));
  }
  for (const int snp : item.snps) {
    row.add(snp + 1);
  }
  row.add(n_samples_);
  row.add(fitted ? "ok" : "failed");
  const auto n_covariates = static_cast<int>(covariate_names_.size());
  const auto columns = static_cast<size_t>(rules_.columns(n_covariates));
  const double residual_df = residual_degrees_of_freedom(fit, rules_, n_samples_, n_covariates);
  if (linear) {
    row.add(fitted ? fit.deviance : none);
    row.add(fitted ? residual_df : none);
  } else {
    row.add(fitted ? (fit.converged ? "true" : "false") : kTidyMissing);
    row.add(fitted ? std::to_string(fit.iterations) : kTidyMissing);
    row.add(fitted ? fit.deviance : none);
    row.add(null_model.deviance);
    const double statistic = null_model.deviance - fit.deviance;
    row.add(fitted ? statistic : none);
    const int reported_df = rules_.order();
    row.add(reported_df);
    row.add(fitted ? chi_square_upper_tail(statistic, reported_df) : none);
    const int df = fit.rank - null_model.rank;
    row.add(fitted ? std::to_string(df) : kTidyMissing);
    row.add(fitted && df > 0 ? chi_square_upper_tail(statistic, df) : none);
  }
  for (size_t j = 0; j < columns; ++j) {
    const double se = fit.standard_errors[j];
    const bool dummy = j + covariate_names_.size() < columns;
    const bool estimated = fitted && has_estimate(se, dummy && !linear, n_samples_);
    const double statistic = fit.coefficients[j] / se;
    row.add(estimated ? fit.coefficients[j] : none);
    row.add(estimated ? se : none);
    row.add(estimated ? statistic : none);
    row.add(estimated ? coefficient_p_value(statistic, linear, residual_df) : none);
  }
  writer_.WriteLine(row.line());
}
