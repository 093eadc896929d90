// SPDX-License-Identifier: Apache-2.0
//
// The covariate file that goes with a genotype file: tab-separated, the samples in the same order.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sample_columns.h"
#include "tools/selection.h"
#include "util/output_file.h"
#include "util/status.h"

class CovariateOutput {
 public:
  // Begins the file, so that a target that cannot be written shows early.
  Status open(const std::string& path) { return file_.open(path); }

  // Reads the covariates and checks the values: numbers, or NA for missing. names: the columns to take, all
  // when absent; at most 10.
  Status read(const std::string& path, const std::optional<std::vector<std::string>>& names,
              const GenotypeSource& source, const SampleIndex& index);

  // Writes the lines of the selected samples. note: what was written, a line.
  Status write(const std::string& path, const Selection& selection, std::string* note);

  // To be committed when the lines are written.
  OutputFile& file() { return file_; }

  // What is odd but not refused, a line each.
  const std::vector<std::string>& warnings() const { return warnings_; }

 private:
  OutputFile file_;
  SampleColumns columns_;
  std::vector<std::string> warnings_;
};
