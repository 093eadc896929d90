// SPDX-License-Identifier: Apache-2.0
//
// A tab-separated table as text, read without any code of the program.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace tavo_test {

using TsvRow = std::map<std::string, std::string>;

struct TsvTable {
  std::vector<std::string> columns;
  std::vector<TsvRow> rows;

  // The rows whose cell in `column` is `value`.
  std::vector<TsvRow> with(const std::string& column, const std::string& value) const;
};

// Whether a cell is this number: NA, Inf and -Inf for those that are none; single: as a float.
bool shows(const std::string& cell, double value, bool single = false);

// Throws std::runtime_error when a row has not as many cells as the header, or two columns have one name.
TsvTable parse_tsv(const std::string& text);

}  // namespace tavo_test
