// SPDX-License-Identifier: Apache-2.0
#include "src/state_lines.h"

#include <bit>

#include "util/split_tabs.h"

namespace {

constexpr int kDoubleDigits = 16;

// No line is longer: one of a million tabs would be a million fields.
constexpr size_t kLongestLine = 4096;

void write_hexadecimal(uint64_t bits, char* digits, int n_digits) {
  for (char* digit = digits + n_digits; digit != digits; bits >>= 4) {
    *--digit = "0123456789abcdef"[bits & 15];
  }
}

}  // namespace

void add_line(std::string* text, std::initializer_list<std::string_view> fields) {
  bool first = true;
  for (const std::string_view field : fields) {
    if (!first) {
      text->push_back('\t');
    }
    text->append(field);
    first = false;
  }
  text->push_back('\n');
}

std::string hexadecimal(uint64_t bits, int digits) {
  std::string text(static_cast<size_t>(digits), '0');
  write_hexadecimal(bits, text.data(), digits);
  return text;
}

void add_ranks(std::string* text, std::string_view name, const std::vector<uint64_t>& ranks) {
  add_line(text, {name, std::to_string(ranks.size())});
  for (const uint64_t rank : ranks) {
    add_line(text, {std::to_string(rank)});
  }
}

void add_doubles(std::string* text, std::string_view name, const std::vector<double>& values) {
  add_line(text, {name, std::to_string(values.size())});
  // There may be millions, every few seconds.
  const size_t start = text->size();
  text->resize(start + values.size() * (kDoubleDigits + 1), '\n');
  char* line = text->data() + start;
  for (const double value : values) {
    write_hexadecimal(std::bit_cast<uint64_t>(value), line, kDoubleDigits);
    line += kDoubleDigits + 1;
  }
}

bool read_double(std::string_view field, double* value) {
  uint64_t bits = 0;
  if (field.size() != kDoubleDigits || !read_number(field, &bits, 16)) {
    return false;
  }
  *value = std::bit_cast<double>(bits);
  return true;
}

// A line that is too long has no fields, either.
std::vector<std::string_view> StateLines::next() {
  if (text_.empty()) {
    return {};
  }
  const size_t end = text_.find('\n');
  const std::string_view line = text_.substr(0, end);
  text_.remove_prefix(end == std::string_view::npos ? text_.size() : end + 1);
  return line.size() <= kLongestLine ? split_tabs(line) : std::vector<std::string_view>();
}

bool StateLines::take(size_t n, std::string_view* bytes) {
  if (n > text_.size()) {
    return false;
  }
  *bytes = text_.substr(0, n);
  text_.remove_prefix(n);
  return true;
}

bool StateLines::next(std::string_view name, size_t n, std::vector<std::string_view>* fields) {
  *fields = next();
  if (fields->size() != n + 1 || fields->front() != name) {
    return false;
  }
  fields->erase(fields->begin());
  return true;
}

// Lists grow as their lines come, so that a count alone takes no memory.
bool StateLines::next_ranks(std::string_view name, size_t most, uint64_t end, std::vector<uint64_t>* ranks) {
  size_t n = 0;
  if (!next_number(name, &n) || n > most) {
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    const std::vector<std::string_view> fields = next();
    uint64_t rank = 0;
    if (fields.size() != 1 || !read_number(fields[0], &rank) || rank >= end) {
      return false;
    }
    ranks->push_back(rank);
  }
  return true;
}

bool StateLines::next_doubles(std::string_view name, size_t most, std::vector<double>* values) {
  size_t n = 0;
  if (!next_number(name, &n) || n > most) {
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    const std::vector<std::string_view> fields = next();
    double value = 0.0;
    if (fields.size() != 1 || !read_double(fields[0], &value)) {
      return false;
    }
    values->push_back(value);
  }
  return true;
}

bool StateLines::at(std::string_view name) const {
  return text_.substr(0, name.size()) == name && text_.substr(name.size(), 1) == "\t";
}
