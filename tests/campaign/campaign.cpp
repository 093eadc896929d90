// SPDX-License-Identifier: Apache-2.0
//
// A campaign of random whole runs: every case is run on each instruction set at hand, and on a CUDA device
// where there is one, and held against the reference. Case number I of a seed depends on those two numbers
// alone.
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>

#include "tests/campaign/regression_check.h"
#include "tests/campaign/search_check.h"

namespace {

using tavo_test::Draw;
using tavo_test::Setting;
using tavo_test::Words;
namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: tavo_campaign RUNS SEED [FIRST [STEP [FOLDER]]]\n"
    "Runs cases FIRST, FIRST + STEP, ... below FIRST + RUNS * STEP of SEED; keeps the files of failures in "
    "FOLDER.\n";

// A hanging program is a failure, too.
constexpr const char* kTimeLimit = "300";

// A case, ready to be run: its files, its words, and what must be true afterwards.
struct Case {
  std::string kind;
  std::vector<std::pair<std::string, std::string>> files;
  Words options;
  bool can_checkpoint = false;
  std::function<std::string(const Setting&, const tavo_test::RunResult&, const fs::path&)> difference;
};

Case search_case(Draw& draw, const tavo_test::SearchKind& kind) {
  const auto drawn = std::make_shared<tavo_test::SearchCase>(tavo_test::draw_search(draw, kind));
  const auto reference = std::make_shared<tavo_test::SearchReference>(tavo_test::reference_results(*drawn));
  Case one;
  one.kind = std::string(kind.with_scores ? "score-based" : "plain") + " search, mode " +
             std::to_string(kind.mode) + (drawn->permutations > 0 ? ", with permutations" : "");
  one.files = {{"in.tavo", drawn->genotype_bytes}};
  if (kind.with_scores) {
    one.files.emplace_back("scores.txt", drawn->score_text);
  }
  one.options = drawn->options;
  one.can_checkpoint = !drawn->refused;
  one.difference = [drawn, reference](const Setting& setting, const tavo_test::RunResult& result,
                                      const fs::path& folder) {
    return tavo_test::search_difference(*drawn, setting, *reference, result, folder);
  };
  return one;
}

// The parts of a regression's files that no setting may change.
std::string setting_free(const fs::path& folder) {
  const std::string report = tavo_test::read_file(folder / "out.csv");
  const size_t results = report.find("  Results  ");
  return report.substr(std::min(results, report.size())) +
         (fs::exists(folder / "tidy.tsv") ? tavo_test::read_file(folder / "tidy.tsv") : "");
}

Case regression_case(Draw& draw, const tavo_test::RegressionForm& form) {
  const auto drawn = std::make_shared<tavo_test::RegressionCase>(tavo_test::draw_regression(draw, form));
  const auto rows = std::make_shared<Words>(tavo_test::reference_rows(*drawn));
  const auto first = std::make_shared<std::string>();
  Case one;
  one.kind = std::string(form.model == RegressionModel::kLinear     ? "linear regression"
                         : form.model == RegressionModel::kLogistic ? "logistic regression"
                                                                    : "logistic regression of pairs") +
             (form.precision == Precision::kSingle ? ", single precision" : ", double precision");
  one.files = {{"in.tavo", drawn->genotype_bytes}};
  if (!drawn->covariate_text.empty()) {
    one.files.emplace_back("covariates.txt", drawn->covariate_text);
  }
  one.options = drawn->options;
  one.can_checkpoint = true;
  one.difference = [drawn, rows, first](const Setting& setting, const tavo_test::RunResult& result,
                                        const fs::path& folder) {
    std::string difference = tavo_test::regression_difference(*drawn, setting, *rows, result, folder);
    // A GPU may round regressions otherwise than the processor (docs/gpu.md).
    if (difference.empty() && setting.device == "cpu") {
      const std::string text = setting_free(folder);
      *first = first->empty() ? text : *first;
      difference = text == *first ? "" : "the results are not those of the first setting";
    }
    return difference;
  };
  return one;
}

Case draw_case(Draw& draw) {
  using Model = RegressionModel;
  const int kind = draw.from(1, 100);
  if (kind <= 70) {
    const tavo_test::SearchKind search = kind <= 30   ? tavo_test::SearchKind{1, false}
                                         : kind <= 38 ? tavo_test::SearchKind{0, false}
                                         : kind <= 43 ? tavo_test::SearchKind{2, false}
                                         : kind <= 49 ? tavo_test::SearchKind{3, false}
                                         : kind <= 62 ? tavo_test::SearchKind{1, true}
                                         : kind <= 66 ? tavo_test::SearchKind{0, true}
                                         : kind <= 68 ? tavo_test::SearchKind{2, true}
                                                      : tavo_test::SearchKind{3, true};
    return search_case(draw, search);
  }
  const Model model = kind <= 82 ? Model::kLogistic : kind <= 91 ? Model::kOrderedLogistic : Model::kLinear;
  return regression_case(draw, {model, draw.one_in(2) ? Precision::kSingle : Precision::kDouble});
}

std::string command_of(const Setting& setting, const Words& words) {
  std::string command;
  for (const auto& [name, value] : setting.environment()) {
    command += name + "=" + value + " ";
  }
  command += tavo_test::tavo_program().string();
  for (const std::string& word : words) {
    command += " " + word;
  }
  return command;
}

struct Totals {
  std::map<std::string, int> cases;
  int runs = 0;
  int failures = 0;
};

// Runs one case in every setting. Files of a failure go to `kept`, where there is such a folder.
void run_case(unsigned seed, unsigned index, const fs::path& kept, Totals* totals) {
  Draw draw(seed, index);
  const Case one = draw_case(draw);
  ++totals->cases[one.kind];
  for (const Setting& setting : tavo_test::draw_settings(draw, one.can_checkpoint)) {
    const tavo_test::TempDir folder;
    for (const auto& [name, bytes] : one.files) {
      tavo_test::write_file(folder / name, bytes);
    }
    Words words = one.options;
    const Words more = setting.words();
    words.insert(words.end(), more.begin(), more.end());
    Words limited = {kTimeLimit, tavo_test::tavo_program().string()};
    limited.insert(limited.end(), words.begin(), words.end());
    const tavo_test::RunResult result =
        tavo_test::run_program("/usr/bin/timeout", limited, folder.path(), setting.environment());
    ++totals->runs;
    const std::string difference = one.difference(setting, result, folder.path());
    if (difference.empty()) {
      continue;
    }
    ++totals->failures;
    std::cout << "FAILED: run " << seed << ":" << index << " (" << one.kind << ")\n" << difference << "\n";
    if (!kept.empty()) {
      const fs::path place = kept / (std::to_string(seed) + "-" + std::to_string(index));
      fs::create_directories(place);
      fs::copy(folder.path(), place, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
      std::cout << "cd " << place.string() << " && ";
    }
    std::cout << command_of(setting, words) << "\n" << std::flush;
    return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 6) {
    std::cerr << kUsage;
    return 2;
  }
  const auto number = [&](int i, unsigned otherwise) {
    return i < argc ? static_cast<unsigned>(std::strtoul(argv[i], nullptr, 10)) : otherwise;
  };
  const unsigned runs = number(1, 0);
  const unsigned seed = number(2, 0);
  const unsigned first = number(3, 0);
  const unsigned step = number(4, 1);
  const fs::path kept = argc > 5 ? argv[5] : "";
  Totals totals;
  for (unsigned i = 0; i < runs; ++i) {
    run_case(seed, first + i * step, kept, &totals);
  }
  for (const auto& [kind, count] : totals.cases) {
    std::cout << kind << ": " << count << "\n";
  }
  std::cout << "seed " << seed << ": " << runs << " cases, " << totals.runs << " runs of the program, "
            << totals.failures << " failed\n";
  return totals.failures == 0 ? 0 : 1;
}
