// SPDX-License-Identifier: Apache-2.0
//
// A tab-separated table, read row by row: a header of column names, then lines with as many cells. Plain or
// gzip.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/line_reader.h"
#include "util/status.h"

// A number that is missing: NA.
extern const double kMissingNumber;

// A decimal number, Inf, -Inf, or NA, which is kMissingNumber. False, and *value as it was, for other text.
bool parse_cell_number(std::string_view text, double* value);

class TsvFile {
 public:
  // Begins a table whose first line has been read already: `reader` stands behind it.
  Status begin(const std::string& path, const std::string& header);

  const std::vector<std::string>& columns() const { return columns_; }

  // The place of a column, or -1.
  int find(std::string_view name) const;

  // The place of a column that must be there.
  Status require(std::string_view name, int* column) const;

  // Takes the next line. False in *more at the end; empty lines at the end are skipped.
  Status next(LineReader& reader, bool* more);

  // The cells of the row, valid until the next one.
  const std::vector<std::string_view>& cells() const { return cells_; }
  std::string_view cell(int column) const { return cells_[static_cast<size_t>(column)]; }
  bool is_missing(int column) const { return cell(column) == "NA"; }

  // As parse_cell_number.
  Status number(int column, double* value) const;

  // An integer, nothing else.
  Status integer(int column, int64_t lowest, int64_t highest, int64_t* value) const;

  // "FILE: line L, column C (NAME): found "X", expected WHAT".
  Status failure(int column, const std::string& expected) const;

 private:
  std::string path_;
  std::vector<std::string> columns_;
  std::string line_;
  std::vector<std::string_view> cells_;
  uint64_t line_number_ = 1;
};

// "FILE: line L: WHAT".
Status line_failure(const std::string& path, uint64_t line, const std::string& what);

// The longest line that is read, in bytes.
inline constexpr size_t kLongestLine = size_t{1} << 24;
