// SPDX-License-Identifier: Apache-2.0
#include "src/tidy_table.h"

#include <charconv>
#include <cmath>

namespace {

template <typename Float>
std::string shortest_text(Float value) {
  if (!std::isfinite(value)) {
    return std::isnan(value) ? kTidyMissing : value > 0 ? "Inf" : "-Inf";
  }
  char text[64];
  return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

}  // namespace

std::string tidy_number(double value) {
  return shortest_text(value);
}

std::string tidy_number(float value) {
  return shortest_text(value);
}

std::string tidy_text(std::string text) {
  for (char& c : text) {
    if (c == '\t' || c == '\n' || c == '\r') {
      c = ' ';
    }
  }
  return text;
}

std::string TidyRow::line() const {
  std::string line;
  for (size_t i = 0; i < cells_.size(); ++i) {
    line += i == 0 ? "" : "\t";
    line += cells_[i];
  }
  return line;
}
