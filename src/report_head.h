// SPDX-License-Identifier: Apache-2.0
//
// The head that the result files share: the Time and Options sections and the banner of the Results.
#pragma once

#include <string>
#include <vector>

#include "src/FileIO.h"

// 79 "=": ends the Time section and every result block.
extern const std::string kSectionEnd;

// The Time section, the banner of the Options and the command line.
void write_time_and_command(MdrWriter& writer, double elapsed_seconds);

// The end of the Options and the banner of the Results.
void write_results_banner(MdrWriter& writer);

// The head of an MDR report. folds: of the first result record.
void write_report_head(MdrWriter& writer, const std::string& path, double elapsed_seconds, int folds);

// "( rs1 rs2 )".
std::string combination_name(const std::vector<int>& snps, const std::vector<std::string>& names);
