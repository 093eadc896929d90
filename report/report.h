// SPDX-License-Identifier: Apache-2.0
//
// tavo-report: from a result file to JSON or a page.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/status.h"

struct ReportOptions {
  std::string input;
  std::optional<std::string> output;     // without it standard output; JSON only
  bool json = false;                     // else a page
  std::optional<std::string> genotypes;  // of MDR runs
  std::optional<std::string> map;        // of regressions
  std::optional<std::string> title;
};

// A failure is wrong usage.
Status parse_report_options(const std::vector<std::string>& words, ReportOptions* options);

// Writes the report; the file appears when complete. *warnings gets lines for the user.
Status make_report(const ReportOptions& options, std::vector<std::string>* warnings);

extern const char* const kReportUsage;
