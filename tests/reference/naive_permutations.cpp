// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include "tests/reference/naive_run.h"
#include "tests/support/tsv_table.h"

namespace naive {

std::vector<std::vector<NullBest>> permuted_bests(const GenotypeData& data, const Run& run, int permutations,
                                                  LogFunction log) {
  std::mt19937 random(run.permutation_seed.value_or(std::mt19937::default_seed));
  const std::vector<int> is_case = classes(data, run);
  const std::vector<bool> complete = complete_samples(data);
  std::vector<int> analysed;
  for (int s = 0; s < data.n_samples; ++s) {
    if (run.missing != 2 || complete[static_cast<size_t>(s)]) {
      analysed.push_back(s);
    }
  }
  // Who has the outcome of whom.
  std::vector<int> source = analysed;
  std::vector<std::vector<NullBest>> all;
  for (int r = 0; r < permutations; ++r) {
    for (size_t i = source.size(); i >= 2; --i) {
      std::swap(source[random() % i], source[i - 1]);
    }
    GenotypeData permuted = data;
    Run permuted_run = run;
    for (size_t s = 0; s < is_case.size(); ++s) {
      permuted.classes[s] = static_cast<uint8_t>(is_case[s]);
    }
    for (size_t i = 0; i < analysed.size(); ++i) {
      const auto to = static_cast<size_t>(analysed[i]);
      const auto from = static_cast<size_t>(source[i]);
      permuted.classes[to] = static_cast<uint8_t>(is_case[from]);
      if (!run.scores.empty()) {
        permuted_run.scores[to] = run.scores[from];
      }
    }
    const std::vector<int> fold_of = deal(permuted, permuted_run);
    std::vector<NullBest>& orders = all.emplace_back();
    for (int order = run.min_order; order <= run.max_order; ++order) {
      NullBest best{std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::quiet_NaN()};
      for (const Ranked& ranked : cross_validated(permuted, permuted_run, order, fold_of, log).ranked) {
        const bool ascending = std::adjacent_find(ranked.comb.begin(), ranked.comb.end(),
                                                  std::greater_equal<>()) == ranked.comb.end();
        const bool zero =
            std::all_of(ranked.values.begin(), ranked.values.end(), [](double x) { return x == 0.0; });
        if (!ascending || zero) {
          continue;
        }
        const double testing = ranked.values[16 + static_cast<size_t>(run.measure)];
        best.testing = std::isnan(best.testing) ? testing : std::fmax(best.testing, testing);
        best.consistency =
            std::isnan(best.consistency) ? ranked.weight : std::fmax(best.consistency, ranked.weight);
      }
      orders.push_back(best);
    }
  }
  return all;
}

double permutation_p(const std::vector<std::vector<NullBest>>& nulls, std::optional<size_t> order,
                     double NullBest::*statistic, double observed) {
  if (std::isnan(observed)) {
    return observed;
  }
  int reached = 0;
  for (const std::vector<NullBest>& orders : nulls) {
    bool any = false;
    for (size_t i = 0; i < orders.size(); ++i) {
      const double value = orders[i].*statistic;
      // Equal but for rounding counts.
      const bool equal = std::fabs(value - observed) <= 1e-6 * std::fabs(observed);
      any = any || (order.value_or(i) == i && (value >= observed || equal));
    }
    reached += any ? 1 : 0;
  }
  return (1.0 + reached) / (1.0 + static_cast<double>(nulls.size()));
}

std::string null_table_difference(const std::vector<std::vector<NullBest>>& nulls, int first_order,
                                  const std::string& text) {
  const tavo_test::TsvTable table = tavo_test::parse_tsv(text);
  if (table.columns != std::vector<std::string>{"permutation", "order", "testing", "consistency"}) {
    return "the columns are not those of null values";
  }
  size_t line = 0;
  for (size_t r = 0; r < nulls.size(); ++r) {
    for (size_t i = 0; i < nulls[r].size(); ++i, ++line) {
      if (line >= table.rows.size()) {
        return "there are only " + std::to_string(line) + " null values";
      }
      const NullBest& best = nulls[r][i];
      const tavo_test::TsvRow& row = table.rows[line];
      if (row.at("permutation") != std::to_string(r + 1) ||
          row.at("order") != std::to_string(first_order + static_cast<int>(i)) ||
          !tavo_test::shows(row.at("testing"), best.testing) ||
          !tavo_test::shows(row.at("consistency"), best.consistency)) {
        return "null values " + std::to_string(line + 1) + ": found " + row.at("testing") + " and " +
               row.at("consistency") + " of permutation " + row.at("permutation") + ", order " +
               row.at("order") + ", expected " + std::to_string(best.testing) + " and " +
               std::to_string(best.consistency) + " of permutation " + std::to_string(r + 1);
      }
    }
  }
  return line == table.rows.size() ? "" : "there are more null values than " + std::to_string(line);
}

}  // namespace naive
