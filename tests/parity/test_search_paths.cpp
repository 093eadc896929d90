// SPDX-License-Identifier: Apache-2.0
//
// Every search path against the record path, on bits: for each combination and fold the search must find the
// very float that the record holds, or nothing where that is not above 0.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>

#include "cpu/range_search.h"
#include "cpu/record_path.h"
#include "cpu/simd.h"
#include "lib/comb_rank.h"
#include "tests/parity/lane_scene.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/search_scene.h"
#include "tests/support/sweep.h"

namespace {

using tavo_test::kSweepStep;
using tavo_test::Lanes;
using tavo_test::Scene;
using tavo_test::search_setup;
using tavo_test::sets_here;

enum class Path { kPlanes, kCells, kScores, kScorePlanes, kLanes };

// set: of lanes and of score planes.
void compare(const Scene& scene, const ScoringRules& rules, int first_fold, Path path,
             InstructionSet set = InstructionSet::kScalar) {
  const uint64_t total = comb_count(scene.problem.n_snps, rules.order).value();
  const std::vector<FoldView> folds = scene.folds.views(first_fold);
  const WorkerSetupCommand setup = search_setup(rules, folds, scene, total);
  const Segments segments(scene.problem, folds);
  const BitPlanes planes(scene.problem, segments);
  std::optional<ScoreData> scores;
  if (path == Path::kScores) {
    scores.emplace(scene.problem, setup, segments);
  }
  std::optional<ScorePlanes> score_planes;
  if (path == Path::kScorePlanes) {
    score_planes.emplace(scene.problem, setup, segments);
  }
  std::optional<Lanes> lanes;
  if (path == Path::kLanes) {
    lanes.emplace(scene, setup, segments, set, 1);
  }
  const std::unique_ptr<RangeSearch> search =
      path == Path::kScores   ? make_score_search(scene.problem, setup, *scores)
      : score_planes          ? make_score_plane_search(scene.problem, setup, *score_planes, set)
      : lanes                 ? std::move(lanes->search)
      : path == Path::kPlanes ? make_plane_search(scene.problem, setup, segments, planes)
                              : make_cell_search(scene.problem, setup, segments);
  std::vector<CandidateList> lists(folds.size(), CandidateList(total));
  // In pieces that begin and end anywhere.
  for (uint64_t first = 0; first < total;) {
    const uint64_t n = std::min<uint64_t>(total - first, 1 + (first * 7 + 3) % 11);
    search->run(first, n, lists);
    first += n;
  }
  for (size_t f = 0; f < folds.size(); ++f) {
    std::map<uint64_t, float> found;
    for (const RankedValue& entry : lists[f].entries()) {
      ASSERT_TRUE(found.emplace(entry.rank, entry.value).second);
    }
    RecordPath truth(scene.problem, rules, folds[f]);
    for (uint64_t rank = 0; rank < total; ++rank) {
      int comb[20];
      comb_unrank(scene.problem.n_snps, rules.order, rank, comb);
      float record[kRecordSize];
      truth.evaluate(comb, record);
      const float value = record[rules.measure];
      const auto entry = found.find(rank);
      ASSERT_EQ(entry != found.end(), value > 0.0f)
          << "fold " << f << ", rank " << rank << ", value " << value;
      if (entry != found.end()) {
        ASSERT_EQ(bits_of_float(entry->second), bits_of_float(value)) << "fold " << f << ", rank " << rank;
      }
    }
  }
}

class SearchPaths : public testing::TestWithParam<int> {};

// One order each; all measures, missing methods and tie rules.
TEST_P(SearchPaths, FindTheBitsOfTheRecords) {
  const int order = GetParam();
  std::mt19937 random(77u + static_cast<unsigned>(order));
  int number = order;
  int compared = 0;
  for (int round = 0; round < 6; ++round) {
    const int n_samples[] = {1, 63, 64, 65, 129, 200};
    const int n_snps = order <= 2 ? 9 : order + 2;
    const int n_folds = 1 + static_cast<int>(random() % 7);
    const Scene scene(random, n_samples[round], n_snps, round % 2 == 0 ? 0.0 : 0.15, n_folds, round % 3 == 2);
    for (int missing = 1; missing <= 4; ++missing) {
      for (int tie = 0; tie <= 2; ++tie) {
        for (int measure = 0; measure <= 9; ++measure) {
          if (number++ % kSweepStep != 0) {
            continue;
          }
          const ScoringRules rules{order, missing, tie, measure};
          const int first_fold = static_cast<int>(random() % static_cast<unsigned>(n_folds));
          if (order <= kMaxPlaneOrder) {
            compare(scene, rules, first_fold, Path::kPlanes);
          }
          if (lane_search_fits(rules, Segments(scene.problem, scene.folds.views(0)))) {
            for (const InstructionSet set : sets_here()) {
              compare(scene, rules, first_fold, Path::kLanes, set);
            }
          }
          // Sample by sample needs tables that hold every cell.
          if (rules.counted_cells() == rules.cells()) {
            compare(scene, rules, first_fold, Path::kCells);
          }
          ASSERT_FALSE(HasFatalFailure()) << "missing " << missing << ", tie " << tie << ", measure "
                                          << measure << ", samples " << n_samples[round];
          ++compared;
        }
      }
    }
  }
  RecordProperty("settings", compared);
}

INSTANTIATE_TEST_SUITE_P(Orders, SearchPaths, testing::Values(1, 2, 3, 4, 5, 6, 7, 9),
                         testing::PrintToStringParamName());

class ScoreSearchPath : public testing::TestWithParam<int> {};

TEST_P(ScoreSearchPath, FindsTheBitsOfTheRecords) {
  const int order = GetParam();
  std::mt19937 random(99u + static_cast<unsigned>(order));
  for (int round = 0; round < 8; ++round) {
    const int n_samples[] = {1, 17, 64, 65, 129, 200, 90, 40};
    const int n_folds = 1 + static_cast<int>(random() % 19);
    Scene scene(random, n_samples[round], order <= 2 ? 9 : order + 2, round % 2 == 0 ? 0.0 : 0.15, n_folds,
                round % 3 == 2);
    scene.draw_scores(random);
    for (int missing = 1; missing <= 4; ++missing) {
      for (int tie = 0; tie <= 2; ++tie) {
        const int first_fold = static_cast<int>(random() % static_cast<unsigned>(n_folds));
        const ScoringRules rules = {order, missing, tie, kBalancedAccuracy};
        compare(scene, rules, first_fold, Path::kScores);
        for (const InstructionSet set : sets_here()) {
          if (score_planes_fit(rules)) {
            compare(scene, rules, first_fold, Path::kScorePlanes, set);
          }
        }
        ASSERT_FALSE(HasFatalFailure()) << "missing " << missing << ", tie " << tie;
      }
    }
    compare(scene, {order, 4, 1, kGamma}, 0, Path::kScores);
  }
}

INSTANTIATE_TEST_SUITE_P(Orders, ScoreSearchPath, testing::Values(1, 2, 3, 4, 6, 7, 9),
                         testing::PrintToStringParamName());

// Samples in very unequal classes, and cells that hold one class only, are where thresholds and ties bite.
TEST(SearchPathsExtreme, OneClassAlone) {
  std::mt19937 random(5);
  for (const uint8_t only : std::vector<uint8_t>{0, 1}) {
    Scene scene(random, 40, 5, 0.1, 3, false);
    std::fill(scene.data.classes.begin(), scene.data.classes.end(), only);
    scene.deal({}, 3);
    for (int missing = 1; missing <= 4; ++missing) {
      for (int measure = 0; measure <= 9; ++measure) {
        compare(scene, {2, missing, 1, measure}, 0, Path::kPlanes);
        ASSERT_FALSE(HasFatalFailure());
      }
    }
  }
}

TEST(SearchPathsExtreme, TheTransposedLayoutHasEmptyTablesOnEveryPath) {
  std::mt19937 random(6);
  Scene scene(random, 40, 5, 0.1, 3, false);
  scene.problem.transposed = true;
  scene.draw_scores(random);
  const float* scores = scene.problem.scores;
  for (int missing = 1; missing <= 4; ++missing) {
    scene.problem.scores = scores;
    const ScoringRules rules = {2, missing, 1, kBalancedAccuracy};
    compare(scene, rules, 0, Path::kScores);
    for (const InstructionSet set : sets_here()) {
      if (score_planes_fit(rules)) {
        compare(scene, rules, 0, Path::kScorePlanes, set);
      }
    }
    scene.problem.scores = nullptr;
    for (int measure = 0; measure <= 9; ++measure) {
      compare(scene, {2, missing, 1, measure}, 0, Path::kPlanes);
      compare(scene, {5, missing, 1, measure}, 0, Path::kCells);
      for (const InstructionSet set : sets_here()) {
        for (const int order : {1, 2, 3, 4}) {
          const ScoringRules of_lanes = {order, missing, 1, measure};
          if (of_lanes.counted_cells() == of_lanes.cells()) {
            compare(scene, of_lanes, 0, Path::kLanes, set);
          }
        }
      }
      ASSERT_FALSE(HasFatalFailure());
    }
  }
}

}  // namespace
