// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "src/TFmMDR.h"
#include "src/corners.h"
#include "src/covariates.h"
#include "src/notice.h"
#include "src/run_config.h"
#include "src/run_identity.h"
#include "src/score_file.h"
#include "src/tidy_mdr.h"
#include "src/tidy_permutations.h"
#include "util/stop_signal.h"
#include "util/stopwatch.h"

namespace {

bool same_file(const std::string& a, const std::string& b) {
  std::error_code unknown;
  return std::filesystem::equivalent(a, b, unknown);
}

// Whether both paths lead to one file, that may not exist yet.
bool same_place(const std::string& a, const std::string& b) {
  const auto place = [](const std::string& path) {
    std::error_code unknown;
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, unknown), unknown);
  };
  return same_file(a, b) || place(a) == place(b);
}

// Where the null values of a permutation test go.
std::string permutations_path(const RunSettings& settings) {
  return settings.output + ".permutations.tsv";
}

// Whether there are such: a pipe or a device has no file beside it.
bool keeps_null_values(const RunSettings& settings) {
  return settings.permutations > 0 && OutputFile::is_replaceable(settings.output);
}

// The files of a run's results that have a name, by the option that asks for them.
std::vector<std::pair<const char*, std::string>> result_files(const RunSettings& settings) {
  std::vector<std::pair<const char*, std::string>> files = {{"out", settings.output}};
  if (keeps_null_values(settings)) {
    files.emplace_back("permutations", permutations_path(settings));
  }
  if (!settings.tidy.empty()) {
    files.emplace_back("tidy", settings.tidy);
  }
  return files;
}

// Whether no output names an input, or a file that another output needs. Otherwise the exit status.
std::optional<int> refuse_paths(const RunSettings& settings) {
  const std::vector<std::pair<const char*, std::string>> results = result_files(settings);
  for (const std::string& source : {settings.input, std::string(szScore), std::string(g_covFileName)}) {
    std::vector<std::pair<const char*, std::string>> outputs = results;
    outputs.emplace_back("checkpoint", settings.checkpoint);
    for (const auto& [option, path] : outputs) {
      if (same_file(path, source)) {
        notice("--%s names the input file %s, which the result would replace", option, source.c_str());
        return 1;
      }
    }
  }
  for (size_t i = 0; i < results.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (same_place(results[i].second, results[j].second)) {
        notice("--%s and --%s name the same file", results[i].first, results[j].first);
        return 1;
      }
    }
  }
  if (settings.checkpoint.empty()) {
    return std::nullopt;
  }
  for (const auto& [option, path] : results) {
    for (const std::string& file : Checkpoint::files(settings.checkpoint)) {
      if (same_place(file, path)) {
        notice(file == settings.checkpoint ? "--checkpoint and --%s name the same file"
                                           : "the checkpoint needs the name of the --%s file",
               option);
        return 1;
      }
    }
  }
  return std::nullopt;
}

// Whether the result file can be created: if it is a regular file, it is left there empty, so that whoever
// asked for the result knows before the analysis that it can be written. (A pipe is not tried: whoever reads
// it would take the trial for the whole.) The last step before the analysis: a run that is refused leaves an
// older result as it is. Otherwise the exit status.
std::optional<int> prove_output(const RunSettings& settings) {
  if (OutputFile::is_replaceable(settings.output) || std::filesystem::is_directory(settings.output)) {
    MdrWriter proof;
    if (!proof.Save(settings.output.c_str())) {
      std::fputs("Cannot save the text file!!", stdout);
      return 0;
    }
  }
  return std::nullopt;
}

// The end of a run that a signal stopped. Returns the exit status.
int end_interrupted() {
  notice("%s", stopped(stop_signal()).message().c_str());
  return stopped_status(stop_signal());
}

// Begins the tidy table, when one is wanted. The exit status when it cannot be.
template <typename Table>
std::optional<int> open_tidy(const RunSettings& settings, Table* table) {
  if (settings.tidy.empty()) {
    return std::nullopt;
  }
  if (!table->open(settings.tidy)) {
    if (stop_signal() != 0) {
      return end_interrupted();
    }
    notice("cannot create the tidy file %s", settings.tidy.c_str());
    return 1;
  }
  return std::nullopt;
}

// The same for the table of null values.
std::optional<int> open_permutations(const RunSettings& settings, TidyPermutations* table) {
  if (keeps_null_values(settings)) {
    if (!table->open(permutations_path(settings))) {
      notice("cannot create %s", permutations_path(settings).c_str());
      return 1;
    }
  } else if (settings.permutations > 0) {
    notice("--out %s is no file that could have the null values beside it: they are not written",
           settings.output.c_str());
  }
  return std::nullopt;
}

// Before the analysis: the paths, and the checkpoint, when one is wanted. The exit status when the run cannot
// go on.
std::optional<int> open_checkpoint(const RunSettings& settings, const std::function<RunIdentity()>& identity,
                                   Checkpoint* checkpoint) {
  if (const std::optional<int> status = refuse_paths(settings)) {
    return status;
  }
  if (!settings.checkpoint.empty()) {
    if (const Status status = checkpoint->open(settings.checkpoint, identity()); !status.ok()) {
      notice(status);
      return 1;
    }
  }
  return std::nullopt;
}

// The end of a run whose analysis failed or was stopped. One that was stopped leaves nothing of its result,
// not even the empty file of the proof. Returns the exit status.
int give_up(const Status& reason, const RunSettings& settings, const Checkpoint& checkpoint) {
  if (checkpoint.is_refused()) {
    notice("%s", reason.message().c_str());
    return 1;
  }
  if (stop_signal() == 0) {
    notice("%s", reason.message().c_str());
    return kDeviceFailure;
  }
  std::error_code unknown;
  if (!settings.checkpoint.empty() && std::filesystem::exists(settings.checkpoint, unknown)) {
    notice("%s holds what is done: the same command goes on from there", settings.checkpoint.c_str());
  }
  if (OutputFile::is_replaceable(settings.output)) {
    std::filesystem::remove(std::filesystem::canonical(settings.output, unknown), unknown);
  }
  return end_interrupted();
}

// The time of an analysis, without loading and reporting.
class RunClock {
 public:
  RunClock() {
    cutCreateTimer(&timer_);
    cutResetTimer(timer_);
    cutStartTimer(timer_);
  }
  ~RunClock() { cutDeleteTimer(timer_); }
  RunClock(const RunClock&) = delete;
  RunClock& operator=(const RunClock&) = delete;

  double seconds() const { return static_cast<double>(cutGetTimerValue(timer_)) / 1000.0; }

 private:
  unsigned timer_ = 0;
};

// The end of a run whose report is written, or could not be. Returns the exit status.
int finish(const Status& report, double elapsed_seconds) {
  if (!report.ok()) {
    notice("%s", report.message().c_str());
    return 1;
  }
  std::printf("TAVO Analysis finished!!\nTotal excuting time is %.4f second", elapsed_seconds);
  return 0;
}

// " testing value 0.6200, p = 0.001": a best value, how it is to be shown, and its p-value.
std::string told(const char* what, int digits, double value, double p) {
  char text[96];
  std::snprintf(text, sizeof(text), " %s %.*f, p = %.3g", what, digits, value, p);
  return text;
}

// The best values of every order, and of all, against those of the permutations, on standard error. They may
// be of different combinations.
void tell_p_values(const RunSettings& settings, const ResultArray& results, const PermutationNull& null) {
  const auto tell = [&](const std::string& where, const BestOfOrder& best, const auto& null_of) {
    const auto p = [&](double BestOfOrder::*statistic) {
      return permutation_p_value(null_of(statistic), best.*statistic, settings.stop_after);
    };
    std::string line = where + ":";
    if (!std::isnan(best.testing)) {
      line += told("best testing value", 4, best.testing, p(&BestOfOrder::testing)) + ";";
    }
    if (std::isnan(best.consistency)) {
      line += " no combination was ranked, so there is no p-value";
    } else {
      line += told("best consistency", 2, best.consistency, p(&BestOfOrder::consistency));
    }
    const size_t n = null.permutations();
    notice("%s (%zu permutation%s)", line.c_str(), n, n == 1 ? "" : "s");
  };
  std::vector<BestOfOrder> bests;
  for (int order = settings.minimum_order_minus_1 + 1; order <= settings.maximum_order; ++order) {
    const size_t index = bests.size();
    bests.push_back(best_of(*results[static_cast<size_t>(order) - 1]));
    tell("order " + std::to_string(order), bests.back(),
         [&](double BestOfOrder::*statistic) { return null.of_order(index, statistic); });
  }
  if (bests.size() > 1) {
    tell("all orders", best_of_all(bests),
         [&](double BestOfOrder::*statistic) { return null.of_all_orders(statistic); });
  }
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
  if (stop_signal() != 0) {
    return end_interrupted();
  }
  if (!scores_) {
    std::puts("Can't open score file, use original phenotype...");
    notice("%s cannot be opened: the run goes on without scores, with the classes of the genotype file",
           szScore);
    return std::nullopt;
  }
  if (!status.ok()) {
    notice(status);
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

int TFmMDR::run_regression(const RunSettings& settings, const MdrReader& reader) {
  if (szScore[0] != '\0') {
    std::puts("Can't open score file, use original phenotype...");
  }
  if (g_covMissing != nullptr) {
    if (g_covLines != reader.file_samples()) {
      notice("%s has %d lines after its header, but the genotype file has %d samples", g_covFileName,
             g_covLines, reader.file_samples());
      return 1;
    }
    if (reader.GetLineCount() == 0) {
      notice("%s leaves no sample: every line lacks a covariate", g_covFileName);
      return 1;
    }
    drop_incomplete_covariates();
  }
  Checkpoint checkpoint;
  if (const std::optional<int> status = open_checkpoint(
          settings, [&] { return regression_identity(reader, settings); }, &checkpoint)) {
    return *status;
  }
  const std::vector<std::string> names = reader.ReadHeader();
  const std::vector<std::string> covariate_names(g_covLabel, g_covLabel + g_covCnt);
  TidyRegression tidy(regression_rules(settings), reader.GetLineCount(), names, covariate_names);
  if (const std::optional<int> status = open_tidy(settings, &tidy)) {
    return *status;
  }
  if (const std::optional<int> status = prove_output(settings)) {
    return *status;
  }
  const RunClock clock;
  const bool linear = g_regression == kLinearRegression;
  RegressionResult result;
  MdrWriter lines;
  if (linear && !WriteResultRegression(settings.output, 0.0, &lines)) {
    return finish(lines.Close(), clock.seconds());
  }
  const Status analysis =
      CalcRegression(reader, settings, &lines, settings.tidy.empty() ? nullptr : &tidy, checkpoint, &result);
  const double elapsed_seconds = clock.seconds();
  if (!analysis.ok()) {
    return give_up(analysis, settings, checkpoint);
  }
  std::printf("Regression method is %d\n", g_regression);
  Status report = linear ? lines.Close()
                         : WriteResultLogisticRegression(settings.output, elapsed_seconds,
                                                         reader.GetLineCount(), settings, names, result);
  if (report.ok() && !settings.tidy.empty()) {
    report = tidy.close();
  }
  if (report.ok()) {
    checkpoint.remove();
  }
  return finish(report, elapsed_seconds);
}

int TFmMDR::MdrMethod(const RunSettings& settings) {
  if (settings.permutations > 0 && (settings.mode != 1 || g_regression != kNoRegression)) {
    notice("--permutations is for cross-validated searches (--mode 1)");
    return 1;
  }
  if (settings.stop_after > 0 && settings.permutations == 0) {
    notice("--stop-after ends permutations early: say how many at most with --permutations");
    return 1;
  }
  MdrReader reader;
  if (!reader.Open(settings.input.c_str(), szScore[0] != '\0', g_transpose)) {
    if (stop_signal() != 0) {
      return end_interrupted();
    }
    std::fputs("Cannot open the text file!!", stdout);
    return 0;
  }
  give_option_notices(settings, reader);
  if (g_regression != kNoRegression) {
    return run_regression(settings, reader);
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
  Checkpoint checkpoint;
  if (const std::optional<int> status = open_checkpoint(
          settings, [&] { return mdr_identity(reader, settings); }, &checkpoint)) {
    return *status;
  }
  TidyMdr tidy;
  if (const std::optional<int> status = open_tidy(settings, &tidy)) {
    return *status;
  }
  TidyPermutations permutations;
  if (const std::optional<int> status = open_permutations(settings, &permutations)) {
    return *status;
  }
  if (const std::optional<int> status = prove_output(settings)) {
    return *status;
  }
  const RunClock clock;
  const bool exhaustive = settings.mode >= 2;
  const ResultArray results = make_results(settings);
  PermutationNull null;
  const Status analysis = exhaustive ? CalcMdrMethodALL(reader, settings, results, checkpoint)
                                     : CalcMdrMethodCV(reader, settings, results, checkpoint, &null);
  const double elapsed_seconds = clock.seconds();
  if (!analysis.ok()) {
    return give_up(analysis, settings, checkpoint);
  }

  std::printf("Regression method is %d\n", g_regression);
  const std::vector<std::string> names = reader.ReadHeader();
  Status report = exhaustive ? WriteResultALL(settings.output, elapsed_seconds, settings.mode, names, results)
                             : WriteResultCV(settings.output, elapsed_seconds, settings.mode, names, results);
  if (report.ok() && !settings.tidy.empty()) {
    tidy.write(reader, settings, results, null);
    report = tidy.close();
  }
  if (report.ok() && settings.permutations > 0) {
    if (keeps_null_values(settings)) {
      permutations.write(null, settings.minimum_order_minus_1 + 1);
      report = permutations.close();
    }
    tell_p_values(settings, results, null);
  }
  if (report.ok()) {
    checkpoint.remove();
  }
  return finish(report.ok() ? by_products_ : report, elapsed_seconds);
}
