// SPDX-License-Identifier: Apache-2.0
//
// What the environment says of the launcher of a process.
#include <gtest/gtest.h>

#include <cstdlib>

#include "cluster/job.h"
#include "cluster/launcher.h"

namespace {

class Launcher : public testing::Test {
 protected:
  Launcher() {
    for (const char* variable : kVariables) {
      unsetenv(variable);
    }
  }
  ~Launcher() override {
    for (const char* variable : kVariables) {
      unsetenv(variable);
    }
  }

  void say(const char* variable, const char* value) { setenv(variable, value, 1); }

  static void expect(int rank, int size) {
    const LaunchedAs launched = launched_as();
    EXPECT_EQ(launched.rank, rank);
    EXPECT_EQ(launched.size, size);
  }

 private:
  static constexpr const char* kVariables[] = {
      "OMPI_COMM_WORLD_RANK", "OMPI_COMM_WORLD_SIZE", "PMI_RANK", "PMI_SIZE", "PMIX_RANK",
      "SLURM_STEP_NUM_TASKS", "TAVO_RANK_SILENCE"};
};

TEST_F(Launcher, IsNoneWithoutItsVariables) {
  expect(0, 1);
  say("SLURM_STEP_NUM_TASKS", "4");
  expect(0, 1);
}

TEST_F(Launcher, OfOpenMpiAndOfPmiSaysRankAndSize) {
  say("PMI_RANK", "3");
  say("PMI_SIZE", "5");
  expect(3, 5);
  say("OMPI_COMM_WORLD_RANK", "1");
  say("OMPI_COMM_WORLD_SIZE", "2");
  expect(1, 2);
}

TEST_F(Launcher, OfPmixSaysTheSizeThroughSlurmOrNotAtAll) {
  say("PMIX_RANK", "2");
  expect(2, 0);
  say("SLURM_STEP_NUM_TASKS", "1");
  say("PMIX_RANK", "0");
  expect(0, 1);
}

TEST_F(Launcher, IsNotBelievedWhatIsNoNumber) {
  for (const char* size : {"", "-9", "0", "4x", "nan", "1e99", "2.5"}) {
    say("OMPI_COMM_WORLD_SIZE", size);
    expect(0, 1);
  }
}

TEST_F(Launcher, TheLimitOfSilenceIsSecondsOrRefused) {
  double seconds = 0.0;
  EXPECT_TRUE(silence_limit(&seconds).ok());
  EXPECT_EQ(seconds, 60.0);
  say("TAVO_RANK_SILENCE", "2.5");
  EXPECT_TRUE(silence_limit(&seconds).ok());
  EXPECT_EQ(seconds, 2.5);
  for (const char* text : {"", "5m", "inf", "nan", "1e12", "1e-6", "-1"}) {
    say("TAVO_RANK_SILENCE", text);
    EXPECT_EQ(silence_limit(&seconds).message(),
              std::string("TAVO_RANK_SILENCE is ") + text + ", expected seconds from 0.1 to 1000000");
  }
}

}  // namespace
