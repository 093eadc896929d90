// SPDX-License-Identifier: Apache-2.0
//
// The cross-validated analysis: folds, the search of every order, the folds' top lists and their records.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "device/worker_pool.h"
#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/mdr.h"
#include "src/TFmMDR.h"
#include "src/combination_loop.h"
#include "src/cv_search.h"
#include "src/folds.h"
#include "src/notice.h"
#include "src/number_text.h"
#include "src/run_config.h"
#include "util/stopwatch.h"

namespace {

// What the user should know about the run before trusting its numbers.
void give_notices(const MdrReader& reader, const RunSettings& settings, const SampleList& list) {
  const auto odd = std::count_if(reader.classes().begin(), reader.classes().end(),
                                 [](uint8_t value) { return value > 1; });
  if (odd > 0) {
    notice("%td samples have a class other than 0 and 1 and count as controls", odd);
  }
  if (settings.missing + 1 == kMissingComplete) {
    notice("%zu of %d samples have a missing genotype and are left out",
           static_cast<size_t>(reader.GetLineCount()) - list.samples.size(), reader.GetLineCount());
  }
  if (list.n_cases == 0 || list.n_controls == 0) {
    notice("there are %d cases and %d controls; nothing can be learnt from one class alone", list.n_cases,
           list.n_controls);
  }
  if (settings.folds == 1) {
    notice("with --cv 1 all samples test and none train: nothing can be learnt");
  }
  if (g_transpose != 0) {
    notice(
        "the transposed layout is not counted in a cross-validated run: every table is empty; convert the "
        "file to "
        "the normal layout (tavo-convert)");
  }
  if (settings.missing + 1 == kMissingLevel && settings.minimum_order_minus_1 < 3 &&
      settings.maximum_order > 1) {
    notice("--missing mc: tables of orders 2 and 3 hold 9 and 27 cells; counts beyond them are dropped");
  }
}

// The file that keeps a fold's top list after the run, in the working directory.
void write_list_file(int fold, const std::vector<KeptCombination>& list) {
  char path[64];
  std::snprintf(path, sizeof(path), "[%08d]tmp_cv_%d.txt", std::rand() % 100000000, fold);
  MdrWriter writer;
  if (!writer.Save(path)) {
    notice("cannot write the list file %s", path);
    return;
  }
  int rank = 0;
  for (const KeptCombination& kept : list) {
    writer.WriteLine(std::to_string(++rank) + "," + kept.key +
                     fold_values_text(kept.record, kMode1FoldMeasures));
  }
  if (const Status status = writer.Close(); !status.ok()) {
    notice("%s", status.message().c_str());
  }
}

class CrossValidation {
 public:
  CrossValidation(WorkerPool& pool, const MdrReader& reader, const RunSettings& settings,
                  const FoldLists& folds)
      : pool_(pool),
        settings_(settings),
        n_snps_(reader.GetColCount()),
        folds_(folds.views(settings.first_fold)),
        progress_(settings.progress) {}

  // Searches one order and fills result->kept.
  Status run_order(int order, MDRResult* result) {
    const uint64_t total = comb_count(n_snps_, order).value();
    ScoringRules rules;
    rules.order = order;
    rules.missing = settings_.missing + 1;
    rules.tie = settings_.tie + 1;
    rules.measure = settings_.measure;

    unsigned timer = 0;
    cutCreateTimer(&timer);
    cutStartTimer(timer);
    const auto list_size =
        static_cast<size_t>(std::min<uint64_t>(total, static_cast<uint64_t>(settings_.top)));
    std::vector<std::vector<RankedValue>> lists(folds_.size());
    if (list_size > 0) {
      const Status status = search_folds(pool_, rules, folds_, total, list_size, progress_, &lists);
      if (!status.ok()) {
        return status;
      }
    }
    cutStopTimer(timer);
    const double search_share =
        static_cast<double>(cutGetTimerValue(timer)) / static_cast<double>(folds_.size());
    cutDeleteTimer(timer);

    size_t short_lists = 0;
    for (size_t f = 0; f < folds_.size(); ++f) {
      const Status status = record_fold(rules, f, total, list_size, lists[f], search_share, result);
      if (!status.ok()) {
        return status;
      }
      short_lists += lists[f].size() < list_size ? 1 : 0;
    }
    if (short_lists > 0) {
      notice("order %d: the lists of %zu folds are not full; their last rows are empty", order, short_lists);
    }
    return {};
  }

 private:
  // Makes the top list of one fold from the records of the combinations that its search found.
  Status record_fold(const ScoringRules& rules, size_t f, uint64_t total, size_t list_size,
                     std::vector<RankedValue>& found, double search_share, MDRResult* result) {
    const auto order = static_cast<size_t>(rules.order);
    // In the order of the enumeration, so that equal values end up as if all combinations had come by.
    std::sort(found.begin(), found.end(),
              [](const RankedValue& a, const RankedValue& b) { return a.rank < b.rank; });
    std::vector<int> combinations(found.size() * order);
    for (size_t i = 0; i < found.size(); ++i) {
      comb_unrank(n_snps_, rules.order, found[i].rank, combinations.data() + i * order);
    }
    TopList top(rules.order, list_size, rules.measure);
    double milliseconds = 0.0;
    if (total > 0) {
      LoopOutput output;
      output.top = &top;
      const Status status =
          mdrCombinationCV(pool_, rules, folds_[f], combinations,
                           static_cast<uint64_t>(g_cntBlockCuda) * static_cast<uint64_t>(g_cntThreadCuda),
                           output, search_share, &milliseconds);
      if (!status.ok()) {
        return status;
      }
    }
    if (top.filled() != found.size()) {
      return Status::failure("internal error: the search found " + std::to_string(found.size()) +
                             " combinations, but the records confirm " + std::to_string(top.filled()));
    }
    std::printf("One loop taken %.3lf milliseconds, Pure %.3lf ms,  TOTLOC %" PRIu64 "\n", milliseconds,
                milliseconds, total);
    const size_t fold = f + static_cast<size_t>(settings_.first_fold);
    std::vector<KeptCombination>& kept = result->kept[fold];
    for (const TopList::Entry& entry : top.entries(list_size)) {
      kept.push_back({comb_key(entry.comb.data(), rules.order), entry.comb,
                      std::vector<double>(entry.record.begin(), entry.record.end())});
    }
    write_list_file(static_cast<int>(fold), kept);
    return {};
  }

  WorkerPool& pool_;
  const RunSettings& settings_;
  const int n_snps_;
  const std::vector<FoldView> folds_;
  Progress progress_;
};

}  // namespace

Status TFmMDR::CalcMdrMethodCV(const MdrReader& reader, const RunSettings& settings,
                               const ResultArray& results) {
  const std::vector<uint8_t> coded = code_classes(reader.classes(), settings.case_value);
  const std::vector<uint8_t> left_out =
      settings.missing + 1 == kMissingComplete ? samples_with_missing(reader) : std::vector<uint8_t>();
  const SampleList list = make_sample_list(coded, left_out);
  std::vector<int> labels = deal_folds(list.n_cases, list.n_controls, settings.folds);
  if (settings.shuffling != 0) {
    shuffle_folds(labels, list.n_cases, list.n_controls, settings.seed);
  }
  const FoldLists folds = split_folds(list, labels, settings.folds);
  give_notices(reader, settings, list);

  Problem problem;
  problem.words = reader.words().data();
  problem.words_per_row = reader.block_count();
  problem.transposed = g_transpose != 0;
  problem.n_samples = reader.GetLineCount();
  problem.n_snps = reader.GetColCount();
  problem.classes = coded.data();
  WorkerPool pool(backend_, problem);
  if (const Status status = pool.status(); !status.ok()) {
    return status;
  }
  CrossValidation analysis(pool, reader, settings, folds);
  for (int order = settings.minimum_order_minus_1 + 1; order <= settings.maximum_order; ++order) {
    MDRResult* result = results[static_cast<size_t>(order) - 1].get();
    if (const Status status = analysis.run_order(order, result); !status.ok()) {
      return status;
    }
    CalcWeightedCVC_CV(settings.measure, result);
  }
  return {};
}
