// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <utility>

#include "cpu/fold_scores.h"
#include "cpu/range_search.h"
#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/packed_genotypes.h"

namespace {

class CellSearch : public RangeSearch {
 public:
  CellSearch(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments)
      : problem_(problem), segments_(segments), scores_(setup, segments), order_(setup.rules.order) {}

  void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) override {
    std::vector<int> comb(static_cast<size_t>(order_));
    comb_unrank(problem_.n_snps, order_, first_rank, comb.data());
    for (uint64_t done = 0; done < n_ranks; ++done) {
      const int64_t n_cells = count(comb.data());
      scores_.offer(first_rank + done, counts_.data(), n_cells, nullptr, lists);
      if (comb_nextstep(&order_, &problem_.n_snps, comb.data()) != 0) {
        break;
      }
    }
  }

 private:
  // Fills counts_ with the occupied cells, ascending, and returns their number. Every base orders them alike.
  int64_t count(const int* comb) {
    occupied_.clear();
    if (!problem_.transposed) {
      for (int segment = 0; segment < segments_.count(); ++segment) {
        for (const int sample : segments_.samples[static_cast<size_t>(segment)]) {
          const uint32_t* row = problem_.row(static_cast<size_t>(sample));
          uint64_t cell = 0;
          uint64_t weight = 1;
          int j = 0;
          for (; j < order_; ++j, weight *= 3) {
            const unsigned genotype = packed_genotype(row, static_cast<size_t>(comb[j]));
            if (genotype == kMissingGenotype) {
              break;
            }
            cell += weight * genotype;
          }
          if (j == order_) {
            occupied_.emplace_back(cell, segment);
          }
        }
      }
    }
    std::sort(occupied_.begin(), occupied_.end());
    counts_.clear();
    int64_t n_cells = 0;
    uint64_t last_cell = 0;
    const auto n_segments = static_cast<size_t>(segments_.count());
    for (const auto& [cell, segment] : occupied_) {
      if (n_cells == 0 || cell != last_cell) {
        counts_.insert(counts_.end(), n_segments, 0);
        last_cell = cell;
        ++n_cells;
      }
      ++counts_[counts_.size() - n_segments + static_cast<size_t>(segment)];
    }
    return n_cells;
  }

  const Problem& problem_;
  const Segments& segments_;
  FoldScores scores_;
  const int order_;
  std::vector<std::pair<uint64_t, int>> occupied_;  // cell and segment of every complete sample
  std::vector<int32_t> counts_;                     // [occupied cells][segments]
};

}  // namespace

std::unique_ptr<RangeSearch> make_cell_search(const Problem& problem, const WorkerSetupCommand& setup,
                                              const Segments& segments) {
  return std::make_unique<CellSearch>(problem, setup, segments);
}
