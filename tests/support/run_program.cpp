// SPDX-License-Identifier: Apache-2.0
#include "tests/support/run_program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tavo_test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() / "tavo-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot make a temporary folder from " + pattern);
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot read " + path.string());
  }
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void write_file(const fs::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

namespace {

bool has_file(const fs::path& directory, const std::string& start) {
  return std::any_of(fs::directory_iterator(directory), fs::directory_iterator(),
                     [&](const auto& entry) { return entry.path().filename().string().starts_with(start); });
}

// Whether the process has a file without a name open in the folder.
bool has_unnamed_file(pid_t process, const fs::path& directory) {
  std::error_code gone;
  const std::string start = (fs::canonical(directory) / "#").string();
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd", gone)) {
    if (fs::read_symlink(entry.path(), gone).string().starts_with(start)) {
      return true;
    }
  }
  return false;
}

// meanwhile: called with the process's number once it runs.
RunResult run_with(const fs::path& program, const std::vector<std::string>& arguments,
                   const fs::path& directory, const Environment& environment,
                   const std::function<void(pid_t)>& meanwhile) {
  const TempDir capture;
  const fs::path out_path = capture / "out";
  const fs::path err_path = capture / "err";

  std::vector<std::string> words{program.string()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);

  std::vector<std::string> settings;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    settings.emplace_back(*entry);
  }
  for (const auto& [name, value] : environment) {
    settings.push_back(name + "=" + value);
  }
  std::vector<char*> envp;
  for (std::string& setting : settings) {
    envp.push_back(setting.data());
  }
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
  pid_t child = 0;
  const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error("cannot start " + program.string());
  }
  meanwhile(child);
  int wait_status = 0;
  waitpid(child, &wait_status, 0);

  RunResult result;
  result.status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
  result.out = read_file(out_path);
  result.err = read_file(err_path);
  return result;
}

}  // namespace

RunResult run_program(const fs::path& program, const std::vector<std::string>& arguments,
                      const fs::path& directory, const Environment& environment) {
  return run_with(program, arguments, directory, environment, [](pid_t) {});
}

namespace {

// ready: called with the process's number.
RunResult signal_when(const fs::path& program, const std::vector<std::string>& arguments,
                      const fs::path& directory, const Environment& environment,
                      const std::function<bool(pid_t)>& ready, int signal) {
  return run_with(program, arguments, directory, environment, [&](pid_t child) {
    // A process that has ended stays until it is waited for, so the number cannot be another's.
    for (int i = 0; i < 4000 && !ready(child); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    kill(child, signal);
  });
}

}  // namespace

RunResult interrupt_program_when(const fs::path& program, const std::vector<std::string>& arguments,
                                 const fs::path& directory, const Environment& environment,
                                 const std::function<bool()>& ready, int signal) {
  return signal_when(
      program, arguments, directory, environment, [&](pid_t) { return ready(); }, signal);
}

RunResult interrupt_writing(const fs::path& program, const std::vector<std::string>& arguments,
                            const fs::path& directory, int signal) {
  return signal_when(
      program, arguments, directory, {},
      [&](pid_t child) {
        return has_unnamed_file(child, directory) ||
               std::any_of(fs::directory_iterator(directory), fs::directory_iterator(),
                           [](const auto& entry) {
                             return entry.path().filename().string().find(".tmp") != std::string::npos;
                           });
      },
      signal);
}

RunResult interrupt_program(const fs::path& program, const std::vector<std::string>& arguments,
                            const fs::path& directory, const std::string& file, int signal) {
  return interrupt_program_when(
      program, arguments, directory, {}, [&] { return has_file(directory, file); }, signal);
}

fs::path tavo_program() {
  return TAVO_PROGRAM;
}
fs::path convert_program() {
  return TAVO_CONVERT_PROGRAM;
}
fs::path score_program() {
  return TAVO_SCORE_PROGRAM;
}
fs::path simulate_program() {
  return TAVO_SIMULATE_PROGRAM;
}
fs::path source_root() {
  return TAVO_SOURCE_ROOT;
}

}  // namespace tavo_test
