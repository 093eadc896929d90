// SPDX-License-Identifier: Apache-2.0
#include "tools/covariate_output.h"

#include "tools/number.h"
#include "util/in_quotes.h"

namespace {

// What the reader of a run accepts, and what a regression can use.
constexpr size_t kMostCovariates = 10;
constexpr size_t kMostInRegression = 7;
constexpr size_t kLongestCovariateName = 255;

constexpr const char* kMissing = "NA";

// Longer numbers are no numbers that anybody wrote on purpose, and lines stay within what the reader takes.
constexpr size_t kLongestNumber = 100;

}  // namespace

Status CovariateOutput::read(const std::string& path, const std::optional<std::vector<std::string>>& names,
                             const GenotypeSource& source, const SampleIndex& index) {
  Status status = read_sample_columns(path, names, source.samples().size(), index, &columns_);
  if (!status.ok()) {
    return status;
  }
  const size_t n_columns = columns_.names.size();
  if (n_columns > kMostCovariates) {
    return Status::failure(path + ": " + std::to_string(n_columns) + " covariates, expected at most " +
                           std::to_string(kMostCovariates) + "; --covar-name takes some of them");
  }
  for (const std::string& name : columns_.names) {
    if (name.size() > kLongestCovariateName) {
      return Status::failure(path + ": line 1: the name " + in_quotes(name) + " has " +
                             std::to_string(name.size()) + " bytes, expected at most " +
                             std::to_string(kLongestCovariateName));
    }
  }
  if (n_columns > kMostInRegression) {
    warnings_.push_back(path + ": " + std::to_string(n_columns) + " covariates, a regression takes at most " +
                        std::to_string(kMostInRegression));
  }
  for (size_t i = 0; i < source.samples().size(); ++i) {
    for (size_t j = 0; j < n_columns && columns_.lines[i] != 0; ++j) {
      const std::string& text = columns_.value(i, j);
      double value = 0.0;
      if (text != kMissing && (text.size() > kLongestNumber || !parse_number(text, &value))) {
        return Status::failure(columns_.place(i, j) + ": found " + in_quotes(text) +
                               ", expected a number or " + kMissing);
      }
    }
  }
  return {};
}

Status CovariateOutput::write(const std::string& path, const Selection& selection, std::string* note) {
  std::string text = "FID\tIID";
  for (const std::string& name : columns_.names) {
    text += "\t" + name;
  }
  text += "\n";
  int64_t n_missing = 0;
  Status status;
  for (int64_t i = 0; i < selection.n_samples() && status.ok(); ++i) {
    const Sample& sample = selection.sample(i);
    const size_t row = selection.samples[static_cast<size_t>(i)];
    text += sample.fid + "\t" + sample.iid;
    bool missing = false;
    for (size_t j = 0; j < columns_.names.size(); ++j) {
      const std::string& value = columns_.lines[row] == 0 ? kMissing : columns_.value(row, j);
      missing = missing || value == kMissing;
      text += "\t" + value;
    }
    text += "\n";
    n_missing += missing ? 1 : 0;
    status = file_.write(text.data(), text.size());
    text.clear();
  }
  *note = path + ": " + std::to_string(columns_.names.size()) + " covariates of " +
          std::to_string(selection.n_samples()) + " samples, " + std::to_string(n_missing) +
          " of them with a missing one" + columns_.unknown_text();
  if (n_missing == selection.n_samples()) {
    warnings_.push_back(path + ": every sample lacks a covariate; a regression has nobody left");
  }
  return status;
}
