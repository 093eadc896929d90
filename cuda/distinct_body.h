// SPDX-License-Identifier: Apache-2.0
//
// A logistic fit of a pair by a whole block of threads: for few pairs of many samples, where a thread per
// pair leaves most of a GPU idle. Thread (x, y) has design column x of the sample in row y of a tile of 32
// samples.
//
// The fit is a sequence of phases; in each, every thread of the team runs the same function, and no thread
// begins the next before all are done. A phase writes only what no other thread of it reads. So a team can be
// a block with barriers or a loop over the threads in any order.
//
// Sums run over the rows of a tile, then over the tiles with compensation: the results are those of
// fit_logistic within the rounding of its sums.
#pragma once

#include "cuda/logistic_body.h"

constexpr int kDistinctColumns = 16;
constexpr int kDistinctRows = 32;
constexpr int kDistinctThreads = kDistinctColumns * kDistinctRows;
static_assert(kDistinctColumns == kFitStride);

// A thread's own sum over the tiles.
template <typename T>
struct DistinctSum {
  T total;
  T lost;

  TAVO_HOST_DEVICE_MEMBER void clear() { total = lost = T(0); }
  TAVO_HOST_DEVICE_MEMBER void add(T tile) { add_compensated(tile, &total, &lost); }
  TAVO_HOST_DEVICE_MEMBER T value() const { return total + lost; }
};

// What the threads of a team share.
template <typename T>
struct DistinctShared {
  T tile[kDistinctRows][kDistinctColumns + 1];  // design rows; the odd length spreads rows over the banks
  T mu[kDistinctRows];
  T residual[kDistinctRows];    // 0 in rows beyond the last sample
  T partial[kDistinctThreads];  // the threads' sums
  T information[kFitStride * kFitStride];
  T covariance[kFitStride * kFitStride];
  T coefficients[kFitStride];
  T last_step;
  int iterations;
  int rank;
  FitState state;
  bool converged;
  bool go_on;
};

// The steps of one fit. Functions named phase_... are a thread's part of a phase.
template <typename T>
struct DistinctFit {
  const LogisticArguments<T>& arguments;
  const int* item;
  DistinctShared<T>& shared;
  int columns;
  bool no_pass;

  TAVO_HOST_DEVICE_MEMBER DistinctFit(const LogisticArguments<T>& arguments_, uint32_t pair,
                                      DistinctShared<T>& shared_)
      : arguments(arguments_),
        item(arguments_.items + (size_t)pair * 2),
        shared(shared_),
        columns(genotype_columns(2) + arguments_.samples.n_covariates),
        no_pass(arguments_.iterations <= 0) {}

  TAVO_HOST_DEVICE_MEMBER void phase_begin(int thread) {
    if (thread < kFitStride) {
      shared.coefficients[thread] = T(0);
    }
    if (thread == 0) {
      shared.last_step = T(0);
      shared.iterations = 0;
      shared.rank = 0;
      shared.state = FitState::kFitted;
      shared.converged = false;
      shared.go_on = true;
    }
  }

  // Column x of sample first + y.
  TAVO_HOST_DEVICE_MEMBER void phase_tile(int first, int x, int y) {
    const FitSamples<T>& in = arguments.samples;
    T value = T(0);
    if (first + y < in.n_samples && x < columns) {
      if (x < genotype_columns(2)) {
        value = code_has<2>(item_code<2>(in.genotypes, item, first + y), x) ? T(1) : T(0);
      } else {
        value =
            in.covariates[(size_t)(first + y) * (size_t)in.n_covariates + (size_t)(x - genotype_columns(2))];
      }
    }
    shared.tile[y][x] = value;
  }

  // sum of terms[k * stride] x_k over the columns of a row; a dummy of 0 adds nothing.
  TAVO_HOST_DEVICE_MEMBER T row_sum(const T* terms, const T* row) const {
    T sum = terms[0];
    for (int k = 1; k < columns; ++k) {
      sum = k < genotype_columns(2) && row[k] == T(0) ? sum : sum + terms[k] * row[k];
    }
    return sum;
  }

  TAVO_HOST_DEVICE_MEMBER void phase_predict(int first, int thread) {
    if (thread >= kDistinctRows) {
      return;
    }
    const int sample = first + thread;
    const T mu = fit_probability(row_sum(shared.coefficients, shared.tile[thread]));
    shared.mu[thread] = mu;
    shared.residual[thread] =
        sample < arguments.samples.n_samples ? (T)arguments.samples.response[sample] - mu : T(0);
  }

  // Entry thread % 256 of the information matrix, over one half of the rows.
  TAVO_HOST_DEVICE_MEMBER void phase_products(int thread, DistinctSum<T>& sum) const {
    constexpr int kEntries = kFitStride * kFitStride;
    constexpr int kRows = kDistinctRows / (kDistinctThreads / kEntries);
    const int j = thread % kEntries / kFitStride;
    const int k = thread % kFitStride;
    const int begin = thread / kEntries * kRows;
    T products = T(0);
    for (int y = begin; y < begin + kRows; ++y) {
      products += ((shared.tile[y][j] * shared.tile[y][k]) * shared.mu[y]) * (T(1) - shared.mu[y]);
    }
    sum.add(products);
  }

  TAVO_HOST_DEVICE_MEMBER void phase_join_products(int thread) {
    constexpr int kEntries = kFitStride * kFitStride;
    if (thread < kEntries) {
      shared.information[thread] = shared.partial[thread] + shared.partial[kEntries + thread];
    }
  }

  TAVO_HOST_DEVICE_MEMBER void phase_invert(int thread) {
    if (thread != 0) {
      return;
    }
    int rank = 0;
    if (!information_inverse<kFitStride>(shared.information, columns, shared.covariance, &rank)) {
      shared.state = no_pass ? FitState::kUnwritten : FitState::kFailed;
    }
    if (shared.iterations == 0) {
      shared.rank = rank;
    }
  }

  // A row's term of the step in column x.
  TAVO_HOST_DEVICE_MEMBER void phase_step(int x, int y, DistinctSum<T>& sum) const {
    if (x < columns) {
      sum.add(row_sum(shared.covariance + x * kFitStride, shared.tile[y]) * shared.residual[y]);
    }
  }

  TAVO_HOST_DEVICE_MEMBER T sum_of_partials(int first, int stride, int count) const {
    T sum = shared.partial[first];
    for (int i = 1; i < count; ++i) {
      sum += shared.partial[first + i * stride];
    }
    return sum;
  }

  TAVO_HOST_DEVICE_MEMBER void phase_take_step(int thread) {
    if (thread != 0) {
      return;
    }
    T total = T(0);
    for (int j = 0; j < columns; ++j) {
      const T step = sum_of_partials(j, kDistinctColumns, kDistinctRows);
      total += svd_detail::magnitude(step);
      shared.coefficients[j] += step;
    }
    ++shared.iterations;
    shared.last_step = total;
    shared.converged = fit_converged(total, 2);
    shared.go_on = !shared.converged && shared.iterations < arguments.iterations;
  }

  TAVO_HOST_DEVICE_MEMBER void phase_deviance(int first, int thread, DistinctSum<T>& sum) const {
    const int sample = first + thread;
    if (thread >= kDistinctRows || sample >= arguments.samples.n_samples) {
      return;
    }
    const T eta = row_sum(shared.coefficients, shared.tile[thread]);
    const T y = (T)arguments.samples.response[sample];
    T share = T(0);
    if (T(1) - y != T(0)) {
      share = fit_minus_log(eta, true);
    }
    if (y != T(0)) {
      share += fit_minus_log(eta, false);
    }
    sum.add(T(2) * share);
  }

  TAVO_HOST_DEVICE_MEMBER void phase_result(int thread, uint32_t pair) const {
    if (thread != 0) {
      return;
    }
    ItemFit fit;
    fit.state = shared.state;
    fit.converged = shared.converged;
    fit.iterations = shared.iterations;
    fit.rank = shared.rank;
    fit.last_step = (double)shared.last_step;
    fit.deviance = (double)sum_of_partials(0, 1, kDistinctRows);
    put_estimates(arguments, columns, shared.coefficients, shared.covariance, &fit);
    arguments.stat[pair] = fit;
  }
};

// Fits pair number `pair`. team.phase(f) runs f(x, y, sum) on every thread of the team, sum being the
// thread's own from phase to phase, and returns when all are done; team.shared is what they share.
template <typename T, typename Team>
TAVO_HOST_DEVICE void fit_distinct(const LogisticArguments<T>& arguments, uint32_t pair, Team& team) {
  DistinctShared<T>& shared = team.shared;
  DistinctFit<T> fit(arguments, pair, shared);
  const int n = arguments.samples.n_samples;
  const auto number = [](int x, int y) { return y * kDistinctColumns + x; };
  const auto keep_sums = [&] {
    team.phase([&](int x, int y, const DistinctSum<T>& sum) { shared.partial[number(x, y)] = sum.value(); });
  };
  team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_begin(number(x, y)); });
  do {
    team.phase([&](int, int, DistinctSum<T>& sum) { sum.clear(); });
    for (int first = 0; first < n; first += kDistinctRows) {
      team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_tile(first, x, y); });
      team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_predict(first, number(x, y)); });
      team.phase([&](int x, int y, DistinctSum<T>& sum) { fit.phase_products(number(x, y), sum); });
    }
    keep_sums();
    team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_join_products(number(x, y)); });
    team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_invert(number(x, y)); });
    if (fit.no_pass || shared.state != FitState::kFitted) {
      break;
    }
    team.phase([&](int, int, DistinctSum<T>& sum) { sum.clear(); });
    for (int first = 0; first < n; first += kDistinctRows) {
      team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_tile(first, x, y); });
      team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_predict(first, number(x, y)); });
      team.phase([&](int x, int y, DistinctSum<T>& sum) { fit.phase_step(x, y, sum); });
    }
    keep_sums();
    team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_take_step(number(x, y)); });
  } while (shared.go_on);
  team.phase([&](int, int, DistinctSum<T>& sum) { sum.clear(); });
  for (int first = 0; first < n; first += kDistinctRows) {
    team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_tile(first, x, y); });
    team.phase([&](int x, int y, DistinctSum<T>& sum) { fit.phase_deviance(first, number(x, y), sum); });
  }
  keep_sums();
  team.phase([&](int x, int y, DistinctSum<T>&) { fit.phase_result(number(x, y), pair); });
}
