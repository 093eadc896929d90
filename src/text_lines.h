// SPDX-License-Identifier: Apache-2.0
//
// The small text files of a run, line by line: covariates and scores.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

// In characters, without the line feed. A file that is none of text is refused before it fills the memory.
inline constexpr size_t kLongestTextLine = 65535;

class TextLines {
 public:
  // Opens the file, or a pipe; is_open() says whether it could.
  explicit TextLines(const std::string& path);

  bool is_open() const { return file_ != nullptr; }

  // Reads a line, without its line feed. False at the end of the file, where reading fails (also when a
  // signal interrupts it), and from a line on that is too long.
  bool next(std::string* line);

  // Whether it ended at a line of more than kLongestTextLine characters.
  bool too_long() const { return too_long_; }

  // Whether it ended because reading failed.
  bool failed() const { return std::ferror(file_.get()) != 0; }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  // No stream of the C++ library: those wait on when a signal asks to stop.
  std::unique_ptr<std::FILE, Closer> file_;
  bool too_long_ = false;
};
