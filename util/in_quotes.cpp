// SPDX-License-Identifier: Apache-2.0
#include "util/in_quotes.h"

namespace {

constexpr size_t kLongestShown = 40;

}  // namespace

std::string escaped(std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f || c == '"' || c == '\\') {
      shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      shown += c;
    }
  }
  return shown;
}

std::string in_quotes(std::string_view text) {
  return '"' + escaped(text.substr(0, kLongestShown)) + (text.size() > kLongestShown ? "...\"" : "\"");
}
