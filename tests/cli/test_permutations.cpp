// SPDX-License-Identifier: Apache-2.0
//
// --permutations and --stop-after as a user meets them.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/cli/cli_run.h"

namespace tavo_test {
namespace {

class Permutations : public ::testing::Test {
 protected:
  // Lines of the table of null values, the header left out.
  size_t drawn() const { return folder_.lines("r.csv.permutations.tsv").size() - 1; }

  struct BestValues {
    double testing = 0.0;
    double consistency = 0.0;
  };
  // The largest of the ranked combinations of a tidy table, for --measure ba.
  BestValues best_values(const std::string& name) const {
    const std::vector<std::string> lines = folder_.lines(name);
    const std::vector<std::string> header = split(lines[0], '\t');
    const auto column = [&](const char* wanted) {
      return static_cast<size_t>(std::find(header.begin(), header.end(), wanted) - header.begin());
    };
    BestValues best;
    for (const std::string& line : lines) {
      if (begins_with(line, "combination\tNA")) {
        const std::vector<std::string> cells = split(line, '\t');
        best.testing = std::max(best.testing, std::stod(cells[column("test_ba")]));
        best.consistency = std::max(best.consistency, std::stod(cells[column("weighted_consistency")]));
      }
    }
    return best;
  }

  // A score for each sample of folder_.
  static std::string scores() {
    std::string text = "score\n";
    for (int i = 0; i < 60; ++i) {
      text += std::to_string(0.01 * (i * 37 % 101) - 0.5) + "\n";
    }
    return text;
  }

  CliFolder folder_{balanced_data(60, 8)};
};

TEST_F(Permutations, LeaveReportAndOutputAsTheyAre) {
  const RunResult plain = folder_.run_mdr({"--order", "1-2"});
  const std::vector<std::string> report = folder_.lines("r.csv");
  const RunResult permuted = folder_.run_mdr({"--order", "1-2", "--permutations", "20"});
  ASSERT_EQ(permuted.status, 0) << permuted.err;
  EXPECT_EQ(drawn(), 40u);
  std::vector<std::string> now = folder_.lines("r.csv");
  ASSERT_EQ(now.size(), report.size());
  for (size_t i = 0; i < now.size(); ++i) {
    if (!begins_with(now[i], "Total time,") && !begins_with(now[i], "Command,")) {
      EXPECT_EQ(now[i], report[i]);
    }
  }
  // Times differ; the marks and lines of loops are those of one run.
  const auto loops = [](const std::string& text) {
    size_t n = 0;
    for (size_t at = text.find(" loop] - "); at != std::string::npos; at = text.find(" loop] - ", at + 1)) {
      ++n;
    }
    return n;
  };
  EXPECT_EQ(loops(permuted.out), loops(plain.out));
}

TEST_F(Permutations, NameTheBestOfEveryOrder) {
  const RunResult result = folder_.run_mdr({"--order", "1-2", "--permutations", "19"});
  EXPECT_EQ(notices_with(result, {"order 1: best testing value ", "(19 permutations)"}), 1) << result.err;
  EXPECT_EQ(notices_with(result, {"order 2: best testing value ", "(19 permutations)"}), 1) << result.err;
}

// The first so many null values are those of a test that goes on, and the last of them is the one that makes
// the second statistic complete.
TEST_F(Permutations, StopWhenTheBestIsReachedOftenEnough) {
  ASSERT_EQ(folder_.run_mdr({"--permutations", "200", "--tidy", "t.tsv"}).status, 0);
  const std::vector<std::string> all = folder_.lines("r.csv.permutations.tsv");
  const BestValues best = best_values("t.tsv");
  EXPECT_TRUE(contains(read_file(folder_.path("t.tsv")), "testing_threshold_5_percent"));
  size_t reached[2] = {0, 0};
  size_t expected = 0;
  for (size_t i = 1; i < all.size() && (reached[0] < 2 || reached[1] < 2); ++i) {
    const std::vector<std::string> cells = split(all[i], '\t');
    reached[0] += std::stod(cells[2]) >= best.testing * (1.0 - 1e-6) ? 1 : 0;
    reached[1] += std::stod(cells[3]) >= best.consistency * (1.0 - 1e-6) ? 1 : 0;
    expected = i;
  }
  ASSERT_LT(expected, 200u);
  ASSERT_EQ(folder_.run_mdr({"--permutations", "200", "--stop-after", "2", "--tidy", "t.tsv"}).status, 0);
  EXPECT_EQ(drawn(), expected);
  EXPECT_EQ(folder_.lines("r.csv.permutations.tsv").back(), all[expected]);
  EXPECT_FALSE(contains(read_file(folder_.path("t.tsv")), "threshold_5_percent"));
}

TEST_F(Permutations, OfACombinationWithoutATestingValueSayItsConsistency) {
  folder_.write("scores.txt", scores());
  const RunResult result =
      folder_.run_mdr({"--order", "1-2", "--cv", "60", "--score", "scores.txt", "--permutations", "1"});
  EXPECT_EQ(notices_with(result, {"order 2: best consistency ", "(1 permutation)"}), 1) << result.err;
  EXPECT_EQ(notices_with(result, {"all orders: best consistency "}), 1) << result.err;
  EXPECT_EQ(notices_with(result, {"testing value"}), 0) << result.err;
}

TEST_F(Permutations, OfListsWithoutACombinationSaySo) {
  const RunResult result = folder_.run_mdr({"--top", "0", "--permutations", "2"});
  EXPECT_EQ(notices_with(result, {"order 2: no combination was ranked"}), 1) << result.err;
}

TEST_F(Permutations, LeaveAnOlderResultWhereTheirTableCannotBeMade) {
  folder_.write("r.csv", "old");
  std::filesystem::create_directory(folder_.path("r.csv.permutations.tsv"));
  EXPECT_EQ(folder_.run_mdr({"--permutations", "2"}).status, 1);
  EXPECT_EQ(read_file(folder_.path("r.csv")), "old");
  EXPECT_EQ(folder_.run_mdr({"--tidy", "r.csv.permutations.tsv"}).status, 1);
  EXPECT_EQ(read_file(folder_.path("r.csv")), "old");
}

TEST_F(Permutations, OfAResultThatIsNoFileHaveNoTableBesideIt) {
  const RunResult result = folder_.run_mdr({"--out", "/dev/null", "--permutations", "2", "--tidy", "t.tsv"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(notices_with(result, {"--out /dev/null is no file"}), 1) << result.err;
  EXPECT_FALSE(std::filesystem::exists("/dev/null.permutations.tsv"));
  EXPECT_TRUE(contains(read_file(folder_.path("t.tsv")), "p_testing"));
}

TEST_F(Permutations, RepeatAndDifferWithAnotherSeed) {
  ASSERT_EQ(folder_.run_mdr({"--permutations", "10"}).status, 0);
  const std::string first = read_file(folder_.path("r.csv.permutations.tsv"));
  ASSERT_EQ(folder_.run_mdr({"--permutations", "10"}).status, 0);
  EXPECT_EQ(read_file(folder_.path("r.csv.permutations.tsv")), first);
  const RunResult seeded = folder_.run_mdr({"--permutations", "10", "--seed", "4"});
  ASSERT_EQ(seeded.status, 0);
  EXPECT_FALSE(contains(seeded.err, "no use for")) << seeded.err;
  EXPECT_NE(read_file(folder_.path("r.csv.permutations.tsv")), first);
}

TEST_F(Permutations, AreRefusedWhereTheyMeanNothing) {
  EXPECT_EQ(folder_.run_mdr({"--permutations", "-1"}).status, 1);
  EXPECT_EQ(folder_.run_mdr({"--permutations", "many"}).status, 1);
  EXPECT_EQ(folder_.run_mdr({"--permutations", "9", "--stop-after", "0"}).status, 1);
  const RunResult exhaustive = folder_.run_mdr({"--permutations", "9", "--mode", "3"});
  EXPECT_EQ(exhaustive.status, 1);
  EXPECT_EQ(notices_with(exhaustive, {"--permutations is for cross-validated searches"}), 1)
      << exhaustive.err;
  const RunResult lonely = folder_.run_mdr({"--stop-after", "9"});
  EXPECT_EQ(lonely.status, 1);
  EXPECT_EQ(notices_with(lonely, {"say how many at most with --permutations"}), 1) << lonely.err;
  const RunResult same = folder_.run_mdr({"--permutations", "9", "--tidy", "r.csv.permutations.tsv"});
  EXPECT_EQ(same.status, 1);
  EXPECT_EQ(notices_with(same, {"--tidy and --permutations name the same file"}), 1) << same.err;
  EXPECT_FALSE(folder_.exists("r.csv.permutations.tsv"));
}

// The class is the exclusive or of the two genotypes.
TEST_F(Permutations, GiveAPlantedPairTheSmallestPValueThereIs) {
  GenotypeData data = balanced_data(200, 12);
  for (int s = 0; s < data.n_samples; ++s) {
    const auto first = static_cast<uint8_t>(s / 7 % 2);
    data.genotypes[static_cast<size_t>(s * data.n_snps + 3)] = first;
    data.genotypes[static_cast<size_t>(s * data.n_snps + 7)] =
        static_cast<uint8_t>(first ^ (data.classes[static_cast<size_t>(s)] == 1 ? 1 : 0));
  }
  folder_.write("g.dat", normal_file(data, 8));
  ASSERT_EQ(folder_.run_mdr({"--permutations", "49", "--tidy", "t.tsv"}).status, 0);
  for (const std::string& line : folder_.lines("t.tsv")) {
    if (begins_with(line, "combination\tNA\tNA\t2\t1\t")) {
      EXPECT_TRUE(contains(line, "4:8"));
      const std::vector<std::string> cells = split(line, '\t');
      EXPECT_EQ(cells[cells.size() - 4], "0.02") << line;  // of its order
      EXPECT_EQ(cells[cells.size() - 2], "0.02") << line;  // of all orders
      return;
    }
  }
  FAIL() << "no ranked pair";
}

}  // namespace
}  // namespace tavo_test
