// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <filesystem>

#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "src/TFmMDR.h"
#include "src/notice.h"
#include "src/run_config.h"
#include "src/score_file.h"
#include "util/stopwatch.h"

namespace {

// The status of a process whose device failed: exit(-1) as the system reports it.
constexpr int kDeviceFailure = 255;

bool same_file(const std::string& a, const std::string& b) {
  std::error_code unknown;
  return std::filesystem::equivalent(a, b, unknown);
}

// Combinations kept per group when all above a threshold are wanted.
constexpr int kThresholdSlots = 10000;

}  // namespace

int TFmMDR::GetComb(const char* key, int field) {
  return comb_key_field(key, field);
}

ResultArray TFmMDR::make_results(const RunSettings& settings) {
  const bool exhaustive = settings.mode >= 2;
  const bool by_threshold = settings.mode == 0 || settings.mode == 2;
  ResultArray results;
  for (int order = 1; order <= settings.maximum_order; ++order) {
    results.push_back(std::make_unique<MDRResult>(
        settings.maximum_order, settings.minimum_order_minus_1, exhaustive ? 1 : settings.folds,
        by_threshold ? kThresholdSlots : settings.top, settings.top, settings.mode, 0, 0,
        std::vector<int>(static_cast<size_t>(settings.maximum_order))));
  }
  return results;
}

std::optional<int> TFmMDR::apply_scores(const RunSettings& settings, MdrReader* reader) {
  Status status;
  if (!reader->classes().empty()) {
    scores_ = read_scores(szScore, reader->GetLineCount(), &status);
  }
  if (!scores_) {
    std::puts("Can't open score file, use original phenotype...");
    return std::nullopt;
  }
  if (!status.ok()) {
    notice("%s", status.message().c_str());
    return 1;
  }
  reader->set_scores(scores_->data(), classes_of_scores(*scores_));
  std::puts("Successfully applied score!");
  g_cntThreadCuda = score_thread_cap(typed_value(g_combOrder, "2"), g_cntThreadCuda);
  std::printf("Thread count after is %d!\n", g_cntThreadCuda);
  const bool exhaustive = settings.mode >= 2;
  if (g_transpose != 0 && !exhaustive) {
    std::puts("Can't apply score when you running data at transpose mode");
    return 1;
  }
  if (exhaustive) {
    notice("an exhaustive run uses the classes that the scores stand for, not the scores");
  } else if (settings.measure != kBalancedAccuracy) {
    notice(
        "score-based results carry balanced accuracy only: ranking by another measure leaves every list "
        "empty");
  }
  return std::nullopt;
}

int TFmMDR::MdrMethod(const RunSettings& settings) {
  MdrReader reader;
  if (!reader.Open(settings.input.c_str(), szScore[0] != '\0', g_transpose)) {
    std::fputs("Cannot open the text file!!", stdout);
    return 0;
  }
  if (g_regression != kNoRegression) {
    notice("this version does not run regressions");
    return 1;
  }
  for (int order = settings.minimum_order_minus_1 + 1; order <= settings.maximum_order; ++order) {
    if (!comb_count(reader.GetColCount(), order)) {
      notice("order %d: the combinations of %d SNPs are more than can be numbered (2^63)", order,
             reader.GetColCount());
      return 1;
    }
  }
  if (szScore[0] != '\0') {
    if (const std::optional<int> status = apply_scores(settings, &reader)) {
      return *status;
    }
  }
  for (const std::string& source : {settings.input, std::string(szScore)}) {
    if (same_file(settings.output, source)) {
      notice("--out names the input file %s, which the result would replace", source.c_str());
      return 1;
    }
  }
  // Leaves an empty file: whoever asked for the result knows before the analysis that it can be written. A
  // pipe is not tried: whoever reads it would take the trial for the whole.
  if (OutputFile::is_replaceable(settings.output) || std::filesystem::is_directory(settings.output)) {
    MdrWriter proof;
    if (!proof.Save(settings.output.c_str())) {
      std::fputs("Cannot save the text file!!", stdout);
      return 0;
    }
  }
  unsigned timer = 0;
  cutCreateTimer(&timer);
  cutResetTimer(timer);
  cutStartTimer(timer);

  const bool exhaustive = settings.mode >= 2;
  const ResultArray results = make_results(settings);
  const Status analysis =
      exhaustive ? CalcMdrMethodALL(reader, settings, results) : CalcMdrMethodCV(reader, settings, results);
  cutStopTimer(timer);
  const double elapsed_seconds = static_cast<double>(cutGetTimerValue(timer)) / 1000.0;
  cutDeleteTimer(timer);
  if (!analysis.ok()) {
    notice("%s", analysis.message().c_str());
    return kDeviceFailure;
  }

  std::printf("Regression method is %d\n", g_regression);
  const std::vector<std::string> names = reader.ReadHeader();
  const Status report = exhaustive
                            ? WriteResultALL(settings.output, elapsed_seconds, settings.mode, names, results)
                            : WriteResultCV(settings.output, elapsed_seconds, settings.mode, names, results);
  if (!report.ok()) {
    notice("%s", report.message().c_str());
    return 1;
  }
  std::printf("TAVO Analysis finished!!\nTotal excuting time is %.4f second", elapsed_seconds);
  return 0;
}
