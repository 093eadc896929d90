// SPDX-License-Identifier: Apache-2.0
//
// What each kind of run keeps in its checkpoint, and what it refuses of it.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "lib/float_math.h"
#include "src/exhaustive_state.h"
#include "src/regression_state.h"
#include "src/search_state.h"
#include "tests/support/run_program.h"
#include "tests/unit/sealed_checkpoint.h"

namespace {

// A checkpoint in which a run has kept one section.
class RunStates : public testing::Test {
 protected:
  void keep(const std::string& name, const std::string& lines) const {
    tavo_test::write_file(folder_ / "ck",
                          tavo_test::sealed_checkpoint("section\t" + name + "\t" + std::to_string(lines.size()) +
                                                       "\n" + lines));
  }

  // What a run that goes on says: nothing, or why it does not.
  template <typename Restore>
  std::string refusal(const Restore& restore) {
    Checkpoint checkpoint;
    EXPECT_EQ(checkpoint.open((folder_ / "ck").string(), {}).message(), "");
    testing::internal::CaptureStderr();
    const Status status = restore(checkpoint);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(checkpoint.is_refused(), !status.ok());
    return status.message();
  }

  // Each text must be refused, and so must each cut of the good one.
  template <typename Restore>
  void expect_refused(const std::string& name, const std::string& good, const std::vector<std::string>& texts,
                      const Restore& restore) {
    keep(name, good);
    ASSERT_EQ(refusal(restore), "");
    std::vector<std::string> bad = texts;
    for (size_t size = 0; size + 1 < good.size(); ++size) {
      bad.push_back(good.substr(0, size));
    }
    for (const char* more : {"x", "0\n", "\n"}) {
      bad.push_back(good + more);
    }
    for (const std::string& text : bad) {
      keep(name, text);
      ASSERT_NE(refusal(restore).find("a damaged checkpoint"), std::string::npos) << text;
    }
  }

  tavo_test::TempDir folder_;
};

constexpr SearchLimits kLimits = {1000, 2, 3, false, 0.0};

TEST_F(RunStates, OfASearchComeBack) {
  const SearchState kept = {0, 999, {{{17, 0.75f}, {3, 0.5f}, {998, 0.5f}}, {{4, 1e-40f}}}};
  keep(order_section(2), lines_of(kept));
  SearchState state;
  EXPECT_EQ(refusal([&](Checkpoint& c) { return restore_search(c, 2, kLimits, &state); }), "");
  EXPECT_EQ(state.next, kept.next);
  ASSERT_EQ(state.lists.size(), 2u);
  for (size_t f = 0; f < 2; ++f) {
    ASSERT_EQ(state.lists[f].size(), kept.lists[f].size());
    for (size_t i = 0; i < kept.lists[f].size(); ++i) {
      EXPECT_EQ(state.lists[f][i].rank, kept.lists[f][i].rank);
      EXPECT_EQ(bits_of_float(state.lists[f][i].value), bits_of_float(kept.lists[f][i].value));
    }
  }
  SearchState none;
  EXPECT_EQ(refusal([&](Checkpoint& c) { return restore_search(c, 3, kLimits, &none); }), "");
  EXPECT_TRUE(none.lists.empty());
}

TEST_F(RunStates, OfASearchThatCannotBeAreRefused) {
  const auto restore = [](Checkpoint& c) {
    SearchState state;
    return restore_search(c, 2, kLimits, &state);
  };
  const std::string good = lines_of(SearchState{0, 10, {{{3, 0.75f}, {1, 0.5f}, {2, 0.5f}}, {}}});
  const auto with = [](const std::string& done, const std::string& folds, const std::string& list) {
    return "done\t" + done + "\nfolds\t" + folds + "\n" + list;
  };
  const std::string half = "\t3f000000\n";
  expect_refused(order_section(2), good,
                 {with("0\t1001", "2", "fold\t0\nfold\t0\n"),
                  with("0\t-1", "2", "fold\t0\nfold\t0\n"),
                  with("0\t18446744073709551616", "2", "fold\t0\nfold\t0\n"),
                  with("1\t10", "2", "fold\t0\nfold\t0\n"),
                  with("0\t10", "3", "fold\t0\nfold\t0\nfold\t0\n"),
                  with("0\t10", "18446744073709551615", "fold\t0\nfold\t0\n"),
                  with("0\t10", "2", "fold\t4\n1" + half + "2" + half + "3" + half + "4" + half + "fold\t0\n"),
                  with("0\t10", "2", "fold\t18446744073709551615\nfold\t0\n"),
                  with("0\t10", "2", "fold\t1\n10" + half + "fold\t0\n"),
                  with("0\t10", "2", "fold\t2\n2" + half + "1" + half + "fold\t0\n"),
                  with("0\t10", "2", "fold\t2\n1" + half + "1" + half + "fold\t0\n"),
                  with("0\t10", "2", "fold\t2\n1" + half + "2\t3f400000\nfold\t0\n"),
                  with("0\t10", "2", "fold\t1\n1\t00000000\nfold\t0\n"),
                  with("0\t10", "2", "fold\t1\n1\t7fc00000\nfold\t0\n"),
                  with("0\t10", "2", "fold\t1\n1\t03f000000\nfold\t0\n")},
                 restore);
}

TEST_F(RunStates, OfFoldsOneByOneThatCannotBeAreRefused) {
  const auto restore = [](Checkpoint& c) {
    SearchState state;
    return restore_search(c, 2, {1000, 3, 3, true, -0.5}, &state);
  };
  const std::string good = lines_of(SearchState{1, 10, {{{999, 0.0f}}, {{9, -0.25f}}, {}}});
  const auto with = [](const std::string& done, const std::string& lists) {
    return "done\t" + done + "\nfolds\t3\n" + lists;
  };
  expect_refused(order_section(2), good,
                 {with("4\t0", "fold\t0\nfold\t0\nfold\t0\n"), with("3\t1", "fold\t0\nfold\t0\nfold\t0\n"),
                  with("1\t10", "fold\t0\nfold\t1\n10\t3f000000\nfold\t0\n"),
                  with("1\t10", "fold\t0\nfold\t0\nfold\t1\n0\t3f000000\n"),
                  with("1\t10", "fold\t1\n1\tbf000000\nfold\t0\nfold\t0\n")},
                 restore);
}

TEST_F(RunStates, OfBlocksComeBackAndAreRefusedWhereTheyCannotBe) {
  // 40 combinations in blocks of 16, of which 5 are kept: the first block is done, and three of the second.
  const auto restore_to = [](BestOfBlocksState* state) {
    return [state](Checkpoint& c) { return restore_blocks(c, 2, 40, 16, 5, state); };
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const BestOfBlocksState kept = {19, {3, 15, 0, 1, 7}, {0.1, -0.0, nan}};
  const std::string good = lines_of(kept);
  keep(order_section(2), good);
  BestOfBlocksState state;
  EXPECT_EQ(refusal(restore_to(&state)), "");
  EXPECT_EQ(state.next, 19u);
  EXPECT_EQ(state.slots, kept.slots);
  ASSERT_EQ(state.values.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(std::bit_cast<uint64_t>(state.values[i]), std::bit_cast<uint64_t>(kept.values[i]));
  }
  expect_refused(order_section(2), good,
                 {lines_of(BestOfBlocksState{41, {3, 15, 0, 1, 7}, {}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 16}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 2, 4}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 7}, {0.1, 0.2}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 7}, {0.1, 0.2, 0.3, 0.4}}),
                  lines_of(BestOfBlocksState{3, {1}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{40, {3, 15, 0, 1, 7}, {0.1}}),
                  "next\t19\nslots\t18446744073709551615\n3\n", "next\t19\nslots\t-5\n"},
                 [&](Checkpoint& c) {
                   BestOfBlocksState other;
                   return restore_to(&other)(c);
                 });
}

TEST_F(RunStates, AboveAThresholdThatCannotBeAreRefused) {
  expect_refused(
      order_section(2), lines_of(AboveThresholdState{20, {0, 7, 19}}),
      {lines_of(AboveThresholdState{41, {0, 7, 19}}), lines_of(AboveThresholdState{20, {0, 7, 20}}),
       lines_of(AboveThresholdState{20, {0, 7, 7}}), lines_of(AboveThresholdState{20, {7, 0}}),
       lines_of(AboveThresholdState{20, {0, 1, 2, 3, 4, 5}})},
      [](Checkpoint& c) {
        AboveThresholdState state;
        return restore_above_threshold(c, 2, 40, 5, &state);
      });
}

TEST_F(RunStates, OfRegressionsComeBackAndAreRefusedWhereTheyCannotBe) {
  const RegressionState kept = {10, 2, {9, 0, 4}, {0.0, 0.25, std::nan("")}};
  keep(kRegressionSection, lines_of(kept));
  RegressionState state;
  EXPECT_EQ(refusal([&](Checkpoint& c) { return restore_regression(c, 40, 3, &state); }), "");
  EXPECT_EQ(state.next, 10u);
  EXPECT_EQ(state.n_failed, 2u);
  EXPECT_EQ(state.top, kept.top);
  EXPECT_EQ(state.p_values[1], 0.25);
  expect_refused(kRegressionSection, lines_of(kept),
                 {lines_of(RegressionState{41, 2, {9, 0, 4}, {0.1, 0.2, 0.3}}),
                  lines_of(RegressionState{10, 11, {9, 0, 4}, {0.1, 0.2, 0.3}}),
                  lines_of(RegressionState{10, 2, {10, 0, 4}, {0.1, 0.2, 0.3}}),
                  lines_of(RegressionState{10, 2, {9, 0}, {0.1, 0.2}}),
                  lines_of(RegressionState{10, 2, {9, 0, 4, 5}, {0.1, 0.2, 0.3, 0.4}}),
                  lines_of(RegressionState{10, 2, {9, 0, 4}, {0.1, 0.2}})},
                 [](Checkpoint& c) {
                   RegressionState other;
                   return restore_regression(c, 40, 3, &other);
                 });
}

}  // namespace
