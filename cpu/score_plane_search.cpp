// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "cpu/prefix_runs.h"
#include "cpu/range_search.h"
#include "cpu/score_kernels.h"
#include "lib/cv_measures.h"
#include "lib/packed_genotypes.h"

namespace {

class ScorePlaneSearch : public RangeSearch {
 public:
  ScorePlaneSearch(const Problem& problem, const WorkerSetupCommand& setup, const ScorePlanes& planes,
                   ScoreKernel kernel)
      : planes_(planes), kernel_(kernel), rules_(setup.rules), n_snps_(problem.n_snps) {
    for (int j = 1; j < rules_.order; ++j) {
      prefix_cells_ *= 3;
    }
    prefix_.resize(prefix_cells_ * planes.words);
    places_.resize(2 * kScoreCombinations * (64 * planes.words + 64));
    values_.resize(kScoreCombinations * planes.fold_groups * kFoldLanes);
  }

  void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) override {
    for_each_prefix_run(
        rules_.order, n_snps_, first_rank, n_ranks,
        [&](const std::vector<int>& comb, int end, uint64_t rank) {
          join_prefix_planes(
              comb, planes_.words,
              [&](int snp, size_t genotype) { return planes_.of_snp(snp) + genotype * planes_.words; },
              &prefix_);
          for (int last = comb.back(); last < end; last += kScoreCombinations) {
            search(last, std::min<int>(end - last, kScoreCombinations),
                   rank + static_cast<uint64_t>(last - comb.back()), lists);
          }
        });
  }

 private:
  // n last SNPs from `last` on.
  void search(int last, int n, uint64_t rank, std::vector<CandidateList>& lists) {
    static_assert(kScoreCombinations == 2);
    // An odd one is computed twice.
    kernel_({prefix_.data(),
             prefix_cells_,
             {planes_.of_snp(last), planes_.of_snp(last + n - 1)},
             planes_.words,
             planes_.case_word,
             planes_.scores.data(),
             planes_.training.data(),
             planes_.fold_groups,
             rules_.tie,
             places_.data()},
            values_.data());
    for (int c = 0; c < n; ++c) {
      const float* values = values_.data() + static_cast<size_t>(c) * planes_.fold_groups * kFoldLanes;
      for (size_t f = 0; f < lists.size(); ++f) {
        if (values[f] >= lists[f].floor().value) {
          lists[f].offer(rank + static_cast<uint64_t>(c), values[f]);
        }
      }
    }
  }

  const ScorePlanes& planes_;
  const ScoreKernel kernel_;
  const ScoringRules rules_;
  const int n_snps_;
  size_t prefix_cells_ = 1;
  std::vector<uint64_t> prefix_;  // [prefix_cells_][words]
  std::vector<uint32_t> places_;  // scratch of the kernel
  std::vector<float> values_;     // [kScoreCombinations][fold groups][kFoldLanes]
};

}  // namespace

ScorePlanes::ScorePlanes(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments) {
  constexpr size_t kNone = SIZE_MAX;
  std::vector<size_t> segment_of(static_cast<size_t>(problem.n_samples), kNone);
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    for (const int sample : segments.samples[segment]) {
      segment_of[static_cast<size_t>(sample)] = segment;
    }
  }
  // Sums run from the last of the run's samples to the first.
  std::vector<int> of_class[2];
  for (size_t i = setup.samples.size(); i-- > 0;) {
    const int sample = setup.samples[i];
    of_class[segment_of[static_cast<size_t>(sample)] % 2].push_back(sample);
  }
  case_word = (of_class[0].size() + 63) / 64;
  words = case_word + (of_class[1].size() + 63) / 64;
  fold_groups = (setup.folds.size() + kFoldLanes - 1) / kFoldLanes;
  scores.assign(64 * words, 0.0f);
  training.assign(64 * words * fold_groups, 0);
  planes.assign(static_cast<size_t>(problem.n_snps) * 3 * words, 0);
  for (size_t label = 0; label < 2; ++label) {
    for (size_t i = 0; i < of_class[label].size(); ++i) {
      const size_t place = label * 64 * case_word + i;
      const auto sample = static_cast<size_t>(of_class[label][i]);
      scores[place] = problem.scores[sample];
      for (size_t f = 0; f < setup.folds.size(); ++f) {
        if (segment_of[sample] / 2 != f) {
          uint16_t& folds = training[place * fold_groups + f / kFoldLanes];
          folds = static_cast<uint16_t>(folds | 1u << f % kFoldLanes);
        }
      }
      for (size_t snp = 0; snp < static_cast<size_t>(problem.n_snps) && !problem.transposed; ++snp) {
        const uint32_t genotype = packed_genotype(problem.row(sample), snp);
        if (genotype != kMissingGenotype) {
          planes[(snp * 3 + genotype) * words + place / 64] |= uint64_t{1} << place % 64;
        }
      }
    }
  }
}

bool score_planes_fit(const ScoringRules& rules) {
  return rules.order <= kMaxPlaneOrder && rules.counted_cells() == rules.cells() && rules.base() == 3 &&
         rules.measure == kBalancedAccuracy;
}

std::unique_ptr<RangeSearch> make_score_plane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                                     const ScorePlanes& planes,
                                                     InstructionSet instruction_set) {
  const ScoreKernel kernel = instruction_set == InstructionSet::kAvx512 ? score_kernel_avx512()
                             : instruction_set == InstructionSet::kAvx2 ? score_kernel_avx2()
                                                                        : score_kernel_portable();
  return std::make_unique<ScorePlaneSearch>(problem, setup, planes, kernel);
}
