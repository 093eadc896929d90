// SPDX-License-Identifier: Apache-2.0
#include "src/score_file.h"

#include <gtest/gtest.h>

#include <cmath>

#include "lib/cv_measures.h"
#include "src/text_lines.h"
#include "tests/support/run_program.h"

namespace {

using tavo_test::TempDir;

std::vector<float> read(const std::string& text, int n_samples, Status* status) {
  const TempDir folder;
  tavo_test::write_file(folder / "s", text);
  testing::internal::CaptureStderr();
  const std::optional<std::vector<float>> scores = read_scores((folder / "s").string(), n_samples, status);
  testing::internal::GetCapturedStderr();
  return scores.value();
}

TEST(ScoreFile, ASampleIsACaseWhenItsScoreIsAboveZeroOrNoNumber) {
  EXPECT_EQ(classes_of_scores({0.5f, -1.0f, 0.0f, -0.0f, std::nanf(""), 1e-45f}),
            (std::vector<uint8_t>{1, 0, 0, 0, 1, 1}));
}

TEST(ScoreFile, LineKAfterTheHeaderIsSampleK) {
  Status status;
  EXPECT_EQ(read("any header\n0.5\n-1\n0\n", 3, &status), (std::vector<float>{0.5f, -1.0f, 0.0f}));
  EXPECT_TRUE(status.ok());
}

TEST(ScoreFile, LinesBeyondTheSamplesAreNotRead) {
  Status status;
  EXPECT_EQ(read("h\n1\n2\n3\n4\n", 2, &status), (std::vector<float>{1.0f, 2.0f}));
  EXPECT_TRUE(status.ok());
}

TEST(ScoreFile, FewerLinesThanSamplesAreRefusedWithBothCounts) {
  Status status;
  read("h\n1\n2\n", 5, &status);
  EXPECT_FALSE(status.ok());
  EXPECT_NE(status.message().find("2 scores"), std::string::npos);
  EXPECT_NE(status.message().find("5 samples"), std::string::npos);
}

TEST(ScoreFile, ALineThatEndsNowhereIsRefusedWithItsPlace) {
  const std::string longest(kLongestTextLine - 1, ' ');
  Status status;
  EXPECT_EQ(read(longest + "h\n" + longest + "1\n" + longest + "2", 2, &status),
            (std::vector<float>{1.0f, 2.0f}));
  EXPECT_TRUE(status.ok());
  read("h\n1\n " + longest + "2\n3\n", 3, &status);
  EXPECT_TRUE(status.message().ends_with("s, line 3: longer than 65535 characters")) << status.message();
  status = Status();
  read(" " + longest + "h\n1\n", 1, &status);
  EXPECT_TRUE(status.message().ends_with("s, line 1: longer than 65535 characters")) << status.message();
}

TEST(ScoreFile, TextThatIsNoNumberIsNamedInCharactersThatMoveNoCursor) {
  const TempDir folder;
  const std::string path = (folder / "s").string();
  tavo_test::write_file(path, "h\n\x1b[2J1\n0.5x\n");
  Status status;
  testing::internal::CaptureStderr();
  EXPECT_EQ(read_scores(path, 2, &status), (std::vector<float>{0.0f, 0.5f}));
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "tavo: " + path + ", line 2: \"\\x1b[2J1\" is no number and counts as what it begins with, or 0\n");
}

TEST(ScoreFile, AFileThatCannotBeOpenedHasNoScores) {
  Status status;
  const TempDir folder;
  EXPECT_FALSE(read_scores((folder / "none").string(), 1, &status).has_value());
  EXPECT_FALSE(read_scores(folder.path().string(), 1, &status).has_value());
}

TEST(ScoreFile, TheFirstCharacterOfTheOrderCapsTheThreads) {
  EXPECT_EQ(score_thread_cap("2", 256), 150);
  EXPECT_EQ(score_thread_cap("2-3", 256), 150);
  EXPECT_EQ(score_thread_cap("3", 256), 50);
  EXPECT_EQ(score_thread_cap("3", 20), 20);
  EXPECT_EQ(score_thread_cap("4", 256), 256);
}

TEST(ScoreRecord, ACellOfCasesOnlyIsATieHoweverLargeItsScores) {
  EXPECT_EQ(score_cell_label(0, 0.0f, 1e9f, kLowRisk), kLowRisk);
  EXPECT_EQ(score_cell_label(0, 0.0f, 1e9f, kHighRisk), kHighRisk);
  EXPECT_EQ(score_cell_label(1, -1.0f, 1e9f, kLowRisk), kHighRisk);
}

TEST(ScoreRecord, ASumThatIsNoNumberIsATie) {
  EXPECT_EQ(score_cell_label(3, std::nanf(""), 1.0f, kLowRisk), kLowRisk);
}

TEST(ScoreRecord, WithoutLowRiskSamplesBalancedAccuracyIsNoNumberInBothSets) {
  // One cell, high risk: every control is misclassified, no prediction is low; then a set without controls.
  const int32_t train[] = {2, 3};
  const int32_t test[] = {0, 1};
  const float scores[] = {-1.0f, 4.0f};
  float record[kRecordSize];
  write_score_record(train, test, scores, 1, kHighRisk, record);
  EXPECT_EQ(record[kBalancedAccuracy], 0.5f);
  EXPECT_TRUE(std::isnan(record[kTestingEntry + kBalancedAccuracy]));
  for (int i = 1; i < kMeasureCount; ++i) {
    EXPECT_EQ(record[i], 0.0f);
    EXPECT_EQ(record[kTestingEntry + i], 0.0f);
  }
}

}  // namespace
