// SPDX-License-Identifier: Apache-2.0
//
// A table of genotypes as text: a header line of names, then one line per sample with its genotypes and its
// class. Read row by row, so memory holds the names and one row. The format is described in docs/formats.md.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/line_reader.h"
#include "util/status.h"

struct TableRow {
  uint8_t class_value = 0;         // 0 or 1
  std::vector<uint8_t> genotypes;  // [SNPs], 0, 1, 2 or 3 (missing)
};

class TextTable {
 public:
  // Opens the file and reads its header. class_name: the name of the class column, all other columns are
  // SNPs.
  Status open(const std::string& path, const std::string& class_name);

  // The names of the SNP columns, in file order; at least one.
  const std::vector<std::string>& snp_names() const { return snp_names_; }

  // What is odd about the header but not refused, a line of text each.
  const std::vector<std::string>& warnings() const { return warnings_; }

  // Reads the next row; *more is false when there is none left. A failure names file, line, column and field,
  // what was found and what was expected. A table without any row is a failure.
  Status next(TableRow* row, bool* more);

 private:
  enum class Separator { kTab, kComma, kBlanks };

  Status read_header(std::string_view line);
  Status take_names(const std::vector<std::string_view>& fields);
  void find_duplicates(const std::vector<std::string_view>& fields);
  Status parse_row(std::string_view line, bool whole, TableRow* row) const;
  Status field_count_failure(size_t found) const;
  bool next_field(std::string_view* rest, std::string_view* field) const;
  size_t count_fields(std::string_view line) const;
  std::string place(size_t column) const;

  std::string path_;
  std::string class_name_;
  LineReader reader_;
  std::string line_;
  Separator separator_ = Separator::kTab;
  size_t n_columns_ = 0;
  size_t class_column_ = 0;
  std::vector<std::string> snp_names_;
  std::vector<std::string> warnings_;
  uint64_t n_rows_ = 0;
};
