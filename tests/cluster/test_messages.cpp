// SPDX-License-Identifier: Apache-2.0
#include "cluster/messages.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/search_scene.h"

namespace tavo_test {
namespace {

// A reader behind the kind of a message.
ByteReader reader_of(const Bytes& message, MessageKind kind) {
  ByteReader reader(message);
  EXPECT_EQ(reader.get<MessageKind>(), kind);
  return reader;
}

TEST(Messages, OfAProblemHoldAllButItsGenotypes) {
  std::mt19937 random(5);
  Scene scene(random, 40, 20, 0.1, 4, false);
  scene.draw_scores(random);
  const Bytes message = message_of(scene.problem, {});
  ByteReader reader = reader_of(message, MessageKind::kProblem);
  OwnedProblem problem;
  ASSERT_TRUE(read_problem(reader, &problem));
  EXPECT_EQ(problem.view.n_samples, 40);
  EXPECT_EQ(problem.view.n_snps, 20);
  EXPECT_EQ(word_count(problem.view), scene.words.size());
  EXPECT_TRUE(std::equal(problem.classes.begin(), problem.classes.end(), scene.problem.classes));
  EXPECT_EQ(std::memcmp(problem.view.scores, scene.problem.scores, 40 * sizeof(float)), 0);
  EXPECT_EQ(problem.view.phenotypes, nullptr);
  EXPECT_TRUE(problem.input.path.empty());
}

// Folds of a sample list in which some samples are in no fold, and one that trains on other samples.
TEST(Messages, OfASetupHoldEveryFoldInItsOrder) {
  std::mt19937 random(6);
  const Scene scene(random, 60, 10, 0.0, 5, true);
  std::vector<FoldView> folds = scene.folds.views(1);
  folds[2].training = folds[2].training.subspan(1);
  WorkerSetupCommand command = search_setup({3, 4, 1, 2}, folds, scene, 17);
  command.problem = &scene.problem;
  const Bytes message = message_of(command, 60);
  ByteReader reader = reader_of(message, MessageKind::kSetup);
  OwnedSetup setup;
  ASSERT_TRUE(read_setup(reader, scene.problem, &setup));
  EXPECT_EQ(setup.command.kind, LoopKind::kSearch);
  EXPECT_EQ(setup.command.rules.order, 3);
  EXPECT_EQ(setup.command.rules.measure, 2);
  EXPECT_EQ(setup.command.list_size, 17);
  EXPECT_EQ(setup.samples, scene.folds.samples);
  ASSERT_EQ(setup.command.folds.size(), folds.size());
  for (size_t f = 0; f < folds.size(); ++f) {
    const FoldView& theirs = setup.command.folds[f];
    EXPECT_TRUE(std::ranges::equal(theirs.training, folds[f].training)) << f;
    EXPECT_TRUE(std::ranges::equal(theirs.testing, folds[f].testing)) << f;
    EXPECT_EQ(theirs.threshold, folds[f].threshold);
  }
  ASSERT_NE(setup.command.problem, nullptr);
  EXPECT_TRUE(std::equal(setup.classes.begin(), setup.classes.end(), scene.problem.classes));
}

TEST(Messages, OfFitsKeepEveryBit) {
  ItemFit fits[2];
  fits[0].state = FitState::kFailed;
  fits[1].converged = true;
  fits[1].iterations = 7;
  fits[1].rank = 4;
  fits[1].last_step = 1e-300;
  fits[1].deviance = std::nan("");
  fits[1].coefficients[3] = -0.0;
  fits[1].standard_errors[3] = 0.1;
  ByteWriter writer;
  put_fits(writer, fits, 2, 4);
  const Bytes bytes = writer.take();
  ByteReader reader(bytes);
  ItemFit back[2];
  ASSERT_TRUE(read_fits(reader, back, 2, 4));
  EXPECT_EQ(back[0].state, FitState::kFailed);
  EXPECT_TRUE(back[1].converged);
  EXPECT_EQ(back[1].iterations, 7);
  EXPECT_EQ(back[1].rank, 4);
  EXPECT_EQ(back[1].last_step, 1e-300);
  EXPECT_TRUE(std::isnan(back[1].deviance));
  EXPECT_TRUE(std::signbit(back[1].coefficients[3]));
  EXPECT_EQ(back[1].standard_errors[3], 0.1);
}

TEST(Messages, ThatAreCutOrTooLongAreNone) {
  std::mt19937 random(7);
  const Scene scene(random, 30, 10, 0.0, 3, false);
  const std::vector<FoldView> folds = scene.folds.views(0);
  const Bytes setup = message_of(search_setup({2, 4, 1, 0}, folds, scene, 5), 30);
  const Bytes problem = message_of(scene.problem, {});
  const auto accepted = [&](Bytes bytes, bool is_setup) {
    ByteReader reader(bytes);
    reader.get<MessageKind>();
    OwnedSetup owned_setup;
    OwnedProblem owned_problem;
    return is_setup ? read_setup(reader, scene.problem, &owned_setup) : read_problem(reader, &owned_problem);
  };
  for (const bool is_setup : {true, false}) {
    Bytes whole = is_setup ? setup : problem;
    ASSERT_TRUE(accepted(whole, is_setup));
    for (size_t size = 0; size < whole.size(); size += 3) {
      EXPECT_FALSE(accepted(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)), is_setup));
    }
    whole.push_back(0);
    EXPECT_FALSE(accepted(whole, is_setup));
  }
}

TEST(Messages, WithASampleThatIsNotThereAreNone) {
  std::mt19937 random(8);
  const Scene scene(random, 30, 10, 0.0, 3, false);
  const std::vector<FoldView> folds = scene.folds.views(0);
  const Bytes message = message_of(search_setup({2, 4, 1, 0}, folds, scene, 5), 30);
  ByteReader reader = reader_of(message, MessageKind::kSetup);
  Problem smaller = scene.problem;
  smaller.n_samples = 29;
  OwnedSetup setup;
  EXPECT_FALSE(read_setup(reader, smaller, &setup));
}

}  // namespace
}  // namespace tavo_test
