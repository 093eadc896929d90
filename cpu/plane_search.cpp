// SPDX-License-Identifier: Apache-2.0
#include <bit>

#include "cpu/fold_scores.h"
#include "cpu/prefix_runs.h"
#include "cpu/range_search.h"

namespace {

class PlaneSearch : public RangeSearch {
 public:
  PlaneSearch(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments,
              const BitPlanes& planes)
      : segments_(segments),
        planes_(planes),
        scores_(setup, segments),
        order_(setup.rules.order),
        n_snps_(problem.n_snps),
        words_(static_cast<size_t>(planes.words())) {
    for (int j = 1; j < order_; ++j) {
      prefix_cells_ *= 3;
    }
    prefix_.resize(prefix_cells_ * words_);
    counts_.resize(3 * prefix_cells_ * static_cast<size_t>(segments.count()));
    mark_counted_cells(setup.rules);
  }

  void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) override {
    for_each_prefix_run(
        order_, n_snps_, first_rank, n_ranks, [&](const std::vector<int>& comb, int end, uint64_t rank) {
          join_prefix_planes(
              comb, words_,
              [&](int snp, size_t genotype) { return planes_.plane(snp, static_cast<int>(genotype)); },
              &prefix_);
          for (int last = comb.back(); last < end; ++last, ++rank) {
            count(last);
            scores_.offer(rank, counts_.data(), static_cast<int64_t>(3 * prefix_cells_), counted_.data(),
                          lists);
          }
        });
  }

 private:
  // Cells are numbered in base 3 here; the table may be numbered in base 4 and too short for the highest
  // ones.
  void mark_counted_cells(const ScoringRules& rules) {
    for (size_t cell = 0; cell < 3 * prefix_cells_; ++cell) {
      int64_t table_cell = 0;
      int64_t weight = 1;
      for (size_t digits = cell, j = 0; j < static_cast<size_t>(order_); ++j, digits /= 3) {
        table_cell += static_cast<int64_t>(digits % 3) * weight;
        weight *= rules.base();
      }
      counted_.push_back(table_cell < rules.counted_cells() ? 1 : 0);
    }
  }

  void count(int last_snp) {
    int32_t* out = counts_.data();
    for (int genotype = 0; genotype < 3; ++genotype) {
      const uint64_t* plane = planes_.plane(last_snp, genotype);
      for (size_t cell = 0; cell < prefix_cells_; ++cell) {
        const uint64_t* prefix = prefix_.data() + cell * words_;
        for (int segment = 0; segment < segments_.count(); ++segment) {
          int32_t n = 0;
          const auto end = static_cast<size_t>(segments_.first_word[static_cast<size_t>(segment) + 1]);
          for (auto w = static_cast<size_t>(segments_.first_word[static_cast<size_t>(segment)]); w < end;
               ++w) {
            n += std::popcount(prefix[w] & plane[w]);
          }
          *out++ = n;
        }
      }
    }
  }

  const Segments& segments_;
  const BitPlanes& planes_;
  FoldScores scores_;
  const int order_;
  const int n_snps_;
  const size_t words_;
  size_t prefix_cells_ = 1;
  std::vector<uint64_t> prefix_;  // [prefix_cells_][words_]
  std::vector<int32_t> counts_;   // [3 * prefix_cells_][segments], last SNP's genotype the highest digit
  std::vector<uint8_t> counted_;  // [3 * prefix_cells_]
};

}  // namespace

std::unique_ptr<RangeSearch> make_plane_search(const Problem& problem, const WorkerSetupCommand& setup,
                                               const Segments& segments, const BitPlanes& planes) {
  return std::make_unique<PlaneSearch>(problem, setup, segments, planes);
}
