// SPDX-License-Identifier: Apache-2.0
#include "tools/names.h"

#include <algorithm>

#include "lib/genotype_file.h"
#include "util/in_quotes.h"

namespace {

constexpr size_t kLongestName = kLargestLabel - 1;

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

}  // namespace

std::string name_fault(std::string_view name) {
  if (name.empty()) {
    return "an empty SNP name";
  }
  if (name.size() > kLongestName) {
    return "the SNP name " + in_quotes(name) + " has " + std::to_string(name.size()) +
           " bytes, expected at most " + std::to_string(kLongestName);
  }
  return std::any_of(name.begin(), name.end(), is_control)
             ? "the SNP name " + in_quotes(name) + " holds a control character"
             : "";
}

std::string field_fault(std::string_view text, size_t longest) {
  if (text.empty()) {
    return "found an empty field";
  }
  if (text.size() > longest) {
    return "found " + in_quotes(text) + " of " + std::to_string(text.size()) + " bytes, expected at most " +
           std::to_string(longest);
  }
  return std::any_of(text.begin(), text.end(), [](char c) { return c == ' ' || is_control(c); })
             ? "found " + in_quotes(text) + ", expected neither blanks nor control characters"
             : "";
}
