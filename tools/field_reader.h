// SPDX-License-Identifier: Apache-2.0
//
// The lines of a text file as fields separated by runs of blanks and tabs. Empty lines are passed over.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/line_reader.h"
#include "util/status.h"

class FieldReader {
 public:
  // Opens the file, plain or gzip.
  Status open(const std::string& path);

  // Reads the next line that has a field; *more is false when there is none. The fields stay valid until the
  // next call.
  Status next(bool* more);
  const std::vector<std::string_view>& fields() const { return fields_; }

  // Refuses a line with any other number of fields.
  Status expect_fields(size_t count) const;

  uint64_t line_number() const { return reader_.line_number(); }

  // "FILE: line L" and "FILE: line L, field F", field from 0; a header's name of the field behind it if there
  // is one.
  std::string place() const;
  std::string place(size_t field, std::string_view name = {}) const;

 private:
  std::string path_;
  LineReader reader_;
  std::string line_;
  std::vector<std::string_view> fields_;
};

// The same place for a line read before.
std::string field_place(const std::string& path, uint64_t line, size_t field, std::string_view name = {});
