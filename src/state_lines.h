// SPDX-License-Identifier: Apache-2.0
//
// The lines of a checkpoint: text, fields with tabs between them. What is written here is read back here;
// every byte that is read may be wrong.
#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Appends a line of these fields.
void add_line(std::string* text, std::initializer_list<std::string_view> fields);

// The bits of a number in `digits` hexadecimal digits.
std::string hexadecimal(uint64_t bits, int digits);

// Lists of numbers: a line with the name and their count, then one per line; the bits of doubles in
// hexadecimal digits.
void add_ranks(std::string* text, std::string_view name, const std::vector<uint64_t>& ranks);
void add_doubles(std::string* text, std::string_view name, const std::vector<double>& values);

// The whole field as a number. False when it is none, or does not fit.
template <typename Number>
bool read_number(std::string_view field, Number* number, int base = 10) {
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), *number, base);
  return error == std::errc() && end == field.data() + field.size();
}

// The bits of a double, 16 hexadecimal digits.
bool read_double(std::string_view field, double* value);

// The lines of a text in turn.
class StateLines {
 public:
  explicit StateLines(std::string_view text) : text_(text) {}

  // The fields of the next line; none at the end.
  std::vector<std::string_view> next();

  // The next n bytes, whatever they are. False when there are fewer.
  bool take(size_t n, std::string_view* bytes);

  // The fields after the name when the next line has this name and n of them.
  bool next(std::string_view name, size_t n, std::vector<std::string_view>* fields);

  // The next line has the name and one number.
  template <typename Number>
  bool next_number(std::string_view name, Number* number) {
    std::vector<std::string_view> fields;
    return next(name, 1, &fields) && read_number(fields[0], number);
  }

  // What add_ranks and add_doubles wrote, of at most `most` numbers; ranks are below `end`.
  bool next_ranks(std::string_view name, size_t most, uint64_t end, std::vector<uint64_t>* ranks);
  bool next_doubles(std::string_view name, size_t most, std::vector<double>* values);

  // Whether the next line begins with this field.
  bool at(std::string_view name) const;
  bool at_end() const { return text_.empty(); }

 private:
  std::string_view text_;
};
