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

using Texts = std::vector<std::string>;

// Sections of checkpoints and what runs make of them.
class RunStates : public testing::Test {
 protected:
  // A checkpoint with a section of each text, of orders 2, 3, ...
  void keep(const Texts& texts) const {
    std::string lines;
    for (size_t i = 0; i < texts.size(); ++i) {
      lines += section(order_section(static_cast<int>(i) + 2), texts[i]);
    }
    tavo_test::write_file(folder_ / "ck", tavo_test::sealed_checkpoint(lines));
  }

  static std::string section(const std::string& name, const std::string& text) {
    return "section\t" + name + "\t" + std::to_string(text.size()) + "\n" + text;
  }

  void open(Checkpoint& checkpoint) const {
    ASSERT_EQ(checkpoint.open((folder_ / "ck").string(), {}).message(), "");
  }

  // What a run that goes on says: nothing, or why it does not.
  template <typename Restore>
  std::string refusal(const Restore& restore) const {
    Checkpoint checkpoint;
    open(checkpoint);
    testing::internal::CaptureStderr();
    const Status status = restore(checkpoint);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(checkpoint.is_refused(), !status.ok());
    return status.message();
  }

  // The texts, each cut of the good one, and the good one with more behind it.
  static Texts bad_texts(const std::string& good, Texts texts) {
    for (size_t size = 0; size + 1 < good.size(); ++size) {
      texts.push_back(good.substr(0, size));
    }
    for (const char* more : {"x", "0\n", "\n"}) {
      texts.push_back(good + more);
    }
    return texts;
  }

  // restore(checkpoint, order) must refuse them all.
  template <typename Restore>
  void expect_refused(const std::string& good, const Texts& texts, const Restore& restore) const {
    keep({good});
    ASSERT_EQ(refusal([&](Checkpoint& c) { return restore(c, 2); }), "");
    const Texts bad = bad_texts(good, texts);
    keep(bad);
    Checkpoint checkpoint;
    open(checkpoint);
    for (size_t i = 0; i < bad.size(); ++i) {
      const std::string message = restore(checkpoint, static_cast<int>(i) + 2).message();
      ASSERT_NE(message.find("a damaged checkpoint"), std::string::npos) << bad[i];
    }
    EXPECT_TRUE(checkpoint.is_refused());
  }

  tavo_test::TempDir folder_;
};

constexpr SearchLimits kLimits = {1000, 2, 3, false, 0.0};

TEST_F(RunStates, OfASearchComeBack) {
  const SearchState kept = {0, 999, {{{17, 0.75f}, {3, 0.5f}, {998, 0.5f}}, {{4, 1e-40f}}}};
  keep({lines_of(kept)});
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
  const auto restore = [](Checkpoint& c, int order) {
    SearchState state;
    return restore_search(c, order, kLimits, &state);
  };
  const std::string good = lines_of(SearchState{0, 10, {{{3, 0.75f}, {1, 0.5f}, {2, 0.5f}}, {}}});
  const auto with = [](const std::string& done, const std::string& folds, const std::string& list) {
    return "done\t" + done + "\nfolds\t" + folds + "\n" + list;
  };
  const std::string half = "\t3f000000\n";
  expect_refused(
      good,
      {with("0\t1001", "2", "fold\t0\nfold\t0\n"), with("0\t-1", "2", "fold\t0\nfold\t0\n"),
       with("0\t18446744073709551616", "2", "fold\t0\nfold\t0\n"), with("1\t10", "2", "fold\t0\nfold\t0\n"),
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
  const auto restore = [](Checkpoint& c, int order) {
    SearchState state;
    return restore_search(c, order, {1000, 3, 3, true, -0.5}, &state);
  };
  const std::string good = lines_of(SearchState{1, 10, {{{999, 0.0f}}, {{9, -0.25f}}, {}}});
  const auto with = [](const std::string& done, const std::string& lists) {
    return "done\t" + done + "\nfolds\t3\n" + lists;
  };
  expect_refused(good,
                 {with("4\t0", "fold\t0\nfold\t0\nfold\t0\n"), with("3\t1", "fold\t0\nfold\t0\nfold\t0\n"),
                  with("1\t10", "fold\t0\nfold\t1\n10\t3f000000\nfold\t0\n"),
                  with("1\t10", "fold\t0\nfold\t0\nfold\t1\n0\t3f000000\n"),
                  with("1\t10", "fold\t1\n1\tbf000000\nfold\t0\nfold\t0\n")},
                 restore);
}

TEST_F(RunStates, OfBlocksComeBackAndAreRefusedWhereTheyCannotBe) {
  // 40 combinations in blocks of 16, of which 5 are kept: the first block is done, and three of the second.
  const auto restore = [](Checkpoint& c, int order, BestOfBlocksState* state) {
    return restore_blocks(c, order, 40, 16, 5, state);
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const BestOfBlocksState kept = {19, {3, 15, 0, 1, 7}, {0.1, -0.0, nan}};
  const std::string good = lines_of(kept);
  keep({good});
  BestOfBlocksState state;
  EXPECT_EQ(refusal([&](Checkpoint& c) { return restore(c, 2, &state); }), "");
  EXPECT_EQ(state.next, 19u);
  EXPECT_EQ(state.slots, kept.slots);
  ASSERT_EQ(state.values.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(std::bit_cast<uint64_t>(state.values[i]), std::bit_cast<uint64_t>(kept.values[i]));
  }
  expect_refused(good,
                 {lines_of(BestOfBlocksState{41, {3, 15, 0, 1, 7}, {}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 16}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 2, 4}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 7}, {0.1, 0.2}}),
                  lines_of(BestOfBlocksState{19, {3, 15, 0, 1, 7}, {0.1, 0.2, 0.3, 0.4}}),
                  lines_of(BestOfBlocksState{3, {1}, {0.1, 0.2, 0.3}}),
                  lines_of(BestOfBlocksState{40, {3, 15, 0, 1, 7}, {0.1}}),
                  "next\t19\nslots\t18446744073709551615\n3\n", "next\t19\nslots\t-5\n"},
                 [&](Checkpoint& c, int order) {
                   BestOfBlocksState other;
                   return restore(c, order, &other);
                 });
}

TEST_F(RunStates, AboveAThresholdThatCannotBeAreRefused) {
  expect_refused(
      lines_of(AboveThresholdState{20, {0, 7, 19}}),
      {lines_of(AboveThresholdState{41, {0, 7, 19}}), lines_of(AboveThresholdState{20, {0, 7, 20}}),
       lines_of(AboveThresholdState{20, {0, 7, 7}}), lines_of(AboveThresholdState{20, {7, 0}}),
       lines_of(AboveThresholdState{20, {0, 1, 2, 3, 4, 5}})},
      [](Checkpoint& c, int order) {
        AboveThresholdState state;
        return restore_above_threshold(c, order, 40, 5, &state);
      });
}

TEST_F(RunStates, OfRegressionsComeBackAndAreRefusedWhereTheyCannotBe) {
  const RegressionState kept = {10, 2, {9, 0, 4}, {0.0, 0.25, std::nan("")}};
  const auto restore = [](Checkpoint& c, RegressionState* state) {
    return restore_regression(c, 40, 3, state);
  };
  const auto keep_regression = [&](const std::string& text) {
    tavo_test::write_file(folder_ / "ck", tavo_test::sealed_checkpoint(section(kRegressionSection, text)));
  };
  keep_regression(lines_of(kept));
  RegressionState state;
  EXPECT_EQ(refusal([&](Checkpoint& c) { return restore(c, &state); }), "");
  EXPECT_EQ(state.next, 10u);
  EXPECT_EQ(state.n_failed, 2u);
  EXPECT_EQ(state.top, kept.top);
  EXPECT_EQ(state.p_values[1], 0.25);
  for (const std::string& text :
       bad_texts(lines_of(kept), {lines_of(RegressionState{41, 2, {9, 0, 4}, {0.1, 0.2, 0.3}}),
                                  lines_of(RegressionState{10, 11, {9, 0, 4}, {0.1, 0.2, 0.3}}),
                                  lines_of(RegressionState{10, 2, {10, 0, 4}, {0.1, 0.2, 0.3}}),
                                  lines_of(RegressionState{10, 2, {9, 0}, {0.1, 0.2}}),
                                  lines_of(RegressionState{10, 2, {9, 0, 4, 5}, {0.1, 0.2, 0.3, 0.4}}),
                                  lines_of(RegressionState{10, 2, {9, 0, 4}, {0.1, 0.2}})})) {
    keep_regression(text);
    RegressionState other;
    ASSERT_NE(refusal([&](Checkpoint& c) { return restore(c, &other); }).find("a damaged checkpoint"),
              std::string::npos)
        << text;
  }
}

}  // namespace
