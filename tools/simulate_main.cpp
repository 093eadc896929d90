// SPDX-License-Identifier: Apache-2.0
//
// tavo-simulate: case/control data with known interactions.
#include "tools/program.h"
#include "tools/simulate.h"

namespace {

constexpr const char* kProgram = "tavo-simulate";

int run_command(const std::vector<std::string>& words) {
  SimulateOptions options;
  if (Status usage = parse_simulate_options(words, &options); !usage.ok()) {
    return wrong_usage(kProgram, usage);
  }
  if (options.task == SimulateOptions::Task::kHelp) {
    return print_result(kProgram, simulate_usage());
  }
  if (options.task == SimulateOptions::Task::kVersion) {
    return print_result(kProgram, version_text(kProgram));
  }
  catch_stop_signals();
  SimulateReport report;
  const Status status = simulate(options, stop_signal(), &report);
  return finish_command(kProgram, status, report.warnings, report.text);
}

}  // namespace

int main(int argc, char** argv) {
  return run_program(kProgram, argc, argv, run_command);
}
