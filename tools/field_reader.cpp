// SPDX-License-Identifier: Apache-2.0
#include "tools/field_reader.h"

#include "util/in_quotes.h"

namespace {

// Lines beyond are no line of a file that anybody made on purpose; memory stays bounded.
constexpr size_t kLongestLine = size_t{1} << 24;
constexpr std::string_view kBlanks = " \t";

}  // namespace

Status FieldReader::open(const std::string& path) {
  path_ = path;
  return reader_.open(path);
}

Status FieldReader::next(bool* more) {
  *more = false;
  fields_.clear();
  while (fields_.empty()) {
    LineState state = LineState::kEnd;
    Status status = reader_.next(kLongestLine, &line_, &state);
    if (!status.ok() || state == LineState::kEnd) {
      return status;
    }
    if (state == LineState::kTooLong) {
      return Status::failure(place() + ": longer than " + std::to_string(kLongestLine) + " bytes");
    }
    const std::string_view line = line_;
    for (size_t begin = line.find_first_not_of(kBlanks); begin != std::string_view::npos;) {
      const size_t end = std::min(line.find_first_of(kBlanks, begin), line.size());
      fields_.push_back(line.substr(begin, end - begin));
      begin = line.find_first_not_of(kBlanks, end);
    }
  }
  *more = true;
  return {};
}

Status FieldReader::expect_fields(size_t count) const {
  if (fields_.size() == count) {
    return {};
  }
  return Status::failure(place() + ": " + std::to_string(fields_.size()) +
                         (fields_.size() == 1 ? " field" : " fields") + ", expected " +
                         std::to_string(count));
}

std::string FieldReader::place() const {
  return path_ + ": line " + std::to_string(line_number());
}

std::string FieldReader::place(size_t field, std::string_view name) const {
  return field_place(path_, line_number(), field, name);
}

std::string field_place(const std::string& path, uint64_t line, size_t field, std::string_view name) {
  return path + ": line " + std::to_string(line) + ", field " + std::to_string(field + 1) +
         (name.empty() ? "" : " (" + escaped(name) + ")");
}
