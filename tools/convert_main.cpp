// SPDX-License-Identifier: Apache-2.0
//
// tavo-convert: converts between genotype formats and says what genotype files hold.
#include <htslib/hts.h>
#include <zlib.h>

#include "tools/convert.h"
#include "tools/program.h"

namespace {

constexpr const char* kProgram = "tavo-convert";

Status run(const ConvertOptions& options, ConvertReport* report) {
  switch (options.task) {
    case ConvertOptions::Task::kHelp:
      report->text = convert_usage();
      return {};
    case ConvertOptions::Task::kVersion:
      report->text = version_text(kProgram) + "zlib: " + zlibVersion() + "\nhtslib: " + hts_version() + "\n";
      return {};
    case ConvertOptions::Task::kInfo:
      return describe_genotypes(options, report);
    case ConvertOptions::Task::kConvert:
      break;
  }
  catch_stop_signals();
  return convert(options, stop_signal(), report);
}

int run_command(const std::vector<std::string>& words) {
  ConvertOptions options;
  if (Status usage = parse_convert_options(words, &options); !usage.ok()) {
    return wrong_usage(kProgram, usage);
  }
  ConvertReport report;
  const Status status = run(options, &report);
  return finish_command(kProgram, status, report.warnings, report.text);
}

}  // namespace

int main(int argc, char** argv) {
  return run_program(kProgram, argc, argv, run_command);
}
