// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "tests/reference/naive_random.h"
#include "tests/reference/naive_run.h"

namespace naive {

namespace {

Random run_random;

// NaN, of combinations without a sample, is below every number.
bool is_below(double a, double b) {
  return std::isnan(a) ? !std::isnan(b) : a < b;
}

}  // namespace

Random& process_random() {
  return run_random;
}

void restart_random() {
  run_random = Random();
}

std::vector<int> shell_order(const std::vector<double>& values) {
  constexpr size_t kGaps[] = {1073790977, 268460033, 67121153, 16783361, 4197377, 1050113, 262913, 65921,
                              16577,      4193,      1073,     281,      77,      23,      8,      1};
  std::vector<int> order(values.size());
  std::iota(order.begin(), order.end(), 0);
  size_t g = 0;
  if (values.size() < kGaps[0]) {
    for (g = 1; g < 16 && kGaps[g] > values.size(); ++g) {
    }
  }
  for (; g < 16; ++g) {
    for (size_t i = kGaps[g]; i < order.size(); ++i) {
      for (size_t j = i; j >= kGaps[g]; j -= kGaps[g]) {
        int& upper = order[j - kGaps[g]];
        if (!(values[static_cast<size_t>(upper)] > values[static_cast<size_t>(order[j])])) {
          break;
        }
        std::swap(upper, order[j]);
      }
    }
  }
  return order;
}

double quantile(std::vector<double> values, double level) {
  std::sort(values.begin(), values.end(), is_below);
  const double h = level * static_cast<double>(values.size() - 1);
  const double f = h - std::floor(h);
  return (1.0 - f) * values[static_cast<size_t>(std::floor(h))] +
         f * values[static_cast<size_t>(std::ceil(h))];
}

double p_value(const std::vector<double>& null, double x) {
  // A value that is not above the smallest null value is left at 0.
  double smallest = std::numeric_limits<double>::quiet_NaN();
  for (const double y : null) {
    smallest = std::fmin(smallest, y);
  }
  if (!(x > smallest)) {
    return 0.0;
  }
  const auto count = std::count_if(null.begin(), null.end(), [x](double y) { return y >= x; });
  return static_cast<double>(count) / static_cast<double>(null.size());
}

namespace {

// Balanced accuracy, accuracy and chi-square of one combination over all samples, in double precision.
std::vector<double> score(const GenotypeData& data, const Run& run, const std::vector<int>& comb,
                          const std::vector<int>& coded, int all_cases, int all_controls) {
  const int base = run.missing == 1 ? 4 : 3;
  size_t cells = 1;
  for (size_t j = 0; j < comb.size(); ++j) {
    cells *= static_cast<size_t>(base);
  }
  std::vector<int> controls(cells, 0);
  std::vector<int> cases(cells, 0);
  int n = data.n_samples;
  int n_cases = all_cases;
  int n_controls = all_controls;
  if (run.missing == 3) {
    n_cases = n_controls = 0;
  }
  for (int s = 0; s < data.n_samples; ++s) {
    size_t cell = 0;
    size_t weight = 1;
    bool complete = true;
    for (const int snp : comb) {
      cell += weight * data.at(s, snp);
      complete = complete && data.at(s, snp) != 3;
      weight *= static_cast<size_t>(base);
    }
    if (run.missing == 3 && !complete) {
      continue;
    }
    const bool is_case = coded[static_cast<size_t>(s)] == 1;
    if (run.missing == 3) {
      (is_case ? n_cases : n_controls) += 1;
    }
    if (cell < cells) {
      (is_case ? cases : controls)[cell] += 1;
    }
  }
  if (run.missing == 3) {
    n = n_cases + n_controls;
  }
  const double threshold = static_cast<double>(n_cases) / n_controls;
  double tp = 0, fp = 0, tn = 0, fn = 0, chi = 0.0;
  for (size_t m = 0; m < cells; ++m) {
    const double c0 = controls[m];
    const double c1 = cases[m];
    const double ratio = controls[m] == 0 ? threshold : c1 / c0;
    const int risk = ratio > threshold ? 1 : ratio < threshold ? 2 : run.tie == 0 ? 1 : run.tie == 1 ? 2 : 0;
    if (risk == 1) {
      tp += c1;
      fp += c0;
    } else if (risk == 2) {
      tn += c0;
      fn += c1;
    }
    const double e1 = n_cases * (c0 + c1) / n;
    const double e0 = n_controls * (c0 + c1) / n;
    if (e1 != 0.0 && e0 != 0.0) {
      chi += (e1 - c1) * (e1 - c1) / e1 + (e0 - c0) * (e0 - c0) / e0;
    }
  }
  std::vector<double> values(16, 0.0);
  values[0] = tp + fn == 0 || tn + fp == 0 ? 0.5 : (tp / (tp + fn) + tn / (tn + fp)) * 0.5;
  values[1] = (tp + tn) / n;
  values[2] = chi;
  return values;
}

// The class totals that hold for every combination: of complete samples only, where incomplete ones are left
// out.
std::pair<int, int> class_totals(const GenotypeData& data, const Run& run, const std::vector<int>& coded) {
  const std::vector<bool> complete = complete_samples(data);
  int n_cases = 0;
  int n_controls = 0;
  for (size_t s = 0; s < coded.size(); ++s) {
    if (run.missing != 2 || complete[s]) {
      (coded[s] == 1 ? n_cases : n_controls) += 1;
    }
  }
  return {n_cases, n_controls};
}

}  // namespace

std::vector<double> null_values(const GenotypeData& data, const Run& run, int order, Random& random) {
  const int n = data.n_snps;
  if (n < order) {
    return {};
  }
  double estimate = n;
  for (int i = 1; i < order; ++i) {
    estimate *= (n - i) / (i + 1);
  }
  std::vector<std::vector<int>> sampled;
  if (100 > estimate) {
    sampled = combinations(n, order);
    sampled.resize(std::min<size_t>(sampled.size(), 100));
  } else {
    std::vector<int> index(static_cast<size_t>(n));
    std::iota(index.begin(), index.end(), 0);
    for (int s = 0; s < 100; ++s) {
      for (int i = 0; i < order; ++i) {
        std::swap(index[static_cast<size_t>(i)], index[random.below(static_cast<size_t>(n - i))]);
      }
      sampled.emplace_back(index.begin(), index.begin() + order);
    }
  }
  std::vector<int> coded = classes(data, run);
  const auto [n_cases, n_controls] = class_totals(data, run, coded);
  std::vector<double> null;
  for (const std::vector<int>& comb : sampled) {
    for (int repetition = 0; repetition < 100; ++repetition) {
      for (size_t i = coded.size(); i >= 2; --i) {
        std::swap(coded[random.below(i)], coded[i - 1]);
      }
      null.push_back(score(data, run, comb, coded, n_cases, n_controls)[static_cast<size_t>(run.measure)]);
    }
  }
  return null;
}

OrderResult exhaustive(const GenotypeData& data, const Run& run, int order) {
  const std::vector<int> coded = classes(data, run);
  const auto [n_cases, n_controls] = class_totals(data, run, coded);
  const auto measure = static_cast<size_t>(run.measure);
  std::vector<double> null;
  if (run.mode == 2) {
    null = null_values(data, run, order, process_random());
  }
  std::vector<Entry> all;
  std::vector<double> values;
  for (const std::vector<int>& comb : combinations(data.n_snps, order)) {
    all.push_back({comb, score(data, run, comb, coded, n_cases, n_controls)});
    values.push_back(all.back().values[measure]);
  }
  OrderResult result;
  result.lists.resize(1);
  std::vector<Entry>& kept = result.lists.front();
  if (run.mode == 2) {
    const double threshold = null.empty() ? INFINITY : quantile(null, 0.999);
    for (const Entry& entry : all) {
      if (entry.values[measure] > threshold && kept.size() < 10000) {
        kept.push_back(entry);
      }
    }
  } else {
    const std::vector<int> ascending = shell_order(values);
    for (size_t i = ascending.size(); i-- > 0 && static_cast<int>(kept.size()) < run.top;) {
      kept.push_back(all[static_cast<size_t>(ascending[i])]);
    }
  }
  double largest = 0.0;
  values.clear();
  for (const Entry& entry : kept) {
    values.push_back(entry.values[measure]);
    largest = values.back() > largest ? values.back() : largest;
  }
  const std::vector<int> ascending = shell_order(values);
  for (size_t i = ascending.size(); i-- > 0 && static_cast<int>(result.ranked.size()) < run.top;) {
    const Entry& entry = kept[static_cast<size_t>(ascending[i])];
    Ranked one{entry.comb, entry.values[measure] / largest, entry.values, 0.0};
    if (run.mode == 2 && (run.measure == 0 || run.measure == 2 || run.measure == 3)) {
      one.p = p_value(null, entry.values[measure]);
    }
    result.ranked.push_back(one);
  }
  return result;
}

}  // namespace naive
