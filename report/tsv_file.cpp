// SPDX-License-Identifier: Apache-2.0
#include "report/tsv_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <unordered_set>

#include "util/in_quotes.h"
#include "util/split_tabs.h"

const double kMissingNumber = std::numeric_limits<double>::quiet_NaN();

Status line_failure(const std::string& path, uint64_t line, const std::string& what) {
  return Status::failure(path + ": line " + std::to_string(line) + ": " + what);
}

Status TsvFile::begin(const std::string& path, const std::string& header) {
  path_ = path;
  std::unordered_set<std::string_view> known;
  for (const std::string_view name : split_tabs(header)) {
    if (name.empty() || !known.insert(name).second) {
      return line_failure(path, 1,
                          "column " + std::to_string(columns_.size() + 1) + ": " +
                              (name.empty() ? "no name" : "a second column " + in_quotes(name)));
    }
    columns_.emplace_back(name);
  }
  return {};
}

int TsvFile::find(std::string_view name) const {
  const auto found = std::find(columns_.begin(), columns_.end(), name);
  return found == columns_.end() ? -1 : static_cast<int>(found - columns_.begin());
}

Status TsvFile::require(std::string_view name, int* column) const {
  *column = find(name);
  return *column >= 0 ? Status() : line_failure(path_, 1, "no column " + in_quotes(name));
}

Status TsvFile::next(LineReader& reader, bool* more) {
  LineState state = LineState::kLine;
  Status status = reader.next(kLongestLine, &line_, &state);
  line_number_ = reader.line_number();
  *more = state == LineState::kLine;
  if (!status.ok() || state == LineState::kEnd) {
    return status;
  }
  if (state == LineState::kTooLong) {
    return line_failure(path_, line_number_, "longer than " + std::to_string(kLongestLine) + " bytes");
  }
  cells_ = split_tabs(line_);
  if (cells_.size() != columns_.size()) {
    return line_failure(
        path_, line_number_,
        std::to_string(cells_.size()) + " cells, expected " + std::to_string(columns_.size()));
  }
  return {};
}

bool parse_cell_number(std::string_view text, double* value) {
  if (text == "NA") {
    *value = kMissingNumber;
    return true;
  }
  if (text == "Inf" || text == "-Inf") {
    const double infinity = std::numeric_limits<double>::infinity();
    *value = text == "Inf" ? infinity : -infinity;
    return true;
  }
  double number = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (end != text.data() + text.size() || text.empty()) {
    return false;
  }
  // What is too small for a number is 0, as everywhere; what is too large is none.
  if (error == std::errc::result_out_of_range && text.find("e-") != std::string_view::npos) {
    *value = 0.0;
    return true;
  }
  if (error != std::errc() || !std::isfinite(number)) {
    return false;
  }
  *value = number;
  return true;
}

Status TsvFile::number(int column, double* value) const {
  return parse_cell_number(cell(column), value) ? Status() : failure(column, "a number or NA");
}

Status TsvFile::integer(int column, int64_t lowest, int64_t highest, int64_t* value) const {
  const std::string_view text = cell(column);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
  if (error != std::errc() || end != text.data() + text.size() || *value < lowest || *value > highest) {
    return failure(column, "an integer from " + std::to_string(lowest) + " to " + std::to_string(highest));
  }
  return {};
}

Status TsvFile::failure(int column, const std::string& expected) const {
  return Status::failure(path_ + ": line " + std::to_string(line_number_) + ", column " +
                         std::to_string(column + 1) + " (" + escaped(columns_[static_cast<size_t>(column)]) +
                         "): found " + in_quotes(cell(column)) + ", expected " + expected);
}
