// SPDX-License-Identifier: Apache-2.0
//
// The cells and rows of a tidy table: tab-separated text, one header line of column names, NA for what does
// not exist, numbers with all their digits (docs/formats.md).
#pragma once

#include <string>
#include <vector>

inline constexpr const char* kTidyMissing = "NA";

// As many digits as tell the value apart from its neighbours of the same type. NA for what is no number, Inf
// and -Inf beyond all bounds.
std::string tidy_number(double value);
std::string tidy_number(float value);

// Text that does not break the table: tabs and line ends become blanks.
std::string tidy_text(std::string text);

// A row, built cell after cell, or, with the number of columns known, in any order.
class TidyRow {
 public:
  TidyRow() = default;
  // A row of n cells that are missing until they are set.
  explicit TidyRow(size_t n) : cells_(n, kTidyMissing) {}

  void add(std::string text) { cells_.push_back(std::move(text)); }
  void add(int value) { add(std::to_string(value)); }
  void add(double value) { add(tidy_number(value)); }

  void set(size_t column, std::string text) { cells_[column] = std::move(text); }
  void set(size_t column, size_t value) { set(column, std::to_string(value)); }
  void set(size_t column, int value) { set(column, std::to_string(value)); }
  void set(size_t column, double value) { set(column, tidy_number(value)); }
  void set(size_t column, float value) { set(column, tidy_number(value)); }

  // The cells with tabs between them.
  std::string line() const;

 private:
  std::vector<std::string> cells_;
};
