// SPDX-License-Identifier: Apache-2.0
//
// Whole runs whose GPU fails: messages, status, and that nothing is left that looks like a result. The
// program over the stand-in of host_runtime.h, which fails as its environment variables say.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace {

using tavo_test::Environment;
using tavo_test::RunResult;

class FailedRuns : public testing::Test {
 protected:
  FailedRuns() {
    std::mt19937 random(61);
    tavo_test::GenotypeData data = tavo_test::random_data(random, 60, 20, 0.0);
    for (size_t s = 0; s < data.classes.size(); ++s) {
      data.classes[s] = s % 2 == 0 ? 1 : 0;
    }
    tavo_test::write_file(folder_ / "data", tavo_test::normal_file(data));
  }

  RunResult run(const std::vector<std::string>& more, const Environment& environment) const {
    std::vector<std::string> words = {"--in", "data",    "--out", "result.csv", "--thread",
                                      "8",    "--block", "2",     "--device",   "cuda"};
    words.insert(words.end(), more.begin(), more.end());
    return tavo_test::run_program(TAVO_OVER_STAND_IN, words, folder_.path(), environment);
  }

  // The result file is the empty one that proves that it can be created.
  void expect_no_result() const {
    EXPECT_EQ(tavo_test::read_file(folder_ / "result.csv"), "");
    EXPECT_FALSE(std::filesystem::exists(folder_ / "tidy.tsv"));
  }

  tavo_test::TempDir folder_;
};

TEST_F(FailedRuns, GoesWellWithoutAFailure) {
  const RunResult result = run({"--measure", "ba", "--order", "2"}, {});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(tavo_test::read_file(folder_ / "result.csv"), "");
}

TEST_F(FailedRuns, NoMemory) {
  const RunResult result =
      run({"--measure", "ba", "--order", "2", "--tidy", "tidy.tsv"}, {{"TAVO_STAND_IN_BYTES", "100"}});
  EXPECT_EQ(result.status, 255);
  EXPECT_NE(result.err.find("cudaSafeCall() Runtime API error in file <cuda_backend>, line "),
            std::string::npos)
      << result.err;
  EXPECT_NE(result.err.find("\ntavo: GPU 0: cannot allocate 480 bytes of device memory for the genotypes"),
            std::string::npos)
      << result.err;
  expect_no_result();
}

TEST_F(FailedRuns, ALaunch) {
  struct Launch {
    std::vector<std::string> words;
    std::string wrapper;
  };
  for (const Launch& launch :
       std::vector<Launch>{{{"--measure", "ba", "--order", "2"}, "cuMdrSearchTiles()"},
                           {{"--measure", "ba", "--order", "2"}, "cuMdrCount()"},
                           {{"--measure", "ba", "--order", "2", "--mode", "0"}, "cuMdrCalc"},
                           {{"--regression", "logistic"}, "cuRegLogistic()"}}) {
    const RunResult result = run(launch.words, {{"TAVO_STAND_IN_FAILS", launch.wrapper}});
    EXPECT_EQ(result.status, 255) << launch.wrapper;
    EXPECT_NE(result.err.find("cutilCheckMsg() CUTIL CUDA error: " + launch.wrapper +
                              " execution failed.\n in file <"),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("\ntavo: GPU 0: a CUDA kernel could not be launched: "), std::string::npos)
        << result.err;
    expect_no_result();
  }
}

}  // namespace
