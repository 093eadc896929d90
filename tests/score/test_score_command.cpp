// SPDX-License-Identifier: Apache-2.0
//
// tavo-score as a user runs it, and a score-based run on what it wrote.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace {

using tavo_test::RunResult;
using Words = std::vector<std::string>;

class ScoreCommand : public testing::Test {
 protected:
  ScoreCommand() {
    std::mt19937 random(11);
    data_ = tavo_test::random_data(random, 60, 9, 0.0);
    for (size_t s = 0; s < data_.classes.size(); ++s) {
      data_.classes[s] = s % 3 == 0 ? 1 : 0;
    }
    tavo_test::write_file(folder_ / "g.dat", tavo_test::normal_file(data_));
    tavo_test::write_file(folder_ / "t.dat", tavo_test::transposed_file(data_));
  }

  RunResult run(const Words& words) {
    return tavo_test::run_program(tavo_test::score_program(), words, folder_.path());
  }

  std::string covariates(size_t lines, const std::string& line_7 = "") const {
    std::string text = "FID\tIID\tage\tdose\n";
    for (size_t i = 0; i < lines; ++i) {
      text += i == 7 && !line_7.empty()
                  ? line_7
                  : "f\ti\t" + std::to_string(30 + i * i % 41) + "\t" + std::to_string(i % 7) + "\n";
    }
    return text;
  }

  std::vector<double> scores(const std::string& name = "s.txt") {
    std::vector<std::string> lines = tavo_test::split_lines(tavo_test::read_file(folder_ / name));
    EXPECT_EQ(lines.front(), "score");
    std::vector<double> values;
    for (size_t i = 1; i < lines.size(); ++i) {
      values.push_back(std::stod(lines[i]));
    }
    return values;
  }

  void expect_refused(const RunResult& result, int status, const Words& parts) {
    EXPECT_EQ(result.status, status);
    EXPECT_TRUE(result.err.starts_with("tavo-score: ")) << result.err;
    for (const std::string& part : parts) {
      EXPECT_NE(result.err.find(part), std::string::npos) << part << ": " << result.err;
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "s.txt"));
  }

  tavo_test::TempDir folder_;
  tavo_test::GenotypeData data_;
};

TEST_F(ScoreCommand, WithoutCovariatesAScoreIsTheClassLessTheShareOfCases) {
  for (const Words& layout : {Words{"--in", "g.dat"}, Words{"--in", "t.dat", "--transpose", "1"}}) {
    Words words = layout;
    words.insert(words.end(), {"--out", "s.txt"});
    const RunResult result = run(words);
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<double> values = scores();
    ASSERT_EQ(values.size(), 60u);
    for (size_t s = 0; s < values.size(); ++s) {
      EXPECT_EQ(static_cast<float>(values[s]), static_cast<float>((s % 3 == 0 ? 1.0 : 0.0) - 1.0 / 3.0));
    }
  }
}

TEST_F(ScoreCommand, CovariatesAreTakenOut) {
  tavo_test::write_file(folder_ / "c.txt", covariates(60));
  const RunResult result = run({"--in", "g.dat", "--out", "s.txt", "--covariate", "c.txt"});
  ASSERT_EQ(result.status, 0) << result.err;
  const std::vector<double> values = scores();
  double sum = 0.0;
  double with_dose = 0.0;
  for (size_t s = 0; s < values.size(); ++s) {
    EXPECT_EQ(values[s] > 0.0, s % 3 == 0);
    sum += values[s];
    with_dose += values[s] * static_cast<double>(s % 7);
  }
  EXPECT_NEAR(sum, 0.0, 1e-5);
  EXPECT_NEAR(with_dose, 0.0, 1e-5);
}

TEST_F(ScoreCommand, ASampleWithoutACovariateIsRefusedOrScoresZero) {
  tavo_test::write_file(folder_ / "c.txt", covariates(60, "f\ti\tNA\t3\n"));
  expect_refused(run({"--in", "g.dat", "--out", "s.txt", "--covariate", "c.txt"}), 1,
                 {"c.txt", "1 samples", "line 9"});
  const RunResult zero =
      run({"--in", "g.dat", "--out", "s.txt", "--covariate", "c.txt", "--missing-covariate", "zero"});
  ASSERT_EQ(zero.status, 0) << zero.err;
  EXPECT_NE(zero.err.find("line 9"), std::string::npos) << zero.err;
  const std::vector<double> values = scores();
  ASSERT_EQ(values.size(), 60u);
  EXPECT_EQ(values[7], 0.0);
  // All others keep their own residual, in their own place.
  double sum = 0.0;
  double with_dose = 0.0;
  for (size_t s = 0; s < values.size(); ++s) {
    EXPECT_EQ(values[s] > 0.0, s % 3 == 0) << "sample " << s;
    sum += values[s];
    with_dose += values[s] * static_cast<double>(s % 7);
  }
  EXPECT_NEAR(sum, 0.0, 1e-5);
  EXPECT_NEAR(with_dose, 0.0, 1e-5);
}

TEST_F(ScoreCommand, ScoresNeverReplaceWhatTheyAreMadeFrom) {
  const std::string genotypes = tavo_test::read_file(folder_ / "g.dat");
  tavo_test::write_file(folder_ / "c.txt", covariates(60));
  std::filesystem::create_symlink("g.dat", folder_ / "link");
  expect_refused(run({"--in", "g.dat", "--out", "g.dat"}), 1, {"g.dat", "--out", "--in"});
  expect_refused(run({"--in", "g.dat", "--out", "link"}), 1, {"link", "--out", "--in"});
  expect_refused(run({"--in", "g.dat", "--covariate", "c.txt", "--out", "./c.txt"}), 1,
                 {"c.txt", "--out", "--covariate"});
  EXPECT_EQ(tavo_test::read_file(folder_ / "g.dat"), genotypes);
  EXPECT_EQ(tavo_test::read_file(folder_ / "c.txt"), covariates(60));
}

TEST_F(ScoreCommand, ARefusalLeavesEarlierScoresAndNothingElse) {
  tavo_test::write_file(folder_ / "c.txt", covariates(59));
  tavo_test::write_file(folder_ / "old.txt", "earlier\n");
  EXPECT_EQ(run({"--in", "g.dat", "--out", "old.txt", "--covariate", "c.txt"}).status, 1);
  EXPECT_EQ(tavo_test::read_file(folder_ / "old.txt"), "earlier\n");
  EXPECT_EQ(run({"--in", "g.dat", "--out", "old.txt"}).status, 0);
  EXPECT_TRUE(tavo_test::read_file(folder_ / "old.txt").starts_with("score\n"));
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
    EXPECT_EQ(entry.path().string().find(".tmp"), std::string::npos) << entry.path();
  }
}

TEST_F(ScoreCommand, LineEndsOfCovariatesDoNotMatter) {
  tavo_test::write_file(folder_ / "c.txt", covariates(60));
  ASSERT_EQ(run({"--in", "g.dat", "--out", "s.txt", "--covariate", "c.txt"}).status, 0);
  std::string text;
  for (const std::string& line : tavo_test::split_lines(covariates(60))) {
    text += (text.empty() ? "" : "\r\n") + line;
  }
  tavo_test::write_file(folder_ / "crlf.txt", text);
  const RunResult result = run({"--in", "g.dat", "--out", "crlf_scores.txt", "--covariate", "crlf.txt"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(tavo_test::read_file(folder_ / "crlf_scores.txt"), tavo_test::read_file(folder_ / "s.txt"));
}

TEST_F(ScoreCommand, ClassesOtherThanZeroAndOneAreCounted) {
  EXPECT_EQ(run({"--in", "g.dat", "--out", "s.txt"}).err, "");
  tavo_test::GenotypeData coded = data_;
  for (size_t s = 0; s < 5; ++s) {
    coded.classes[s] = 2;
  }
  tavo_test::write_file(folder_ / "other.dat", tavo_test::normal_file(coded));
  const RunResult result = run({"--in", "other.dat", "--out", "s.txt"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "tavo-score: other.dat: 5 samples have a class other than 0 and 1 and count as controls\n");
  EXPECT_LT(scores()[0], 0.0);
}

TEST_F(ScoreCommand, ClassesReadAsNumbersAreRefused) {
  expect_refused(run({"--in", "g.dat", "--out", "s.txt", "--phenotype", "linear"}), 1,
                 {"g.dat", "integers", "floats"});
}

TEST_F(ScoreCommand, QuantitativePhenotypesAreReadAsFloats) {
  std::string bytes = tavo_test::normal_file(data_);
  const size_t row = 4 + 4;
  const size_t body = bytes.size() - 60 * row;
  double mean = 0.0;
  for (size_t s = 0; s < 60; ++s) {
    const float value = 1.5f * static_cast<float>(s) - 10.0f;
    mean += value / 60.0;
    std::memcpy(bytes.data() + body + s * row, &value, sizeof(value));
  }
  tavo_test::write_file(folder_ / "q.dat", bytes);
  const RunResult result = run({"--in", "q.dat", "--out", "s.txt", "--phenotype", "linear"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(static_cast<float>(scores()[10]), static_cast<float>(5.0 - mean));
}

TEST_F(ScoreCommand, WrongInputIsRefusedWithItsPlace) {
  const auto with_covariates = [this](const std::string& text) {
    tavo_test::write_file(folder_ / "c.txt", text);
    return run({"--in", "g.dat", "--out", "s.txt", "--covariate", "c.txt"});
  };
  expect_refused(with_covariates(covariates(59)), 1, {"c.txt", "59 lines", "60 samples"});
  expect_refused(with_covariates(covariates(61)), 1, {"c.txt", "line 62", "60 samples"});
  expect_refused(with_covariates(covariates(60, "f\ti\t3\n")), 1, {"line 9", "3 fields", "expected 4"});
  expect_refused(with_covariates(covariates(60, "f\ti\t3\tx\n")), 1, {"line 9", "field 4", "\"x\""});
  expect_refused(with_covariates(""), 1, {"c.txt", "empty"});
  expect_refused(with_covariates("FID\tIID\n"), 1, {"c.txt", "line 1", "2 fields"});
  expect_refused(run({"--in", "none", "--out", "s.txt"}), 1, {"none"});
  expect_refused(run({"--in", "g.dat", "--out", "none/s.txt"}), 1, {"none/s.txt"});
  expect_refused(run({"--in", "t.dat", "--out", "s.txt", "--transpose", "1", "--phenotype", "linear"}), 1,
                 {"t.dat", "transposed"});
}

TEST_F(ScoreCommand, WrongUsageHasItsOwnStatus) {
  expect_refused(run({}), 2, {"--in", "--out"});
  expect_refused(run({"--in", "g.dat"}), 2, {"--out"});
  expect_refused(run({"--in", "g.dat", "--out", "s.txt", "--what", "1"}), 2, {"--what"});
  expect_refused(run({"--in", "g.dat", "--out"}), 2, {"--out", "value"});
  expect_refused(run({"--in", "g.dat", "--out", "s.txt", "--phenotype", "both"}), 2,
                 {"both", "logistic", "linear"});
  EXPECT_EQ(run({"--help"}).status, 0);
  EXPECT_EQ(run({"--version"}).status, 0);
}

TEST_F(ScoreCommand, AScoreBasedRunTakesWhatItWrote) {
  tavo_test::write_file(folder_ / "c.txt", covariates(60));
  ASSERT_EQ(run({"--in", "g.dat", "--out", "s.txt", "--covariate", "c.txt"}).status, 0);
  const RunResult result = tavo_test::run_program(tavo_test::tavo_program(),
                                                  {"--in", "g.dat", "--out", "r.csv", "--score", "s.txt",
                                                   "--measure", "ba", "--thread", "4", "--block", "4"},
                                                  folder_.path());
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("Successfully applied score!"), std::string::npos);
}

}  // namespace
