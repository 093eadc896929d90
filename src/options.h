// SPDX-License-Identifier: Apache-2.0
//
// The command line: the option table, the scan of the arguments and the checks that tie options together.
// Refusals are printed on standard output, letter for letter as users' scripts know them.
#pragma once

#include <optional>
#include <string>

// What the scan finds besides the process-wide variables of run_config.h.
struct RunArguments {
  int missing = 3;  // 0 none, 1 mc, 2 complete, 3 available
  int tie = 0;
  int top = 10;
  int shuffling = 0;
  int min_order = 2;
  int max_order = 2;
  int mode = 1;                   // 0 to 3, see TFmMDR.h
  std::string device = "auto";    // auto, cpu, cuda
  std::optional<unsigned> seed;   // of the fold shuffle
  std::string progress = "auto";  // auto, on, off
  std::string precision;          // empty when not given
  std::string tidy;               // path, empty when not given
  std::string checkpoint;         // path, empty when not given
  int permutations = 0;
  int stop_after = 0;    // 0: not given
  int shared_input = 0;  // non-zero: every rank reads the genotype file
};

// Each step returns the exit status to end with, or nothing to go on.

// "--help" or "--version" alone on the command line: prints it and ends with 0.
std::optional<int> answer_question(int argc, char** argv);

// Reads the arguments into the run configuration and *arguments.
std::optional<int> scan_arguments(int argc, char** argv, RunArguments* arguments);

// The rules that need no device, in their order; reads the covariate file of a regression.
std::optional<int> check_arguments(const RunArguments& arguments);
