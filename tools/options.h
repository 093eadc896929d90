// SPDX-License-Identifier: Apache-2.0
//
// The command line of tavo-convert.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lib/genotype_file.h"
#include "tools/filters.h"
#include "util/status.h"

enum class InputFormat {
  kFile,  // --in: a text table or a genotype file
  kBed,   // --bfile
  kVcf,   // --vcf
};

struct ConvertOptions {
  enum class Task { kConvert, kInfo, kHelp, kVersion };
  Task task = Task::kConvert;

  InputFormat format = InputFormat::kFile;
  std::string input;  // the file, or the prefix of --bfile; the genotype file of --info
  std::string class_name = "Class";
  std::optional<Layout> input_layout;  // of a genotype file whose size fits both
  bool split = false;
  bool count_other_allele = false;

  std::optional<std::string> output;  // --out; this or make_bed, or both
  Layout layout = Layout::kNormal;    // of --out; for --info the layout to assume
  bool layout_given = false;
  std::optional<std::string> make_bed;  // prefix

  std::optional<std::string> pheno;
  std::optional<std::string> pheno_name;
  bool quantitative = false;
  std::optional<std::string> covar;
  std::optional<std::vector<std::string>> covar_names;
  std::optional<std::string> covar_out;

  FilterOptions filters;
};

// words: the arguments without the program's name. A failure is wrong usage.
Status parse_convert_options(const std::vector<std::string>& words, ConvertOptions* options);

std::string convert_usage();
