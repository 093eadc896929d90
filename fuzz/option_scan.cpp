// SPDX-License-Identifier: Apache-2.0
//
// Command lines. The first byte chooses the program, the parts of an input are the words.
#include <cmath>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "report/report.h"
#include "src/options.h"
#include "src/run_config.h"
#include "tools/options.h"
#include "tools/simulate_options.h"

namespace {

// As at the start of the process.
void reset_run_config() {
  for (char* path : {szInput, szOutput, szScore, g_covFileName}) {
    path[0] = '\0';
  }
  for (int* flag :
       {&g_transpose, &g_regrDistinct, &g_regression, &cv_start, &g_cntThreadCuda, &g_cntBlockCuda}) {
    *flag = 0;
  }
  for (int* unset : {&g_logisIter, &gpu, &selection, &g_combOrder, &g_selidx, &g_misidx, &g_tieidx, &g_topidx,
                     &g_shuidx}) {
    *unset = -1;
  }
  cvfold = 10;
  g_covCnt = 0;
  g_covLines = 0;
  delete[] g_covValues;
  delete[] g_covMissing;
  g_covValues = nullptr;
  g_covMissing = nullptr;
}

// Whatever covariate file was named: this one.
void name_covariate_file() {
  static const MemoryFile covariates;
  if (g_covFileName[0] != '\0') {
    covariates.set("FID\tIID\tage\n1\t1\t40\n");
    covariates.path().copy(g_covFileName, kPathSize - 1);
    g_covFileName[covariates.path().size()] = '\0';
  }
}

void scan(std::vector<std::string>& words) {
  reset_run_config();
  words.insert(words.begin(), "tavo");
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  const auto count = static_cast<int>(words.size());
  RunArguments run;
  if (answer_question(count, arguments.data()) || scan_arguments(count, arguments.data(), &run)) {
    return;
  }
  name_covariate_file();
  if (check_arguments(run)) {
    return;
  }
  require(run.min_order >= 1 && run.max_order >= 1 && run.max_order <= 20, "orders that can be counted");
  require(run.mode >= 0 && run.mode <= 3, "a mode that there is");
  require(run.missing >= 0 && run.missing <= 3 && run.top >= 0, "missing methods and lists that there are");
  require(cvfold >= 1 && (gpu == -1 || gpu >= 1), "folds and workers");
  require(g_regression != kNoRegression || (cv_start >= 0 && cv_start < cvfold),
          "a first fold that there is");
  for (const char* path : {szInput, szOutput, szScore, g_covFileName}) {
    require(std::string_view(path).size() < kPathSize, "paths that fit");
  }
}

void scan_convert(const std::vector<std::string>& words) {
  ConvertOptions options;
  if (parse_convert_options(words, &options).ok()) {
    for (const std::optional<double>& share :
         {options.filters.mind, options.filters.geno, options.filters.maf}) {
      require(!share || (*share >= 0.0 && *share <= 1.0), "shares");
    }
  }
}

void scan_simulate(const std::vector<std::string>& words) {
  SimulateOptions options;
  if (parse_simulate_options(words, &options).ok() && options.task == SimulateOptions::Task::kSimulate) {
    require(options.output || options.make_bed, "an output");
    for (const ModelRequest& model : options.models) {
      require(model.file || std::isfinite(model.rules.maf), "models of numbers");
    }
  }
}

void scan_report(const std::vector<std::string>& words) {
  ReportOptions options;
  if (parse_report_options(words, &options).ok()) {
    require(options.json || options.output, "an output");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const uint8_t program = input.byte() % 4;
  std::vector<std::string> words;
  while (!input.rest().empty()) {
    // As the system hands them over: a NUL ends them.
    const std::string_view word = input.part();
    words.emplace_back(word.substr(0, word.find('\0')));
  }
  switch (program) {
    case 0:
      scan(words);
      break;
    case 1:
      scan_convert(words);
      break;
    case 2:
      scan_simulate(words);
      break;
    default:
      scan_report(words);
      break;
  }
  return 0;
}
