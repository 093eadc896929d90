// SPDX-License-Identifier: Apache-2.0
//
// Runs a program the way a user does, and looks at what it left behind.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tavo_test {

struct RunResult {
  int status = 0;  // exit status; 128 + signal when a signal ended the program
  std::string out;
  std::string err;
};

using Environment = std::vector<std::pair<std::string, std::string>>;

// Runs program with arguments in the folder `directory` and waits for it. Standard input is empty. The
// entries of environment are added to this process's own.
RunResult run_program(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      const std::filesystem::path& directory, const Environment& environment = {});

// The same, but as soon as a file whose name begins with `file` stands in the folder, the signal is sent.
RunResult interrupt_program(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                            const std::filesystem::path& directory, const std::string& file, int signal);

// The same, but the signal is sent as soon as `ready` says so.
RunResult interrupt_program_when(const std::filesystem::path& program,
                                 const std::vector<std::string>& arguments,
                                 const std::filesystem::path& directory, const Environment& environment,
                                 const std::function<bool()>& ready, int signal);

// The same, but the signal is sent as soon as the program has begun a file that is to appear when complete.
RunResult interrupt_writing(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                            const std::filesystem::path& directory, int signal);

// The built programs.
std::filesystem::path tavo_program();
std::filesystem::path convert_program();
std::filesystem::path score_program();
std::filesystem::path simulate_program();

// The top folder of the checkout, for test data and examples.
std::filesystem::path source_root();

// A new empty folder, removed with all that is in it at the end of the object's life.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, const std::string& bytes);
std::vector<std::string> split_lines(const std::string& text);

}  // namespace tavo_test
