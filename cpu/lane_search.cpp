// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <bit>
#include <cmath>
#include <optional>

#include "cpu/fold_scores.h"
#include "cpu/lane_kernels.h"
#include "cpu/lane_planes.h"
#include "cpu/prefix_runs.h"
#include "cpu/range_search.h"
#include "cpu/row_tile.h"
#include "cpu/sample_rows.h"
#include "lib/bits.h"
#include "lib/search_bound.h"

namespace {

// Exact values of more lanes than this are computed side by side, of all of them.
constexpr int kFewLanes = 2;

// With a larger share of missing genotypes, times the square root of the samples' number, their slack lets
// too much pass, and exact counts are faster: slack grows with the samples, and how far apart values are with
// their root.
constexpr double kMissingForValues = 1.1;

// Measures that depend on TP / P - FP / Q alone, P and Q being the samples that have all genotypes.
bool shares_decide(const ScoringRules& rules) {
  return rules.measure == kBalancedAccuracy || rules.measure == kSomersDx;
}

// The share of the genotypes of the listed samples that is missing.
double missing_share(const Problem& problem, const LanePlanes& planes, const Segments& segments) {
  uint64_t samples = 0;
  for (const std::vector<int>& segment : segments.samples) {
    samples += segment.size();
  }
  const auto n_snps = static_cast<size_t>(problem.n_snps);
  uint64_t present = 0;
  for (size_t b = 0; b * kLanes < n_snps; ++b) {
    const uint32_t* counts = planes.marginals(b);
    for (size_t i = 0; i < 3 * segments.samples.size() / 2 * kLanes; ++i) {
      present += (counts[i] & 0xffffu) + (counts[i] >> 16);
    }
  }
  return 1.0 - static_cast<double>(present) / (static_cast<double>(samples) * static_cast<double>(n_snps));
}

// The largest share that the row filter takes.
double largest_missing_share(const WorkerSetupCommand& setup, const Problem& problem) {
  return shares_decide(setup.rules) ? kMissingForValues / std::sqrt(problem.n_samples) : 0.0;
}

// Samples of both classes, in all segments and in the training set of each fold.
struct ClassSizes {
  int32_t all[2] = {0, 0};  // controls, cases
  std::vector<int32_t> training_controls;
  std::vector<int32_t> training_cases;

  ClassSizes(const Segments& segments, size_t n_folds) {
    for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
      const auto n = static_cast<int32_t>(segments.samples[segment].size());
      all[segment % 2] += n;
    }
    for (size_t f = 0; f < n_folds; ++f) {
      training_controls.push_back(all[0] - static_cast<int32_t>(segments.samples[2 * f].size()));
      training_cases.push_back(all[1] - static_cast<int32_t>(segments.samples[2 * f + 1].size()));
    }
  }
};

class LaneSearch : public RangeSearch {
 public:
  LaneSearch(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments,
             const LanePlanes& planes, const LaneKernels& kernels, const SampleRows* rows,
             const RowKernels& row_kernels)
      : segments_(segments),
        planes_(planes),
        kernels_(kernels),
        rows_(rows),
        scores_(setup, segments),
        rules_(setup.rules),
        n_snps_(problem.n_snps),
        n_pairs_(static_cast<size_t>(segments.n_folds) + 1),
        has_difference_(has_bound(setup.rules.measure, setup.rules.tie)) {
    for (int j = 1; j < rules_.order; ++j) {
      prefix_cells_ *= 3;
    }
    prefix_.resize(prefix_cells_ * planes.words());
    if (rows_ != nullptr) {
      tile_.emplace(*rows, planes, segments, setup.rules.order, row_kernels);
    }
    prefix_pairs_.resize(prefix_cells_ * n_pairs_);
    counts_.resize(3 * prefix_cells_ * n_pairs_ * kLanes);
    totals_.resize(3 * prefix_cells_ * kLanes);
    lane_counts_.resize(3 * prefix_cells_ * 2 * n_pairs_);
    set_class_totals(setup);
  }

  void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) override {
    set_limits(lists);
    for_each_prefix_run(
        rules_.order, n_snps_, first_rank, n_ranks,
        [&](const std::vector<int>& comb, int end, uint64_t rank) {
          add_run({comb, static_cast<size_t>(comb.back()), static_cast<size_t>(end), rank}, lists);
        });
    search_tile(lists);
  }

 private:
  // The training class totals of every fold where no genotype is missing, and the sample numbers of the fold.
  void set_class_totals(const WorkerSetupCommand& setup) {
    const ClassSizes sizes(segments_, setup.folds.size());
    limits_.resize(setup.folds.size());
    needs_.resize(setup.folds.size());
    all_cases_ = sizes.all[1];
    all_controls_ = sizes.all[0];
    has_table_ = has_table_bound(rules_.measure, rules_.tie) && all_cases_ > 0 && all_controls_ > 0;
    for (size_t f = 0; f < limits_.size(); ++f) {
      limits_[f].controls = sizes.training_controls[f];
      limits_[f].cases = sizes.training_cases[f];
      limits_[f].samples = static_cast<float>(setup.folds[f].training.size());
      set_entropy(limits_[f]);
      has_table_ = has_table_ && (rules_.own_thresholds() ||
                                  setup.folds[f].threshold == own_threshold({all_cases_, all_controls_, 0}));
      thresholds_.push_back(setup.folds[f].threshold);
      samples_.push_back(static_cast<int32_t>(setup.folds[f].training.size()));
    }
  }

  static void set_entropy(LaneLimit& limit) {
    const double p = static_cast<double>(limit.cases) / (limit.cases + limit.controls);
    limit.share = static_cast<float>(p);
    limit.entropy = static_cast<float>(-p * std::log(p) - (1.0 - p) * std::log(1.0 - p));
    limit.slope = static_cast<float>(std::log((1.0 - p) / p));
    limit.bend = static_cast<float>(1.0 / (p * (1.0 - p)));
  }

  // What the row filter's sum S must reach, with the slacks of missing genotypes: D <= (n / b) S with the n
  // training samples of the plus class (1 in place of n for accuracy).
  void set_need(size_t f) {
    const LaneLimit& limit = limits_[f];
    const auto p = static_cast<double>(limit.cases);
    const auto q = static_cast<double>(limit.controls);
    const double n = rules_.own_thresholds() ? p + q : static_cast<double>(limit.samples);
    const double d = static_cast<double>(limit.pq) * p * q + static_cast<double>(limit.nn) * n * n +
                     static_cast<double>(limit.n) * n - static_cast<double>(limit.q) * q;
    const double n_plus = rules_.measure == kAccuracy ? 1.0 : rows_->weights().cases_plus ? p : q;
    const double need = std::floor(d * rows_->weights().minus / n_plus);
    needs_[f] = static_cast<int16_t>(std::clamp(need, -32768.0, double{kLargestRowWord}));
    filters_ = filters_ && needs_[f] > 0;
    largest_floor_ = std::max(largest_floor_, limit.pq);
  }

  bool counts_rows() const { return rows_ != nullptr && rows_->weights().form == RowValues::kCounts; }

  void set_limits(const std::vector<CandidateList>& lists) {
    filters_ = rows_ != nullptr;
    largest_floor_ = 0.0f;
    bounded_ = has_difference_ || has_table_;
    for (size_t f = 0; f < limits_.size(); ++f) {
      LaneLimit& limit = limits_[f];
      limit.floor = lists[f].floor().value;
      if (has_difference_) {
        const BoundTerms terms = bound_terms(rules_.measure, limit.floor);
        limit.q = terms.q;
        limit.pq = terms.pq;
        limit.nn = terms.nn;
        limit.n = terms.n;
      }
      // A list that is not full takes what no bound speaks of.
      bounded_ = bounded_ && limit.floor > 0.0f;
      if (rows_ != nullptr && !counts_rows()) {
        set_need(f);
      }
    }
  }

  // Combinations with one prefix: last SNPs first .. end - 1.
  struct RunOfCombinations {
    std::vector<int> comb;  // the first of them
    size_t first;
    size_t end;
    uint64_t rank_of_first;
  };

  bool complete_prefix(const RunOfCombinations& run) const {
    return std::none_of(run.comb.begin(), run.comb.end() - 1,
                        [&](int snp) { return planes_.snp_missing(snp); });
  }

  // Searches a run, or keeps it for the row filter.
  void add_run(RunOfCombinations run, std::vector<CandidateList>& lists) {
    if (!filters_ || !tile_->takes(run.comb.data())) {
      join_prefix(run);
      for (size_t b = run.first / kLanes; b * kLanes < run.end; ++b) {
        search_block(b, lanes_of(run, b * kLanes, kLanes), run, lists);
      }
      return;
    }
    tile_->add(run.comb.data(), run.first, run.end);
    runs_.push_back(std::move(run));
    if (tile_->full()) {
      search_tile(lists);
    }
  }

  // What the tile keeps: the row filter first, with 512 last SNPs, then the lanes that are left.
  void search_tile(std::vector<CandidateList>& lists) {
    size_t first_snp = static_cast<size_t>(n_snps_);
    size_t end_snp = 0;
    for (const RunOfCombinations& run : runs_) {
      first_snp = std::min(first_snp, run.first);
      end_snp = std::max(end_snp, run.end);
    }
    for (size_t b = first_snp / kRowLanes; b * kRowLanes < end_snp; ++b) {
      const auto meets = [&](const RunOfCombinations& run) {
        return run.end > b * kRowLanes && run.first < (b + 1) * kRowLanes;
      };
      for (size_t i = 0; i < runs_.size();) {
        if (!meets(runs_[i])) {
          ++i;
          continue;
        }
        const size_t start = i;
        while (i < runs_.size() && meets(runs_[i])) {
          ++i;
        }
        if (counts_rows()) {
          tile_->count(b, start, i);
        } else {
          tile_->filter(b, start, i, needs_.data(), largest_floor_);
        }
        for (size_t r = start; r < i; ++r) {
          search_row_block(b, r, lists);
        }
      }
    }
    runs_.clear();
    if (tile_) {
      tile_->clear();
    }
  }

  // Run r of the tile with 512 last SNPs, 16 at a time.
  void search_row_block(size_t b, size_t r, std::vector<CandidateList>& lists) {
    const RunOfCombinations& run = runs_[r];
    const uint64_t* passing = !counts_rows() ? tile_->passing(r) : nullptr;
    bool joined = false;
    if (counts_rows()) {
      complete_prefix_ = complete_prefix(run);
    }
    for (size_t part = 0; part < kRowLanes / kLanes; ++part) {
      const size_t start = b * kRowLanes + part * kLanes;
      if (start >= run.end || start + kLanes <= run.first) {
        continue;
      }
      uint32_t lanes = lanes_of(run, start, kLanes);
      if (passing != nullptr) {
        lanes &= static_cast<uint32_t>(passing[part / 4] >> (kLanes * (part % 4)));
      }
      if (lanes == 0) {
        continue;
      }
      if (counts_rows()) {
        search_counted(start / kLanes, tile_->counted(r, part * kLanes, start / kLanes), lanes, run, lists);
        continue;
      }
      if (!joined) {
        join_prefix(run);
        joined = true;
      }
      search_block(start / kLanes, lanes, run, lists);
    }
  }

  // The planes and counts of the genotype patterns of a run's prefix.
  void join_prefix(const RunOfCombinations& run) {
    complete_prefix_ = complete_prefix(run);
    const size_t words = planes_.words();
    for (size_t cell = 0; cell < prefix_cells_; ++cell) {
      uint64_t* joined = prefix_.data() + cell * words;
      for (size_t segment = 0; segment < segments_.samples.size(); ++segment) {
        uint32_t n = 0;
        const auto end = static_cast<size_t>(segments_.first_word[segment + 1]);
        for (auto w = static_cast<size_t>(segments_.first_word[segment]); w < end; ++w) {
          joined[w] = planes_.occupied(w);
          for (size_t digits = cell, j = 0; j + 1 < static_cast<size_t>(rules_.order); ++j, digits /= 3) {
            joined[w] &= planes_.word(run.comb[j], digits % 3, w);
          }
          n += ones_of(joined[w]);
        }
        uint32_t& pair = prefix_pairs_[cell * n_pairs_ + segment / 2];
        pair = segment % 2 == 0 ? n : pair | n << 16;
      }
    }
  }

  // The bits of the lanes from `start` on that belong to the run, which has some of them.
  static uint32_t lanes_of(const RunOfCombinations& run, size_t start, size_t lanes) {
    const size_t from = std::max(run.first, start) - start;
    const size_t to = std::min(run.end, start + lanes) - start;
    return ((1u << to) - 1) & ~((1u << from) - 1);
  }

  // The given lanes of 16 last SNPs.
  void search_block(size_t b, uint32_t lanes, const RunOfCombinations& run,
                    std::vector<CandidateList>& lists) {
    const bool complete_block = !planes_.block_missing(b);
    kernels_.count({prefix_.data(), prefix_pairs_.data(), prefix_cells_, planes_.words(), planes_.block(b),
                    segments_.first_word.data(), n_pairs_, complete_block,
                    rules_.order == 2 && complete_block && complete_prefix_ ? planes_.marginals(b) : nullptr},
                   counts_.data());
    if (bounded_) {
      lanes &= kernels_.bound(bound_input(b), counts_.data(), 3 * prefix_cells_, n_pairs_);
    }
    offer_lanes(b, lanes, run, lists);
  }

  // The same from what the tile has counted.
  void search_counted(size_t b, const LaneDeriveInput& counted, uint32_t lanes, const RunOfCombinations& run,
                      std::vector<CandidateList>& lists) {
    if (bounded_) {
      lanes &= kernels_.derived_bound(bound_input(b), counted);
    }
    if (lanes != 0) {
      kernels_.derive(counted, counts_.data());
      offer_lanes(b, lanes, run, lists);
    }
  }

  LaneBoundInput bound_input(size_t b) {
    return {limits_.data(),
            limits_.size(),
            complete_prefix_ && !planes_.block_missing(b),
            rules_.own_thresholds(),
            has_difference_ ? LaneBoundKind::kDifference : LaneBoundKind::kTable,
            has_plain_weights(rules_.measure),
            rules_.measure,
            rules_.tie,
            all_cases_,
            all_controls_,
            totals_.data()};
  }

  void offer_lanes(size_t b, uint32_t lanes, const RunOfCombinations& run,
                   std::vector<CandidateList>& lists) {
    if (std::popcount(lanes) > kFewLanes) {
      offer_all(b, lanes, run, lists);
      set_limits(lists);
      return;
    }
    for (; lanes != 0; lanes &= lanes - 1) {
      const auto lane = static_cast<size_t>(std::countr_zero(lanes));
      offer(lane, run.rank_of_first + (b * kLanes + lane - run.first), lists);
    }
  }

  // The exact values of the given lanes, computed side by side.
  void offer_all(size_t b, uint32_t lanes, const RunOfCombinations& run, std::vector<CandidateList>& lists) {
    lane_values_.resize(thresholds_.size() * kLanes);
    kernels_.values(
        {counts_.data(), 3 * prefix_cells_, n_pairs_, thresholds_.size(), rules_.measure, rules_.tie,
         rules_.own_thresholds(), thresholds_.data(), samples_.data(), totals_.data()},
        lane_values_.data());
    for (size_t f = 0; f < thresholds_.size(); ++f) {
      for (uint32_t left = lanes; left != 0; left &= left - 1) {
        const auto lane = static_cast<size_t>(std::countr_zero(left));
        const float value = lane_values_[f * kLanes + lane];
        if (value >= lists[f].floor().value) {
          lists[f].offer(run.rank_of_first + (b * kLanes + lane - run.first), value);
        }
      }
    }
  }

  // The exact values of one combination.
  void offer(size_t lane, uint64_t rank, std::vector<CandidateList>& lists) {
    for (size_t i = 0; i < 3 * prefix_cells_ * n_pairs_; ++i) {
      const uint32_t pair = counts_[i * kLanes + lane];
      lane_counts_[2 * i] = static_cast<int32_t>(pair & 0xffffu);
      lane_counts_[2 * i + 1] = static_cast<int32_t>(pair >> 16);
    }
    scores_.offer(rank, lane_counts_.data(), static_cast<int64_t>(3 * prefix_cells_), nullptr, lists);
    set_limits(lists);
  }

  const Segments& segments_;
  const LanePlanes& planes_;
  const LaneKernels& kernels_;
  const SampleRows* rows_;  // of the row filter, or null
  FoldScores scores_;
  const ScoringRules rules_;
  const int n_snps_;
  const size_t n_pairs_;
  const bool has_difference_;  // a bound of that kind (LaneBoundKind)
  bool has_table_ = false;
  bool bounded_ = false;   // a bound is of use: every list is full
  int32_t all_cases_ = 0;  // of all samples, which the common threshold is of
  int32_t all_controls_ = 0;
  size_t prefix_cells_ = 1;
  bool complete_prefix_ = true;
  std::vector<uint64_t> prefix_;        // [prefix_cells_][words]
  std::vector<uint32_t> prefix_pairs_;  // [prefix_cells_][n_pairs_]
  std::vector<uint32_t> counts_;        // [cells][n_pairs_][kLanes]
  std::vector<uint32_t> totals_;        // scratch of the bound
  std::vector<int32_t> lane_counts_;    // [cells][2 * n_pairs_] of one lane
  std::vector<LaneLimit> limits_;       // [folds]
  std::vector<float> thresholds_;       // [folds]
  std::vector<int32_t> samples_;        // [folds]
  std::vector<float> lane_values_;      // [folds][kLanes]
  bool filters_ = false;                // every fold's floor is high enough for it
  std::vector<int16_t> needs_;          // [folds]
  float largest_floor_ = 0.0f;          // of a fold, as the difference of shares that it is
  std::optional<RowTile> tile_;
  std::vector<RunOfCombinations> runs_;  // of the tile's prefixes
};

}  // namespace

bool lane_search_fits(const ScoringRules& rules, const Segments& segments) {
  size_t classes[2] = {0, 0};
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    classes[segment % 2] += segments.samples[segment].size();
  }
  // N * N of tau-c wraps around at 32 bits beyond this; P * Q and H * L do not for classes of that size.
  constexpr size_t kLargestSquare = 46340;
  return rules.order <= kMaxPlaneOrder && rules.counted_cells() == rules.cells() &&
         classes[0] <= static_cast<size_t>(kMaxClassSize) &&
         classes[1] <= static_cast<size_t>(kMaxClassSize) &&
         (rules.measure != kTauC || classes[0] + classes[1] <= kLargestSquare);
}

std::unique_ptr<const SampleRows> make_sample_rows(const Problem& problem, const WorkerSetupCommand& setup,
                                                   const Segments& segments, const LanePlanes& planes,
                                                   size_t threads) {
  if (problem.transposed || setup.rules.order < 2 || setup.rules.order > RowTile::kMaxOrder) {
    return nullptr;
  }
  const auto make = [&](RowWeights weights) {
    return std::make_unique<const SampleRows>(problem, planes, segments, weights, threads);
  };
  if (has_bound(setup.rules.measure, setup.rules.tie) &&
      missing_share(problem, planes, segments) <= largest_missing_share(setup, problem)) {
    const ClassSizes sizes(segments, setup.folds.size());
    const std::optional<RowWeights> weights = row_weights(sizes.training_cases, sizes.training_controls,
                                                          segments, setup.rules.measure == kAccuracy);
    if (weights) {
      return make(*weights);
    }
  }
  return make({RowValues::kCounts, true, 1, 1});
}

std::unique_ptr<RangeSearch> make_lane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                              const Segments& segments, const LanePlanes& planes,
                                              const SampleRows* rows, InstructionSet instruction_set) {
  const auto make = [&](const LaneKernels& kernels, const RowKernels& row_kernels) {
    return std::make_unique<LaneSearch>(problem, setup, segments, planes, kernels, rows, row_kernels);
  };
  switch (instruction_set) {
    case InstructionSet::kAvx512:
      return make(lane_kernels_avx512(), row_kernels_avx512());
    case InstructionSet::kAvx2:
      return make(lane_kernels_avx2(), row_kernels_avx2());
    default:
      return make(lane_kernels_portable(), row_kernels_portable());
  }
}
