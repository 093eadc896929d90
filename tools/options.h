// SPDX-License-Identifier: Apache-2.0
//
// The command line of tavo-convert.
#pragma once

#include <string>
#include <vector>

#include "tools/genotype_writer.h"
#include "util/status.h"

struct ConvertOptions {
  enum class Task { kConvert, kInfo, kHelp, kVersion };
  Task task = Task::kConvert;
  std::string input;   // the table, or the genotype file of --info
  std::string output;  // kConvert only
  std::string class_name = "Class";
  Layout layout = Layout::kNormal;
  bool layout_given = false;
};

// words: the arguments without the program's name. A failure is wrong usage.
Status parse_convert_options(const std::vector<std::string>& words, ConvertOptions* options);

std::string convert_usage();
