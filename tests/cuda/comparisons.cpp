// SPDX-License-Identifier: Apache-2.0
#include "tests/cuda/comparisons.h"

#include <algorithm>
#include <map>
#include <memory>

#include "tests/support/sweep.h"

namespace tavo_test {

namespace {

constexpr int kSampleCounts[] = {1, 31, 33, 64, 97, 200};
constexpr int kRounds = 6;

// Problem number `round` of a sweep.
std::unique_ptr<Scene> draw_scene(std::mt19937& random, int round, int order, int n_folds) {
  auto scene = std::make_unique<Scene>(random, kSampleCounts[round], order <= 2 ? 9 : order + 2,
                                       round % 2 == 0 ? 0.0 : 0.15, n_folds, round % 3 == 2);
  if (round == 3) {
    std::fill(scene->data.classes.begin(), scene->data.classes.end(), static_cast<uint8_t>(random() % 2));
    scene->deal({}, n_folds);
  }
  return scene;
}

}  // namespace

std::vector<int> all_combinations(int n_snps, int order) {
  const uint64_t total = comb_count(n_snps, order).value();
  std::vector<int> combinations(total * static_cast<size_t>(order));
  for (uint64_t rank = 0; rank < total; ++rank) {
    comb_unrank(n_snps, order, rank, combinations.data() + rank * static_cast<size_t>(order));
  }
  return combinations;
}

void expect_records(const Scene& scene, const ScoringRules& rules, const FoldView& fold,
                    const RecordFunction& records) {
  const auto order = static_cast<size_t>(rules.order);
  const std::vector<int> combinations = all_combinations(scene.problem.n_snps, rules.order);
  const std::vector<float> found = records(scene, rules, fold, combinations);
  ASSERT_EQ(found.size(), combinations.size() / order * kRecordSize);
  RecordPath truth(scene.problem, rules, fold);
  for (size_t c = 0; c < combinations.size() / order; ++c) {
    float record[kRecordSize];
    truth.evaluate(combinations.data() + c * order, record);
    for (size_t i = 0; i < kRecordSize; ++i) {
      ASSERT_EQ(bits_of_float(found[c * kRecordSize + i]), bits_of_float(record[i]))
          << "combination " << c << ", entry " << i << ": " << found[c * kRecordSize + i] << " for "
          << record[i];
    }
  }
}

void expect_search(const Scene& scene, const ScoringRules& rules, int first_fold,
                   const SearchFunction& search) {
  const uint64_t total = comb_count(scene.problem.n_snps, rules.order).value();
  const std::vector<FoldView> folds = scene.folds.views(first_fold);
  const WorkerSetupCommand setup = tavo_test::search_setup(rules, folds, scene, total);
  std::vector<std::map<uint64_t, float>> found(folds.size());
  for (const SearchCandidate& candidate : search(scene, setup, total)) {
    ASSERT_TRUE(found[static_cast<size_t>(candidate.fold)].emplace(candidate.rank, candidate.value).second);
  }
  for (size_t f = 0; f < folds.size(); ++f) {
    RecordPath truth(scene.problem, rules, folds[f]);
    std::vector<int> comb(static_cast<size_t>(rules.order));
    for (uint64_t rank = 0; rank < total; ++rank) {
      comb_unrank(scene.problem.n_snps, rules.order, rank, comb.data());
      float record[kRecordSize];
      truth.evaluate(comb.data(), record);
      const float value = record[rules.measure];
      const auto entry = found[f].find(rank);
      ASSERT_EQ(entry != found[f].end(), value > 0.0f)
          << "fold " << f << ", rank " << rank << ", value " << value;
      if (entry != found[f].end()) {
        ASSERT_EQ(bits_of_float(entry->second), bits_of_float(value)) << "fold " << f << ", rank " << rank;
      }
    }
  }
}

void sweep_records(int order, const RecordFunction& records) {
  std::mt19937 random(300u + static_cast<unsigned>(order));
  for (int round = 0; round < kRounds; ++round) {
    const int n_folds = 1 + static_cast<int>(random() % 7);
    const std::unique_ptr<Scene> scene = draw_scene(random, round, order, n_folds);
    for (const bool with_scores : {false, true}) {
      if (with_scores) {
        scene->draw_scores(random);
      }
      const std::vector<FoldView> folds = scene->folds.views(0);
      for (int missing = 1; missing <= 4; ++missing) {
        for (int tie = 0; tie <= 2; ++tie) {
          expect_records(*scene, {order, missing, tie, 0}, folds[random() % folds.size()], records);
          ASSERT_FALSE(testing::Test::HasFatalFailure()) << "round " << round << ", missing " << missing
                                                         << ", tie " << tie << ", scores " << with_scores;
        }
      }
    }
  }
}

void sweep_searches(int order, bool with_scores, const SearchFunction& search, int every) {
  int number = order;
  std::mt19937 random(700u + static_cast<unsigned>(order));
  for (int round = 0; round < kRounds; ++round) {
    const int n_folds = 1 + static_cast<int>(random() % 11);
    const std::unique_ptr<Scene> scene = draw_scene(random, round, order, n_folds);
    if (with_scores) {
      scene->draw_scores(random);
    }
    for (int missing = 1; missing <= 4; ++missing) {
      for (int tie = 0; tie <= 2; ++tie) {
        for (int measure = 0; measure <= (with_scores ? 1 : 9); ++measure) {
          if (number++ % (every * kSweepStep) != 0) {
            continue;
          }
          expect_search(*scene, {order, missing, tie, measure},
                        static_cast<int>(random() % static_cast<unsigned>(n_folds)), search);
          ASSERT_FALSE(testing::Test::HasFatalFailure())
              << "round " << round << ", missing " << missing << ", tie " << tie << ", measure " << measure;
        }
      }
    }
  }
}

}  // namespace tavo_test
