// SPDX-License-Identifier: Apache-2.0
#include "report/result_file.h"

#include "util/in_quotes.h"

Status ResultFile::open(const std::string& path) {
  path_ = path;
  Status status = reader_.open(path);
  std::string line;
  LineState state = LineState::kLine;
  if (status.ok()) {
    status = reader_.next(kLongestLine, &line, &state);
  }
  if (!status.ok()) {
    return status;
  }
  if (state == LineState::kEnd) {
    return Status::failure(path + ": empty, expected a table of tavo --tidy or a report");
  }
  const std::string_view first = std::string_view(line).substr(0, line.find('\t'));
  if (state == LineState::kLine && line.starts_with("=====") && line.find(" Time ") != std::string::npos) {
    kind_ = ResultKind::kCvReport;
    return {};
  }
  if (state == LineState::kTooLong || (first != "row" && first != "number")) {
    return line_failure(path, 1,
                        "found " + in_quotes(line) + ", expected a table of tavo --tidy or a report");
  }
  kind_ = first == "row" ? ResultKind::kMdrTable : ResultKind::kRegressionTable;
  return table_.begin(path, line);
}

Status ResultFile::read_mdr(MdrResults* results) {
  return kind_ == ResultKind::kCvReport ? read_cv_report(path_, reader_, results)
                                        : read_mdr_table(table_, reader_, results);
}
