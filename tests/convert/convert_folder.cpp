// SPDX-License-Identifier: Apache-2.0
#include "tests/convert/convert_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/convert/table_text.h"

namespace tavo_test {

Words words_of(const std::string& line) {
  std::istringstream in(line);
  Words words;
  for (std::string word; in >> word;) {
    words.push_back(word);
  }
  return words;
}

bool has_line(const std::string& text, const std::string& line) {
  const Words lines = split_lines(text);
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::string ConvertFolder::output_of(const std::string& line) const {
  const RunResult result = run_line(line);
  EXPECT_EQ(result.status, 0) << line << ": " << result.err;
  return result.out;
}

std::string ConvertFolder::refusal_of(const std::string& line) const {
  const std::vector<std::string> before = names();
  const RunResult result = run_line(line);
  EXPECT_EQ(result.status, 1) << line;
  EXPECT_EQ(result.out, "") << line;
  EXPECT_EQ(names(), before) << line;
  const std::string start = "tavo-convert: ";
  EXPECT_TRUE(result.err.starts_with(start) && result.err.ends_with("\n")) << result.err;
  return result.err.size() > start.size()
             ? result.err.substr(start.size(), result.err.size() - start.size() - 1)
             : "";
}

std::vector<std::string> ConvertFolder::names() const {
  return file_names(dir_.path());
}

}  // namespace tavo_test
