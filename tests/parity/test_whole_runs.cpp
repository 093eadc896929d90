// SPDX-License-Identifier: Apache-2.0
//
// Whole runs of the program against a naive second implementation: result files, byte for byte but for time,
// command line and device counts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>

#include "cpu/simd.h"
#include "lib/float_math.h"
#include "tests/reference/naive_run.h"
#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace {

using tavo_test::GenotypeData;
using Words = std::vector<std::string>;

constexpr const char* kMeasures[] = {"ba",    "accuracy",  "homogeneity", "gamma", "tau-b",
                                     "tau-c", "somers_d1", "somers_d2",   "nmi",   "lr"};
constexpr const char* kMissing[] = {"none", "mc", "complete", "available"};

// Another set of runs: TAVO_TEST_SEED=n.
unsigned base_seed() {
  const char* text = std::getenv("TAVO_TEST_SEED");
  return text == nullptr ? 20261121u : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

class Draw {
 public:
  explicit Draw(unsigned seed) : random_(seed) {}
  std::mt19937& random() { return random_; }
  int from(int lowest, int highest) {
    return lowest + static_cast<int>(random_() % static_cast<unsigned>(highest - lowest + 1));
  }
  bool one_in(int n) { return from(1, n) == 1; }
  template <typename T>
  T of(const std::vector<T>& choices) {
    return choices[static_cast<size_t>(from(0, static_cast<int>(choices.size()) - 1))];
  }

 private:
  std::mt19937 random_;
};

GenotypeData draw_data(Draw& draw, int n_snps) {
  // Few samples give many ties; sizes around a word of a bit plane are where padding shows.
  const int n_samples = draw.one_in(3) ? draw.from(1, 12) : draw.of<int>({30, 63, 64, 65, 100, 129, 200});
  GenotypeData data = tavo_test::random_data(draw.random(), n_samples, n_snps,
                                             draw.one_in(2) ? 0.0 : draw.of<double>({0.02, 0.1, 0.4}));
  if (draw.one_in(4)) {
    // SNPs that repeat others or never vary: systematic ties.
    for (int j = 0; j < n_snps; ++j) {
      const int source = draw.from(-2, j);
      for (int s = 0; s < n_samples && source < j; ++s) {
        uint8_t& genotype = data.genotypes[static_cast<size_t>(s * n_snps + j)];
        genotype = source < 0 ? static_cast<uint8_t>(-source) : data.at(s, source);
      }
    }
  }
  if (draw.one_in(6)) {
    // One class is rare or absent.
    const int rare = draw.from(0, 1);
    for (uint8_t& value : data.classes) {
      value = static_cast<uint8_t>(draw.one_in(15) ? rare : 1 - rare);
    }
  }
  if (draw.one_in(10)) {
    for (uint8_t& value : data.classes) {
      value = static_cast<uint8_t>(draw.one_in(4) ? draw.from(2, 255) : value);
    }
  }
  return data;
}

// Scores with exact zeros, sign changes, sums that cancel, denormals and numbers that are none.
std::vector<std::string> draw_scores(Draw& draw, int n) {
  std::vector<std::string> texts;
  for (int i = 0; i < n; ++i) {
    const double value = draw.from(-1000, 1000) / 997.0;
    char text[64];
    switch (draw.from(0, 9)) {
      case 0:
        texts.emplace_back("0");
        continue;
      case 1:
        texts.emplace_back(draw.one_in(2) ? "1" : "-1");
        continue;
      case 2:
        std::snprintf(text, sizeof(text), "%.9g", value * 1e8);
        break;
      case 3:
        std::snprintf(text, sizeof(text), "%.9g", value * 1e-42);
        break;
      case 4:
        std::snprintf(text, sizeof(text), "%s", draw.one_in(20) ? "nan" : "-0.0");
        break;
      default:
        std::snprintf(text, sizeof(text), "%.9g", value);
        break;
    }
    texts.emplace_back(text);
  }
  return texts;
}

struct Case {
  GenotypeData data;
  naive::Run run;
  Words words;
};

// An option that is given, or left out so that its default applies.
Case draw_case(Draw& draw, int mode, bool with_scores, const std::filesystem::path& folder) {
  Case drawn;
  naive::Run& run = drawn.run;
  Words& words = drawn.words;
  const auto give = [&words](const std::string& option, const std::string& value) {
    words.push_back("--" + option);
    words.push_back(value);
  };
  run.mode = mode;
  run.input = (folder / "in.tavo").string();
  run.output = (folder / "out.csv").string();
  give("in", run.input);
  give("out", run.output);
  if (!draw.one_in(8)) {
    run.min_order = draw.from(1, mode >= 2 ? 3 : 4);
    // Now and then a range that is empty, and more SNPs than fit a packed word where that stays quick.
    run.max_order = draw.one_in(20)  ? run.min_order - 1
                    : draw.one_in(3) ? std::min(4, run.min_order + 1)
                                     : run.min_order;
    run.max_order = std::max(run.max_order, 1);
    run.order_text = run.min_order == run.max_order && draw.one_in(2)
                         ? std::to_string(run.min_order)
                         : std::to_string(run.min_order) + "-" + std::to_string(run.max_order);
    give("order", run.order_text);
  }
  drawn.data = draw_data(draw, run.max_order <= 2 && draw.one_in(3) ? draw.from(13, 40) : draw.from(1, 12));
  if (!draw.one_in(8)) {
    run.folds = draw.from(1, 12);
    give("cv", std::to_string(run.folds));
  }
  if (draw.one_in(8)) {
    run.first_fold = draw.from(0, run.folds - 1);
    give("cvfrom", std::to_string(run.first_fold));
  }
  run.measure = mode >= 2 ? draw.from(0, draw.one_in(4) ? 9 : 2) : draw.from(0, 9);
  if (with_scores && !draw.one_in(8)) {
    run.measure = 0;
  }
  run.measure_text = kMeasures[run.measure];
  give("measure", run.measure_text);
  if (!draw.one_in(4)) {
    run.missing = draw.from(0, 3);
    run.missing_text = kMissing[run.missing];
    give("missing", *run.missing_text);
  }
  if (!draw.one_in(4)) {
    run.tie = draw.from(-1, 2);
    run.tie_text = std::to_string(run.tie);
    give("tie", *run.tie_text);
  }
  if (!draw.one_in(4)) {
    run.top = draw.of<int>({0, 1, 2, 3, 5, 8, 20, 60, 1000});
    run.top_text = std::to_string(run.top);
    give("top", *run.top_text);
  }
  if (draw.one_in(3)) {
    run.shuffling = true;
    run.seed = static_cast<unsigned>(draw.from(0, 1000000));
    run.shuffling_text = draw.of<std::string>({"1", "5", "-2"});
    give("shuffling", *run.shuffling_text);
    give("seed", std::to_string(run.seed));
  }
  run.workers = draw.from(1, 7);
  run.threads = draw.of<int>({1, 2, 3, 7, 32, 257});
  run.blocks = draw.of<int>({1, 3, 5, 64});
  if (mode != 1) {
    give("mode", std::to_string(mode));
  }
  if (with_scores) {
    run.score_path = (folder / "scores.txt").string();
    std::string text = "score\n";
    for (const std::string& score : draw_scores(draw, drawn.data.n_samples)) {
      text += score + "\n";
      run.scores.push_back(static_cast<float>(std::strtod(score.c_str(), nullptr)));
    }
    tavo_test::write_file(run.score_path, text);
    give("score", run.score_path);
    const int cap = run.order_text[0] == '2' ? 150 : run.order_text[0] == '3' ? 50 : 1 << 30;
    give("thread", std::to_string(run.threads));
    run.threads = std::min(run.threads, cap);
  } else {
    give("thread", std::to_string(run.threads));
  }
  give("block", std::to_string(run.blocks));
  give("gpu", std::to_string(run.workers));
  give("device", "cpu");
  return drawn;
}

// The lines of a result file, with the lines that no two runs share cut to their names.
Words comparable(const std::string& path) {
  Words lines = tavo_test::split_lines(tavo_test::read_file(path));
  for (std::string& line : lines) {
    for (const char* name : {"Total time,", "Command,"}) {
      if (line.starts_with(name)) {
        line = name;
      }
    }
  }
  return lines;
}

// The instruction sets of this processor.
std::vector<std::string> instruction_sets() {
  std::vector<std::string> names;
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (has(set)) {
      names.emplace_back(name_of(set));
    }
  }
  return names;
}

void compare(const Case& drawn, const std::filesystem::path& folder, const std::string& instruction_set) {
  tavo_test::write_file(drawn.run.input, tavo_test::normal_file(drawn.data));
  std::string command = "tavo";
  for (const std::string& word : drawn.words) {
    command += " " + word;
  }
  SCOPED_TRACE(command);
  const tavo_test::RunResult result = tavo_test::run_program(tavo_test::tavo_program(), drawn.words, folder,
                                                             {{"TAVO_SIMD", instruction_set}});
  ASSERT_EQ(result.status, 0) << result.out << result.err;
  ASSERT_NE(result.err.find(", " + instruction_set + "\n"), std::string::npos) << result.err;
  const Words expected = naive::report(drawn.data, drawn.run, tavo_logf);
  const Words actual = comparable(drawn.run.output);
  for (size_t i = 0; i < std::min(expected.size(), actual.size()); ++i) {
    ASSERT_EQ(actual[i], expected[i]) << "line " << i + 1 << "\n" << result.err;
  }
  ASSERT_EQ(actual.size(), expected.size());
}

constexpr int kRunsPerChunk = 20;

class WholeRuns : public testing::TestWithParam<int> {
 protected:
  void run_chunk(unsigned stream, int mode, bool with_scores) {
    const unsigned seed = base_seed() + 1000u * stream + static_cast<unsigned>(GetParam());
    std::cout << "seed " << seed << "\n";
    Draw draw(seed);
    for (int i = 0; i < kRunsPerChunk; ++i) {
      const tavo_test::TempDir folder;
      const std::vector<std::string> sets = instruction_sets();
      compare(draw_case(draw, mode, with_scores, folder.path()), folder.path(),
              sets[static_cast<size_t>(i) % sets.size()]);
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
  for (const std::string& score : draw_scores(draw, data.n_samples)) {
    scores += score + "\n";
  }
  tavo_test::write_file(folder / "scores.txt", scores);
  Words first;
  for (const int workers : {1, 2, 3, 7}) {
    for (const std::string& instruction_set : instruction_sets()) {
      const int threads = 1 + 13 * workers;
      Words words = {"--in",      "in.tavo",
                     "--out",     "out.csv",
                     "--measure", "ba",
                     "--order",   "1-3",
                     "--gpu",     std::to_string(workers),
                     "--thread",  std::to_string(threads),
                     "--block",   std::to_string(2 * workers + 1)};
      if (GetParam()) {
        words.insert(words.end(), {"--score", "scores.txt"});
      }
      const tavo_test::RunResult result = tavo_test::run_program(
          tavo_test::tavo_program(), words, folder.path(), {{"TAVO_SIMD", instruction_set}});
      ASSERT_EQ(result.status, 0) << result.err;
      Words lines = comparable((folder / "out.csv").string());
      std::erase_if(lines, [](const std::string& line) {
        return line.starts_with("18.") || line.starts_with("19.") || line.starts_with("20.");
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
  const tavo_test::TempDir folder;
  Case drawn;
  drawn.data = tavo_test::random_data(draw.random(), 120000, 3, 0.01);
  drawn.run.input = (folder / "in.tavo").string();
  drawn.run.output = (folder / "out.csv").string();
  drawn.run.folds = 2;
  drawn.run.top = 3;
  drawn.run.top_text = "3";
  for (const int measure : {4, 5, 6, 7}) {
    drawn.run.measure = measure;
    drawn.run.measure_text = kMeasures[measure];
    drawn.words = {"--in",      drawn.run.input,
                   "--out",     drawn.run.output,
                   "--measure", drawn.run.measure_text,
                   "--cv",      "2",
                   "--top",     "3",
                   "--gpu",     "1",
                   "--thread",  "1",
                   "--block",   "1",
                   "--device",  "cpu"};
    for (const std::string& instruction_set : instruction_sets()) {
      compare(drawn, folder.path(), instruction_set);
      ASSERT_FALSE(HasFatalFailure());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, AnyNumberOfWorkers, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "ScoreBased" : "Plain"; });

}  // namespace
