// SPDX-License-Identifier: Apache-2.0
//
// The tidy table of a regression (docs/regression.md), row by row.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "report/json_writer.h"
#include "report/tsv_file.h"

enum class ColumnType { kName, kStatus, kFlag, kProbability, kNumber };

class RegressionTable {
 public:
  // Finds the columns of a table whose header has been taken.
  Status begin(const TsvFile& table);

  bool pairs() const { return pairs_; }
  bool linear() const { return linear_; }
  // logistic, logistic_pairs, linear.
  const char* kind() const { return linear_ ? "linear" : pairs_ ? "logistic_pairs" : "logistic"; }

  ColumnType type(size_t column) const { return types_[column]; }
  int name_column() const { return name_; }
  int position_column() const { return position_; }

  // Checks every cell of the row that the table stands at.
  Status check_row(const TsvFile& table) const;

 private:
  bool pairs_ = false;
  bool linear_ = false;
  int name_ = -1;
  int position_ = -1;
  std::vector<ColumnType> types_;
};

// A cell of a checked row as a value.
void write_cell_value(std::string_view text, ColumnType type, JsonWriter* json);

// Reads the rest of the table and writes the member "rows" of the object that is open: an object for each
// row.
Status write_regression_rows(const RegressionTable& format, TsvFile& table, LineReader& reader,
                             JsonWriter* json);
