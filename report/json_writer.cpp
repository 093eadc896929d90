// SPDX-License-Identifier: Apache-2.0
#include "report/json_writer.h"

#include <charconv>
#include <cmath>

namespace {

constexpr size_t kBufferSize = 1 << 16;

// Bytes of the UTF-8 sequence at the start of the text, or 0 when there is none.
size_t utf8_length(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  const size_t length = first < 0x80                    ? 1
                        : first >= 0xc2 && first < 0xe0 ? 2
                        : first >= 0xe0 && first < 0xf0 ? 3
                        : first >= 0xf0 && first < 0xf5 ? 4
                                                        : 0;
  if (length == 0 || length > text.size()) {
    return 0;
  }
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) {
      return 0;
    }
  }
  // Longer forms of smaller numbers, surrogates, and what is beyond Unicode.
  if (length >= 3) {
    const unsigned char second = byte(1);
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
        (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) {
      return 0;
    }
  }
  return length;
}

}  // namespace

void JsonWriter::flush() {
  take_(buffer_);
  buffer_.clear();
}

void JsonWriter::separate() {
  if (after_key_) {
    after_key_ = false;
    return;
  }
  if (!has_items_.empty()) {
    if (has_items_.back()) {
      buffer_ += has_items_.size() <= 3 ? ",\n" : ",";
    }
    has_items_.back() = true;
  }
  if (buffer_.size() > kBufferSize) {
    flush();
  }
}

void JsonWriter::begin(char bracket) {
  separate();
  buffer_ += bracket;
  has_items_.push_back(false);
}

void JsonWriter::end(char bracket) {
  buffer_ += bracket;
  has_items_.pop_back();
  if (has_items_.empty()) {
    buffer_ += '\n';
  }
}

void JsonWriter::key(std::string_view name) {
  separate();
  string(name);
  buffer_ += ':';
  after_key_ = true;
}

void JsonWriter::string(std::string_view value) {
  constexpr char kDigits[] = "0123456789abcdef";
  buffer_ += '"';
  while (!value.empty()) {
    const size_t length = utf8_length(value);
    const auto byte = static_cast<unsigned char>(value[0]);
    if (length == 0) {
      buffer_ += "\\ufffd";
    } else if (length > 1) {
      const std::string_view sequence = value.substr(0, length);
      // The line separators of Unicode end a line in older scripts.
      if (sequence == "\xe2\x80\xa8" || sequence == "\xe2\x80\xa9") {
        buffer_ += sequence == "\xe2\x80\xa8" ? "\\u2028" : "\\u2029";
      } else {
        buffer_ += sequence;
      }
    } else if (byte == '"' || byte == '\\') {
      buffer_ += '\\';
      buffer_ += value[0];
    } else if (byte < 0x20 || byte == 0x7f || byte == '<' || byte == '>' || byte == '&') {
      buffer_ += "\\u00";
      buffer_ += kDigits[byte >> 4];
      buffer_ += kDigits[byte & 15];
    } else {
      buffer_ += value[0];
    }
    value.remove_prefix(length == 0 ? 1 : length);
  }
  buffer_ += '"';
}

void JsonWriter::text(std::string_view value) {
  separate();
  string(value);
}

void JsonWriter::number(double value) {
  if (std::isnan(value)) {
    null();
    return;
  }
  if (std::isinf(value)) {
    text(value > 0.0 ? "Inf" : "-Inf");
    return;
  }
  separate();
  char digits[40];
  buffer_.append(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr);
}

void JsonWriter::integer(int64_t value) {
  separate();
  buffer_ += std::to_string(value);
}

void JsonWriter::boolean(bool value) {
  separate();
  buffer_ += value ? "true" : "false";
}

void JsonWriter::null() {
  separate();
  buffer_ += "null";
}

void JsonWriter::member(std::string_view name, std::string_view value) {
  key(name);
  text(value);
}

void JsonWriter::member(std::string_view name, double value) {
  key(name);
  number(value);
}

void JsonWriter::member(std::string_view name, int64_t value) {
  key(name);
  integer(value);
}
