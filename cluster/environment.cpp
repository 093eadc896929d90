// SPDX-License-Identifier: Apache-2.0
#include "cluster/environment.h"

#include <charconv>
#include <cstdlib>
#include <cstring>

std::optional<double> environment_number(const char* variable, double least, double most) {
  const char* text = std::getenv(variable);
  if (text == nullptr) {
    return std::nullopt;
  }
  double number = 0.0;
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, number);
  // Also false for what is not a number.
  const bool fits = number >= least && number <= most;
  return error == std::errc() && stop == end && fits ? std::optional(number) : std::nullopt;
}
