// SPDX-License-Identifier: Apache-2.0
#include "tests/support/tsv_table.h"

#include <cmath>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include "tests/support/run_program.h"

namespace tavo_test {

namespace {

std::vector<std::string> cells_of(const std::string& line) {
  std::vector<std::string> cells(1);
  for (const char c : line) {
    if (c == '\t') {
      cells.emplace_back();
    } else {
      cells.back().push_back(c);
    }
  }
  return cells;
}

}  // namespace

std::vector<TsvRow> TsvTable::with(const std::string& column, const std::string& value) const {
  std::vector<TsvRow> found;
  for (const TsvRow& row : rows) {
    if (row.at(column) == value) {
      found.push_back(row);
    }
  }
  return found;
}

bool shows(const std::string& cell, double value, bool single) {
  if (std::isnan(value)) {
    return cell == "NA";
  }
  if (std::isinf(value)) {
    return cell == (value > 0 ? "Inf" : "-Inf");
  }
  return single ? std::strtof(cell.c_str(), nullptr) == static_cast<float>(value)
                : std::strtod(cell.c_str(), nullptr) == value;
}

TsvTable parse_tsv(const std::string& text) {
  TsvTable table;
  for (const std::string& line : split_lines(text)) {
    const std::vector<std::string> cells = cells_of(line);
    if (table.columns.empty()) {
      table.columns = cells;
      if (std::set<std::string>(cells.begin(), cells.end()).size() != cells.size()) {
        throw std::runtime_error("a column name stands twice: " + line);
      }
      continue;
    }
    if (cells.size() != table.columns.size()) {
      throw std::runtime_error("not as many cells as columns: " + line);
    }
    TsvRow row;
    for (size_t i = 0; i < cells.size(); ++i) {
      row[table.columns[i]] = cells[i];
    }
    table.rows.push_back(row);
  }
  return table;
}

}  // namespace tavo_test
