// SPDX-License-Identifier: Apache-2.0
//
// Whole runs of the program against a naive second implementation: result files, byte for byte but for time,
// command line and device counts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "tests/campaign/search_case.h"
#include "tests/campaign/search_check.h"
#include "tests/support/sweep.h"

namespace {

using tavo_test::Draw;
using tavo_test::GenotypeData;
using tavo_test::SearchCase;
using tavo_test::Setting;
using Words = std::vector<std::string>;

// Another set of runs: TAVO_TEST_SEED=n.
unsigned base_seed() {
  const char* text = std::getenv("TAVO_TEST_SEED");
  return text == nullptr ? 20261121u : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

// Runs a case in a setting and holds what it leaves against the reference.
void compare(const SearchCase& drawn, const tavo_test::SearchReference& reference, const Setting& setting) {
  const tavo_test::TempDir folder;
  tavo_test::write_file(folder / "in.tavo", drawn.genotype_bytes);
  tavo_test::write_file(folder / "scores.txt", drawn.score_text);
  Words words = drawn.options;
  const Words more = setting.words();
  words.insert(words.end(), more.begin(), more.end());
  std::string command = "TAVO_SIMD=" + setting.instruction_set + " tavo";
  for (const std::string& word : words) {
    command += " " + word;
  }
  const tavo_test::RunResult result =
      tavo_test::run_program(tavo_test::tavo_program(), words, folder.path(), setting.environment());
  ASSERT_EQ(tavo_test::search_difference(drawn, setting, reference, result, folder.path()), "") << command;
}

constexpr unsigned kRunsPerChunk = 20 / tavo_test::kSweepStep;

class WholeRuns : public testing::TestWithParam<int> {
 protected:
  void run_chunk(unsigned stream, int mode, bool with_scores) {
    const unsigned seed = base_seed() + 1000u * stream + static_cast<unsigned>(GetParam());
    std::cout << "seed " << seed << "\n";
    for (unsigned i = 0; i < kRunsPerChunk; ++i) {
      Draw draw(seed, i);
      const SearchCase drawn = tavo_test::draw_search(draw, {mode, with_scores});
      const std::vector<Setting> settings = tavo_test::draw_settings(draw, mode == 1);
      compare(drawn, tavo_test::reference_results(drawn), settings[i % settings.size()]);
      if (HasFatalFailure()) {
        return;
      }
    }
  }
};

TEST_P(WholeRuns, CrossValidatedBest) {
  run_chunk(1, 1, false);
}

INSTANTIATE_TEST_SUITE_P(Chunks, WholeRuns, testing::Range(0, 12));

class WholeRunsOfOtherKinds : public WholeRuns {};

TEST_P(WholeRunsOfOtherKinds, CrossValidatedAboveThreshold) {
  run_chunk(2, 0, false);
}
TEST_P(WholeRunsOfOtherKinds, ExhaustiveAboveThreshold) {
  run_chunk(3, 2, false);
}
TEST_P(WholeRunsOfOtherKinds, ExhaustiveBest) {
  run_chunk(4, 3, false);
}
TEST_P(WholeRunsOfOtherKinds, ScoreBasedBest) {
  run_chunk(5, 1, true);
}
TEST_P(WholeRunsOfOtherKinds, ScoreBasedAboveThreshold) {
  run_chunk(6, 0, true);
}

INSTANTIATE_TEST_SUITE_P(Chunks, WholeRunsOfOtherKinds, testing::Range(0, 4));

// The result file is the same for any number of workers, threads and blocks, and for every instruction set.
class AnyNumberOfWorkers : public testing::TestWithParam<bool> {};

TEST_P(AnyNumberOfWorkers, GivesTheSameResultFile) {
  Draw draw(base_seed());
  const tavo_test::TempDir folder;
  const GenotypeData data = tavo_test::random_data(draw.random(), 150, 40, 0.03);
  tavo_test::write_file(folder / "in.tavo", tavo_test::normal_file(data));
  std::string scores = "score\n";
  for (int s = 0; s < data.n_samples; ++s) {
    scores += std::to_string(draw.from(-1000, 1000) / 997.0) + "\n";
  }
  tavo_test::write_file(folder / "scores.txt", scores);
  Words first;
  for (const int workers : {1, 2, 3, 7}) {
    for (const std::string& instruction_set : tavo_test::instruction_sets()) {
      Setting setting;
      setting.instruction_set = instruction_set;
      setting.workers = workers;
      setting.threads = 1 + 13 * workers;
      setting.blocks = 2 * workers + 1;
      Words words = setting.words();
      words.insert(words.end(), {"--in", "in.tavo", "--out", "out.csv", "--measure", "ba", "--order", "1-3"});
      if (GetParam()) {
        words.insert(words.end(), {"--score", "scores.txt"});
      }
      const tavo_test::RunResult result =
          tavo_test::run_program(tavo_test::tavo_program(), words, folder.path(), setting.environment());
      ASSERT_EQ(result.status, 0) << result.err;
      Words lines = tavo_test::split_lines(tavo_test::read_file(folder / "out.csv"));
      std::erase_if(lines, [](const std::string& line) {
        return line.starts_with("Total time,") || line.starts_with("Command,") || line.starts_with("18.") ||
               line.starts_with("19.") || line.starts_with("20.");
      });
      if (first.empty()) {
        first = lines;
      }
      ASSERT_EQ(lines, first) << workers << " workers, " << instruction_set;
    }
  }
}

// 32-bit products of counts wrap around with this many samples.
TEST(LargeRuns, ProductsOfCountsWrapAround) {
  Draw draw(base_seed());
  SearchCase drawn;
  drawn.data = tavo_test::random_data(draw.random(), 120000, 3, 0.01);
  drawn.genotype_bytes = tavo_test::normal_file(drawn.data);
  drawn.run.input = "in.tavo";
  drawn.run.output = "out.csv";
  drawn.run.folds = 2;
  drawn.run.top = 3;
  drawn.run.top_text = "3";
  for (const int measure : {4, 5, 6, 7}) {
    drawn.run.measure = measure;
    drawn.run.measure_text = measure == 4   ? "tau-b"
                             : measure == 5 ? "tau-c"
                             : measure == 6 ? "somers_d1"
                                            : "somers_d2";
    drawn.options = {"--in", "in.tavo", "--out", "out.csv", "--measure", drawn.run.measure_text,
                     "--cv", "2",       "--top", "3"};
    const tavo_test::SearchReference reference = tavo_test::reference_results(drawn);
    for (const std::string& instruction_set : tavo_test::instruction_sets()) {
      Setting setting;
      setting.instruction_set = instruction_set;
      compare(drawn, reference, setting);
      ASSERT_FALSE(HasFatalFailure());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, AnyNumberOfWorkers, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "ScoreBased" : "Plain"; });

}  // namespace
