// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/search_check.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "lib/float_math.h"
#include "tests/campaign/tidy_check.h"

namespace tavo_test {

namespace fs = std::filesystem;

namespace {

// A list file: the line of each entry.
std::string list_text(const std::vector<naive::Entry>& list) {
  std::string text;
  int rank = 0;
  for (const naive::Entry& entry : list) {
    text += std::to_string(++rank) + ",,";
    for (const int snp : entry.comb) {
      text += std::to_string(snp) + ",";
    }
    for (const size_t measure : {1, 0, 2, 3, 4, 5, 6, 7, 8, 9}) {
      for (const size_t set : {0, 16}) {
        const double value = entry.values[set + measure];
        char number[400];
        std::snprintf(number, sizeof(number), ",%f", value);
        text += std::isnan(value) ? ",nan" : number;
      }
    }
    text += "\n";
  }
  return text;
}

// The list files: one per order and fold, named by a number that means nothing.
std::string lists_difference(const naive::Run& run, const std::vector<naive::OrderResult>& reference,
                             const fs::path& folder) {
  std::map<std::string, std::vector<std::string>> expected;
  std::map<std::string, std::vector<std::string>> actual;
  for (const naive::OrderResult& order : reference) {
    for (int fold = run.first_fold; fold < run.folds && run.mode < 2; ++fold) {
      expected["]tmp_cv_" + std::to_string(fold) + ".txt"].push_back(
          list_text(order.lists[static_cast<size_t>(fold)]));
    }
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name[0] == '[') {
      actual[name.substr(name.find(']'))].push_back(read_file(entry.path()));
    }
  }
  for (auto* lists : {&expected, &actual}) {
    for (auto& [name, texts] : *lists) {
      std::sort(texts.begin(), texts.end());
    }
  }
  if (expected == actual) {
    return "";
  }
  for (const auto& [name, texts] : expected) {
    const std::vector<std::string>& found = actual[name];
    for (size_t i = 0; i < texts.size(); ++i) {
      if (i >= found.size() || found[i] != texts[i]) {
        return "list files " + name + ": found\n" + (i < found.size() ? found[i] : "none") + "\nexpected\n" +
               texts[i];
      }
    }
  }
  return "there are list files that should not be";
}

}  // namespace

SearchReference reference_results(const SearchCase& drawn) {
  SearchReference reference;
  if (!drawn.refused) {
    reference.orders = naive::results(drawn.data, drawn.run, tavo_logf);
    reference.nulls = naive::permuted_bests(drawn.data, drawn.run, drawn.permutations, tavo_logf);
  }
  return reference;
}

std::string report_difference(const std::vector<std::string>& expected, const fs::path& path) {
  if (!fs::exists(path)) {
    return path.filename().string() + " is missing";
  }
  const std::vector<std::string> actual = split_lines(read_file(path));
  for (size_t i = 0; i < std::max(expected.size(), actual.size()); ++i) {
    if (i >= actual.size() || i >= expected.size()) {
      return path.filename().string() + ": " + std::to_string(actual.size()) + " lines, expected " +
             std::to_string(expected.size());
    }
    // Two lines that no two runs share: expected by their names.
    const bool by_name = expected[i] == "Total time," || expected[i] == "Command,";
    if (by_name ? !actual[i].starts_with(expected[i]) : actual[i] != expected[i]) {
      return path.filename().string() + ", line " + std::to_string(i + 1) + ": found\n" + actual[i] +
             "\nexpected\n" + expected[i];
    }
  }
  return "";
}

std::string search_difference(const SearchCase& drawn, const Setting& setting,
                              const SearchReference& reference, const RunResult& result,
                              const fs::path& folder) {
  if (drawn.refused) {
    if (result.status != 1 || result.out.find("Can't apply score") == std::string::npos) {
      return "not refused: status " + std::to_string(result.status) + "\n" + result.out + result.err;
    }
    return "";
  }
  if (result.status != 0 || result.out.find("## tavo complete") == std::string::npos) {
    return "status " + std::to_string(result.status) + "\n" + result.out + result.err;
  }
  if (!setting.instruction_set.empty() &&
      result.err.find(", " + setting.instruction_set + "\n") == std::string::npos) {
    return "it did not take " + setting.instruction_set + ":\n" + result.err;
  }
  if (fs::exists(folder / "checkpoint")) {
    return "the checkpoint was left behind";
  }
  const naive::Run run = run_in(drawn, setting);
  std::string difference =
      report_difference(naive::report(drawn.data, run, reference.orders), folder / "out.csv");
  if (difference.empty()) {
    difference = lists_difference(run, reference.orders, folder);
  }
  if (difference.empty() && drawn.tidy) {
    difference =
        tidy_difference(drawn.data, run, reference.orders, reference.nulls, read_file(folder / "tidy.tsv"));
  }
  if (difference.empty() && drawn.permutations > 0) {
    difference = naive::null_table_difference(reference.nulls, run.min_order,
                                              read_file(folder / "out.csv.permutations.tsv"));
  }
  return difference;
}

}  // namespace tavo_test
