// SPDX-License-Identifier: Apache-2.0
#include "src/number_text.h"

#include <cmath>
#include <cstdio>

#include "lib/cv_measures.h"

namespace {

std::string with_decimals(double value, int decimals) {
  if (std::isnan(value)) {
    return "nan";
  }
  char text[400];  // the longest double has 309 digits before the point
  std::snprintf(text, sizeof(text), "%.*f", decimals, value);
  return text;
}

}  // namespace

std::string number_text(double value) {
  return with_decimals(value, 6);
}

std::string long_number_text(double value) {
  return with_decimals(value, 20);
}

std::string fold_values_text(std::span<const double> record, std::span<const int> measures) {
  std::string text;
  for (const int measure : measures) {
    const auto entry = static_cast<size_t>(measure);
    text += "," + number_text(record[entry]) + "," + number_text(record[kTestingEntry + entry]);
  }
  return text;
}
