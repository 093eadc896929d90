// SPDX-License-Identifier: Apache-2.0
#include "src/checkpoint.h"

#include <gtest/gtest.h>

#include "lib/float_math.h"
#include "tests/support/run_program.h"

namespace {

using tavo_test::read_file;
using tavo_test::TempDir;
using tavo_test::write_file;

const RunIdentity kRun = {{"version", "1"}, {"--order", "2-3"}, {"--cv", "2"}};

SearchState some_state() {
  return {1000, {{{17, 0.75f}, {3, 0.5f}, {999, 0.5f}}, {}}};
}

class Checkpoints : public testing::Test {
 protected:
  std::string path() const { return (folder_ / "ck").string(); }

  // The message of a refusal, or nothing.
  std::string refusal(const RunIdentity& run = kRun) const {
    Checkpoint checkpoint;
    return checkpoint.open(path(), run).message();
  }

  void expect_same(const SearchState& a, const SearchState& b) const {
    EXPECT_EQ(a.next, b.next);
    ASSERT_EQ(a.lists.size(), b.lists.size());
    for (size_t f = 0; f < a.lists.size(); ++f) {
      ASSERT_EQ(a.lists[f].size(), b.lists[f].size());
      for (size_t i = 0; i < a.lists[f].size(); ++i) {
        EXPECT_EQ(a.lists[f][i].rank, b.lists[f][i].rank);
        EXPECT_EQ(bits_of_float(a.lists[f][i].value), bits_of_float(b.lists[f][i].value));
      }
    }
  }

  void keep_some() const {
    Checkpoint checkpoint;
    ASSERT_TRUE(checkpoint.open(path(), kRun).ok());
    checkpoint.set_seed(12);
    ASSERT_TRUE(checkpoint.keep(2, some_state()).ok());
    ASSERT_TRUE(checkpoint.keep(3, {5, {{}, {{4, 1e-40f}}}}).ok());
  }

  TempDir folder_;
};

TEST_F(Checkpoints, GiveBackWhatWasKept) {
  keep_some();
  Checkpoint checkpoint;
  ASSERT_EQ(checkpoint.open(path(), kRun).message(), "");
  EXPECT_EQ(checkpoint.seed(), 12u);
  ASSERT_NE(checkpoint.state(2), nullptr);
  expect_same(*checkpoint.state(2), some_state());
  ASSERT_NE(checkpoint.state(3), nullptr);
  expect_same(*checkpoint.state(3), {5, {{}, {{4, 1e-40f}}}});
  EXPECT_EQ(checkpoint.state(4), nullptr);
  checkpoint.remove();
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(Checkpoints, ThatAreNotOpenKeepNothing) {
  Checkpoint checkpoint;
  EXPECT_FALSE(checkpoint.is_open());
  EXPECT_FALSE(checkpoint.is_due());
  EXPECT_TRUE(checkpoint.keep(2, some_state()).ok());
  EXPECT_EQ(checkpoint.state(2), nullptr);
  checkpoint.remove();
}

TEST_F(Checkpoints, OfAnotherRunAreRefusedWithTheDifference) {
  keep_some();
  EXPECT_EQ(
      refusal({{"version", "1"}, {"--order", "2-3"}, {"--cv", "10"}}),
      path() + ": of another run: its --cv is 2, that of this run 10; give this run another checkpoint file");
  EXPECT_NE(refusal({{"version", "2"}, {"--order", "2-3"}, {"--cv", "2"}})
                .find("its version is 1, that of this run 2"),
            std::string::npos);
  // An option that the other program did not know, or this one does not.
  EXPECT_NE(refusal({{"version", "1"}, {"--order", "2-3"}}).find("its --cv is 2"), std::string::npos);
  EXPECT_NE(refusal({{"version", "1"}, {"--order", "2-3"}, {"--cv", "2"}, {"--new", "5"}}).find("--new"),
            std::string::npos);
}

TEST_F(Checkpoints, ThatAreCutAnywhereAreRefused) {
  keep_some();
  const std::string whole = read_file(path());
  for (size_t size = 0; size < whole.size(); ++size) {
    write_file(path(), whole.substr(0, size));
    ASSERT_NE(refusal(), "") << size << " bytes";
  }
}

TEST_F(Checkpoints, WithAnyByteChangedAreRefused) {
  keep_some();
  const std::string whole = read_file(path());
  for (size_t i = 0; i < whole.size(); ++i) {
    for (const int change : {1, 2, 64, 255}) {
      std::string other = whole;
      other[i] = static_cast<char>(other[i] ^ change);
      write_file(path(), other);
      // The checksum may be written in capitals as well.
      if (i >= whole.size() - 9 && change == 32) {
        continue;
      }
      ASSERT_NE(refusal(), "") << "byte " << i << ", change " << change;
    }
  }
  write_file(path(), whole + "\n");
  EXPECT_NE(refusal(), "");
}

TEST_F(Checkpoints, ThatAreNoneAreNotOverwritten) {
  write_file(path(), "my thesis\n");
  EXPECT_EQ(refusal(), path() + ": no checkpoint of this program");
  EXPECT_EQ(read_file(path()), "my thesis\n");
  std::filesystem::remove(path());
  std::filesystem::create_directory(path());
  EXPECT_EQ(refusal(), path() + ": no checkpoint of this program");
}

TEST_F(Checkpoints, InAFolderThatIsNotThereAreRefusedAtOnce) {
  Checkpoint checkpoint;
  EXPECT_FALSE(checkpoint.open((folder_ / "none/ck").string(), kRun).ok());
}

}  // namespace
