// SPDX-License-Identifier: Apache-2.0
#include "lib/comb.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <vector>

#include "lib/permutation.h"

namespace {

constexpr size_t kMaxKeyLength = 255;

// The cursor value that stands for "before the first combination".
constexpr int kNotStarted = -1;

void first_combination(int k, int* comb) {
  std::iota(comb, comb + k, 0);
}

}  // namespace

int comb_nextstep(const int* k, const int* n, int* comb) {
  for (int i = *k - 1; i >= 0; --i) {
    if (comb[i]++ < i + (*n - *k)) {
      std::iota(comb + i + 1, comb + *k, comb[i] + 1);
      return 0;
    }
  }
  return 1;
}

void combSNP(const int* k, const int* n, const int* maxCount, int* state, int* count, int* out) {
  *count = 0;
  if (*n < *k) {
    return;
  }
  if (state[0] == kNotStarted) {
    first_combination(*k, state);
  } else if (comb_nextstep(k, n, state) != 0) {
    return;
  }
  while (*count < *maxCount) {
    out = std::copy_n(state, *k, out);
    ++*count;
    if (comb_nextstep(k, n, state) != 0) {
      return;
    }
  }
}

int combSNP2(const int* k, const int* n, const int* maxCount, int* state, int* count, int* out) {
  *count = 0;
  if (*n < *k) {
    return 1;
  }
  if (state[0] == kNotStarted) {
    first_combination(*k, state);
  }
  do {
    out = std::copy_n(state, *k, out);
    ++*count;
    if (comb_nextstep(k, n, state) != 0) {
      return 1;
    }
  } while (*count < *maxCount);
  return 0;
}

double comb_estimate(int k, int n) {
  double estimate = n;
  for (int i = 1; i < k; ++i) {
    const int quotient = (n - i) / (i + 1);
    estimate *= quotient;
  }
  return estimate;
}

void sampleCombSNP(const int* k, const int* n, const int* want, int* count, int* out) {
  if (*want > comb_estimate(*k, *n)) {
    std::vector<int> state(static_cast<size_t>(*k), kNotStarted);
    combSNP(k, n, want, state.data(), count, out);
    return;
  }
  // The order left by one draw is the start of the next.
  std::vector<int> index(static_cast<size_t>(*n));
  std::iota(index.begin(), index.end(), 0);
  for (int s = 0; s < *want; ++s) {
    permuteIndex(index.data(), n, k);
    out = std::copy_n(index.data(), *k, out);
  }
  *count = *want;
}

std::string comb_key(const int* comb, int k) {
  std::string key;
  for (int i = 0; i < k && key.size() < kMaxKeyLength; ++i) {
    key += ',' + std::to_string(comb[i]);
  }
  key += ',';
  key.resize(std::min(key.size(), kMaxKeyLength));
  return key;
}

int comb_key_field(const char* key, int field) {
  if (field < 0) {
    return 0;
  }
  const char* comma = std::strchr(key, ',');
  for (int i = 0; i < field && comma != nullptr; ++i) {
    comma = std::strchr(comma + 1, ',');
  }
  if (comma == nullptr) {
    return 0;
  }
  // The conversion stops at the next comma by itself.
  return static_cast<int>(std::clamp<long>(std::strtol(comma + 1, nullptr, 10), INT_MIN, INT_MAX));
}
