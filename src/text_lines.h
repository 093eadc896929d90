// SPDX-License-Identifier: Apache-2.0
//
// Lines of the small text files of a run: covariates and scores.
#pragma once

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

// In characters, without the line feed. A file that is none of text is refused before it fills the memory.
inline constexpr size_t kLongestTextLine = 65535;

class TextLines {
 public:
  explicit TextLines(std::istream& file) : file_(file), buffer_(kLongestTextLine + 2) {}

  // Reads a line, without its line feed. False at the end of the file, where reading fails, and from a line
  // on that is too long.
  bool next(std::string* line);

  // Whether it ended at a line of more than kLongestTextLine characters.
  bool too_long() const { return too_long_; }

 private:
  std::istream& file_;
  std::vector<char> buffer_;
  bool too_long_ = false;
};
