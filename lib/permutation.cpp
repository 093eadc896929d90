// SPDX-License-Identifier: Apache-2.0
#include "lib/permutation.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <utility>
#include <vector>

#include "lib/mdr.h"
#include "lib/rng.h"
#include "util/stop_signal.h"

namespace {

constexpr int kRecordLength = 16;

// A position below m. The remainder favours small ones by less than m / 2^32; results depend on it, so it
// stays.
size_t draw_below(size_t m) {
  return int32_rand() % m;
}

// Ascending, NaN below every number: a record that could not be measured never counts as a large one.
void sort_ascending(double* values, int n) {
  double* first_number = std::partition(values, values + n, [](double x) { return std::isnan(x); });
  std::sort(first_number, values + n);
}

// Null values from the end of the ascending null that are at least x.
int count_at_least(const double* null, int n, double x) {
  if (std::isnan(x)) {
    return 0;
  }
  const double* first_number = std::partition_point(null, null + n, [](double y) { return std::isnan(y); });
  return static_cast<int>(null + n - std::lower_bound(first_number, null + n, x));
}

}  // namespace

int randomize() {
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  const int draws = std::rand() % 2147483647;
  for (int i = 0; i < draws; ++i) {
    std::rand();
  }
  return draws;
}

void permuteValues(uint8_t* values, const int* n) {
  permute(std::span(values, static_cast<size_t>(std::max(*n, 0))));
}

void permuteValuesByIndex(uint8_t* values, const int* index, const int* n) {
  for (int i = *n; i >= 2; --i) {
    std::swap(values[index[draw_below(static_cast<size_t>(i))]], values[index[i - 1]]);
  }
}

void permuteIndex(int* index, const int* n, const int* k) {
  if (*k < 1 || *k > *n) {
    return;
  }
  for (int i = 0; i < *k; ++i) {
    std::swap(index[i], index[draw_below(static_cast<size_t>(*n - i))]);
  }
}

void generateNull(const int* combs, const int* k, const int* nCombs, const uint32_t* genotypes, const int* W,
                  const uint8_t* response, const int* nSamples, const int* sampleList, const int* N,
                  const int* nCases, const int* nControls, const double* threshold, const int* tie,
                  const int* missing, const int* nPerm, int* outCount, double* outMeasures) {
  std::vector<uint8_t> shuffled(response, response + *nSamples);
  CombinationScorer scorer(*k, *missing);
  *outCount = 0;
  for (int c = 0; c < *nCombs && stop_signal() == 0; ++c, combs += *k) {
    for (int repetition = 0; repetition < *nPerm; ++repetition, outMeasures += kRecordLength) {
      permuteValues(shuffled.data(), nSamples);
      std::fill_n(outMeasures, kRecordLength, 0.0);
      scorer.score(combs, W, genotypes, shuffled.data(), sampleList, N, nCases, nControls, threshold, tie,
                   outMeasures);
      ++*outCount;
    }
  }
}

double pvalue(double* null, const int* n, double x, const int* sorted) {
  if (*sorted == 0) {
    sort_ascending(null, *n);
  }
  const int count = count_at_least(null, *n, x);
  return count == 0 ? 0.0 : static_cast<double>(count) / *n;
}

void pvalueVector(double* null, const int* n, const double* values, const int* nValues, const int* sorted,
                  double* out) {
  if (*sorted == 0) {
    sort_ascending(null, *n);
  }
  const double* first_number = std::partition_point(null, null + *n, [](double y) { return std::isnan(y); });
  if (first_number == null + *n) {
    return;
  }
  for (int i = 0; i < *nValues; ++i) {
    if (values[i] > *first_number) {
      out[i] = static_cast<double>(count_at_least(null, *n, values[i])) / *n;
    }
  }
}

double quantile(double* values, const int* n, const double* p) {
  sort_ascending(values, *n);
  const double h = *p * (*n - 1);
  const double low = std::floor(h);
  const double share = h - low;
  return (1.0 - share) * values[static_cast<size_t>(low)] + share * values[static_cast<size_t>(std::ceil(h))];
}
