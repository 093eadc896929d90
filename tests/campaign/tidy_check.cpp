// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/tidy_check.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>

#include "tests/support/tsv_table.h"

namespace tavo_test {

namespace {

constexpr const char* kColumns[] = {"ba",    "accuracy",  "homogeneity", "gamma", "tau_b",
                                    "tau_c", "somers_d1", "somers_d2",   "nmi",   "lr"};

// A row that the table must have. Numbers are compared as such; an empty cell is not looked at.
struct Expected {
  TsvRow texts;
  std::map<std::string, double> doubles;
  std::map<std::string, double> floats;
};

std::string row_difference(const Expected& expected, const TsvRow& row) {
  for (const auto& [name, text] : expected.texts) {
    if (row.at(name) != text) {
      return name + " is " + row.at(name) + ", expected " + text;
    }
  }
  for (const bool single : {false, true}) {
    for (const auto& [name, value] : single ? expected.floats : expected.doubles) {
      if (!shows(row.at(name), value, single)) {
        return name + " is " + row.at(name) + ", expected " + std::to_string(value);
      }
    }
  }
  return "";
}

std::string positions(const std::vector<int>& comb) {
  std::string text;
  for (const int snp : comb) {
    text += (text.empty() ? "" : ":") + std::to_string(snp + 1);
  }
  return text;
}

// Entries that no combination filled hold the first SNP throughout and zeros.
bool is_filled(const std::vector<int>& comb, const std::vector<double>& values) {
  return std::adjacent_find(comb.begin(), comb.end(), std::greater_equal<>()) == comb.end() &&
         std::any_of(values.begin(), values.end(), [](double value) { return value != 0.0; });
}

class Checker {
 public:
  Checker(const naive::GenotypeData& data, const naive::Run& run,
          const std::vector<std::vector<naive::NullBest>>& nulls, const TsvTable& table)
      : data_(data), run_(run), nulls_(nulls), table_(table) {}

  std::string order_difference(int order, const naive::OrderResult& result) {
    std::vector<Expected> combinations;
    for (size_t r = 0; r < result.ranked.size(); ++r) {
      const naive::Ranked& one = result.ranked[r];
      std::vector<double> shown = one.values;
      shown[1] = 0.0;  // accuracy is not kept of ranked combinations
      if (shown.size() > 16) {
        shown[17] = 0.0;
      }
      if (is_filled(one.comb, shown)) {
        combinations.push_back(combination(order, r, one, result));
      }
    }
    std::string difference = rows_difference("combination", order, combinations);
    std::vector<Expected> entries;
    for (size_t f = 0; f < result.lists.size(); ++f) {
      for (size_t r = 0; r < result.lists[f].size(); ++r) {
        if (is_filled(result.lists[f][r].comb, result.lists[f][r].values)) {
          entries.push_back(listed(order, f, r, result.lists[f][r]));
        }
      }
    }
    if (difference.empty()) {
      difference = rows_difference(run_.mode < 2 ? "fold" : "kept", order, entries);
    }
    return difference.empty() ? cells_difference(order) : difference;
  }

 private:
  bool scored() const { return !run_.scores.empty() && run_.mode < 2; }

  Expected combination(int order, size_t r, const naive::Ranked& one,
                       const naive::OrderResult& result) const {
    Expected row;
    row.texts = {{"order", std::to_string(order)},
                 {"rank", std::to_string(r + 1)},
                 {"combination", positions(one.comb)}};
    for (size_t j = 0; j < one.comb.size(); ++j) {
      row.texts["snp" + std::to_string(j + 1)] = data_.names[static_cast<size_t>(one.comb[j])];
      row.texts["position" + std::to_string(j + 1)] = std::to_string(one.comb[j] + 1);
    }
    row.doubles["weighted_consistency"] = one.weight;
    int listed = 0;
    int first = 0;
    for (const std::vector<naive::Entry>& list : result.lists) {
      const auto place = std::find_if(list.begin(), list.end(), [&](const naive::Entry& entry) {
        return entry.comb == one.comb && is_filled(entry.comb, entry.values);
      });
      listed += place != list.end() ? 1 : 0;
      first += place != list.end() && place == list.begin() ? 1 : 0;
    }
    if (run_.mode < 2) {
      row.texts["folds_listed"] = std::to_string(listed);
      row.texts["folds_first"] = std::to_string(first);
    }
    add_measures(one.values, false, &row.doubles);
    // A ranking by accuracy has its testing value at least.
    if (run_.mode < 2 && !scored() && run_.measure == 1) {
      row.doubles["test_accuracy"] = one.values[17];
    }
    if (!nulls_.empty()) {
      add_p_values(static_cast<size_t>(order - run_.min_order), one, &row.doubles);
    }
    return row;
  }

  void add_p_values(size_t order, const naive::Ranked& one, std::map<std::string, double>* row) const {
    const double testing = one.values[16 + static_cast<size_t>(run_.measure)];
    (*row)["p_testing"] = naive::permutation_p(nulls_, order, &naive::NullBest::testing, testing);
    (*row)["p_testing_all_orders"] =
        naive::permutation_p(nulls_, std::nullopt, &naive::NullBest::testing, testing);
    (*row)["p_consistency"] = naive::permutation_p(nulls_, order, &naive::NullBest::consistency, one.weight);
    (*row)["p_consistency_all_orders"] =
        naive::permutation_p(nulls_, std::nullopt, &naive::NullBest::consistency, one.weight);
  }

  Expected listed(int order, size_t fold, size_t r, const naive::Entry& entry) const {
    Expected row;
    row.texts = {{"order", std::to_string(order)}, {"combination", positions(entry.comb)}};
    if (run_.mode != 2) {
      row.texts["rank"] = std::to_string(r + 1);
    }
    if (run_.mode < 2) {
      row.texts["fold"] = std::to_string(fold + 1);
    }
    add_measures(entry.values, true, run_.mode < 2 ? &row.floats : &row.doubles);
    return row;
  }

  void add_measures(const std::vector<double>& values, bool accuracy,
                    std::map<std::string, double>* row) const {
    for (size_t m = 0; m < 10; ++m) {
      const bool known = scored() ? m == 0 : run_.mode >= 2 ? m <= 2 : true;
      const double none = std::nan("");
      const bool there = known && (accuracy || m != 1);
      (*row)[std::string("train_") + kColumns[m]] = there ? values[m] : none;
      (*row)[std::string("test_") + kColumns[m]] = there && run_.mode < 2 ? values[16 + m] : none;
    }
  }

  std::string rows_difference(const std::string& kind, int order,
                              const std::vector<Expected>& expected) const {
    std::vector<TsvRow> rows;
    for (const TsvRow& row : table_.rows) {
      if (row.at("row") == kind && row.at("order") == std::to_string(order)) {
        rows.push_back(row);
      }
    }
    if (rows.size() != expected.size()) {
      return "tidy.tsv: " + std::to_string(rows.size()) + " rows `" + kind + "` of order " +
             std::to_string(order) + ", expected " + std::to_string(expected.size());
    }
    for (size_t i = 0; i < rows.size(); ++i) {
      const std::string difference = row_difference(expected[i], rows[i]);
      if (!difference.empty()) {
        return "tidy.tsv: row " + std::to_string(i + 1) + " of `" + kind + "`, order " +
               std::to_string(order) + ": " + difference;
      }
    }
    return "";
  }

  // Every multi-locus genotype of the listed combinations has its samples.
  std::string cells_difference(int order) const {
    const std::vector<int> coded = naive::classes(data_, run_);
    const std::vector<bool> complete = naive::complete_samples(data_);
    if (run_.mode >= 2 && (run_.missing == 0 || run_.missing == 2) &&
        !std::all_of(complete.begin(), complete.end(), [](bool is) { return is; })) {
      return "";  // missing genotypes are counted in other cells there
    }
    for (const TsvRow& row : table_.rows) {
      if (row.at("row") != "cell" || row.at("order") != std::to_string(order)) {
        continue;
      }
      int cases = 0;
      int controls = 0;
      for (int s = 0; s < data_.n_samples; ++s) {
        bool within = run_.missing != 2 || complete[static_cast<size_t>(s)];
        for (int j = 1; j <= order; ++j) {
          const int snp = std::atoi(row.at("position" + std::to_string(j)).c_str()) - 1;
          const std::string genotype = row.at("genotype" + std::to_string(j));
          within = within && data_.at(s, snp) == (genotype == "missing" ? 3 : std::atoi(genotype.c_str()));
        }
        (coded[static_cast<size_t>(s)] == 1 ? cases : controls) += within ? 1 : 0;
      }
      if (row.at("cases") != std::to_string(cases) || row.at("controls") != std::to_string(controls) ||
          row.at("n") != std::to_string(cases + controls) || cases + controls == 0) {
        return "tidy.tsv: a cell of " + row.at("combination") + " has " + row.at("cases") + " cases and " +
               row.at("controls") + " controls, expected " + std::to_string(cases) + " and " +
               std::to_string(controls);
      }
    }
    return "";
  }

  const naive::GenotypeData& data_;
  const naive::Run& run_;
  const std::vector<std::vector<naive::NullBest>>& nulls_;
  const TsvTable& table_;
};

}  // namespace

std::string tidy_difference(const naive::GenotypeData& data, const naive::Run& run,
                            const std::vector<naive::OrderResult>& reference,
                            const std::vector<std::vector<naive::NullBest>>& nulls, const std::string& text) {
  const TsvTable table = parse_tsv(text);
  Checker checker(data, run, nulls, table);
  int order = run.min_order;
  for (const naive::OrderResult& result : reference) {
    const std::string difference = checker.order_difference(order++, result);
    if (!difference.empty()) {
      return difference;
    }
  }
  return "";
}

}  // namespace tavo_test
