// SPDX-License-Identifier: Apache-2.0
#include <bit>
#include <limits>

#include "cpu/fold_scores.h"
#include "cpu/lane_kernels.h"
#include "cpu/lane_planes.h"
#include "cpu/range_search.h"
#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/cv_measures.h"

namespace {

// More than the rounding errors of a record's value and of the bound together, relative.
constexpr float kSlack = 8e-6f;

class LaneSearch : public RangeSearch {
 public:
  LaneSearch(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments,
             const LanePlanes& planes, const LaneKernels& kernels)
      : segments_(segments),
        planes_(planes),
        kernels_(kernels),
        scores_(setup, segments),
        rules_(setup.rules),
        n_snps_(problem.n_snps),
        n_pairs_(static_cast<size_t>(segments.n_folds) + 1),
        bounded_(has_bound(setup.rules)) {
    for (int j = 1; j < rules_.order; ++j) {
      prefix_cells_ *= 3;
    }
    prefix_.resize(prefix_cells_ * planes.words());
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
      for (size_t b = static_cast<size_t>(first) / kLanes; b * kLanes < static_cast<size_t>(end); ++b) {
        search_block(b, first, end, first_rank + done, lists);
      }
      done += static_cast<uint64_t>(end - first);
      comb.back() = n_snps_ - 1;
      if (comb_nextstep(&rules_.order, &n_snps_, comb.data()) != 0) {
        break;
      }
    }
  }

 private:
  // Measures that grow with D of LaneLimit when every cell is classified: the others are computed for every
  // combination.
  static bool has_bound(const ScoringRules& rules) {
    const bool classifies_ties = rules.tie == kHighRisk || rules.tie == kLowRisk;
    const bool grows = rules.measure == kBalancedAccuracy || rules.measure == kAccuracy ||
                       rules.measure == kSomersDx || rules.measure == kTauC;
    return classifies_ties && grows;
  }

  // The training class totals of every fold where no genotype is missing, and the sample numbers of the fold.
  void set_class_totals(const WorkerSetupCommand& setup) {
    int32_t all[2] = {0, 0};
    for (size_t segment = 0; segment < segments_.samples.size(); ++segment) {
      all[segment % 2] += static_cast<int32_t>(segments_.samples[segment].size());
    }
    limits_.resize(setup.folds.size());
    for (size_t f = 0; f < limits_.size(); ++f) {
      limits_[f].controls = all[0] - static_cast<int32_t>(segments_.samples[2 * f].size());
      limits_[f].cases = all[1] - static_cast<int32_t>(segments_.samples[2 * f + 1].size());
      limits_[f].samples = static_cast<float>(setup.folds[f].training.size());
    }
  }

  void set_limits(const std::vector<CandidateList>& lists) {
    for (size_t f = 0; f < limits_.size(); ++f) {
      const float value = lists[f].floor().value * (1.0f - kSlack);
      LaneLimit& limit = limits_[f];
      limit.q = limit.pq = limit.nn = limit.n = 0.0f;
      switch (rules_.measure) {
        case kBalancedAccuracy:  // (1 + D / PQ) / 2
          limit.pq = 2.0f * value - 1.0f - kSlack;
          break;
        case kSomersDx:  // D / PQ
          limit.pq = value;
          break;
        case kTauC:  // 4 D / N^2
          limit.nn = 0.25f * value;
          break;
        case kAccuracy:  // (Q + D) / N, D with weights 1
          limit.q = 1.0f;
          limit.n = value;
          break;
        default:
          break;
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
      }
    }
  }

  // The bits of a segment's word that stand for samples.
  static uint64_t occupied_bits(size_t n_samples, size_t word) {
    const size_t left = n_samples - word * kSamplesPerPlaneWord;
    return left >= kSamplesPerPlaneWord ? ~uint64_t{0} : (uint64_t{1} << left) - 1;
  }

  void search_block(size_t b, int first, int end, uint64_t rank_of_first, std::vector<CandidateList>& lists) {
    const bool complete_block = !planes_.block_missing(b);
    const bool complete = complete_block && complete_prefix_;
    kernels_.count({prefix_.data(), prefix_pairs_.data(), prefix_cells_, planes_.words(), planes_.block(b),
                    segments_.first_word.data(), n_pairs_, complete_block,
                    rules_.order == 2 && complete ? planes_.marginals(b) : nullptr},
                   counts_.data());
    uint32_t lanes = (1u << kLanes) - 1;
    if (bounded_) {
      lanes =
          kernels_.bound({counts_.data(), 3 * prefix_cells_, n_pairs_, limits_.data(), limits_.size(),
                          complete, rules_.own_thresholds(), rules_.measure == kAccuracy, totals_.data()});
    }
    for (; lanes != 0; lanes &= lanes - 1) {
      const auto lane = static_cast<size_t>(std::countr_zero(lanes));
      const int last = static_cast<int>(b * kLanes + lane);
      if (last >= first && last < end) {
        offer(lane, rank_of_first + static_cast<uint64_t>(last - first), lists);
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

std::unique_ptr<RangeSearch> make_lane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                              const Segments& segments, const LanePlanes& planes,
                                              const LaneKernels& kernels) {
  return std::make_unique<LaneSearch>(problem, setup, segments, planes, kernels);
}
