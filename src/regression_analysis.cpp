// SPDX-License-Identifier: Apache-2.0
//
// The regression run: the null model, the fits, the top list of a logistic run and the lines of a linear one.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/comb_rank.h"
#include "lib/regression.h"
#include "src/TFmMDR.h"
#include "src/notice.h"
#include "src/progress.h"
#include "src/regression.h"
#include "src/regression_state.h"
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

// With a checkpoint, rows that are written as they come are kept beside it, n_rows of them so far. writer and
// tidy may be null.
Status keep_rows(Checkpoint& checkpoint, uint64_t n_rows, MdrWriter* writer, TidyRegression* tidy) {
  Status status;
  if (!checkpoint.is_open()) {
    return status;
  }
  GrowingFile* rows = nullptr;
  if (writer != nullptr) {
    status = checkpoint.rows(Checkpoint::kResultRows, &rows);
    writer->KeepLinesIn(rows);
  }
  if (tidy != nullptr && status.ok()) {
    status = checkpoint.rows(Checkpoint::kTidyRows, &rows);
    tidy->keep_rows_in(rows, n_rows);
  }
  return status;
}

// The part of the state that the list of the best items is.
RegressionState top_state(const RegressionTopList& top, int n_snps, int columns) {
  RegressionState state;
  for (const FittedItem& item : top.entries()) {
    state.top.push_back(comb_rank(n_snps, static_cast<int>(item.snps.size()), item.snps.data()));
    state.p_values.push_back(item.row[static_cast<size_t>(columns)]);
  }
  return state;
}

bool same_list(const RegressionState& a, const RegressionState& b) {
  return a.top == b.top && std::ranges::equal(a.p_values, b.p_values, [](double p, double q) {
           return p == q || (std::isnan(p) && std::isnan(q));
         });
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
                              TidyRegression* tidy, Checkpoint& checkpoint, RegressionResult* result) {
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
  RegressionState state;
  Status status;
  if (tidy != nullptr) {
    tidy->write_header();
  }
  if (linear && order == 2) {
    std::puts("Can't support ordered linear regression at this time");
  } else {
    const uint64_t n_items = comb_count(problem.n_snps, order).value();
    const auto n_top = static_cast<size_t>(linear ? 0 : settings.top);
    status = restore_regression(checkpoint, n_items, n_top, &state);
    if (status.ok()) {
      status = keep_rows(checkpoint, state.next, linear ? writer : nullptr, order == 1 ? tidy : nullptr);
    }
    const auto rank_by_p_value = [&](FittedItem& item) {
      const double p =
          logistic_p_value(item.row[0], order, problem.n_samples, result->null_model, rules.precision);
      // Rows of a run in single precision hold floats, the ranking p-value, too.
      item.row[static_cast<size_t>(columns)] =
          rules.precision == Precision::kSingle ? static_cast<double>(static_cast<float>(p)) : p;
    };
    RegressionTopList top(n_top, columns, rules.precision);
    if (status.ok() && !state.top.empty()) {
      status = fit_listed(pool, problem, rules, launch_size(),
                          comb_unrank_all(problem.n_snps, order, state.top), [&](FittedItem&& item) {
                            rank_by_p_value(item);
                            top.offer(item);
                          });
      if (status.ok() && !same_list(state, top_state(top, problem.n_snps, columns))) {
        status = checkpoint.damaged();
      }
    }
    const std::vector<std::string> names = reader.ReadHeader();
    uint64_t number = state.next;
    // Each batch has a line on standard output: on one terminal those will do.
    Progress progress(settings.progress == "auto" && isatty(STDOUT_FILENO) != 0 ? "off" : settings.progress);
    progress.begin(order, n_items, state.next);
    uint64_t n_failed = state.n_failed;
    const auto keep = [&](uint64_t next) {
      state = top_state(top, problem.n_snps, columns);
      state.next = next;
      state.n_failed = n_failed;
      checkpoint.keep(kRegressionSection, lines_of(state));
    };
    RegressionLoop loop;
    loop.first = state.next;
    loop.progress = &progress;
    loop.take = [&](FittedItem&& item) {
      n_failed += item.fit.state != FitState::kFitted ? 1 : 0;
      if (tidy != nullptr && order == 1) {
        tidy->write_row(item, result->null_model);
      }
      if (linear) {
        writer->WriteLine(linear_line(++number, item, rules, problem.n_samples, g_covCnt, names));
        return;
      }
      rank_by_p_value(item);
      top.offer(item);
    };
    loop.after_batch = [&](uint64_t next) {
      if (checkpoint.is_due()) {
        keep(next);
      }
      // Without its lines a linear run is for nothing.
      return !linear || writer->ok();
    };
    if (status.ok()) {
      uint64_t next = 0;
      status = regrProcess(pool, problem, rules, launch_size(), loop, &next);
      keep(next);
    }
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
  if (state.n_failed > 0) {
    notice("%llu of %llu fits failed%s", static_cast<unsigned long long>(state.n_failed),
           static_cast<unsigned long long>(state.next),
           linear ? "" : "; they take part with a deviance of -1");
  }
  std::fflush(stdout);
  std::fprintf(stderr, "One loop taken %.3lf milliseconds, Pure %.3lf ms,  TOTLOC %ld\n", milliseconds,
               milliseconds, static_cast<long>(problem.n_snps));
  std::fputs("Enter to terminate thread...\n", stderr);
  std::puts("Termination complete...");
  return {};
}
