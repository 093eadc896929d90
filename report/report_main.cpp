// SPDX-License-Identifier: Apache-2.0
//
// tavo-report: results as pages and as JSON.
#include <cstdio>
#include <exception>
#include <new>

#include "report/page.h"
#include "report/page_parts.h"
#include "report/report.h"

namespace {

constexpr int kRefused = 1;
constexpr int kWrongUsage = 2;

void complain(const std::string& message) {
  std::fprintf(stderr, "tavo-report: %s\n", message.c_str());
}

std::string version_text() {
  return "tavo-report " TAVO_VERSION "\npages: " +
         (has_page() ? "drawn with Apache ECharts " + std::string(kPlotLibraryVersion)
                     : "none in this build") +
         "\n";
}

int run_command(const std::vector<std::string>& words) {
  if (words.size() == 1 && (words[0] == "--help" || words[0] == "--version")) {
    std::fputs(words[0] == "--help" ? kReportUsage : version_text().c_str(), stdout);
    return std::fflush(stdout) == 0 ? 0 : kRefused;
  }
  ReportOptions options;
  if (const Status usage = parse_report_options(words, &options); !usage.ok()) {
    complain(usage.message() + " (tavo-report --help lists the options)");
    return kWrongUsage;
  }
  std::vector<std::string> warnings;
  const Status status = make_report(options, &warnings);
  for (const std::string& warning : warnings) {
    complain("warning: " + warning);
  }
  if (!status.ok()) {
    complain(status.message());
    return kRefused;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run_command(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const std::bad_alloc&) {
    complain("out of memory");
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return kRefused;
}
