// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <map>

#include "tests/reference/naive_run.h"

namespace naive {

namespace {

struct Counts {
  int controls = 0;
  int cases = 0;
};

struct Table {
  std::vector<Counts> cells;
  int cases = 0;
  int controls = 0;
};

int power(int base, int exponent) {
  return exponent == 0 ? 1 : base * power(base, exponent - 1);
}

// The cell of a sample, or nothing when it has a missing genotype.
std::optional<int> cell_of(const GenotypeData& data, int sample, const std::vector<int>& comb, int base) {
  int cell = 0;
  for (size_t j = comb.size(); j-- > 0;) {
    const int genotype = data.at(sample, comb[j]);
    if (genotype == 3) {
      return std::nullopt;
    }
    cell = cell * base + genotype;
  }
  return cell;
}

// Orders 2 and 3 have room for 9 and 27 cells, whatever the base.
int room(const std::vector<int>& comb, int base) {
  const int k = static_cast<int>(comb.size());
  return k == 2 ? 9 : k == 3 ? 27 : power(base, k);
}

Table count(const GenotypeData& data, const std::vector<int>& comb, const std::vector<int>& classes,
            const std::vector<int>& samples, int base, bool transposed) {
  Table table;
  table.cells.resize(static_cast<size_t>(power(base, static_cast<int>(comb.size()))));
  if (transposed) {
    return table;
  }
  for (const int sample : samples) {
    const std::optional<int> cell = cell_of(data, sample, comb, base);
    if (!cell) {
      continue;
    }
    const bool is_case = classes[static_cast<size_t>(sample)] == 1;
    (is_case ? table.cases : table.controls) += 1;
    if (*cell < room(comb, base)) {
      Counts& counts = table.cells[static_cast<size_t>(*cell)];
      (is_case ? counts.cases : counts.controls) += 1;
    }
  }
  return table;
}

struct Square {
  int tp = 0, fp = 0, fn = 0, tn = 0;
};

// 32-bit arithmetic that wraps around.
int wrapped(unsigned value) {
  return static_cast<int>(value);
}
unsigned product(int x, int y) {
  return static_cast<unsigned>(x) * static_cast<unsigned>(y);
}

float half(int n) {
  return n == 0 ? 0.5f : static_cast<float>(n);
}

float balanced(const Square& s) {
  const float sensitivity = static_cast<float>(s.tp) / static_cast<float>(s.tp + s.fn);
  const float specificity = static_cast<float>(s.tn) / static_cast<float>(s.tn + s.fp);
  return 0.5f * (sensitivity + specificity);
}

float chi_square(const Table& table, int n) {
  float chi = 0.0f;
  for (const Counts& cell : table.cells) {
    const auto total = static_cast<float>(cell.controls + cell.cases);
    const float e0 = static_cast<float>(table.controls) * total / static_cast<float>(n);
    const float e1 = static_cast<float>(table.cases) * total / static_cast<float>(n);
    if (e0 != 0.0f && e1 != 0.0f) {
      const float x0 = e0 - static_cast<float>(cell.controls);
      const float x1 = e1 - static_cast<float>(cell.cases);
      chi = chi + (x0 * x0 / e0 + x1 * x1 / e1);
    }
  }
  return chi;
}

// Measures 3 to 8 of one set.
void association(const Square& s, int n, LogFunction log, float* out) {
  const float a = half(s.tp);
  const float b = half(s.fp);
  const float c = half(s.fn);
  const float d = half(s.tn);
  out[3] = (a * d - b * c) / (a * d + b * c);
  const auto difference = static_cast<float>(wrapped(product(s.tp, s.tn) - product(s.fp, s.fn)));
  const int r =
      wrapped(product(s.tp, s.fp) + product(s.tp, s.tn) + product(s.fn, s.fp) + product(s.fn, s.tn));
  const int p =
      wrapped(product(s.tp, s.fn) + product(s.tp, s.tn) + product(s.fp, s.fn) + product(s.fp, s.tn));
  out[4] = r != 0 && p != 0 ? difference / std::sqrt(static_cast<float>(r) * static_cast<float>(p)) : 0.0f;
  out[5] = 4.0f * difference / static_cast<float>(wrapped(product(n, n)));
  out[6] = r != 0 ? difference / static_cast<float>(r) : 0.0f;
  out[7] = p != 0 ? difference / static_cast<float>(p) : 0.0f;
  const auto xlogx = [log](float x) { return x * log(x); };
  const float inner = ((xlogx(a) + xlogx(b)) + xlogx(c)) + xlogx(d);
  const float conditional = (xlogx(a + b) + xlogx(c + d)) - inner;
  const float entropy = (xlogx((a + b) + (c + d)) - xlogx(a + c)) - xlogx(b + d);
  out[8] = 1.0f - conditional / entropy;
}

std::optional<float> likelihood_ratio(const Square& s, float q, LogFunction log) {
  const float a = half(s.tp);
  const float b = half(s.fp);
  const float c = half(s.fn);
  const float d = half(s.tn);
  const float ea = (a + c) * q;
  const float eb = (b + d) * q;
  const float ec = (a + c) - ea;
  const float ed = (b + d) - eb;
  if (ea == 0.0f || eb == 0.0f || ec == 0.0f || ed == 0.0f) {
    return std::nullopt;
  }
  return 2.0f * (((a * log(a / ea) + b * log(b / eb)) + c * log(c / ec)) + d * log(d / ed));
}

// 1 high risk, 2 low risk, 0 neither.
int label(float value, float threshold, int tie) {
  if (value > threshold) {
    return 1;
  }
  if (value < threshold) {
    return 2;
  }
  return tie == 0 ? 1 : tie == 1 ? 2 : 0;
}

void classify(Square& square, const Counts& counts, int risk) {
  if (risk == 1) {
    square.tp += counts.cases;
    square.fp += counts.controls;
  } else if (risk == 2) {
    square.tn += counts.controls;
    square.fn += counts.cases;
  }
}

}  // namespace

std::vector<float> record(const GenotypeData& data, const Run& run, const std::vector<int>& comb,
                          const std::vector<int>& classes, const std::vector<int>& train,
                          const std::vector<int>& test, float run_threshold, LogFunction log) {
  const int base = run.missing == 1 ? 4 : 3;
  const Table training = count(data, comb, classes, train, base, run.transposed);
  const Table testing = count(data, comb, classes, test, base, run.transposed);
  int n_train = static_cast<int>(train.size());
  int n_test = static_cast<int>(test.size());
  float threshold = run_threshold;
  if (run.missing == 3) {
    n_train = training.cases + training.controls;
    n_test = testing.cases + testing.controls;
    threshold = static_cast<float>(training.cases) / static_cast<float>(training.controls);
  }

  // Sums of the training samples' scores per cell, controls' and cases' apart, from the end of the list.
  std::map<int, std::pair<float, float>> sums;
  if (!run.scores.empty()) {
    for (size_t i = train.size(); i-- > 0;) {
      const std::optional<int> cell = cell_of(data, train[i], comb, base);
      if (cell) {
        const auto sample = static_cast<size_t>(train[i]);
        float& sum = classes[sample] == 1 ? sums[*cell].second : sums[*cell].first;
        sum += run.scores[sample];
      }
    }
  }

  Square on_training;
  Square on_testing;
  for (size_t m = 0; m < training.cells.size(); ++m) {
    const Counts& counts = training.cells[m];
    int risk = 0;
    if (counts.controls == 0) {
      risk = label(0.0f, 0.0f, run.tie);
    } else if (run.scores.empty()) {
      risk =
          label(static_cast<float>(counts.cases) / static_cast<float>(counts.controls), threshold, run.tie);
    } else {
      const auto& [controls, cases] = sums[static_cast<int>(m)];
      risk = label(controls + cases, 0.0f, run.tie);
    }
    classify(on_training, counts, risk);
    classify(on_testing, testing.cells[m], risk);
  }

  std::vector<float> out(32, 0.0f);
  out[0] = balanced(on_training);
  if (!run.scores.empty()) {
    out[16] = balanced(on_testing);
    return out;
  }
  out[16] =
      on_testing.tp + on_testing.fn == 0 || on_testing.tn + on_testing.fp == 0 ? 0.5f : balanced(on_testing);
  out[1] = static_cast<float>(on_training.tp + on_training.tn) / static_cast<float>(n_train);
  out[17] = static_cast<float>(on_testing.tp + on_testing.tn) / static_cast<float>(n_test);
  out[2] = chi_square(training, n_train);
  out[18] = chi_square(testing, n_test);
  association(on_training, n_train, log, &out[0]);
  association(on_testing, n_test, log, &out[16]);
  const float q = (half(on_training.tp) + half(on_training.fp)) / static_cast<float>(n_train);
  if (const std::optional<float> lr = likelihood_ratio(on_training, q, log)) {
    out[9] = *lr;
    out[25] = likelihood_ratio(on_testing, q, log).value_or(0.0f);
  }
  return out;
}

}  // namespace naive
