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
#include "src/search_state.h"
#include "util/stop_signal.h"
#include "util/stopwatch.h"

namespace {

// Combinations per combination loop when every record comes back: 64 MiB of records.
constexpr uint64_t kAllResultsChunk = 1 << 18;
// Fewer with a checkpoint, so that a chunk of many samples ends within seconds.
constexpr uint64_t kCheckpointChunk = 1 << 14;

// The file that keeps a fold's top list after the run, in the working directory.
// *path: its name.
Status write_list_file(int fold, const std::vector<KeptCombination>& list, std::string* path) {
  char name[64];
  std::snprintf(name, sizeof(name), "[%08d]tmp_cv_%d.txt", std::rand() % 100000000, fold);
  *path = name;
  MdrWriter writer;
  if (!writer.Save(name)) {
    return writer.Close();
  }
  int rank = 0;
  for (const KeptCombination& kept : list) {
    writer.WriteLine(std::to_string(++rank) + "," + kept.key +
                     fold_values_text(kept.record, kMode1FoldMeasures));
  }
  Status status = writer.Close();
  if (!status.ok()) {
    std::remove(name);
  }
  return status;
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

  // The first failure to write one of them.
  const Status& list_files_status() const { return list_files_status_; }

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
    const auto slots = static_cast<size_t>(result->slots);
    SearchState state;
    Status status =
        restore_search(checkpoint_, order, {total, folds_.size(), slots, true, result->threshold}, &state);
    state.lists.resize(folds_.size());
    progress_.begin(order, total * folds_.size(), total * state.folds + state.next);
    for (size_t f = 0; f < folds_.size() && status.ok(); ++f) {
      status = threshold_fold(scoring_rules(settings_, order), f, total, &state, result);
    }
    if (status.ok() || !checkpoint_.is_refused()) {
      checkpoint_.keep(order_section(order), lines_of(state));
    }
    if (!status.ok()) {
      return status;
    }
    progress_.end();
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
    // The lists are a by-product: without them the run goes on.
    const Status written = write_list_file(static_cast<int>(fold), kept, &list_files_.emplace_back());
    if (!written.ok() && list_files_status_.ok()) {
      list_files_status_ =
          Status::failure("the list files in the working directory are incomplete: " + written.message() +
                          "; the result is not affected");
    }
  }

  // The list of one fold as its checkpoint keeps it.
  std::vector<RankedValue> ranked(const TopList& top, const ScoringRules& rules) const {
    std::vector<RankedValue> list;
    for (const TopList::Entry& entry : top.entries(top.filled())) {
      list.push_back({comb_rank(n_snps_, rules.order, entry.comb.data()),
                      static_cast<float>(entry.record[static_cast<size_t>(rules.measure)])});
    }
    return list;
  }

  // Evaluates the combinations of one fold that are not known, chunk by chunk, and keeps those above the
  // threshold. *state: up to date in any case.
  Status threshold_fold(const ScoringRules& rules, size_t f, uint64_t total, SearchState* state,
                        MDRResult* result) {
    TopList top(rules.order, static_cast<size_t>(result->slots), rules.measure, result->threshold);
    double milliseconds = 0.0;
    if (!state->lists[f].empty()) {
      Status status = record_list(rules, f, state->lists[f], 0.0, &top, &milliseconds);
      if (!status.ok()) {
        return status;
      }
      if (!std::ranges::equal(ranked(top, rules), state->lists[f], same_entry)) {
        return checkpoint_.damaged();
      }
    }
    if (f == state->folds) {
      Status status = evaluate_rest(rules, f, total, state, &top, &milliseconds);
      state->lists[f] = ranked(top, rules);
      if (!status.ok()) {
        return status;
      }
      state->folds = f + 1;
      state->next = 0;
    }
    keep_fold(f, total, milliseconds, milliseconds, top.entries(top.filled()), result);
    return {};
  }

  static bool same_entry(const RankedValue& a, const RankedValue& b) {
    return a.rank == b.rank && a.value == b.value;
  }

  // From state->next, which it moves on, to the end of the enumeration.
  Status evaluate_rest(const ScoringRules& rules, size_t f, uint64_t total, SearchState* state, TopList* top,
                       double* milliseconds) {
    const auto order = static_cast<size_t>(rules.order);
    const int chunk = static_cast<int>(
        std::min<uint64_t>(total, checkpoint_.is_open() ? kCheckpointChunk : kAllResultsChunk));
    // The enumeration goes on behind the combination that the cursor holds.
    std::vector<int> cursor(order, -1);
    if (state->next > 0) {
      comb_unrank(n_snps_, rules.order, state->next - 1, cursor.data());
    }
    std::vector<int> combinations;
    std::vector<double> records;
    LoopOutput output;
    output.records = &records;
    for (;;) {
      int count = 0;
      combinations.resize(static_cast<size_t>(chunk) * order);
      combSNP(&rules.order, &n_snps_, &chunk, cursor.data(), &count, combinations.data());
      if (count == 0) {
        return {};
      }
      combinations.resize(static_cast<size_t>(count) * order);
      std::copy_n(combinations.end() - static_cast<ptrdiff_t>(order), order, cursor.begin());
      double chunk_milliseconds = 0.0;
      Status status = mdrCombinationCV(pool_, rules, folds_[f], combinations, launch_size(), output, 0.0,
                                       &chunk_milliseconds);
      if (!status.ok()) {
        return status;
      }
      *milliseconds += chunk_milliseconds;
      for (size_t c = 0; c < static_cast<size_t>(count); ++c) {
        top->insert(combinations.data() + c * order, records.data() + c * kRecordSize);
      }
      state->next += static_cast<uint64_t>(count);
      progress_.update(f * total + state->next);
      if (checkpoint_.is_due()) {
        state->lists[f] = ranked(*top, rules);
        checkpoint_.keep(order_section(rules.order), lines_of(*state));
      }
    }
  }

  // Inserts the records of listed combinations of one fold into its top list, which milliseconds becomes the
  // time of.
  Status record_list(const ScoringRules& rules, size_t f, const std::vector<RankedValue>& listed,
                     double extra, TopList* top, double* milliseconds) {
    LoopOutput output;
    output.top = top;
    return mdrCombinationCV(pool_, rules, folds_[f], combinations_of(listed, n_snps_, rules.order),
                            launch_size(), output, extra, milliseconds);
  }

  // Makes the top list of one fold from the records of the combinations that its search found.
  Status record_fold(const ScoringRules& rules, size_t f, uint64_t total, size_t list_size,
                     const std::vector<RankedValue>& found, double search_share, MDRResult* result) {
    TopList top(rules.order, list_size, rules.measure);
    double milliseconds = 0.0;
    if (total > 0) {
      Status status = record_list(rules, f, found, search_share, &top, &milliseconds);
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
  Status list_files_status_;
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
      // A run that goes on draws it anew: the generator gives the same numbers.
      ExhaustiveRules null_rules{order, settings.measure, tie_rule(settings.tie), settings.missing + 1};
      result->null_measures =
          null_distribution(null_data, null_rules, settings.null_combinations, settings.null_permutations);
      if (stop_signal() != 0) {
        return stopped(stop_signal());
      }
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
  by_products_ = analysis.list_files_status();
  if (settings.permutations == 0) {
    return {};
  }
  std::vector<BestOfOrder> observed;
  for (int order = settings.minimum_order_minus_1 + 1; order <= settings.maximum_order; ++order) {
    observed.push_back(best_of(*results[static_cast<size_t>(order) - 1]));
  }
  Status status = permutation_test(pool, {&settings, &problem, left_out, labels}, observed, checkpoint, null);
  if (!status.ok() && stop_signal() != 0) {
    analysis.remove_list_files();
  }
  return status;
}
