// SPDX-License-Identifier: Apache-2.0
//
// The run driver: one analysis from the genotype file to the report.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device/backend.h"
#include "src/FileIO.h"
#include "src/MDRResult.h"
#include "src/progress.h"

// What a run computes; the paths and device sizes are in run_config.h.
struct RunSettings {
  std::string input;
  std::string output;
  int maximum_order = 2;
  int minimum_order_minus_1 = 1;
  int folds = 10;
  int first_fold = 0;
  int case_value = 1;
  int mode = 1;     // 1: cross-validated, the best combinations are kept
  int measure = 0;  // ranks combinations, 0 to 9
  int missing = 3;  // option code: 0 none, 1 mc, 2 complete, 3 available
  int tie = 0;      // option value
  int top = 10;
  int shuffling = 0;  // non-zero: on
  std::optional<unsigned> seed;
  std::string progress = "auto";
};

using ResultArray = std::vector<std::unique_ptr<MDRResult>>;  // [maximum order], one per order, order 1 first

class TFmMDR {
 public:
  explicit TFmMDR(Backend& backend) : backend_(backend) {}

  // Runs the analysis and returns the exit status of the process. Messages and timings go to standard output.
  int MdrMethod(const RunSettings& settings);

  // The cross-validated analysis: fills the results of the orders of the run.
  Status CalcMdrMethodCV(const MdrReader& reader, const RunSettings& settings, const ResultArray& results);

  // Ranks the combinations of one order by weighted cross-validation consistency in `measure`, from the
  // per-fold lists in result->kept, into the summary of *result.
  void CalcWeightedCVC_CV(int measure, MDRResult* result);

  // Writes the report of a cross-validated run (modes 0 and 1). Fails only when the file, once opened, cannot
  // be written completely.
  Status WriteResultCV(const std::string& path, double elapsed_seconds, int mode,
                       const std::vector<std::string>& names, const ResultArray& results);

  // The index in 0-based position `field` of a combination key such as ",3,17,40,".
  static int GetComb(const char* key, int field);

 private:
  Backend& backend_;
};
