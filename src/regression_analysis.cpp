// SPDX-License-Identifier: Apache-2.0
//
// The regression run: the null model, the fits, the top list of a logistic run and the lines of a linear one.
#include <unistd.h>

#include <cmath>
#include <cstdio>

#include "lib/comb_rank.h"
#include "lib/regression.h"
#include "src/TFmMDR.h"
#include "src/notice.h"
#include "src/progress.h"
#include "src/regression.h"
#include "src/run_config.h"
#include "src/tidy_regression.h"
#include "util/stopwatch.h"

namespace {

// Rows that the announced tables would have; the lists take what the top count needs.
constexpr int kAnnouncedRows = 2097152;

// In single precision, sums over more samples than this lose digits that a reader of p-values may need.
constexpr int kManySamples = 2000;

Problem problem_of(const MdrReader& reader, int order) {
  Problem problem;
  problem.words = reader.words().data();
  problem.words_per_row = reader.block_count();
  problem.n_samples = reader.GetLineCount();
  problem.n_snps = reader.GetColCount();
  problem.phenotypes = reader.phenotypes().data();
  problem.covariates = g_covValues;
  problem.n_covariates = g_covCnt;
  problem.ordered_regression = order != 1;
  return problem;
}

void say_what_is_odd(const Problem& problem, const RegressionRules& rules, const NullModel& null_model) {
  const int columns = rules.columns(problem.n_covariates);
  if (problem.n_samples < columns) {
    notice("%d samples are fewer than the %d columns of the model", problem.n_samples, columns);
  }
  int others = 0;
  if (rules.model == RegressionModel::kLinear) {
    // A class, an integer, is read as a number close to 0.
    for (int i = 0; i < problem.n_samples; ++i) {
      others += problem.phenotypes[i] != 0.0f && !std::isnormal(problem.phenotypes[i]) ? 1 : 0;
    }
    if (others > 0) {
      notice(
          "%d of %d samples have a phenotype that is not finite or below 1.2e-38: does the file hold "
          "classes?",
          others, problem.n_samples);
    }
  } else {
    for (int i = 0; i < problem.n_samples; ++i) {
      others += problem.phenotypes[i] != 0.0f && problem.phenotypes[i] != 1.0f ? 1 : 0;
    }
    if (others > 0) {
      notice("%d of %d samples have a class other than 0 and 1; a logistic regression has no sense for them",
             others, problem.n_samples);
    }
    if (null_model.degrees_of_freedom < 0.0f) {
      notice("the covariates-only model could not be fitted: there is nothing to compare models with");
    }
  }
  // Without a rank there is no covariates-only model, for another reason than precision.
  const bool lost_columns = null_model.rank > 0 && null_model.rank < problem.n_covariates + 1;
  if (rules.precision == Precision::kSingle && (problem.n_samples > kManySamples || lost_columns)) {
    notice("in single precision %s; --precision double does not have this limit",
           lost_columns
               ? "columns, maybe the SNPs', are left out of the fits, for the scale of a covariate or "
                 "because one depends on others: estimates and p-values can be meaningless"
               : "statistics over this many samples lose digits (docs/numerics.md)");
  }
}

}  // namespace

RegressionRules TFmMDR::regression_rules(const RunSettings& settings) {
  RegressionRules rules;
  const bool ordered = typed_value(g_combOrder, "1")[0] != '1';
  if (g_regression == kLinearRegression) {
    rules.model = RegressionModel::kLinear;
  } else if (ordered) {
    rules.model = RegressionModel::kOrderedLogistic;
  }
  rules.precision = settings.precision == "double" ? Precision::kDouble : Precision::kSingle;
  rules.iterations = g_logisIter;
  rules.distinct = g_regrDistinct != 0;
  return rules;
}

Status TFmMDR::CalcRegression(const MdrReader& reader, const RunSettings& settings, MdrWriter* writer,
                              TidyRegression* tidy, RegressionResult* result) {
  const RegressionRules rules = regression_rules(settings);
  const bool linear = g_regression == kLinearRegression;
  const int order = typed_value(g_combOrder, "1")[0] - '0';
  std::printf("new_comb %d*%d size\n", kAnnouncedRows, order);
  std::printf("result_top_num %d\n", settings.top);
  std::printf("Regression routine entered : method is %s\n", linear ? "Linear" : "Logistic");
  std::printf("new_stat %d*%d size\n", kAnnouncedRows, kRegressionRow);

  const Problem problem = problem_of(reader, order);
  const int columns = rules.columns(problem.n_covariates);
  WorkerPool pool(backend_, problem);
  if (Status status = pool.status(); !status.ok()) {
    return status;
  }
  unsigned total_timer = 0;
  cutCreateTimer(&total_timer);
  cutStartTimer(total_timer);

  if (linear) {
    result->null_model.rank =
        regression_null_rank(problem.n_samples, problem.n_covariates + 1, problem.covariates);
  } else {
    fit_null_model(problem, rules.precision, &result->null_model);
  }
  say_what_is_odd(problem, rules, result->null_model);
  uint64_t n_failed = 0;
  uint64_t n_items = 0;
  Status status;
  if (tidy != nullptr) {
    tidy->write_header();
  }
  if (linear && order == 2) {
    std::puts("Can't support ordered linear regression at this time");
  } else {
    RegressionTopList top(static_cast<size_t>(settings.top), columns, rules.precision);
    const std::vector<std::string> names = reader.ReadHeader();
    uint64_t number = 0;
    // Each batch has a line on standard output: on one terminal those will do.
    Progress progress(settings.progress == "auto" && isatty(STDOUT_FILENO) != 0 ? "off" : settings.progress);
    progress.begin(order, comb_count(problem.n_snps, order).value());
    const auto take = [&](FittedItem&& item) {
      n_failed += item.fit.state != FitState::kFitted ? 1 : 0;
      if (tidy != nullptr && order == 1) {
        tidy->write_row(item, result->null_model);
      }
      if (linear) {
        writer->WriteLine(linear_line(++number, item, rules, problem.n_samples, g_covCnt, names));
        return;
      }
      const double p =
          logistic_p_value(item.row[0], order, problem.n_samples, result->null_model, rules.precision);
      // Rows of a run in single precision hold floats, the ranking p-value, too.
      item.row[static_cast<size_t>(columns)] =
          rules.precision == Precision::kSingle ? static_cast<double>(static_cast<float>(p)) : p;
      top.offer(item);
    };
    status = regrProcess(pool, problem, rules,
                         static_cast<uint64_t>(g_cntBlockCuda) * static_cast<uint64_t>(g_cntThreadCuda), take,
                         &n_items, &progress);
    result->top = top.entries();
  }
  // Of pairs the table has the best only: there may be billions.
  if (tidy != nullptr && order == 2) {
    for (const FittedItem& item : result->top) {
      tidy->write_row(item, result->null_model);
    }
  }
  cutStopTimer(total_timer);
  const double milliseconds = static_cast<double>(cutGetTimerValue(total_timer));
  cutDeleteTimer(total_timer);
  if (!status.ok()) {
    return status;
  }
  if (n_failed > 0) {
    notice("%llu of %llu fits failed%s", static_cast<unsigned long long>(n_failed),
           static_cast<unsigned long long>(n_items), linear ? "" : "; they take part with a deviance of -1");
  }
  std::fflush(stdout);
  std::fprintf(stderr, "One loop taken %.3lf milliseconds, Pure %.3lf ms,  TOTLOC %ld\n", milliseconds,
               milliseconds, static_cast<long>(problem.n_snps));
  std::fputs("Enter to terminate thread...\n", stderr);
  std::puts("Termination complete...");
  return {};
}
