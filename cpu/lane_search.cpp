// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <bit>
#include <cmath>
#include <optional>

#include "cpu/byte_planes.h"
#include "cpu/fold_scores.h"
#include "cpu/lane_kernels.h"
#include "cpu/lane_planes.h"
#include "cpu/range_search.h"
#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/search_bound.h"

namespace {

// Samples of both classes, in all segments and in the training set of each fold.
struct ClassSizes {
  int32_t all[2] = {0, 0};   // controls, cases
  int32_t most[2] = {0, 0};  // of a segment
  std::vector<int32_t> training_controls;
  std::vector<int32_t> training_cases;

  ClassSizes(const Segments& segments, size_t n_folds) {
    for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
      const auto n = static_cast<int32_t>(segments.samples[segment].size());
      all[segment % 2] += n;
      most[segment % 2] = std::max(most[segment % 2], n);
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
             const LanePlanes& planes, const LaneKernels& kernels, const BytePlanes* bytes, ByteFilter filter)
      : segments_(segments),
        planes_(planes),
        kernels_(kernels),
        bytes_(bytes),
        filter_(filter),
        scores_(setup, segments),
        rules_(setup.rules),
        n_snps_(problem.n_snps),
        n_pairs_(static_cast<size_t>(segments.n_folds) + 1),
        bounded_(has_bound(setup.rules.measure, setup.rules.tie)) {
    for (int j = 1; j < rules_.order; ++j) {
      prefix_cells_ *= 3;
    }
    prefix_.resize(prefix_cells_ * planes.words());
    if (bytes_ != nullptr) {
      prefix_values_.resize(prefix_cells_ * n_pairs_);
      values_.resize(3 * prefix_cells_ * n_pairs_ * kByteLanes);
    }
    prefix_pairs_.resize(prefix_cells_ * n_pairs_);
    counts_.resize(3 * prefix_cells_ * n_pairs_ * kLanes);
    totals_.resize(3 * prefix_cells_ * kLanes);
    lane_counts_.resize(3 * prefix_cells_ * 2 * n_pairs_);
    set_class_totals(setup);
  }

  void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) override {
    set_limits(lists);
    std::vector<int> comb(static_cast<size_t>(rules_.order));
    comb_unrank(n_snps_, rules_.order, first_rank, comb.data());
    for (uint64_t done = 0; done < n_ranks;) {
      join_prefix(comb.data());
      // The run of combinations with this prefix: last SNPs first .. end - 1.
      const int first = comb.back();
      const int end = static_cast<int>(std::min<uint64_t>(static_cast<uint64_t>(n_snps_),
                                                          static_cast<uint64_t>(first) + (n_ranks - done)));
      const RunOfCombinations run_here = {static_cast<size_t>(first), static_cast<size_t>(end),
                                          first_rank + done};
      for (size_t b = run_here.first / kByteLanes; b * kByteLanes < run_here.end; ++b) {
        search_byte_block(b, run_here, lists);
      }
      done += static_cast<uint64_t>(end - first);
      comb.back() = n_snps_ - 1;
      if (comb_nextstep(&rules_.order, &n_snps_, comb.data()) != 0) {
        break;
      }
    }
  }

 private:
  // The training class totals of every fold where no genotype is missing, and the sample numbers of the fold.
  void set_class_totals(const WorkerSetupCommand& setup) {
    const ClassSizes sizes(segments_, setup.folds.size());
    limits_.resize(setup.folds.size());
    needs_.resize(setup.folds.size());
    for (size_t f = 0; f < limits_.size(); ++f) {
      limits_[f].controls = sizes.training_controls[f];
      limits_[f].cases = sizes.training_cases[f];
      limits_[f].samples = static_cast<float>(setup.folds[f].training.size());
      thresholds_.push_back(setup.folds[f].threshold);
      samples_.push_back(static_cast<int32_t>(setup.folds[f].training.size()));
    }
  }

  // What the byte filter's sum S must reach, for combinations of complete SNPs: D <= (P / b) S.
  void set_need(size_t f) {
    const LaneLimit& limit = limits_[f];
    const auto p = static_cast<double>(limit.cases);
    const auto q = static_cast<double>(limit.controls);
    const double n = rules_.own_thresholds() ? p + q : static_cast<double>(limit.samples);
    const double d = static_cast<double>(limit.pq) * p * q + static_cast<double>(limit.nn) * n * n +
                     static_cast<double>(limit.n) * n - static_cast<double>(limit.q) * q;
    const double need = d * bytes_->weights().controls / (rules_.measure == kAccuracy ? 1.0 : p);
    needs_[f] = static_cast<int16_t>(std::clamp(std::floor(need), -32768.0, double{kLargestByteNeed}));
    filters_ = filters_ && needs_[f] > 0;
  }

  void set_limits(const std::vector<CandidateList>& lists) {
    filters_ = bytes_ != nullptr;
    for (size_t f = 0; f < limits_.size(); ++f) {
      LaneLimit& limit = limits_[f];
      limit.q = limit.pq = limit.nn = limit.n = 0.0f;
      if (bounded_) {
        const BoundTerms terms = bound_terms(rules_.measure, lists[f].floor().value);
        limit.q = terms.q;
        limit.pq = terms.pq;
        limit.nn = terms.nn;
        limit.n = terms.n;
      }
      if (bytes_ != nullptr) {
        set_need(f);
      }
    }
  }

  void join_prefix(const int* comb) {
    complete_prefix_ = true;
    for (int j = 0; j + 1 < rules_.order; ++j) {
      complete_prefix_ = complete_prefix_ && !planes_.snp_missing(comb[j]);
    }
    const size_t words = planes_.words();
    for (size_t cell = 0; cell < prefix_cells_; ++cell) {
      uint64_t* joined = prefix_.data() + cell * words;
      for (size_t segment = 0; segment < segments_.samples.size(); ++segment) {
        uint32_t n = 0;
        const auto end = static_cast<size_t>(segments_.first_word[segment + 1]);
        for (auto w = static_cast<size_t>(segments_.first_word[segment]); w < end; ++w) {
          const size_t position = w - static_cast<size_t>(segments_.first_word[segment]);
          joined[w] = occupied_bits(segments_.samples[segment].size(), position);
          for (size_t digits = cell, j = 0; j + 1 < static_cast<size_t>(rules_.order); ++j, digits /= 3) {
            joined[w] &= planes_.word(comb[j], digits % 3, w);
          }
          n += static_cast<uint32_t>(std::popcount(joined[w]));
        }
        uint32_t& pair = prefix_pairs_[cell * n_pairs_ + segment / 2];
        pair = segment % 2 == 0 ? n : pair | n << 16;
        if (bytes_ != nullptr && segment % 2 == 1) {
          const ByteWeights weights = bytes_->weights();
          prefix_values_[cell * n_pairs_ + segment / 2] =
              static_cast<int16_t>(weights.cases * static_cast<int>(pair >> 16) -
                                   weights.controls * static_cast<int>(pair & 0xffffu));
        }
      }
    }
  }

  // The bits of a segment's word that stand for samples.
  static uint64_t occupied_bits(size_t n_samples, size_t word) {
    const size_t left = n_samples - word * kSamplesPerPlaneWord;
    return left >= kSamplesPerPlaneWord ? ~uint64_t{0} : (uint64_t{1} << left) - 1;
  }

  // Combinations with one prefix: last SNPs first .. end - 1.
  struct RunOfCombinations {
    size_t first;
    size_t end;
    uint64_t rank_of_first;
  };

  // The bits of the lanes from `start` on that belong to the run.
  static uint64_t lanes_of(const RunOfCombinations& run, size_t start, size_t lanes) {
    const size_t from = std::max(run.first, start) - start;
    const size_t to = std::min(run.end, start + lanes) - start;
    const uint64_t below_to = to >= 64 ? ~uint64_t{0} : (uint64_t{1} << to) - 1;
    return below_to & ~((uint64_t{1} << from) - 1);
  }

  // 64 last SNPs: first the byte filter, where it applies, then the lanes that are left, 16 at a time.
  void search_byte_block(size_t b, const RunOfCombinations& run, std::vector<CandidateList>& lists) {
    uint64_t lanes = lanes_of(run, b * kByteLanes, kByteLanes);
    if (filters_ && complete_prefix_ && bytes_->complete(b)) {
      lanes &= filter_({reinterpret_cast<const uint8_t*>(prefix_.data()), planes_.words() * sizeof(uint64_t),
                        prefix_cells_, bytes_->first_byte(), bytes_->block(b), bytes_->first_row(), n_pairs_,
                        bytes_->weights().cases, bytes_->weights().controls, prefix_values_.data(),
                        rules_.order == 2 ? bytes_->values(b) : nullptr, needs_.data(), needs_.size(),
                        values_.data()});
    }
    for (size_t part = 0; lanes != 0 && part < kByteLanes / kLanes; ++part) {
      const auto here = static_cast<uint32_t>(lanes >> (part * kLanes)) & ((1u << kLanes) - 1);
      if (here != 0) {
        search_block(b * (kByteLanes / kLanes) + part, here, run, lists);
      }
    }
  }

  // The given lanes of 16 last SNPs.
  void search_block(size_t b, uint32_t lanes, const RunOfCombinations& run,
                    std::vector<CandidateList>& lists) {
    const bool complete_block = !planes_.block_missing(b);
    const bool complete = complete_block && complete_prefix_;
    kernels_.count({prefix_.data(), prefix_pairs_.data(), prefix_cells_, planes_.words(), planes_.block(b),
                    segments_.first_word.data(), n_pairs_, complete_block,
                    rules_.order == 2 && complete ? planes_.marginals(b) : nullptr},
                   counts_.data());
    if (!bounded_) {
      offer_all(b, lanes, run, lists);
      return;
    }
    lanes &=
        kernels_.bound({counts_.data(), 3 * prefix_cells_, n_pairs_, limits_.data(), limits_.size(), complete,
                        rules_.own_thresholds(), has_plain_weights(rules_.measure), totals_.data()});
    for (; lanes != 0; lanes &= lanes - 1) {
      const auto lane = static_cast<size_t>(std::countr_zero(lanes));
      offer(lane, run.rank_of_first + (b * kLanes + lane - run.first), lists);
    }
  }

  // The exact values of the given lanes, computed side by side: of measures without a bound.
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
    if (bounded_) {
      set_limits(lists);
    }
  }

  const Segments& segments_;
  const LanePlanes& planes_;
  const LaneKernels& kernels_;
  const BytePlanes* bytes_;  // of the byte filter, or null
  const ByteFilter filter_;
  FoldScores scores_;
  const ScoringRules rules_;
  const int n_snps_;
  const size_t n_pairs_;
  const bool bounded_;
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
  std::vector<int16_t> prefix_values_;  // [prefix_cells_][n_pairs_]
  std::vector<int16_t> values_;         // scratch of the byte filter
};

}  // namespace

bool lane_search_fits(const ScoringRules& rules, const Segments& segments) {
  size_t classes[2] = {0, 0};
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    classes[segment % 2] += segments.samples[segment].size();
  }
  return rules.order <= kMaxPlaneOrder && rules.counted_cells() == rules.cells() &&
         classes[0] <= static_cast<size_t>(kMaxClassSize) &&
         classes[1] <= static_cast<size_t>(kMaxClassSize) &&
         // N * N of tau-c wraps around at 32 bits beyond this.
         classes[0] + classes[1] <= 46340;
}

std::unique_ptr<const BytePlanes> make_byte_planes(const Problem& problem, const WorkerSetupCommand& setup,
                                                   const Segments& segments, const LanePlanes& planes) {
  if (!has_bound(setup.rules.measure, setup.rules.tie)) {
    return nullptr;
  }
  const ClassSizes sizes(segments, setup.folds.size());
  std::optional<ByteWeights> weights;
  if (setup.rules.measure != kAccuracy) {
    weights = byte_weights(sizes.training_cases, sizes.training_controls, sizes.most[1], sizes.most[0]);
  } else if (std::max(sizes.most[0], sizes.most[1]) <= kLargestByteValue) {
    weights = ByteWeights{1, 1};
  }
  return weights ? std::make_unique<const BytePlanes>(planes, segments, problem.n_snps, *weights) : nullptr;
}

std::unique_ptr<RangeSearch> make_lane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                              const Segments& segments, const LanePlanes& planes,
                                              const BytePlanes* bytes, InstructionSet instruction_set) {
  const auto make = [&](const LaneKernels& kernels, ByteFilter filter) {
    return std::make_unique<LaneSearch>(problem, setup, segments, planes, kernels, bytes, filter);
  };
  switch (instruction_set) {
    case InstructionSet::kAvx512:
      return make(lane_kernels_avx512(), byte_filter_avx512);
    case InstructionSet::kAvx2:
      return make(lane_kernels_avx2(), byte_filter_avx2);
    default:
      return make(lane_kernels_portable(), byte_filter_portable);
  }
}
