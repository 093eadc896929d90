// SPDX-License-Identifier: Apache-2.0
//
// A folder of its own to run tavo-convert in.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/run_program.h"

namespace tavo_test {

using Words = std::vector<std::string>;

// The words of a line of text separated by blanks.
Words words_of(const std::string& line);

bool has_line(const std::string& text, const std::string& line);

class ConvertFolder {
 public:
  std::filesystem::path operator/(const std::string& name) const { return dir_ / name; }
  const std::filesystem::path& path() const { return dir_.path(); }

  // Runs the program in the folder.
  RunResult run(const Words& words) const { return run_program(convert_program(), words, dir_.path()); }
  RunResult run_line(const std::string& line) const { return run(words_of(line)); }

  // Runs it, expects status 0, and returns standard output.
  std::string output_of(const std::string& line) const;

  // Runs it, expects status 1 and no file that was not there before, and returns the message without the
  // program's name and the line end.
  std::string refusal_of(const std::string& line) const;

  // The names of the files, sorted.
  std::vector<std::string> names() const;

  std::string read(const std::string& name) const { return read_file(dir_ / name); }
  void write(const std::string& name, const std::string& bytes) const { write_file(dir_ / name, bytes); }

 private:
  TempDir dir_;
};

}  // namespace tavo_test
