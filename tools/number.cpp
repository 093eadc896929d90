// SPDX-License-Identifier: Apache-2.0
#include "tools/number.h"

#include <charconv>
#include <cmath>
#include <system_error>

bool parse_number(std::string_view text, double* value) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) {
      return false;
    }
  }
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, *value);
  return error == std::errc() && stop == end && std::isfinite(static_cast<float>(*value));
}

bool parse_count(std::string_view text, int64_t most, int64_t* value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, *value);
  return error == std::errc() && stop == end && text.front() != '-' && *value <= most;
}

std::string shortest_text(double value) {
  char text[40];
  const auto [end, error] = std::to_chars(text, text + sizeof(text), value);
  return {text, error == std::errc() ? end : text};
}
