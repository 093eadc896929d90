// SPDX-License-Identifier: Apache-2.0
#include "tools/program.h"

#include <cstdio>
#include <exception>
#include <new>

#include "util/stop_signal.h"

namespace {

constexpr int kRefused = 1;
constexpr int kWrongUsage = 2;

}  // namespace

void complain(const char* program, const std::string& message) {
  std::fprintf(stderr, "%s: %s\n", program, message.c_str());
}

int wrong_usage(const char* program, const Status& usage) {
  complain(program, usage.message() + " (" + program + " --help lists the options)");
  return kWrongUsage;
}

int refused(const char* program, const Status& status) {
  complain(program, status.message());
  return stop_signal() != 0 ? stopped_status(stop_signal()) : kRefused;
}

int print_result(const char* program, const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    complain(program, "cannot write to standard output");
    return kRefused;
  }
  return 0;
}

int finish_command(const char* program, const Status& status, const std::vector<std::string>& warnings,
                   const std::string& text) {
  for (const std::string& warning : warnings) {
    complain(program, "warning: " + warning);
  }
  return status.ok() ? print_result(program, text) : refused(program, status);
}

std::string version_text(const char* program) {
  return std::string(program) + " " + TAVO_VERSION + "\ncompiler: " + __VERSION__ + "\n";
}

int run_program(const char* program, int argc, char** argv,
                int (*command)(const std::vector<std::string>& words)) {
  ignore_write_signals();
  try {
    return command(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const std::bad_alloc&) {
    complain(program, "out of memory");
  } catch (const std::exception& error) {
    complain(program, error.what());
  }
  return kRefused;
}
