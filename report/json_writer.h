// SPDX-License-Identifier: Apache-2.0
//
// JSON, written as it comes. The text is ASCII where it must be: it may stand in a script element of a page,
// whatever the strings hold.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

class JsonWriter {
 public:
  // take: gets the text in pieces.
  explicit JsonWriter(std::function<void(std::string_view)> take) : take_(std::move(take)) {}
  ~JsonWriter() { flush(); }
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;

  void begin_object() { begin('{'); }
  void end_object() { end('}'); }
  void begin_array() { begin('['); }
  void end_array() { end(']'); }

  // The name of the next value of an object.
  void key(std::string_view name);

  // Bytes that are no UTF-8 become U+FFFD.
  void text(std::string_view value);
  void number(double value);  // no number: null; beyond all bounds: "Inf", "-Inf"
  void integer(int64_t value);
  void boolean(bool value);
  void null();

  void member(std::string_view name, std::string_view value);
  void member(std::string_view name, double value);
  void member(std::string_view name, int64_t value);

  void flush();

 private:
  void begin(char bracket);
  void end(char bracket);
  void separate();
  void string(std::string_view value);

  std::function<void(std::string_view)> take_;
  std::string buffer_;
  std::vector<bool> has_items_;  // of the open objects and arrays
  bool after_key_ = false;
};
