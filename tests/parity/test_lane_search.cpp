// SPDX-License-Identifier: Apache-2.0
//
// The lane search: its bounds turn nothing away that belongs in a list, whatever the layout of its rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include "cpu/range_search.h"
#include "cpu/simd.h"
#include "lib/comb_rank.h"
#include "lib/search_bound.h"
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

// As many cases as controls, or one more: what the row filter keeps in bytes.
void make_classes_equal(Scene& scene, int n_folds) {
  for (size_t s = 0; s < scene.data.classes.size(); ++s) {
    scene.data.classes[s] = static_cast<uint8_t>(s % 2);
  }
  scene.deal({}, n_folds);
}

// Expects the lists of all instruction sets' lane searches, in two pieces, to be those of a search without
// bounds. Returns how the row filter kept its values, if it applied.
std::optional<RowValues> expect_same_lists(const Scene& scene, const WorkerSetupCommand& setup,
                                           size_t list_size, std::mt19937& random) {
  const Segments segments(scene.problem, setup.folds);
  const uint64_t total = comb_count(scene.problem.n_snps, setup.rules.order).value();
  std::vector<CandidateList> plain(setup.folds.size(), CandidateList(list_size));
  const BitPlanes planes(scene.problem, segments);
  make_plane_search(scene.problem, setup, segments, planes)->run(0, total, plain);
  std::optional<RowValues> form;
  for (const InstructionSet set : sets_here()) {
    std::vector<CandidateList> bounded(setup.folds.size(), CandidateList(list_size));
    const Lanes lanes(scene, setup, segments, set, 1 + random() % 3);
    const uint64_t middle = random() % total;
    lanes.search->run(0, middle, bounded);
    lanes.search->run(middle, total - middle, bounded);
    for (size_t f = 0; f < setup.folds.size(); ++f) {
      const std::vector<RankedValue> expected = plain[f].sorted();
      const std::vector<RankedValue> found = bounded[f].sorted();
      EXPECT_EQ(found.size(), expected.size());
      for (size_t i = 0; i < std::min(found.size(), expected.size()); ++i) {
        EXPECT_EQ(found[i].rank, expected[i].rank)
            << name_of(set) << ", measure " << setup.rules.measure << ", fold " << f;
        EXPECT_EQ(bits_of_float(found[i].value), bits_of_float(expected[i].value));
      }
    }
    if (lanes.rows) {
      form = lanes.rows->weights().form;
    }
  }
  return form;
}

// Cases that are copies of the controls: a chi-square is 0, and what the records make of it is rounding, some
// of it above 0, which lists take in.
TEST(LaneSearch, ChiSquaresOfRoundingAloneAreNotTurnedAway) {
  constexpr int kControls = 30011;
  std::mt19937 random(5);
  Scene scene(random, 2 * kControls, 96, 0.0, 3, false);
  const auto half = scene.words.begin() + kControls * scene.problem.words_per_row;
  std::copy(scene.words.begin(), half, half);
  for (int s = 0; s < 2 * kControls; ++s) {
    scene.data.classes[static_cast<size_t>(s)] = s < kControls ? 0 : 1;
  }
  scene.deal({}, 3);
  const std::vector<FoldView> folds = scene.folds.views(0);
  const WorkerSetupCommand setup = search_setup({1, 4, 1, kChiSquare}, folds, scene, 0);
  for (const size_t list_size : {3, 10, 30}) {
    expect_same_lists(scene, setup, list_size, random);
  }
}

// A bound turns most combinations away unseen. Short lists make it bite: what is left must be the list of a
// search without it.
TEST(LaneSearch, TheBoundsTurnNothingAwayThatBelongsInAList) {
  std::mt19937 random(4711);
  int number = 0;
  int compared = 0;
  for (int round = 0; round < 12; ++round) {
    const int order = 1 + round % 3;
    const int n_samples = std::vector<int>{3, 20, 64, 130, 300, 517}[random() % 6];
    const int n_folds = 1 + static_cast<int>(random() % 11);
    Scene scene(random, n_samples,
                order == 1   ? 200
                : order == 2 ? 40 + round * 6
                             : 22,
                round % 2 == 0 ? 0.0 : 0.05, n_folds, round % 5 == 4);
    if (round % 4 == 3) {
      // Unequal classes.
      for (uint8_t& value : scene.data.classes) {
        value = static_cast<uint8_t>(value == 1 && random() % 3 != 0 ? 0 : value);
      }
      scene.deal({}, n_folds);
    }
    const std::vector<FoldView> folds = scene.folds.views(0);
    const Segments segments(scene.problem, folds);
    for (const int missing : {1, 3, 4}) {
      for (int tie = 0; tie <= 2; ++tie) {
        for (int measure = 0; measure <= 9; ++measure) {
          if (number++ % kSweepStep != 0) {
            continue;
          }
          const WorkerSetupCommand setup = search_setup({order, missing, tie, measure}, folds, scene, 0);
          ASSERT_TRUE(lane_search_fits(setup.rules, segments));
          expect_same_lists(scene, setup, 1 + random() % 6, random);
          ASSERT_FALSE(testing::Test::HasFailure());
          ++compared;
        }
      }
    }
  }
  RecordProperty("searches", compared);
}

void put_genotype(Scene& scene, int sample, int snp, uint32_t code) {
  uint32_t& word =
      scene.words[static_cast<size_t>(sample) * static_cast<size_t>(scene.problem.words_per_row) +
                  static_cast<size_t>(snp) / 16];
  word = (word & ~(3u << (2 * (snp % 16)))) | code << (2 * (snp % 16));
}

// Many samples and SNPs that all but tell the class: sums of weights as large as they get.
TEST(LaneSearch, TheBoundsHoldWhereTheirSumsAreLargest) {
  std::mt19937 random(4713);
  for (const int n_folds : {3, 10}) {
    Scene scene(random, 20000, 40, 0.0, n_folds, false);
    for (uint8_t& value : scene.data.classes) {  // cases weigh 7 or so
      value = random() % 10 < 3 ? 1 : 0;
    }
    scene.deal({}, n_folds);
    for (int s = 0; s < 20000; ++s) {
      for (int snp = 0; snp < 40; snp += 3) {
        put_genotype(scene, s, snp,
                     random() % 10 == 0 ? 1u : 2u * scene.data.classes[static_cast<size_t>(s)]);
      }
    }
    const std::vector<FoldView> folds = scene.folds.views(0);
    for (int measure = kBalancedAccuracy; measure <= kLr; ++measure) {
      const WorkerSetupCommand setup = search_setup({2, 4, 1, measure}, folds, scene, 0);
      for (const size_t list_size : {1, 5, 200}) {
        const std::optional<RowValues> form = expect_same_lists(scene, setup, list_size, random);
        EXPECT_EQ(form, has_bound(measure, 1) ? RowValues::kWords : RowValues::kCounts);
        ASSERT_FALSE(testing::Test::HasFailure());
      }
    }
  }
}

// Several blocks of last SNPs, pairs of segments in one and in several pieces, values in bytes and in words,
// counts, samples that no fold tests, missing genotypes, a SNP that decides.
TEST(LaneSearch, FindsTheSameInEveryLayout) {
  std::mt19937 random(4714);
  size_t turn = 0;
  struct Layout {
    int order;
    int n_samples;
    int n_snps;
    int n_folds;
    bool equal;
    bool leave_out;
    std::optional<RowValues> form;
    double missing = 0.0;
  };
  for (const Layout& layout : {Layout{2, 40, 530, 3, true, false, RowValues::kBytes},
                               Layout{2, 75, 530, 4, false, true, RowValues::kWords},
                               Layout{2, 1270, 66, 5, true, false, RowValues::kBytes},
                               Layout{2, 1300, 66, 5, true, false, RowValues::kWords},
                               Layout{2, 2000, 40, 2, true, false, RowValues::kWords},
                               Layout{3, 200, 40, 2, true, false, RowValues::kBytes},
                               Layout{3, 700, 30, 2, false, false, RowValues::kWords},
                               Layout{4, 120, 18, 10, true, false, RowValues::kBytes},
                               Layout{4, 300, 18, 3, false, true, RowValues::kWords},
                               Layout{2, 1200, 60, 5, true, false, RowValues::kBytes, 0.0004},
                               Layout{2, 1200, 60, 5, true, false, RowValues::kBytes, 0.01},
                               Layout{2, 1200, 60, 5, true, false, RowValues::kCounts, 0.05},
                               Layout{2, 2600, 40, 2, false, true, RowValues::kWords, 0.01},
                               Layout{2, 2600, 40, 2, false, true, RowValues::kCounts, 0.05},
                               Layout{2, 300, 530, 3, false, false, RowValues::kWords, 0.0004},
                               Layout{3, 400, 24, 4, true, false, RowValues::kBytes, 0.02},
                               Layout{3, 400, 24, 4, true, false, RowValues::kCounts, 0.1},
                               Layout{4, 200, 15, 3, false, true, RowValues::kWords, 0.03},
                               Layout{4, 200, 15, 3, false, true, RowValues::kCounts, 0.15},
                               Layout{2, 57000, 9, 10, true, false, RowValues::kWords},
                               Layout{2, 62000, 9, 3, true, false, RowValues::kCounts}}) {
    Scene scene(random, layout.n_samples, layout.n_snps, layout.missing, layout.n_folds, layout.leave_out);
    if (layout.equal) {
      make_classes_equal(scene, layout.n_folds);
    }
    for (int decides = 0; decides < 2; ++decides) {
      if (decides == 1) {  // totals of cells leave a byte, needs are large
        for (int s = 0; s < layout.n_samples; ++s) {
          put_genotype(scene, s, 3, random() % 8 == 0 ? 1u : 2u * scene.data.classes[static_cast<size_t>(s)]);
        }
      }
      const std::vector<FoldView> folds = scene.folds.views(0);
      // One of each kind, and the others in turn.
      const int others[] = {kAccuracy, kTauC, kGamma, kTauB, kSomersDy, kNmi, kLr};
      for (const int measure : {+kBalancedAccuracy, +kSomersDx, +kChiSquare, others[turn++ % 7]}) {
        const WorkerSetupCommand setup =
            search_setup({layout.order, 4, 1 + decides, measure}, folds, scene, 0);
        if (!lane_search_fits(setup.rules, Segments(scene.problem, setup.folds))) {
          EXPECT_EQ(measure, kTauC);
          continue;
        }
        const std::optional<RowValues> form = expect_same_lists(scene, setup, 1 + random() % 5, random);
        ASSERT_FALSE(testing::Test::HasFailure()) << layout.n_samples << " samples, order " << layout.order;
        if (measure == kBalancedAccuracy) {
          EXPECT_EQ(form, layout.form) << layout.n_samples << " samples";
        }
      }
    }
  }
}

// The slacks of missing genotypes hold wherever these are: at a few SNPs, of one class or genotype more than
// of the other, at the same samples, at SNPs that decide; also where some SNPs lack more than slacks take.
TEST(LaneSearch, TheSlacksHoldWhateverIsMissing) {
  std::mt19937 random(4715);
  int filtered = 0;
  for (int round = 0; round < 60; ++round) {
    const int order = round % 5 == 4 ? 3 : 2;
    const int n_snps = order == 3 ? 16 : 48;
    const int n_samples = std::vector<int>{90, 200, 330}[random() % 3];
    const int n_folds = 2 + static_cast<int>(random() % 5);
    Scene scene(random, n_samples, n_snps, 0.0, n_folds, round % 4 == 3);
    if (round % 2 == 0) {
      make_classes_equal(scene, n_folds);
    }
    for (int changed = 0; changed < 4; ++changed) {
      const int snp = static_cast<int>(random() % static_cast<unsigned>(n_snps));
      const bool decides = random() % 2 == 0;
      unsigned missing[2][3];  // of class and genotype, in percent
      for (auto& of_class : missing) {
        for (unsigned& percent : of_class) {
          percent = std::vector<unsigned>{0, 0, 10, 60}[random() % 4];
        }
      }
      for (int s = 0; s < n_samples; ++s) {
        const uint8_t is_case = scene.data.classes[static_cast<size_t>(s)];
        const auto code =
            static_cast<uint32_t>(random() % 100 < (decides ? 70 : 0) ? 2u * is_case : random() % 3);
        const bool lacks = random() % 100 < missing[is_case][code] || (round % 3 == 0 && s % 29 == 0);
        put_genotype(scene, s, snp, lacks ? 3 : code);
      }
    }
    const std::vector<FoldView> folds = scene.folds.views(0);
    for (const int measure : {kBalancedAccuracy, kSomersDx}) {
      for (const int missing : {1, 4}) {
        const WorkerSetupCommand setup = search_setup({order, missing, 1, measure}, folds, scene, 0);
        const std::optional<RowValues> form = expect_same_lists(scene, setup, 1 + random() % 5, random);
        ASSERT_FALSE(testing::Test::HasFailure()) << "round " << round;
        filtered += form != RowValues::kCounts ? 1 : 0;
      }
    }
  }
  EXPECT_GT(filtered, 120);
}

// The weights of the row filter must not be below the ratio of the classes in any fold, and the sums that
// they make must fit where they are kept.
TEST(RowWeights, AreAtLeastTheRatioOfTheClassesInEveryFold) {
  std::mt19937 random(77);
  int found = 0;
  int in_bytes = 0;
  for (int round = 0; round < 2000; ++round) {
    const int n_folds = 1 + static_cast<int>(random() % 6);
    Scene scene(random, 10 + static_cast<int>(random() % 900), 2, 0.0, n_folds, false);
    if (round % 2 == 0) {
      make_classes_equal(scene, n_folds);
    }
    const Segments segments(scene.problem, scene.folds.views(0));
    std::vector<int32_t> cases;
    std::vector<int32_t> controls;
    int64_t all[2] = {0, 0};
    for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
      all[segment % 2] += static_cast<int64_t>(segments.samples[segment].size());
    }
    for (size_t f = 0; f < static_cast<size_t>(n_folds); ++f) {
      controls.push_back(static_cast<int32_t>(all[0] - static_cast<int64_t>(segments.samples[2 * f].size())));
      cases.push_back(
          static_cast<int32_t>(all[1] - static_cast<int64_t>(segments.samples[2 * f + 1].size())));
    }
    const std::optional<RowWeights> weights = row_weights(cases, controls, segments, false);
    if (!weights) {
      continue;
    }
    ++found;
    in_bytes += weights->form == RowValues::kBytes ? 1 : 0;
    ASSERT_LE(weights->plus * all[weights->cases_plus ? 1 : 0], kLargestRowWord);
    ASSERT_LE(weights->minus * all[weights->cases_plus ? 0 : 1], kLargestRowWord);
    for (size_t f = 0; f < static_cast<size_t>(n_folds); ++f) {
      const int64_t plus = weights->cases_plus ? cases[f] : controls[f];
      const int64_t minus = weights->cases_plus ? controls[f] : cases[f];
      ASSERT_GE(weights->plus * plus, weights->minus * minus);
    }
    for (const std::vector<int>& segment : segments.samples) {
      ASSERT_TRUE(weights->form == RowValues::kWords ||
                  segment.size() <= static_cast<size_t>(kLargestRowByte));
    }
  }
  EXPECT_GT(found, 1000);
  EXPECT_GT(in_bytes, 20);
}

}  // namespace
