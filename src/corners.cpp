// SPDX-License-Identifier: Apache-2.0
#include "src/corners.h"

#include <algorithm>
#include <span>
#include <string>

#include "lib/mdr.h"
#include "src/notice.h"
#include "src/run_config.h"

namespace {

// Products of counts are taken in 32 bits.
constexpr int64_t kLargestProduct = 2147483647;

struct OptionUse {
  bool unused;  // it was given, but the run does not look at it
  const char* name;
};

std::string unused_names(std::span<const OptionUse> options) {
  std::string names;
  for (const OptionUse& option : options) {
    if (option.unused) {
      names += (names.empty() ? "" : ", ") + std::string(option.name);
    }
  }
  return names;
}

std::string unused_by_search(const RunSettings& settings) {
  const OptionUse options[] = {
      {settings.seed && settings.mode >= 2, "--seed"},
      {settings.seed && settings.mode < 2 && settings.shuffling == 0 && settings.permutations == 0,
       "--seed without --shuffling"},
      {g_logisIter != -1, "--iter"},
  };
  return unused_names(options);
}

std::string unused_by_regression(const RunSettings& settings) {
  const OptionUse options[] = {
      {g_selidx != -1, "--measure"},
      {g_misidx != -1, "--missing"},
      {g_tieidx != -1, "--tie"},
      {g_shuidx != -1, "--shuffling"},
      {settings.mode != 1, "--mode"},
      {szScore[0] != '\0', "--score"},
      {settings.seed.has_value(), "--seed"},
      {g_topidx != -1 && g_regression == kLinearRegression, "--top"},
  };
  return unused_names(options);
}

void give_regression_option_notices(const RunSettings& settings) {
  const bool linear = g_regression == kLinearRegression;
  const int order = typed_value(g_combOrder, "1")[0] - '0';
  if (const std::string names = unused_by_regression(settings); !names.empty()) {
    notice("a %s regression has no use for %s", linear ? "linear" : "logistic", names.c_str());
  }
  if (g_combOrder != -1 && settings.maximum_order != order) {
    notice("a regression has one order: of --order %s it takes %d", typed_value(g_combOrder, ""), order);
  }
  if (g_regrDistinct != 0 && (linear || order != 2)) {
    notice("--distinct has an effect on logistic regressions of pairs only");
  }
  if (linear && order == 2) {
    notice("there is no linear regression of pairs: the result has no rows");
  } else if (settings.tidy.empty()) {
    notice(
        "columns of the result file hold something else than their names say (docs/regression.md); --tidy "
        "writes a table under true names");
  }
}

}  // namespace

void give_option_notices(const RunSettings& settings, const MdrReader& reader) {
  if (g_regression != kNoRegression) {
    give_regression_option_notices(settings);
    return;
  }
  if (const std::string names = unused_by_search(settings); !names.empty()) {
    notice("a search has no use for %s", names.c_str());
  }
  const int lowest = settings.minimum_order_minus_1 + 1;
  if (lowest > settings.maximum_order) {
    notice("--order %s: no order is from %d to %d, so nothing is searched", typed_value(g_combOrder, ""),
           lowest, settings.maximum_order);
  } else if (settings.maximum_order > reader.GetColCount()) {
    notice("orders above %d have no combinations: the file has no more SNPs", reader.GetColCount());
  }
  if (settings.top == 0 && (settings.mode == 1 || settings.mode == 3)) {
    notice("with --top 0 no combination is kept");
  }
  if (g_misidx != -1) {
    notice("line 10 of the report's options says 0 for any --missing that is given; this run takes `%s`",
           typed_value(g_misidx, ""));
  }
}

void give_cv_notices(const MdrReader& reader, const RunSettings& settings, const SampleList& list) {
  give_class_notices(reader.classes(), list.n_cases, list.n_controls);
  if (settings.missing + 1 == kMissingComplete) {
    notice("%zu of %d samples have a missing genotype and are left out",
           static_cast<size_t>(reader.GetLineCount()) - list.samples.size(), reader.GetLineCount());
  }
  if (settings.mode == 0 && settings.measure > kChiSquare) {
    notice(
        "the null distribution holds balanced accuracy, accuracy and chi-square only: with another measure "
        "the threshold is 0");
  }
  if (settings.mode == 0 && reader.scores() != nullptr) {
    notice("the null distribution is that of the classes which the scores stand for, not of the scores");
  }
  if (settings.folds > 1 && static_cast<size_t>(settings.folds) > list.samples.size()) {
    notice("%d folds are more than the %zu samples: some test nobody", settings.folds, list.samples.size());
  }
  if (settings.folds == 1) {
    notice("with --cv 1 all samples test and none train: nothing can be learnt");
  }
  if (settings.first_fold > 0) {
    notice(
        "--cvfrom %d: the first %d of %d folds are left out; their rows are empty, consistencies and "
        "averages "
        "are over the others",
        settings.first_fold, settings.first_fold, settings.folds);
  }
  if (g_transpose != 0) {
    notice(
        "the transposed layout is not counted in a cross-validated run: every table is empty; "
        "convert the file to the normal layout (tavo-convert)");
  }
  if (settings.missing + 1 == kMissingLevel && settings.minimum_order_minus_1 < 3 &&
      settings.maximum_order > 1) {
    notice("--missing mc: tables of orders 2 and 3 hold 9 and 27 cells; counts beyond them are dropped");
  }
  const auto n = static_cast<int64_t>(list.samples.size());
  const int64_t classes = static_cast<int64_t>(list.n_cases) * list.n_controls;
  if (reader.scores() == nullptr && n * n > kLargestProduct) {
    notice("%lld samples: products of counts pass 32 bits, so tau-c%s cannot be used",
           static_cast<long long>(n),
           std::max(classes, n * n / 4) > kLargestProduct ? ", tau-b and Somers' d" : "");
  }
}

void give_exhaustive_notices(const MdrReader& reader, const RunSettings& settings) {
  if (settings.measure > kChiSquare) {
    notice(
        "this mode computes balanced accuracy, accuracy and chi-square only; the other measures are 0, and "
        "ranking by one of them ranks nothing");
  }
  const int missing = settings.missing + 1;
  if (missing == kMissingNone || missing == kMissingComplete) {
    const std::vector<uint8_t> marks = samples_with_missing(reader);
    if (const auto n = std::count(marks.begin(), marks.end(), 1); n > 0) {
      notice(
          "--missing %s counts the missing genotypes of %td samples in wrong cells in this mode; `available` "
          "and `mc` do not",
          typed_value(g_misidx, ""), n);
    }
  }
}
