// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tests/reference/naive_random.h"
#include "tests/reference/naive_run.h"

namespace naive {

std::vector<int> classes(const GenotypeData& data, const Run& run) {
  std::vector<int> coded;
  for (size_t s = 0; s < data.classes.size(); ++s) {
    const bool is_case = run.scores.empty() ? data.classes[s] == 1 : !(run.scores[s] <= 0.0f);
    coded.push_back(is_case ? 1 : 0);
  }
  return coded;
}

std::vector<bool> complete_samples(const GenotypeData& data) {
  std::vector<bool> complete;
  for (int s = 0; s < data.n_samples; ++s) {
    bool all = true;
    for (int j = 0; j < data.n_snps; ++j) {
      all = all && data.at(s, j) != 3;
    }
    complete.push_back(all);
  }
  return complete;
}

std::vector<std::vector<int>> combinations(int n, int k) {
  std::vector<std::vector<int>> all;
  std::vector<int> comb;
  const auto extend = [&](const auto& self, int first) -> void {
    if (static_cast<int>(comb.size()) == k) {
      all.push_back(comb);
      return;
    }
    for (int i = first; i < n; ++i) {
      comb.push_back(i);
      self(self, i + 1);
      comb.pop_back();
    }
  };
  extend(extend, 0);
  return all;
}

namespace {

void seed_system_generator(unsigned seed) {
  std::srand(seed);
  int c = 0;
  while (true) {
    const int r = std::rand();
    if (!(r % 2147483647 > c)) {
      return;
    }
    c += 1;
    std::rand();
  }
}

// The analysed samples: cases in file order, then controls.
std::vector<int> sample_list(const GenotypeData& data, const Run& run) {
  const std::vector<int> coded = classes(data, run);
  const std::vector<bool> complete = complete_samples(data);
  std::vector<int> list;
  for (const int wanted : {1, 0}) {
    for (int s = 0; s < data.n_samples; ++s) {
      const auto i = static_cast<size_t>(s);
      if (coded[i] == wanted && (run.missing != 2 || complete[i])) {
        list.push_back(s);
      }
    }
  }
  return list;
}

}  // namespace

std::vector<int> deal(const GenotypeData& data, const Run& run) {
  const std::vector<int> coded = classes(data, run);
  const std::vector<int> list = sample_list(data, run);
  std::vector<int> cases;
  std::vector<int> controls;
  for (const int sample : list) {
    std::vector<int>& labels = coded[static_cast<size_t>(sample)] == 1 ? cases : controls;
    labels.push_back(static_cast<int>(labels.size()) % run.folds);
  }
  if (run.shuffling) {
    seed_system_generator(run.seed);
    for (size_t i = 1; i < cases.size(); ++i) {
      std::swap(cases[i], cases[static_cast<size_t>(std::rand()) % (i + 1)]);
    }
    seed_system_generator(run.seed);
    for (size_t i = 2; i < controls.size(); ++i) {
      std::swap(controls[i], controls[1 + static_cast<size_t>(std::rand()) % i]);
    }
  }
  std::vector<int> fold_of(static_cast<size_t>(data.n_samples), -1);
  size_t next = 0;
  for (const std::vector<int>* labels : {&cases, &controls}) {
    for (const int label : *labels) {
      fold_of[static_cast<size_t>(list[next++])] = label;
    }
  }
  return fold_of;
}

namespace {

// Mode 1: the first `size` by value, those above 0 only; the earlier of two equal ones stands first. Filled
// up with empty entries.
std::vector<Entry> best(const std::vector<Entry>& all, size_t measure, size_t size, int order) {
  std::vector<Entry> list(std::min(size, all.size()), Entry{std::vector<int>(static_cast<size_t>(order), 0),
                                                            std::vector<double>(32, 0.0)});
  if (list.empty()) {
    return list;
  }
  for (const Entry& entry : all) {
    const double value = entry.values[measure];
    if (!(value > list.back().values[measure])) {
      continue;
    }
    size_t place = list.size() - 1;
    while (place > 0 && list[place - 1].values[measure] < value) {
      list[place] = list[place - 1];
      --place;
    }
    list[place] = entry;
  }
  return list;
}

// Mode 0: all above the threshold, best first, 10,000 at most.
std::vector<Entry> above(const std::vector<Entry>& all, size_t measure, double threshold) {
  std::vector<Entry> list;
  for (const Entry& entry : all) {
    if (entry.values[measure] > threshold) {
      list.push_back(entry);
    }
  }
  std::stable_sort(list.begin(), list.end(), [measure](const Entry& a, const Entry& b) {
    return a.values[measure] > b.values[measure];
  });
  list.resize(std::min<size_t>(list.size(), 10000));
  return list;
}

struct Merged {
  Entry entry;
  double weight;
  int folds;
};

std::vector<Ranked> rank(const std::vector<std::vector<Entry>>& lists, size_t measure, int top) {
  std::vector<Merged> merged;
  bool first = true;
  for (const std::vector<Entry>& list : lists) {
    if (list.empty()) {
      continue;
    }
    double largest = 0.0;
    for (const Entry& entry : list) {
      if (entry.values[measure] > largest) {
        largest = entry.values[measure];
      }
    }
    for (const Entry& entry : list) {
      const double weight = entry.values[measure] / largest;
      size_t known = 0;
      while (known < merged.size() && (first || merged[known].entry.comb != entry.comb)) {
        ++known;
      }
      if (first || known == merged.size()) {
        merged.push_back({entry, weight, 1});
        continue;
      }
      for (size_t m = 0; m < 32; ++m) {
        merged[known].entry.values[m] += entry.values[m];
      }
      merged[known].weight += weight;
      merged[known].folds += 1;
    }
    first = false;
  }
  std::vector<double> weights;
  for (Merged& one : merged) {
    for (double& value : one.entry.values) {
      value /= one.folds;
    }
    weights.push_back(one.weight);
  }
  std::vector<Ranked> ranked;
  const std::vector<int> order = shell_order(weights);
  for (size_t i = order.size(); i-- > 0 && static_cast<int>(ranked.size()) < top;) {
    const Merged& one = merged[static_cast<size_t>(order[i])];
    ranked.push_back({one.entry.comb, one.weight, one.entry.values, 0.0});
  }
  return ranked;
}

}  // namespace

OrderResult cross_validated(const GenotypeData& data, const Run& run, int order,
                            const std::vector<int>& fold_of, LogFunction log) {
  const std::vector<int> coded = classes(data, run);
  const std::vector<int> list = sample_list(data, run);
  const auto n_cases =
      std::count_if(list.begin(), list.end(), [&](int s) { return coded[static_cast<size_t>(s)] == 1; });
  const float threshold =
      static_cast<float>(n_cases) / static_cast<float>(static_cast<ptrdiff_t>(list.size()) - n_cases);
  const auto measure = static_cast<size_t>(run.measure);
  double null_level = INFINITY;
  std::vector<double> null;
  if (run.mode == 0) {
    null = null_values(data, run, order, process_random());
    null_level = null.empty() ? INFINITY : quantile(null, 0.999);
  }
  OrderResult result;
  result.lists.resize(static_cast<size_t>(run.folds));
  for (int fold = run.first_fold; fold < run.folds; ++fold) {
    std::vector<int> train;
    std::vector<int> test;
    for (const int sample : list) {
      (fold_of[static_cast<size_t>(sample)] == fold ? test : train).push_back(sample);
    }
    std::vector<Entry> all;
    for (const std::vector<int>& comb : combinations(data.n_snps, order)) {
      const std::vector<float> floats = record(data, run, comb, coded, train, test, threshold, log);
      all.push_back({comb, std::vector<double>(floats.begin(), floats.end())});
    }
    result.lists[static_cast<size_t>(fold)] = run.mode == 0
                                                  ? above(all, measure, null_level)
                                                  : best(all, measure, static_cast<size_t>(run.top), order);
  }
  result.ranked = rank(result.lists, measure, run.top);
  if (run.mode == 0 && (run.measure == 0 || run.measure == 2 || run.measure == 3)) {
    for (Ranked& one : result.ranked) {
      one.p = null.empty() ? 0.0 : p_value(null, one.values[measure]);
    }
  }
  return result;
}

}  // namespace naive
