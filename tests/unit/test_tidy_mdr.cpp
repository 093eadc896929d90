// SPDX-License-Identifier: Apache-2.0
//
// Every number of a tidy table reads back to the bits of the record that it comes from.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

#include "src/run_config.h"
#include "src/tidy_mdr.h"
#include "src/tidy_table.h"
#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"
#include "tests/support/tsv_table.h"

namespace tavo_test {
namespace {

TEST(TidyNumbers, ReadBackToTheirBits) {
  std::mt19937 random(7);
  for (int i = 0; i < 20000; ++i) {
    const auto single = std::bit_cast<float>(static_cast<uint32_t>(random()));
    const auto twice = std::bit_cast<double>(uint64_t{random()} << 32 | random());
    if (std::isfinite(single)) {
      EXPECT_EQ(std::bit_cast<uint32_t>(std::strtof(tidy_number(single).c_str(), nullptr)),
                std::bit_cast<uint32_t>(single));
    }
    if (std::isfinite(twice)) {
      EXPECT_EQ(std::bit_cast<uint64_t>(std::strtod(tidy_number(twice).c_str(), nullptr)),
                std::bit_cast<uint64_t>(twice));
    }
  }
  EXPECT_EQ(tidy_number(-std::nan("")), "NA");
  EXPECT_EQ(tidy_number(std::numeric_limits<double>::infinity()), "Inf");
  EXPECT_EQ(tidy_number(-std::numeric_limits<float>::infinity()), "-Inf");
}

TEST(TidyMdrTable, HasTheBitsOfTheRecords) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  const TempDir folder;
  write_file(folder / "g.dat", normal_file(random_data(random, 30, 6, 0.1)));
  g_regression = kNoRegression;
  g_transpose = 0;
  MdrReader reader;
  ASSERT_TRUE(reader.Open((folder / "g.dat").c_str(), false, 0));

  RunSettings settings;
  settings.folds = 3;
  ResultArray results = TFmMDR::make_results(settings);
  MDRResult& result = *results[1];
  for (std::vector<KeptCombination>& list : result.kept) {
    for (const std::vector<int>& snps : {std::vector<int>{0, 3}, std::vector<int>{2, 5}}) {
      KeptCombination& kept = list.emplace_back();
      kept.snps = snps;
      for (int i = 0; i < kRecordSize; ++i) {
        kept.record.push_back(static_cast<double>(value(random)));
      }
    }
  }
  result.best_snps = {{0, 3}, {2, 5}};
  result.weighted_cvc = {1.0 / 3.0, 0.1};
  result.p_values = {0.0, 0.0};
  for (int measure = 0; measure < kMeasureCount; ++measure) {
    for (int rank = 0; rank < 2 && measure != kAccuracy; ++rank) {
      MeasurePair& pair = result.measures[static_cast<size_t>(measure)];
      pair.training.push_back(static_cast<double>(value(random)) / 3.0);
      pair.testing.push_back(static_cast<double>(value(random)) / 7.0);
    }
  }
  TidyMdr tidy;
  ASSERT_TRUE(tidy.open((folder / "t.tsv").string()));
  tidy.write(reader, settings, results, PermutationNull());
  ASSERT_TRUE(tidy.close().ok());

  const TsvTable table = parse_tsv(read_file(folder / "t.tsv"));
  const char* words[] = {"ba",    "accuracy",  "homogeneity", "gamma", "tau_b",
                         "tau_c", "somers_d1", "somers_d2",   "nmi",   "lr"};
  const std::vector<TsvRow> combinations = table.with("row", "combination");
  ASSERT_EQ(combinations.size(), 2u);
  for (size_t rank = 0; rank < 2; ++rank) {
    EXPECT_EQ(std::stod(combinations[rank].at("weighted_consistency")), result.weighted_cvc[rank]);
    for (size_t measure = 0; measure < std::size(words); ++measure) {
      if (measure == kAccuracy) {
        continue;
      }
      EXPECT_EQ(std::stod(combinations[rank].at(std::string("train_") + words[measure])),
                result.measures[measure].training[rank]);
      EXPECT_EQ(std::stod(combinations[rank].at(std::string("test_") + words[measure])),
                result.measures[measure].testing[rank]);
    }
  }
  const std::vector<TsvRow> folds = table.with("row", "fold");
  ASSERT_EQ(folds.size(), 6u);
  for (size_t i = 0; i < folds.size(); ++i) {
    const std::vector<double>& record = result.kept[i / 2][i % 2].record;
    EXPECT_EQ(folds[i].at("fold"), std::to_string(i / 2 + 1));
    for (size_t measure = 0; measure < std::size(words); ++measure) {
      EXPECT_EQ(std::stof(folds[i].at(std::string("train_") + words[measure])),
                static_cast<float>(record[measure]));
      EXPECT_EQ(std::stof(folds[i].at(std::string("test_") + words[measure])),
                static_cast<float>(record[kTestingEntry + measure]));
    }
  }
}

}  // namespace
}  // namespace tavo_test
