// SPDX-License-Identifier: Apache-2.0
//
// The bodies of the search kernels, run in host loops.
#include <gtest/gtest.h>

#include "cuda/occupied_search_body.h"
#include "cuda/plane_body.h"
#include "cuda/score_body.h"
#include "cuda/search_layout.h"
#include "tests/cuda/comparisons.h"
#include "tests/cuda/host_planes.h"
#include "tests/cuda/surplus_threads.h"

namespace {

using tavo_test::Scene;

using tavo_test::kSurplusThreads;

// What every search launch reads besides the samples, owned.
struct HostRange {
  HostRange(const Scene& scene, const WorkerSetupCommand& setup)
      : binomials(binomial_table(scene.problem.n_snps, setup.rules.order)), floors(setup.folds.size()) {
    for (const FoldView& fold : setup.folds) {
      fold_n.push_back(static_cast<int>(fold.training.size()));
      thresholds.push_back(fold.threshold);
    }
    range.n_snps = scene.problem.n_snps;
    range.order = setup.rules.order;
    range.binomials = binomials.data();
    range.n_folds = static_cast<int>(setup.folds.size());
    range.fold_n = fold_n.data();
    range.thresholds = thresholds.data();
    range.floors = floors.data();
    range.own_thresholds = setup.rules.own_thresholds();
    range.tie = setup.rules.tie;
    range.measure = setup.rules.measure;
  }
  HostRange(const HostRange&) = delete;
  HostRange& operator=(const HostRange&) = delete;

  // Runs body(range, item) over all ranks, in launches that begin and end anywhere.
  template <typename Body>
  std::vector<SearchCandidate> run(uint64_t total, Body body) {
    std::vector<SearchCandidate> found;
    for (uint64_t first = 0; first < total; first += range.n_ranks) {
      range.first_rank = first;
      range.n_ranks = std::min<uint64_t>(total - first, 1 + (first * 7 + 3) % 11);
      std::vector<SearchCandidate> buffer(range.n_ranks * floors.size());
      unsigned long long count = 0;
      range.sink = {buffer.data(), &count, buffer.size()};
      for (uint64_t item = 0; item < range.n_ranks + kSurplusThreads; ++item) {
        body(range, item);
      }
      found.insert(found.end(), buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(count));
    }
    return found;
  }

  std::vector<uint64_t> binomials;
  std::vector<SearchFloor> floors;
  std::vector<int> fold_n;
  std::vector<float> thresholds;
  SearchRange range{};
};

size_t padded_snps(const Problem& problem) {
  return static_cast<size_t>((problem.n_snps + kSnpsPerBlock - 1) / kSnpsPerBlock * kSnpsPerBlock);
}

template <int kOrder>
std::vector<SearchCandidate> plane_search(const Scene& scene, const WorkerSetupCommand& setup,
                                          uint64_t total) {
  const tavo_test::HostPlanes planes(scene.problem, Segments(scene.problem, setup.folds));
  HostRange host(scene, setup);
  return host.run(total, [&](const SearchRange& range, uint64_t item) {
    search_planes<kOrder>({range, planes.view(), counted_cell_bits(setup.rules)}, item);
  });
}

// stride: as if threads shared an array, each with its own column.
template <int kOrder, int kWords, int kStride>
std::vector<SearchCandidate> score_search(const Scene& scene, const WorkerSetupCommand& setup,
                                          uint64_t total) {
  if (setup.rules.measure != kBalancedAccuracy) {
    return {};
  }
  const PositionLayout layout(scene.problem, setup, Segments(scene.problem, setup.folds));
  const auto n = static_cast<int>(layout.sample_at.size());
  const auto n_words = static_cast<int>(packed_words(n));
  std::vector<uint32_t> codes(padded_snps(scene.problem) * static_cast<size_t>(n_words), 0);
  const CodeBuildArguments build{tavo_test::genotype_matrix(scene.problem), n, n_words,
                                 layout.sample_at.data(), codes.data()};
  const auto items = static_cast<uint64_t>(n_words * scene.problem.words_per_row);
  for (uint64_t item = 0; item < items + kSurplusThreads; ++item) {
    build_codes(build, item);
  }
  // What an earlier thread left behind.
  std::vector<FoldSums> sums(kScoreEntries<kOrder> * kStride, FoldSums{{1.0f, 2.0f, 3.0f, 4.0f}});
  std::vector<FoldCounts<kWords>> counts(kScoreEntries<kOrder> * kStride, FoldCounts<kWords>{{99}});
  HostRange host(scene, setup);
  return host.run(total, [&](const SearchRange& range, uint64_t item) {
    search_scores<kOrder>({range, codes.data(), n, n_words, layout.is_case.data(), layout.fold_of.data(),
                           layout.fold_scores.data(), layout.width, counted_cell_bits(setup.rules)},
                          item, sums.data() + kStride - 1, counts.data() + kStride - 1, kStride);
  });
}

std::vector<SearchCandidate> occupied(const Scene& scene, const WorkerSetupCommand& setup, uint64_t total) {
  if (scene.problem.scores != nullptr && setup.rules.measure != kBalancedAccuracy) {
    return {};
  }
  const PositionLayout layout(scene.problem, setup, Segments(scene.problem, setup.folds));
  const auto n = static_cast<int>(layout.sample_at.size());
  std::vector<PlacedSample> placed(11 * static_cast<size_t>(n));
  HostRange host(scene, setup);
  return host.run(total, [&](const SearchRange& range, uint64_t item) {
    search_occupied({range, setup.rules.base(), setup.rules.counted_cells(),
                     tavo_test::genotype_matrix(scene.problem), n, layout.sample_at.data(),
                     layout.is_case.data(), layout.fold_of.data(), scene.problem.scores, placed.data()},
                    item);
  });
}

using SearchPointer = std::vector<SearchCandidate> (*)(const Scene&, const WorkerSetupCommand&, uint64_t);
constexpr SearchPointer kPlaneSearches[kMaxCudaPlaneOrder] = {
    plane_search<1>, plane_search<2>, plane_search<3>, plane_search<4>, plane_search<5>, plane_search<6>};
constexpr SearchPointer kScoreSearches[kMaxCudaScoreOrder] = {score_search<1, 1, 1>, score_search<2, 1, 1>,
                                                              score_search<3, 1, 1>, score_search<4, 1, 1>};
constexpr SearchPointer kWideScoreSearches[kMaxCudaScoreOrder] = {
    score_search<1, 2, 3>, score_search<2, 2, 3>, score_search<3, 2, 3>, score_search<4, 2, 3>};

class PlaneBodies : public testing::TestWithParam<int> {};
TEST_P(PlaneBodies, FindTheBitsOfTheRecords) {
  tavo_test::sweep_searches(GetParam(), false, kPlaneSearches[GetParam() - 1]);
}
INSTANTIATE_TEST_SUITE_P(Orders, PlaneBodies, testing::Range(1, kMaxCudaPlaneOrder + 1),
                         testing::PrintToStringParamName());

class ScoreBodies : public testing::TestWithParam<int> {};
TEST_P(ScoreBodies, FindTheBitsOfTheRecords) {
  tavo_test::sweep_searches(GetParam(), true, kScoreSearches[GetParam() - 1]);
}
TEST_P(ScoreBodies, FindTheBitsOfTheRecordsWithWideCounts) {
  tavo_test::sweep_searches(GetParam(), true, kWideScoreSearches[GetParam() - 1]);
}
INSTANTIATE_TEST_SUITE_P(Orders, ScoreBodies, testing::Range(1, kMaxCudaScoreOrder + 1),
                         testing::PrintToStringParamName());

// The largest number of samples that the narrow lanes take, and one more than a narrow lane would.
TEST(FoldCounts, LanesDoNotSpill) {
  FoldCounts<1> narrow{};
  for (int i = 0; i < kMostNarrowSamples; ++i) {
    count_sample(&narrow, i < 5 ? 2 : kFoldLanes);
  }
  EXPECT_EQ(lane_count(narrow, 0), 65535);
  EXPECT_EQ(lane_count(narrow, 1), 65535);
  EXPECT_EQ(lane_count(narrow, 2), 65530);
  EXPECT_EQ(lane_count(narrow, 3), 65535);
  FoldCounts<2> wide{};
  for (int i = 0; i <= kMostNarrowSamples; ++i) {
    count_sample(&wide, i < 5 ? 3 : -1);
  }
  EXPECT_EQ(lane_count(wide, 0), 65536);
  EXPECT_EQ(lane_count(wide, 1), 65536);
  EXPECT_EQ(lane_count(wide, 2), 65536);
  EXPECT_EQ(lane_count(wide, 3), 65531);
}

class OccupiedBodies : public testing::TestWithParam<int> {};
TEST_P(OccupiedBodies, FindTheBitsOfTheRecords) {
  tavo_test::sweep_searches(GetParam(), false, occupied);
}
TEST_P(OccupiedBodies, FindTheBitsOfTheRecordsWithScores) {
  tavo_test::sweep_searches(GetParam(), true, occupied);
}
INSTANTIATE_TEST_SUITE_P(Orders, OccupiedBodies, testing::Values(1, 2, 3, 5, 7, 9),
                         testing::PrintToStringParamName());

// 40 SNPs: more than one block of the interleaved layout and more than one packed word.
TEST(SearchBodies, SnpsOfEveryBlockAreFound) {
  std::mt19937 random(12);
  Scene scene(random, 70, 40, 0.1, 3, false);
  tavo_test::expect_search(scene, {2, 4, 1, kBalancedAccuracy}, 0, plane_search<2>);
  scene.draw_scores(random);
  tavo_test::expect_search(scene, {2, 4, 1, kBalancedAccuracy}, 0, (score_search<2, 1, 1>));
}

TEST(SearchBodies, TheTransposedLayoutHasEmptyTables) {
  std::mt19937 random(13);
  Scene scene(random, 40, 9, 0.1, 3, false);
  scene.problem.transposed = true;
  for (int missing = 1; missing <= 4; ++missing) {
    for (int measure = 0; measure <= 9; ++measure) {
      tavo_test::expect_search(scene, {2, missing, 1, measure}, 0, plane_search<2>);
      tavo_test::expect_search(scene, {7, missing, 1, measure}, 0, occupied);
      ASSERT_FALSE(HasFatalFailure());
    }
  }
}

TEST(CandidateSink, CountsOnWhenItIsFull) {
  SearchCandidate buffer[2];
  unsigned long long count = 0;
  const CandidateSink sink{buffer, &count, 2};
  for (uint64_t rank = 10; rank < 15; ++rank) {
    append(sink, {rank, 0, 1.0f});
  }
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(buffer[0].rank, 10u);
  EXPECT_EQ(buffer[1].rank, 11u);
}

}  // namespace
