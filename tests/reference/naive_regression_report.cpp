// SPDX-License-Identifier: Apache-2.0
#include "tests/reference/naive_regression_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/dcdflib.h"
#include "lib/float_math.h"
#include "lib/regression.h"
#include "tests/reference/naive_regression.h"

namespace tavo_test {

namespace {

std::string formatted(const char* format, double value) {
  char text[400];
  std::snprintf(text, sizeof(text), format, value);
  return std::isnan(value) ? "nan" : text;
}

struct NaiveRow {
  std::vector<int> snps;
  double slots[32] = {};
};

}  // namespace

std::vector<std::string> naive_logistic_rows(const Problem& problem, const RegressionRules& rules,
                                             size_t top) {
  const int order = rules.order();
  const auto np = static_cast<size_t>(problem.n_covariates + (order == 2 ? 9 : 3));
  float null_dev = 0.0f;
  float null_df = 0.0f;
  regression_null_logistic(problem.n_samples, problem.n_covariates + 1, problem.covariates, 20,
                           problem.phenotypes, &null_dev, &null_df);
  const auto model_df = static_cast<float>(problem.n_samples - 1 - order);
  std::vector<NaiveRow> rows;
  for (int i = 0; i < problem.n_snps; ++i) {
    for (int j = order == 2 ? i + 1 : i; j < (order == 2 ? problem.n_snps : i + 1); ++j) {
      NaiveRow& row = rows.emplace_back();
      row.snps = order == 2 ? std::vector<int>{i, j} : std::vector<int>{i};
      const ItemFit fit = naive_logistic(problem, rules, row.snps.data());
      if (fit.state == FitState::kFailed) {
        row.slots[0] = row.slots[1] = row.slots[2] = -1.0;
      } else if (fit.state == FitState::kFitted) {
        for (size_t k = 0; k < np; ++k) {
          const auto coefficient = static_cast<float>(fit.coefficients[k]);
          row.slots[k] = static_cast<double>(order == 2 ? coefficient : tavo_expf(coefficient));
          if (order == 1) {
            row.slots[np + k] = static_cast<double>(coefficient / static_cast<float>(fit.standard_errors[k]));
          }
        }
        if (order == 2) {
          row.slots[np] = fit.converged ? 1.0 : 0.0;
          row.slots[np + 1] = fit.iterations;
          row.slots[np + 2] = fit.last_step;
        }
        row.slots[0] = fit.deviance;
      }
      row.slots[np] = static_cast<double>(
          static_cast<float>(LRtest(static_cast<float>(row.slots[0]), model_df, null_dev, null_df)));
    }
  }
  std::stable_sort(rows.begin(), rows.end(), [np](const NaiveRow& a, const NaiveRow& b) {
    return std::isnan(b.slots[np]) ? !std::isnan(a.slots[np]) : a.slots[np] < b.slots[np];
  });
  rows.resize(std::min(top, rows.size()));
  std::vector<std::string> lines;
  for (size_t r = 0; r < rows.size(); ++r) {
    const NaiveRow& row = rows[r];
    std::string line = std::to_string(r) + ",(";
    for (const int snp : row.snps) {
      line += " rs" + std::to_string(snp);
    }
    const double whole = row.slots[np + 1];
    line += std::string(" ),") + (row.slots[np] == 1.0 ? "Y" : "N") + "," +
            std::to_string(std::fabs(whole) < 2147483648.0 ? static_cast<int>(whole) : -2147483647 - 1);
    for (const double value : {row.slots[np + 2], row.slots[0], static_cast<double>(null_dev),
                               LRtest(static_cast<float>(row.slots[0]), model_df, null_dev, null_df),
                               row.slots[1], row.slots[2]}) {
      line += "," + formatted("%.20f", value);
    }
    for (size_t slot = 3; order == 2 && slot <= 8; ++slot) {
      line += "," + formatted("%.20f", row.slots[slot]);
    }
    lines.push_back(line);
  }
  return lines;
}

}  // namespace tavo_test
