// SPDX-License-Identifier: Apache-2.0
//
// tavo-report: results as pages and as JSON.
#include "report/page.h"
#include "report/page_parts.h"
#include "report/report.h"
#include "tools/program.h"
#include "util/stop_signal.h"

namespace {

constexpr const char* kProgram = "tavo-report";

std::string report_version() {
  return version_text(kProgram) + "pages: " +
         (has_page() ? "drawn with Apache ECharts " + std::string(kPlotLibraryVersion)
                     : "none in this build") +
         "\n";
}

int run_command(const std::vector<std::string>& words) {
  if (words.size() == 1 && (words[0] == "--help" || words[0] == "--version")) {
    return print_result(kProgram, words[0] == "--help" ? kReportUsage : report_version());
  }
  ReportOptions options;
  if (const Status usage = parse_report_options(words, &options); !usage.ok()) {
    return wrong_usage(kProgram, usage);
  }
  catch_stop_signals();
  std::vector<std::string> warnings;
  const Status status = make_report(options, &warnings);
  return finish_command(kProgram, status, warnings, "");
}

}  // namespace

int main(int argc, char** argv) {
  return run_program(kProgram, argc, argv, run_command);
}
