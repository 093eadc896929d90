// SPDX-License-Identifier: Apache-2.0
//
// Text tables for the tests of tavo-convert, made from a data set.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/genotype_file.h"

namespace tavo_test {

struct TableStyle {
  std::string separator = "\t";
  std::string line_end = "\n";
  std::string class_name = "Class";
  int class_column = -1;                      // -1: the last
  std::vector<std::string> missing = {"NA"};  // used in turn
  bool last_line_end = true;
};

std::string table_text(const GenotypeData& data, const TableStyle& style = {});

// The bytes as one gzip stream.
std::string gzip(const std::string& bytes);

// The names of the files in a folder, sorted.
std::vector<std::string> file_names(const std::filesystem::path& folder);

}  // namespace tavo_test
