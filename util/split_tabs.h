// SPDX-License-Identifier: Apache-2.0
//
// The fields of a line of a tab-separated file.
#pragma once

#include <string_view>
#include <vector>

// Parts of the line, one more than it has tabs. They live as long as the line's text.
inline std::vector<std::string_view> split_tabs(std::string_view line) {
  std::vector<std::string_view> fields;
  for (;;) {
    const size_t tab = line.find('\t');
    fields.push_back(line.substr(0, tab));
    if (tab == std::string_view::npos) {
      return fields;
    }
    line.remove_prefix(tab + 1);
  }
}
