// SPDX-License-Identifier: Apache-2.0
#include "src/permutation_test.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "lib/comb_rank.h"
#include "lib/mdr.h"
#include "lib/permutation.h"
#include "lib/rng.h"
#include "src/combination_loop.h"
#include "src/cv_search.h"
#include "src/notice.h"
#include "src/run_config.h"
#include "src/state_lines.h"
#include "src/weighted_cvc.h"

namespace {

// What a permutation moves from sample to sample.
struct Outcome {
  uint8_t is_case;
  float score;  // of a score-based run
};

class PermutedRuns {
 public:
  PermutedRuns(WorkerPool& pool, const PermutationPlan& plan)
      : pool_(pool),
        settings_(*plan.settings),
        left_out_(plan.left_out.begin(), plan.left_out.end()),
        labels_(plan.labels.begin(), plan.labels.end()),
        problem_(*plan.problem),
        quiet_("off") {
    const auto n = static_cast<size_t>(problem_.n_samples);
    classes_.assign(problem_.classes, problem_.classes + n);
    if (problem_.scores != nullptr) {
      scores_.assign(problem_.scores, problem_.scores + n);
      problem_.scores = scores_.data();
    }
    problem_.classes = classes_.data();
    for (size_t s = 0; s < n; ++s) {
      if (left_out_.empty() || left_out_[s] == 0) {
        analysed_.push_back(s);
        outcomes_.push_back({classes_[s], scores_.empty() ? 0.0f : scores_[s]});
      }
    }
  }

  // Permutes once more: every permutation starts from the one before.
  void permute_outcomes() { permute(std::span(outcomes_)); }

  // Searches all orders of the run with the permuted outcomes.
  Status search(std::vector<BestOfOrder>* best) {
    for (size_t i = 0; i < analysed_.size(); ++i) {
      classes_[analysed_[i]] = outcomes_[i].is_case;
      if (!scores_.empty()) {
        scores_[analysed_[i]] = outcomes_[i].score;
      }
    }
    const SampleList list = make_sample_list(classes_, left_out_);
    const FoldLists folds = split_folds(list, labels_, settings_.folds);
    const std::vector<FoldView> views = folds.views(settings_.first_fold);
    for (int order = settings_.minimum_order_minus_1 + 1; order <= settings_.maximum_order; ++order) {
      Status status = search_order(order, list.samples, views, &best->emplace_back());
      if (!status.ok()) {
        return status;
      }
    }
    return {};
  }

 private:
  Status search_order(int order, std::span<const int> samples, const std::vector<FoldView>& folds,
                      BestOfOrder* best) {
    const ScoringRules rules = scoring_rules(settings_, order);
    const uint64_t total = comb_count(problem_.n_snps, order).value();
    const size_t list_size = list_size_of(settings_, total);
    std::vector<std::vector<KeptCombination>> kept(static_cast<size_t>(settings_.folds));
    if (list_size > 0) {
      std::vector<std::vector<RankedValue>> lists;
      Status status = search_lists({rules, samples, folds, list_size, &problem_}, total, &lists);
      if (status.ok()) {
        status = make_records(rules, folds, lists, list_size, &kept);
      }
      if (!status.ok()) {
        return status;
      }
    }
    MDRResult result(order, order - 1, settings_.folds, settings_.top, settings_.top, settings_.mode, 0, 0,
                     {});
    result.kept = std::move(kept);
    rank_kept_combinations(settings_.measure, &result);
    *best = best_of(result);
    return {};
  }

  // The lists of one order. What no list of an earlier permutation held is not looked for at first: lists
  // that are full all the same lack nothing, and others, which are rare, are made again without that floor.
  Status search_lists(FoldSearch search, uint64_t total, std::vector<std::vector<RankedValue>>* lists) {
    const auto [known, is_first] = floors_.try_emplace(search.rules.order, 0.0f);
    const auto is_short = [&](const std::vector<RankedValue>& list) {
      return list.size() < search.list_size;
    };
    search.floor = known->second;
    Status status = search_folds(pool_, search, total, quiet_, no_checkpoint_, lists);
    if (status.ok() && search.floor > 0.0f && std::any_of(lists->begin(), lists->end(), is_short)) {
      search.floor = 0.0f;
      status = search_folds(pool_, search, total, quiet_, no_checkpoint_, lists);
    }
    if (!status.ok()) {
      return status;
    }
    // Just below the lowest entry, so that equal ones get in.
    float lowest = is_first ? std::numeric_limits<float>::max() : known->second;
    for (const std::vector<RankedValue>& list : *lists) {
      lowest = is_short(list) ? 0.0f : std::min(lowest, std::nextafter(list.back().value, 0.0f));
    }
    known->second = lowest;
    return {};
  }

  // The folds' lists with their records.
  Status make_records(const ScoringRules& rules, const std::vector<FoldView>& folds,
                      const std::vector<std::vector<RankedValue>>& lists, size_t list_size,
                      std::vector<std::vector<KeptCombination>>* kept) {
    WorkerSetupCommand setup;
    setup.kind = LoopKind::kRecords;
    setup.rules = rules;
    setup.folds = folds;
    setup.problem = &problem_;
    setup.quiet = true;
    Status status = pool_.broadcast(setup);
    for (size_t f = 0; f < folds.size() && status.ok(); ++f) {
      TopList top(rules.order, list_size, rules.measure);
      LoopOutput output;
      output.top = &top;
      status = evaluate_in_passes(pool_, rules, f, combinations_of(lists[f], problem_.n_snps, rules.order),
                                  launch_size(), output);
      if (status.ok()) {
        status = check_confirmed(top, lists[f].size());
      }
      (*kept)[f + static_cast<size_t>(settings_.first_fold)] = kept_combinations(top.entries(list_size));
    }
    return status.ok() ? pool_.broadcast(WorkerCommand{kCommandRelease}) : status;
  }

  WorkerPool& pool_;
  const RunSettings& settings_;
  const std::vector<uint8_t> left_out_;
  const std::vector<int> labels_;
  Problem problem_;  // of the run, with the classes and scores below
  std::vector<uint8_t> classes_;
  std::vector<float> scores_;
  std::vector<size_t> analysed_;
  std::vector<Outcome> outcomes_;  // [analysed]
  Progress quiet_;
  Checkpoint no_checkpoint_;
  std::map<int, float> floors_;  // by order: all lists so far end above it
};

constexpr const char* kSection = "permutations";

// The lines of a checkpoint: testing value and consistency of each order, permutation by permutation.
std::string lines_of(const PermutationNull& null) {
  std::vector<double> values;
  for (size_t r = 0; r < null.permutations(); ++r) {
    for (const BestOfOrder& best : null.of(r)) {
      values.insert(values.end(), {best.testing, best.consistency});
    }
  }
  std::string text;
  add_doubles(&text, "values", values);
  return text;
}

Status restore(Checkpoint& checkpoint, size_t n_orders, int most, PermutationNull* null) {
  const auto read = [&](StateLines& lines) {
    std::vector<double> values;
    const size_t width = 2 * n_orders;
    if (!lines.next_doubles("values", static_cast<size_t>(most) * width, &values) ||
        values.size() % width != 0) {
      return false;
    }
    for (size_t i = 0; i < values.size(); i += width) {
      std::vector<BestOfOrder> best;
      for (size_t j = 0; j < width; j += 2) {
        best.push_back({values[i + j], values[i + j + 1]});
      }
      null->add(std::move(best));
    }
    return true;
  };
  Status status = checkpoint.restore(kSection, read);
  if (status.ok() && null->permutations() > 0) {
    notice("%zu of %d permutations are known from the checkpoint", null->permutations(), most);
  }
  return status;
}

}  // namespace

Status permutation_test(WorkerPool& pool, const PermutationPlan& plan, std::span<const BestOfOrder> observed,
                        Checkpoint& checkpoint, PermutationNull* null) {
  const RunSettings& settings = *plan.settings;
  if (observed.empty()) {
    return {};
  }
  Status status = restore(checkpoint, observed.size(), settings.permutations, null);
  if (!status.ok()) {
    return status;
  }
  if (settings.seed) {
    init_rng(*settings.seed);
  }
  PermutedRuns runs(pool, plan);
  StopRule stop(observed, settings.stop_after);
  Progress progress(settings.progress);
  progress.begin("permutations", "permuted runs", static_cast<uint64_t>(settings.permutations),
                 null->permutations());
  for (int r = 0; r < settings.permutations && !stop.is_met(); ++r) {
    runs.permute_outcomes();
    if (static_cast<size_t>(r) == null->permutations()) {
      std::vector<BestOfOrder> best;
      status = runs.search(&best);
      if (!status.ok()) {
        checkpoint.keep(kSection, lines_of(*null));
        return status;
      }
      null->add(std::move(best));
      if (checkpoint.is_due()) {
        checkpoint.keep(kSection, lines_of(*null));
      }
      progress.update(static_cast<uint64_t>(r) + 1);
    }
    stop.add(null->of(static_cast<size_t>(r)));
  }
  progress.end();
  checkpoint.keep(kSection, lines_of(*null));
  return {};
}
