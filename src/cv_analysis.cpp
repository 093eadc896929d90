// SPDX-License-Identifier: Apache-2.0
//
// The cross-validated analysis: folds, the search of every order, the folds' top lists and their records.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "device/worker_pool.h"
#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/mdr.h"
#include "src/TFmMDR.h"
#include "src/combination_loop.h"
#include "src/corners.h"
#include "src/cv_search.h"
#include "src/exhaustive.h"
#include "src/folds.h"
#include "src/notice.h"
#include "src/number_text.h"
#include "src/p_values.h"
#include "src/permutation_test.h"
#include "src/run_config.h"
#include "util/stop_signal.h"
#include "util/stopwatch.h"

namespace {

// Combinations per combination loop when every record comes back: 64 MiB of records.
constexpr uint64_t kAllResultsChunk = 1 << 18;

// The file that keeps a fold's top list after the run, in the working directory.
// *path: its name.
Status write_list_file(int fold, const std::vector<KeptCombination>& list, std::string* path) {
  char name[64];
  std::snprintf(name, sizeof(name), "[%08d]tmp_cv_%d.txt", std::rand() % 100000000, fold);
  *path = name;
  MdrWriter writer;
  if (!writer.Save(name)) {
    return Status::failure(std::string("cannot create ") + name);
  }
  int rank = 0;
  for (const KeptCombination& kept : list) {
    writer.WriteLine(std::to_string(++rank) + "," + kept.key +
                     fold_values_text(kept.record, kMode1FoldMeasures));
  }
  return writer.Close();
}

}  // namespace

ScoringRules scoring_rules(const RunSettings& settings, int order) {
  return {order, settings.missing + 1, tie_rule(settings.tie), settings.measure};
}

size_t list_size_of(const RunSettings& settings, uint64_t n_combinations) {
  return static_cast<size_t>(std::min<uint64_t>(n_combinations, static_cast<uint64_t>(settings.top)));
}

uint64_t launch_size() {
  return static_cast<uint64_t>(g_cntBlockCuda) * static_cast<uint64_t>(g_cntThreadCuda);
}

namespace {

class CrossValidation {
 public:
  CrossValidation(WorkerPool& pool, const MdrReader& reader, const RunSettings& settings,
                  const FoldLists& folds, Checkpoint& checkpoint)
      : pool_(pool),
        checkpoint_(checkpoint),
        settings_(settings),
        n_snps_(reader.GetColCount()),
        samples_(folds.samples),
        folds_(folds.views(settings.first_fold)),
        progress_(settings.progress) {}

  // For a run that is stopped.
  void remove_list_files() const {
    for (const std::string& path : list_files_) {
      std::remove(path.c_str());
    }
  }

  // Mode 1: searches one order and fills result->kept with every fold's best.
  Status search_order(int order, MDRResult* result) {
    const ScoringRules rules = scoring_rules(settings_, order);
    const uint64_t total = comb_count(n_snps_, order).value();

    unsigned timer = 0;
    cutCreateTimer(&timer);
    cutStartTimer(timer);
    const size_t list_size = list_size_of(settings_, total);
    std::vector<std::vector<RankedValue>> lists(folds_.size());
    if (list_size > 0) {
      Status status =
          search_folds(pool_, {rules, samples_, folds_, list_size}, total, progress_, checkpoint_, &lists);
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
      Status status = record_fold(rules, f, total, list_size, lists[f], search_share, result);
      if (!status.ok()) {
        return status;
      }
      short_lists += lists[f].size() < list_size ? 1 : 0;
    }
    if (short_lists > 0) {
      notice("order %d: %zu of %zu lists are not full; their last rows are empty", order, short_lists,
             folds_.size());
    }
    return {};
  }

  // Mode 0: evaluates every combination of one order and fills result->kept with every fold's combinations
  // above result->threshold.
  Status evaluate_order(int order, MDRResult* result) {
    const uint64_t total = comb_count(n_snps_, order).value();
    progress_.begin(order, total * folds_.size());
    for (size_t f = 0; f < folds_.size(); ++f) {
      Status status = threshold_fold(scoring_rules(settings_, order), f, total, result);
      if (!status.ok()) {
        return status;
      }
    }
    progress_.end();
    const auto slots = static_cast<size_t>(result->slots);
    if (const auto full = std::count_if(result->kept.begin(), result->kept.end(),
                                        [slots](const auto& kept) { return kept.size() == slots; });
        full > 0) {
      notice("order %d: %td of %zu lists are full, with %zu combinations; those below are left out", order,
             full, folds_.size(), slots);
    }
    return {};
  }

 private:
  // Ends a fold: its lines, its list in the result and in a file.
  void keep_fold(size_t f, uint64_t total, double milliseconds, double pure_milliseconds,
                 const std::vector<TopList::Entry>& entries, MDRResult* result) {
    std::printf("One loop taken %.3lf milliseconds, Pure %.3lf ms,  TOTLOC %" PRIu64 "\n", milliseconds,
                pure_milliseconds, total);
    const size_t fold = f + static_cast<size_t>(settings_.first_fold);
    std::vector<KeptCombination>& kept = result->kept[fold];
    kept = kept_combinations(entries);
    // The lists are a by-product: without them the run goes on, and one notice will do.
    const Status written = write_list_file(static_cast<int>(fold), kept, &list_files_.emplace_back());
    if (!written.ok() && !list_files_missing_) {
      notice("the list files in the working directory are incomplete: %s", written.message().c_str());
      list_files_missing_ = true;
    }
  }

  // Evaluates every combination for one fold, chunk by chunk, and keeps those above the threshold.
  Status threshold_fold(const ScoringRules& rules, size_t f, uint64_t total, MDRResult* result) {
    TopList top(rules.order, static_cast<size_t>(result->slots), rules.measure, result->threshold);
    const auto order = static_cast<size_t>(rules.order);
    const int chunk = static_cast<int>(std::min<uint64_t>(total, kAllResultsChunk));
    std::vector<int> cursor(order, -1);
    std::vector<int> combinations;
    std::vector<double> records;
    LoopOutput output;
    output.records = &records;
    double milliseconds = 0.0;
    uint64_t done = f * total;
    for (;;) {
      int count = 0;
      combinations.resize(static_cast<size_t>(chunk) * order);
      combSNP(&rules.order, &n_snps_, &chunk, cursor.data(), &count, combinations.data());
      if (count == 0) {
        break;
      }
      combinations.resize(static_cast<size_t>(count) * order);
      std::copy_n(combinations.end() - static_cast<ptrdiff_t>(order), order, cursor.begin());
      double chunk_milliseconds = 0.0;
      Status status = mdrCombinationCV(pool_, rules, folds_[f], combinations, launch_size(), output, 0.0,
                                       &chunk_milliseconds);
      if (!status.ok()) {
        return status;
      }
      milliseconds += chunk_milliseconds;
      done += static_cast<uint64_t>(count);
      progress_.update(done);
      for (size_t c = 0; c < static_cast<size_t>(count); ++c) {
        top.insert(combinations.data() + c * order, records.data() + c * kRecordSize);
      }
    }
    keep_fold(f, total, milliseconds, milliseconds, top.entries(top.filled()), result);
    return {};
  }

  // Makes the top list of one fold from the records of the combinations that its search found.
  Status record_fold(const ScoringRules& rules, size_t f, uint64_t total, size_t list_size,
                     const std::vector<RankedValue>& found, double search_share, MDRResult* result) {
    TopList top(rules.order, list_size, rules.measure);
    double milliseconds = 0.0;
    if (total > 0) {
      LoopOutput output;
      output.top = &top;
      Status status = mdrCombinationCV(pool_, rules, folds_[f], combinations_of(found, n_snps_, rules.order),
                                       launch_size(), output, search_share, &milliseconds);
      if (!status.ok()) {
        return status;
      }
    }
    if (Status status = check_confirmed(top, found.size()); !status.ok()) {
      return status;
    }
    keep_fold(f, total, milliseconds, milliseconds, top.entries(list_size), result);
    return {};
  }

  WorkerPool& pool_;
  Checkpoint& checkpoint_;
  const RunSettings& settings_;
  const int n_snps_;
  const std::span<const int> samples_;
  const std::vector<FoldView> folds_;
  Progress progress_;
  std::vector<std::string> list_files_;
  bool list_files_missing_ = false;
};

}  // namespace

Status TFmMDR::CalcMdrMethodCV(const MdrReader& reader, const RunSettings& settings,
                               const ResultArray& results, Checkpoint& checkpoint, PermutationNull* null) {
  const std::vector<uint8_t> coded = code_classes(reader.classes(), settings.case_value);
  const std::vector<uint8_t> left_out =
      settings.missing + 1 == kMissingComplete ? samples_with_missing(reader) : std::vector<uint8_t>();
  const SampleList list = make_sample_list(coded, left_out);
  std::vector<int> labels = deal_folds(list.n_cases, list.n_controls, settings.folds);
  if (settings.shuffling != 0) {
    std::optional<unsigned> seed = settings.seed;
    if (!seed && checkpoint.is_open()) {
      // The run that goes on needs the same folds.
      seed = checkpoint.seed().value_or(static_cast<unsigned>(std::time(nullptr)));
      checkpoint.set_seed(*seed);
    }
    shuffle_folds(labels, list.n_cases, list.n_controls, seed);
  }
  const FoldLists folds = split_folds(list, labels, settings.folds);
  give_cv_notices(reader, settings, list);

  Problem problem;
  problem.words = reader.words().data();
  problem.words_per_row = reader.block_count();
  problem.transposed = g_transpose != 0;
  problem.n_samples = reader.GetLineCount();
  problem.n_snps = reader.GetColCount();
  problem.classes = coded.data();
  problem.scores = reader.scores();
  WorkerPool pool(backend_, problem);
  if (Status status = pool.status(); !status.ok()) {
    return status;
  }
  const bool by_threshold = settings.mode == 0;
  const ExhaustiveData null_data =
      by_threshold ? make_exhaustive_data(reader, settings.case_value, settings.missing + 1)
                   : ExhaustiveData();
  CrossValidation analysis(pool, reader, settings, folds, checkpoint);
  for (int order = settings.minimum_order_minus_1 + 1; order <= settings.maximum_order; ++order) {
    MDRResult* result = results[static_cast<size_t>(order) - 1].get();
    if (by_threshold) {
      ExhaustiveRules null_rules{order, settings.measure, tie_rule(settings.tie), settings.missing + 1};
      result->null_measures =
          null_distribution(null_data, null_rules, settings.null_combinations, settings.null_permutations);
      result->threshold = null_threshold(result->null_measures, settings.null_level);
    }
    Status status =
        by_threshold ? analysis.evaluate_order(order, result) : analysis.search_order(order, result);
    if (!status.ok()) {
      if (stop_signal() != 0) {
        analysis.remove_list_files();
      }
      return status;
    }
    CalcWeightedCVC_CV(settings.measure, by_threshold, result);
  }
  if (settings.permutations == 0) {
    return {};
  }
  std::vector<BestOfOrder> observed;
  for (int order = settings.minimum_order_minus_1 + 1; order <= settings.maximum_order; ++order) {
    observed.push_back(best_of(*results[static_cast<size_t>(order) - 1]));
  }
  const Status status = permutation_test(pool, {&settings, &problem, left_out, labels}, observed, null);
  if (!status.ok() && stop_signal() != 0) {
    analysis.remove_list_files();
  }
  return status;
}
