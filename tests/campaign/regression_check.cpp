// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/regression_check.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tests/campaign/search_check.h"
#include "tests/reference/naive_regression.h"
#include "tests/reference/naive_regression_report.h"
#include "tests/reference/naive_run.h"
#include "tests/reference/precise_regression.h"
#include "tests/support/tsv_table.h"

namespace tavo_test {

namespace fs = std::filesystem;

namespace {

bool is_linear(const RegressionCase& drawn) {
  return drawn.rules.model == RegressionModel::kLinear;
}

bool is_single(const RegressionCase& drawn) {
  return drawn.rules.precision == Precision::kSingle;
}

size_t count_items(const RegressionCase& drawn) {
  const auto n = static_cast<size_t>(drawn.data->problem.n_snps);
  return drawn.rules.order() == 2 ? n * (n - 1) / 2 : n;
}

std::vector<std::string> expected_head(const RegressionCase& drawn, const Setting& setting) {
  const bool linear = is_linear(drawn);
  std::vector<std::string> options = {
      "1.input_file,in.tavo",
      "2.result_file,out.csv",
      linear                         ? "3.score_file,-"
      : drawn.covariate_text.empty() ? "3.covariate_file,-"
                                     : "3.covariate_file,covariates.txt",
      std::string("4.regression_method,") + (linear ? "Linear" : "Logistic"),
      "5.gpu_count," + std::to_string(setting.workers),
      "6.thread_count," + std::to_string(setting.threads),
      "7.block_count," + std::to_string(setting.blocks),
  };
  if (!linear) {
    options.push_back("8.top_report," + std::to_string(drawn.top));
  }
  std::vector<std::string> lines = naive::report_head(options);
  if (linear) {
    lines.insert(lines.end(), {"<<Regression result>>", "num,SNP,col,or,beta,p"});
  } else {
    lines.push_back("<<" + std::to_string(drawn.order_position) + "-Order Best Combination Sets>>");
    lines.push_back(std::string("num,SNP,coverged,iter,model_dev,null_dev,p,snp1_1,snp1_2") +
                    (drawn.rules.order() == 2
                         ? ",snp2_1,snp2_2,snp1_1*snp2_1,snp1_1*snp2_2,snp1_2*snp2_1,snp1_2*snp2_2"
                         : ""));
  }
  return lines;
}

DesignMatrix design_of(const RegressionData& data, const std::vector<int>& snps, bool with_snps) {
  DesignMatrix columns;
  const auto add = [&](const auto& value) {
    std::vector<Extended>& column = columns.emplace_back();
    for (size_t i = 0; i < data.genotypes.size(); ++i) {
      column.push_back(value(i));
    }
  };
  const auto genotype = [&](size_t i, size_t which) {
    return data.genotypes[i][static_cast<size_t>(snps[which])];
  };
  add([](size_t) { return Extended(1); });
  if (with_snps && snps.size() == 1) {
    for (const int copies : {1, 2}) {
      add([&](size_t i) { return Extended(genotype(i, 0) == copies ? 1 : 0); });
    }
  } else if (with_snps) {
    for (const size_t which : {size_t{0}, size_t{1}}) {
      for (const int bit : {1, 2}) {
        add([&](size_t i) { return Extended((genotype(i, which) & bit) != 0 ? 1 : 0); });
      }
    }
    for (const int first : {1, 2}) {
      for (const int second : {1, 2}) {
        add([&](size_t i) {
          return Extended((genotype(i, 0) & first) != 0 && (genotype(i, 1) & second) != 0 ? 1 : 0);
        });
      }
    }
  }
  const auto n_covariates = static_cast<size_t>(data.problem.n_covariates);
  for (size_t c = 0; c < n_covariates; ++c) {
    add([&](size_t i) { return Extended(data.covariates[i * n_covariates + c]); });
  }
  return columns;
}

bool near(Extended expected, const std::string& text, Extended tolerance) {
  return std::fabs(expected - std::strtold(text.c_str(), nullptr)) <= tolerance;
}

// One row of the tidy table.
class RowChecker {
 public:
  RowChecker(const RegressionCase& drawn, const TsvTable& table, const TsvRow& row)
      : drawn_(drawn), data_(*drawn.data), row_(row) {
    for (const std::string& column : table.columns) {
      if (column.starts_with("beta_")) {
        terms_.push_back(column.substr(5));
      }
    }
    for (const char* name : {"position", "position1", "position2"}) {
      if (const auto cell = row.find(name); cell != row.end()) {
        snps_.push_back(std::atoi(cell->second.c_str()) - 1);
      }
    }
    for (const float phenotype : data_.phenotypes) {
      y_.push_back(static_cast<Extended>(phenotype));
    }
  }

  std::string difference() {
    if (row_.at("n") != std::to_string(y_.size())) {
      return "n";
    }
    if (is_linear(drawn_)) {
      return linear();
    }
    return is_single(drawn_) ? single() : precise();
  }

 private:
  // Bits of a naive fit.
  std::string single() {
    const ItemFit fit = naive_logistic(data_.problem, drawn_.rules, snps_.data());
    if (fit.state != FitState::kFitted) {
      return row_.at("status") == "failed" ? "" : "status";
    }
    if (row_.at("status") != "ok" || row_.at("iterations") != std::to_string(fit.iterations) ||
        row_.at("converged") != (fit.converged ? "true" : "false")) {
      return "status, iterations or converged";
    }
    const auto equal = [](double expected, const std::string& text) {
      return std::isnan(expected)   ? text == "NA"
             : std::isinf(expected) ? text == (expected > 0 ? "Inf" : "-Inf")
                                    : std::strtod(text.c_str(), nullptr) == expected;
    };
    if (!equal(fit.deviance, row_.at("deviance"))) {
      return "deviance";
    }
    for (size_t j = 0; j < terms_.size(); ++j) {
      const std::string& beta = row_.at("beta_" + terms_[j]);
      // A column without an estimate of its own has none in the table.
      if (beta != "NA" &&
          (!equal(fit.coefficients[j], beta) || !equal(fit.standard_errors[j], row_.at("se_" + terms_[j])))) {
        return "beta or se of " + terms_[j];
      }
    }
    return "";
  }

  std::string precise() {
    const PreciseFit null = precise_logistic(design_of(data_, snps_, false), y_);
    const PreciseFit fit = precise_logistic(design_of(data_, snps_, true), y_);
    const int limit = drawn_.rules.iterations;
    if (!fit.clear || !null.clear || !fit.converged || fit.largest_predictor > 15 ||
        fit.iterations + 2 > limit) {
      return "";  // estimates that run away, or a limit that ends the fit
    }
    if (row_.at("status") != "ok" || row_.at("converged") != "true") {
      return "status or converged";
    }
    const int df = fit.rank - null.rank;
    if (row_.at("df") != std::to_string(df)) {
      return "df: " + row_.at("df") + ", expected " + std::to_string(df);
    }
    if (!near(fit.deviance, row_.at("deviance"), 1e-9L * (1 + fit.deviance))) {
      return "deviance";
    }
    if (null.converged && null.iterations + 2 <= 20 && df > 0) {
      const Extended statistic = null.deviance - fit.deviance;
      const Extended tolerance = 1e-8L * (1 + null.deviance);
      if (!near(statistic, row_.at("lr_statistic"), tolerance)) {
        return "lr_statistic";
      }
      if (!near(precise_upper_tail(statistic, df), row_.at("p"), 1e-6L) ||
          !near(precise_upper_tail(statistic, drawn_.rules.order()), row_.at("p_reported"),
                statistic < 1e-4L ? 1e-3L : 1e-6L)) {
        return "p or p_reported";
      }
    }
    return estimates(fit, 1e-6L, 1e-6L);
  }

  std::string linear() {
    const PreciseFit fit = precise_linear(design_of(data_, snps_, true), y_);
    Extended mean = 0;
    Extended squares = 0;
    for (const Extended y : y_) {
      mean += y / static_cast<Extended>(y_.size());
    }
    for (const Extended y : y_) {
      squares += (y - mean) * (y - mean);
    }
    const bool single = is_single(drawn_);
    const auto n = static_cast<int>(y_.size());
    if (!fit.clear || n < fit.rank + 3 || fit.deviance < 1e-3L * squares || (single && !drawn_.plain)) {
      return "";  // nothing is left for the residuals, or the scale is not that of single precision
    }
    const int columns = single ? static_cast<int>(terms_.size()) : fit.rank;
    if (row_.at("status") != "ok" || row_.at("df_residual") != std::to_string(n - columns)) {
      return "status or df_residual";
    }
    if (!near(fit.deviance, row_.at("rss"), (single ? 1e-4L : 1e-9L) * fit.deviance)) {
      return "rss";
    }
    // Single precision takes its variance over all columns, also those that have no estimate.
    const Extended factor =
        std::sqrt(static_cast<Extended>(n - fit.rank) / static_cast<Extended>(n - columns));
    return estimates(fit, single ? 1e-3L : 1e-7L, single ? 1e-3L : 1e-7L, single ? factor : 1);
  }

  std::string estimates(const PreciseFit& fit, Extended of_se, Extended of_coefficient, Extended factor = 1) {
    for (size_t j = 0; j < terms_.size(); ++j) {
      const std::string& beta = row_.at("beta_" + terms_[j]);
      const std::string& se = row_.at("se_" + terms_[j]);
      if (!fit.estimated[j]) {
        if (beta != "NA") {
          return "beta of " + terms_[j] + ": " + beta + ", expected NA";
        }
        continue;
      }
      const Extended expected_se = fit.standard_errors[j] * factor;
      if (!near(fit.coefficients[j], beta,
                of_se * expected_se + of_coefficient * std::fabs(fit.coefficients[j]) * 1e-2L) ||
          !near(expected_se, se, of_se * expected_se)) {
        return "beta or se of " + terms_[j] + ": " + beta + " and " + se + ", expected " +
               std::to_string(fit.coefficients[j]) + " and " + std::to_string(expected_se);
      }
    }
    return "";
  }

  const RegressionCase& drawn_;
  const RegressionData& data_;
  const TsvRow& row_;
  std::vector<std::string> terms_;
  std::vector<int> snps_;
  std::vector<Extended> y_;
};

std::string table_difference(const RegressionCase& drawn, const std::string& text) {
  const TsvTable table = parse_tsv(text);
  const size_t expected =
      drawn.rules.order() == 2 ? std::min(drawn.top, count_items(drawn)) : count_items(drawn);
  if (table.rows.size() != expected) {
    return "tidy.tsv: " + std::to_string(table.rows.size()) + " rows, expected " + std::to_string(expected);
  }
  for (size_t r = 0; r < table.rows.size(); ++r) {
    const std::string difference = RowChecker(drawn, table, table.rows[r]).difference();
    if (!difference.empty()) {
      return "tidy.tsv: row " + std::to_string(r + 1) + ": " + difference;
    }
  }
  return "";
}

}  // namespace

std::vector<std::string> reference_rows(const RegressionCase& drawn) {
  if (is_linear(drawn) || !is_single(drawn)) {
    return {};
  }
  std::vector<std::string> rows = naive_logistic_rows(drawn.data->problem, drawn.rules, drawn.top);
  rows.emplace_back(79, '=');
  return rows;
}

std::string regression_difference(const RegressionCase& drawn, const Setting& setting,
                                  const std::vector<std::string>& rows, const RunResult& result,
                                  const fs::path& folder) {
  if (result.status != 0 || result.out.find("## tavo complete") == std::string::npos) {
    return "status " + std::to_string(result.status) + "\n" + result.out + result.err;
  }
  std::vector<std::string> expected = expected_head(drawn, setting);
  if (rows.empty()) {
    // The numbers are compared in the tidy table: here the rows are as many as they should be.
    const size_t head = expected.size();
    const std::vector<std::string> lines = split_lines(read_file(folder / "out.csv"));
    const size_t wanted = is_linear(drawn) ? count_items(drawn) : std::min(drawn.top, count_items(drawn)) + 1;
    if (lines.size() != head + wanted) {
      return "out.csv: " + std::to_string(lines.size()) + " lines, expected " + std::to_string(head + wanted);
    }
    expected.insert(expected.end(), lines.begin() + static_cast<ptrdiff_t>(head), lines.end());
  } else {
    expected.insert(expected.end(), rows.begin(), rows.end());
  }
  std::string difference = report_difference(expected, folder / "out.csv");
  if (difference.empty() && fs::exists(folder / "tidy.tsv")) {
    difference = table_difference(drawn, read_file(folder / "tidy.tsv"));
  }
  return difference;
}

}  // namespace tavo_test
