// SPDX-License-Identifier: Apache-2.0
//
// The results of a regression as a tidy table: tab-separated, a header of column names, one row per SNP or
// pair, NA for what does not exist (docs/regression.md).
#pragma once

#include <string>
#include <vector>

#include "src/FileIO.h"
#include "src/regression.h"

class TidyRegression {
 public:
  // names: of all SNPs; outlives the object, as covariate_names does.
  TidyRegression(const RegressionRules& rules, int n_samples, const std::vector<std::string>& names,
                 const std::vector<std::string>& covariate_names);

  // Opens the file, which appears when complete. False when it cannot be created.
  bool open(const std::string& path);

  // null_model: of a logistic run, known before the first row.
  void write_header();
  void write_row(const FittedItem& item, const NullModel& null_model);

  // From now on rows go to this file first, which outlives the object and holds n_rows of them.
  void keep_rows_in(GrowingFile* rows, uint64_t n_rows) {
    writer_.KeepLinesIn(rows);
    n_rows_ = n_rows;
  }

  // False after a failure, which close will say.
  bool ok() const { return writer_.ok(); }

  Status close() { return writer_.Close(); }

 private:
  // The model's columns but the intercept, by name.
  std::vector<std::string> terms() const;

  const RegressionRules rules_;
  const int n_samples_;
  const std::vector<std::string>& names_;
  const std::vector<std::string>& covariate_names_;
  uint64_t n_rows_ = 0;
  MdrWriter writer_;
};
