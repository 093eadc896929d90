// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>

#include "cpu/range_search.h"
#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/cv_measures.h"
#include "lib/packed_genotypes.h"

namespace {

// Folds whose sums are added side by side.
constexpr size_t kFoldWidth = 8;

// Tables up to this many cells are held whole; beyond, the samples are sorted by cell.
constexpr int64_t kDenseCells = 729;

class ScoreSearch : public RangeSearch {
 public:
  ScoreSearch(const Problem& problem, const WorkerSetupCommand& setup, const ScoreData& data)
      : problem_(problem),
        rules_(setup.rules),
        data_(data),
        cells_(static_cast<size_t>(setup.rules.cells())),
        counted_cells_(setup.rules.counted_cells()),
        dense_(setup.rules.cells() <= kDenseCells) {
    cell_of_.resize(data.n_samples);
  }

  void run(uint64_t first_rank, uint64_t n_ranks, std::vector<CandidateList>& lists) override {
    std::vector<int> comb(static_cast<size_t>(rules_.order));
    comb_unrank(problem_.n_snps, rules_.order, first_rank, comb.data());
    for (uint64_t done = 0; done < n_ranks; ++done) {
      number_cells(comb.data());
      if (dense_) {
        sum_dense();
      } else {
        sum_occupied();
      }
      offer(first_rank + done, lists);
      if (comb_nextstep(&rules_.order, &problem_.n_snps, comb.data()) != 0) {
        break;
      }
    }
  }

 private:
  static constexpr int64_t kNoCell = -1;

  // The cell of every listed sample, or kNoCell for one that has a missing genotype or no place in the table.
  void number_cells(const int* comb) {
    std::fill(cell_of_.begin(), cell_of_.end(), 0);
    int64_t weight = 1;
    for (int j = 0; j < rules_.order; ++j, weight *= rules_.base()) {
      const uint8_t* genotypes = data_.genotypes(comb[j]);
      for (size_t i = 0; i < data_.n_samples; ++i) {
        cell_of_[i] = genotypes[i] == kMissingGenotype || cell_of_[i] == kNoCell
                          ? kNoCell
                          : cell_of_[i] + weight * genotypes[i];
      }
    }
    for (int64_t& cell : cell_of_) {
      cell = cell < counted_cells_ ? cell : kNoCell;
    }
  }

  void clear_cells(size_t n) {
    n_cells_ = n;
    counts_.assign(n * data_.n_segments, 0);
    sums_.assign(2 * n * data_.width, 0.0f);
  }

  // Counts sample position i and adds its score for every fold that trains on it; its score for the others is
  // 0 there.
  void add(size_t i, size_t cell) {
    ++counts_[cell * data_.n_segments + data_.segment_of[i]];
    float* sums = sums_.data() + (2 * cell + data_.segment_of[i] % 2) * data_.width;
    const float* scores = data_.scores.data() + i * data_.width;
    for (size_t lane = 0; lane < data_.width; lane += kFoldWidth) {
      for (size_t f = 0; f < kFoldWidth; ++f) {
        sums[lane + f] += scores[lane + f];
      }
    }
  }

  void sum_dense() {
    clear_cells(cells_);
    for (size_t i = 0; i < data_.n_samples; ++i) {
      if (cell_of_[i] != kNoCell) {
        add(i, static_cast<size_t>(cell_of_[i]));
      }
    }
  }

  void sum_occupied() {
    occupied_.clear();
    for (size_t i = 0; i < data_.n_samples; ++i) {
      if (cell_of_[i] != kNoCell) {
        occupied_.emplace_back(cell_of_[i], i);
      }
    }
    std::sort(occupied_.begin(), occupied_.end());
    size_t n = 0;
    for (size_t i = 0; i < occupied_.size(); ++i) {
      n += i == 0 || occupied_[i].first != occupied_[i - 1].first ? 1 : 0;
    }
    clear_cells(n);
    size_t cell = 0;
    for (size_t i = 0; i < occupied_.size(); ++i) {
      cell += i > 0 && occupied_[i].first != occupied_[i - 1].first ? 1 : 0;
      add(occupied_[i].second, cell);
    }
  }

  void offer(uint64_t rank, std::vector<CandidateList>& lists) {
    totals_.assign(2 * n_cells_, 0);
    for (size_t m = 0; m < n_cells_; ++m) {
      for (size_t segment = 0; segment < data_.n_segments; ++segment) {
        totals_[2 * m + segment % 2] += counts_[m * data_.n_segments + segment];
      }
    }
    for (size_t f = 0; f < lists.size(); ++f) {
      Confusion table{};
      for (size_t m = 0; m < n_cells_; ++m) {
        const int32_t controls = totals_[2 * m] - counts_[m * data_.n_segments + 2 * f];
        const int32_t cases = totals_[2 * m + 1] - counts_[m * data_.n_segments + 2 * f + 1];
        const float control_scores = sums_[2 * m * data_.width + f];
        const float case_scores = sums_[(2 * m + 1) * data_.width + f];
        add_cell(&table, score_cell_label(controls, control_scores, case_scores, rules_.tie), controls,
                 cases);
      }
      // Balanced accuracy is the only measure of a score-based record; any other entry is 0 and passes no
      // floor.
      const float value =
          rules_.measure == kBalancedAccuracy ? canonical_nan(balanced_accuracy_unguarded(table)) : 0.0f;
      lists[f].offer(rank, value);
    }
  }

  const Problem& problem_;
  const ScoringRules rules_;
  const ScoreData& data_;
  const size_t cells_;
  const int64_t counted_cells_;
  const bool dense_;
  std::vector<int64_t> cell_of_;                      // [samples]
  std::vector<std::pair<int64_t, size_t>> occupied_;  // cell and position
  size_t n_cells_ = 0;
  std::vector<int32_t> counts_;  // [n_cells_][segments]
  std::vector<float> sums_;      // [n_cells_][class][width], one lane per fold
  std::vector<int32_t> totals_;  // [n_cells_][class]
};

}  // namespace

ScoreData::ScoreData(const Problem& problem, const WorkerSetupCommand& setup, const Segments& segments)
    : n_samples(setup.samples.size()),
      n_segments(static_cast<size_t>(segments.count())),
      width((setup.folds.size() + kFoldWidth - 1) / kFoldWidth * kFoldWidth) {
  std::vector<size_t> segment_by_sample(static_cast<size_t>(problem.n_samples), 0);
  for (size_t segment = 0; segment < n_segments; ++segment) {
    for (const int sample : segments.samples[segment]) {
      segment_by_sample[static_cast<size_t>(sample)] = segment;
    }
  }
  scores.assign(n_samples * width, 0.0f);
  genotype_rows.resize(n_samples * static_cast<size_t>(problem.n_snps));
  for (size_t i = 0; i < n_samples; ++i) {
    const auto sample = static_cast<size_t>(setup.samples[n_samples - 1 - i]);
    segment_of.push_back(segment_by_sample[sample]);
    for (size_t f = 0; f < setup.folds.size(); ++f) {
      scores[i * width + f] = segment_of[i] / 2 == f ? 0.0f : problem.scores[sample];
    }
    for (size_t snp = 0; snp < static_cast<size_t>(problem.n_snps); ++snp) {
      genotype_rows[snp * n_samples + i] = static_cast<uint8_t>(
          problem.transposed ? kMissingGenotype : packed_genotype(problem.row(sample), snp));
    }
  }
}

std::unique_ptr<RangeSearch> make_score_search(const Problem& problem, const WorkerSetupCommand& setup,
                                               const ScoreData& data) {
  return std::make_unique<ScoreSearch>(problem, setup, data);
}
