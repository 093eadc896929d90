// SPDX-License-Identifier: Apache-2.0
//
// A result file of any kind that tavo-report reads, recognised by its first line.
#pragma once

#include <string>

#include "report/mdr_results.h"
#include "report/tsv_file.h"
#include "tools/line_reader.h"
#include "util/status.h"

enum class ResultKind { kMdrTable, kRegressionTable, kCvReport };

class ResultFile {
 public:
  // Reads the first line, and the columns of a table. Called once.
  Status open(const std::string& path);

  ResultKind kind() const { return kind_; }

  // Of a table: stands behind its header.
  TsvFile& table() { return table_; }
  LineReader& reader() { return reader_; }

  // The rest of a file that is no table of a regression.
  Status read_mdr(MdrResults* results);

 private:
  std::string path_;
  LineReader reader_;
  TsvFile table_;
  ResultKind kind_ = ResultKind::kMdrTable;
};
