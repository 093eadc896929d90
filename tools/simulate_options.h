// SPDX-License-Identifier: Apache-2.0
//
// The command line of tavo-simulate.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lib/genotype_file.h"
#include "tools/simulate_files.h"
#include "tools/simulate_source.h"
#include "util/status.h"

// Where the penetrances of an interaction come from.
struct ModelRequest {
  std::string text;  // as given
  std::optional<std::string> file;
  EpistaticRules rules;            // without a file
  std::vector<int64_t> positions;  // from 0; empty: random
};

struct SimulateOptions {
  enum class Task { kSimulate, kHelp, kVersion };
  Task task = Task::kSimulate;

  std::optional<std::string> output;  // --out; this or make_bed, or both
  Layout layout = Layout::kNormal;
  std::optional<std::string> make_bed;  // prefix
  std::optional<std::string> truth;
  std::optional<std::string> covar_out;
  CovariateRules covariates;

  SimulationPlan plan;  // without models
  std::vector<ModelRequest> models;
};

// words: the arguments without the program's name. A failure is wrong usage.
Status parse_simulate_options(const std::vector<std::string>& words, SimulateOptions* options);

std::string simulate_usage();
