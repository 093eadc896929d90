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
#include "src/checkpoint.h"
#include "src/exhaustive.h"
#include "src/permutation_null.h"
#include "src/progress.h"
#include "src/regression.h"
#include "src/tidy_regression.h"

// What a run computes; the paths and device sizes are in run_config.h.
struct RunSettings {
  std::string input;
  std::string output;
  int maximum_order = 2;
  int minimum_order_minus_1 = 1;
  int folds = 10;
  int first_fold = 0;
  int case_value = 1;
  // 0: cross-validated, combinations above a permutation threshold are kept; 1: cross-validated, the best
  // are kept; 2: exhaustive, those above a permutation threshold; 3: exhaustive, the best.
  int mode = 1;
  int measure = 0;  // ranks combinations, 0 to 9
  int missing = 3;  // option code: 0 none, 1 mc, 2 complete, 3 available
  int tie = 0;      // option value
  int top = 10;
  int shuffling = 0;  // non-zero: on
  std::optional<unsigned> seed;
  std::string progress = "auto";
  std::string precision = "single";  // or "double": arithmetic of regressions
  std::string tidy;                  // path of the tidy table, or empty
  std::string checkpoint;            // path of the checkpoint, or empty
  int permutations = 0;              // of the permutation test of mode 1
  int stop_after = 0;                // null values that end it early, 0: none do
  double null_level = 0.999;         // of the permutation threshold
  int null_combinations = 100;       // sampled for the null distribution
  int null_permutations = 100;       // of each
  int block_size = kExhaustiveBlock;
};

// How the combinations of one order of a cross-validated run are scored.
ScoringRules scoring_rules(const RunSettings& settings, int order);

// Places of each fold's list, of so many combinations.
size_t list_size_of(const RunSettings& settings, uint64_t n_combinations);

// Combinations per worker and pass of the record path: --thread times --block.
uint64_t launch_size();

// What a logistic regression leaves: the best items, by p-value.
struct RegressionResult {
  NullModel null_model;
  std::vector<FittedItem> top;
};

using ResultArray = std::vector<std::unique_ptr<MDRResult>>;  // [maximum order], order 1 first

class TFmMDR {
 public:
  explicit TFmMDR(Backend& backend) : backend_(backend) {}

  // Empty result records for the orders of a run.
  static ResultArray make_results(const RunSettings& settings);

  // Runs the analysis and returns the exit status of the process. Messages and timings go to standard output.
  int MdrMethod(const RunSettings& settings);

  // The analyses go on from what the checkpoint holds, and keep in it how far they have come.

  // The cross-validated analysis (modes 0 and 1): fills the results of the orders of the run. One of mode 1
  // is tested by permutations where settings ask for it: *null.
  Status CalcMdrMethodCV(const MdrReader& reader, const RunSettings& settings, const ResultArray& results,
                         Checkpoint& checkpoint, PermutationNull* null);

  // Ranks the combinations of one order by weighted cross-validation consistency in `measure`, from the
  // per-fold lists in result->kept, into the summary of *result. permutation: with p-values.
  void CalcWeightedCVC_CV(int measure, bool permutation, MDRResult* result);

  // The exhaustive analysis (modes 2 and 3), on the host.
  Status CalcMdrMethodALL(const MdrReader& reader, const RunSettings& settings, const ResultArray& results,
                          Checkpoint& checkpoint);

  // Ranks the kept combinations of one order by `measure` into the summary of *result; their weighted
  // consistency is the measure relative to the best one's.
  void CalcWeightedCVC_ALL(int measure, bool permutation, MDRResult* result);

  // Write the report of a cross-validated (modes 0 and 1) and of an exhaustive run (modes 2 and 3).
  Status WriteResultCV(const std::string& path, double elapsed_seconds, int mode,
                       const std::vector<std::string>& names, const ResultArray& results);
  Status WriteResultALL(const std::string& path, double elapsed_seconds, int mode,
                        const std::vector<std::string>& names, const ResultArray& results);

  // What the command line says of a regression's model.
  static RegressionRules regression_rules(const RunSettings& settings);

  // The regression run: fits every SNP or pair; a logistic run keeps the best in *result, a linear one writes
  // a line each to *writer, which is open. tidy: open, or null; it gets every SNP, or the best pairs.
  Status CalcRegression(const MdrReader& reader, const RunSettings& settings, MdrWriter* writer,
                        TidyRegression* tidy, Checkpoint& checkpoint, RegressionResult* result);

  // Opens the result file of a linear run and writes its head. False when it cannot be opened.
  bool WriteResultRegression(const std::string& path, double elapsed_seconds, MdrWriter* writer);

  // Writes the report of a logistic run.
  Status WriteResultLogisticRegression(const std::string& path, double elapsed_seconds, int n_samples,
                                       const RunSettings& settings, const std::vector<std::string>& names,
                                       const RegressionResult& result);

  // The index in 0-based position `field` of a combination key such as ",3,17,40,".
  static int GetComb(const char* key, int field);

 private:
  // A regression from the opened genotype file to its report. Returns the exit status.
  int run_regression(const RunSettings& settings, const MdrReader& reader);

  // Reads the score file into scores_ and makes the run score-based; goes on with the phenotype when the file
  // cannot be opened. Returns the exit status of a run that cannot go on.
  std::optional<int> apply_scores(const RunSettings& settings, MdrReader* reader);

  Backend& backend_;
  std::optional<std::vector<float>> scores_;
  Status by_products_;  // of the files that a cross-validated analysis leaves in the working directory
};
