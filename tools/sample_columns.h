// SPDX-License-Identifier: Apache-2.0
//
// Columns of a text file that is keyed by sample, such as phenotypes and covariates: a header line FID IID
// and names, then a line for each sample in any order, fields separated by blanks or tabs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sample_index.h"
#include "util/status.h"

// FID IID, before the columns of a line.
inline constexpr size_t kIdentifierFields = 2;

struct SampleColumns {
  std::string path;
  std::vector<std::string> names;   // of the columns taken
  std::vector<size_t> fields;       // where they stand in a line, from 0
  std::vector<uint64_t> lines;      // [samples] the line of each sample; 0 where the file has none
  std::vector<std::string> values;  // [samples][columns], as they stand in the file
  int64_t unknown_lines = 0;        // lines of samples that the data set does not have

  const std::string& value(size_t sample, size_t column) const {
    return values[sample * names.size() + column];
  }

  // " (N lines match no sample)", or empty when all do.
  std::string unknown_text() const;

  // "FILE: line L, field F (NAME)".
  std::string place(size_t sample, size_t column) const;
};

// Takes the columns with the wanted names, in their order, or all of them. Refuses names that are not there
// or there twice, lines that are too short or too long, and a second line for a sample.
Status read_sample_columns(const std::string& path, const std::optional<std::vector<std::string>>& wanted,
                           size_t n_samples, const SampleIndex& index, SampleColumns* columns);
