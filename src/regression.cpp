// SPDX-License-Identifier: Apache-2.0
#include "src/regression.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <span>

#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/dcdflib.h"
#include "lib/float_math.h"
#include "lib/precise_fit.h"
#include "lib/regression.h"
#include "lib/standardized.h"
#include "src/combination_loop.h"
#include "src/number_text.h"
#include "src/run_config.h"
#include "util/stopwatch.h"

namespace {

// Limit of the null model's passes, whatever --iter says.
constexpr int kNullIterations = 20;

float exponential(float x) {
  return tavo_expf(x);
}
double exponential(double x) {
  return std::exp(x);
}

template <typename T>
RegressionRow row_of(const ItemFit& fit, const RegressionRules& rules, size_t np) {
  RegressionRow row{};
  const bool linear = rules.model == RegressionModel::kLinear;
  for (size_t j = 0; j < np; ++j) {
    const T coefficient = static_cast<T>(fit.coefficients[j]);
    if (rules.order() == 2) {
      row[j] = static_cast<double>(coefficient);
      continue;
    }
    row[j] = static_cast<double>(linear ? coefficient : exponential(coefficient));
    row[np + j] = static_cast<double>(coefficient / static_cast<T>(fit.standard_errors[j]));
  }
  if (rules.order() == 2) {
    row[np] = fit.converged ? 1.0 : 0.0;
    row[np + 1] = fit.iterations;
    row[np + 2] = fit.last_step;
  }
  if (!linear) {
    row[0] = fit.deviance;
  }
  return row;
}

}  // namespace

RegressionRow regression_row(const ItemFit& fit, const RegressionRules& rules, int columns) {
  if (fit.state != FitState::kFitted) {
    RegressionRow row{};
    if (fit.state == FitState::kFailed) {
      std::fill_n(row.begin(), rules.model == RegressionModel::kLinear ? 1 : 3, -1.0);
    }
    return row;
  }
  const auto np = static_cast<size_t>(columns);
  return rules.precision == Precision::kDouble ? row_of<double>(fit, rules, np)
                                               : row_of<float>(fit, rules, np);
}

bool fit_null_model(const Problem& problem, Precision precision, NullModel* null_model) {
  if (precision == Precision::kDouble) {
    const StandardizedCovariates covariates(problem.covariates, problem.n_samples, problem.n_covariates);
    PreciseNull fit;
    const bool fitted = fit_precise_null(covariates, problem.n_covariates, problem.phenotypes,
                                         problem.n_samples, kNullIterations, &fit);
    null_model->deviance = fitted ? fit.deviance : 0.0;
    null_model->degrees_of_freedom = fitted ? static_cast<float>(problem.n_samples - 1) : -1.0f;
    null_model->rank = fit.rank;
    return fitted;
  }
  float deviance = 0.0f;
  const int fitted = regression_null_logistic(problem.n_samples, problem.n_covariates + 1, problem.covariates,
                                              kNullIterations, problem.phenotypes, &deviance,
                                              &null_model->degrees_of_freedom);
  null_model->deviance = static_cast<double>(deviance);
  null_model->rank = regression_null_rank(problem.n_samples, problem.n_covariates + 1, problem.covariates);
  return fitted > 0;
}

double logistic_p_value(double deviance, int order, int n_samples, const NullModel& null_model,
                        Precision precision) {
  const auto model_df = static_cast<float>(n_samples - 1 - order);
  if (precision == Precision::kSingle) {
    return LRtest(static_cast<float>(deviance), model_df, static_cast<float>(null_model.deviance),
                  null_model.degrees_of_freedom);
  }
  return chi_square_upper_tail(null_model.deviance - deviance,
                               static_cast<double>(null_model.degrees_of_freedom - model_df));
}

void RegressionTopList::offer(const FittedItem& item) {
  if (size_ == 0) {
    return;
  }
  // A NaN ranks after all numbers, and among themselves NaNs keep their order.
  const auto before = [this](const FittedItem& a, const FittedItem& b) {
    const double p = a.row[p_slot_];
    const double q = b.row[p_slot_];
    if (p == q && precision_ == Precision::kDouble) {
      return a.row[0] < b.row[0];
    }
    return std::isnan(q) ? !std::isnan(p) : p < q;
  };
  const auto place = std::upper_bound(entries_.begin(), entries_.end(), item, before);
  if (entries_.size() == size_) {
    if (place == entries_.end()) {
      return;
    }
    entries_.pop_back();
  }
  entries_.insert(place, item);
}

namespace {

// Fits a batch of items that was set up, [count][order] SNP indices, and hands them to take.
Status fit_batch(WorkerPool& pool, const Problem& problem, const RegressionRules& rules, uint64_t launch_size,
                 std::span<const int> items, const std::function<void(FittedItem&&)>& take) {
  const auto width = static_cast<size_t>(rules.order());
  std::vector<ItemFit> fits(items.size() / width);
  std::vector<RegressionBatchCommand> batches;
  uint64_t start = 0;
  for (const uint64_t share : pass_shares(fits.size(), launch_size, pool.size())) {
    if (share == 0) {
      break;
    }
    RegressionBatchCommand& batch = batches.emplace_back();
    batch.active = static_cast<uint32_t>(share);
    batch.items = items.data() + start * width;
    batch.results = fits.data() + start;
    start += share;
  }
  if (Status status = pool.dispatch(batches); !status.ok()) {
    return status;
  }
  for (size_t i = 0; i < fits.size(); ++i) {
    FittedItem item;
    const std::span<const int> snps = items.subspan(i * width, width);
    item.snps.assign(snps.begin(), snps.end());
    item.fit = fits[i];
    item.row = regression_row(item.fit, rules, rules.columns(problem.n_covariates));
    take(std::move(item));
  }
  return {};
}

Status begin_fits(WorkerPool& pool, const RegressionRules& rules, uint64_t launch_size) {
  RegressionSetupCommand setup(rules);
  setup.launch_size = launch_size;
  return pool.broadcast(setup);
}

}  // namespace

Status fit_listed(WorkerPool& pool, const Problem& problem, const RegressionRules& rules,
                  uint64_t launch_size, const std::vector<int>& items,
                  const std::function<void(FittedItem&&)>& take) {
  Status status = begin_fits(pool, rules, launch_size);
  const size_t batch = static_cast<size_t>(launch_size) * static_cast<size_t>(pool.size()) *
                       static_cast<size_t>(rules.order());
  for (size_t i = 0; i < items.size() && status.ok(); i += batch) {
    status = fit_batch(pool, problem, rules, launch_size,
                       std::span(items).subspan(i, std::min(batch, items.size() - i)), take);
  }
  return status.ok() ? pool.broadcast(WorkerCommand{kCommandRelease}) : status;
}

Status regrProcess(WorkerPool& pool, const Problem& problem, const RegressionRules& rules,
                   uint64_t launch_size, const RegressionLoop& loop, uint64_t* next) {
  *next = loop.first;
  if (Status status = begin_fits(pool, rules, launch_size); !status.ok()) {
    return status;
  }
  const int order = rules.order();
  std::printf("Order is %d\n", order);
  unsigned timer = 0;
  cutCreateTimer(&timer);
  cutStartTimer(timer);

  const auto width = static_cast<size_t>(order);
  const uint64_t capacity = launch_size * static_cast<uint64_t>(pool.size());
  const uint64_t total = comb_count(problem.n_snps, order).value();
  const int batch_size = static_cast<int>(std::min<uint64_t>({capacity, total, 1u << 30}));
  std::vector<int> cursor(width, -1);
  if (loop.first > 0 && loop.first < total) {
    comb_unrank(problem.n_snps, order, loop.first, cursor.data());
  }
  std::vector<int> items(static_cast<size_t>(std::max(batch_size, 1)) * width);
  bool goes_on = *next < total;
  while (goes_on) {
    int count = 0;
    goes_on = combSNP2(&order, &problem.n_snps, &batch_size, cursor.data(), &count, items.data()) == 0;
    cutStopTimer(timer);
    const double milliseconds = static_cast<double>(cutGetTimerValue(timer));
    std::printf("%d, [%.3lf ms, %.3lf ms/per]\n", static_cast<int>(*next), milliseconds,
                milliseconds / static_cast<double>(capacity));
    cutResetTimer(timer);
    cutStartTimer(timer);
    Status status = fit_batch(pool, problem, rules, launch_size,
                              std::span(items).first(static_cast<size_t>(count) * width), loop.take);
    if (!status.ok()) {
      cutDeleteTimer(timer);
      return status;
    }
    *next += static_cast<uint64_t>(count);
    if (loop.progress != nullptr) {
      loop.progress->update(*next);
    }
    goes_on = goes_on && (!loop.after_batch || loop.after_batch(*next));
  }
  cutDeleteTimer(timer);
  return pool.broadcast(WorkerCommand{kCommandRelease});
}

double residual_degrees_of_freedom(const ItemFit& fit, const RegressionRules& rules, int n_samples,
                                   int n_covariates) {
  return n_samples - (rules.precision == Precision::kDouble ? fit.rank : rules.columns(n_covariates));
}

std::string linear_line(uint64_t number, const FittedItem& item, const RegressionRules& rules, int n_samples,
                        int n_covariates, const std::vector<std::string>& names) {
  const double df = residual_degrees_of_freedom(item.fit, rules, n_samples, n_covariates);
  const int columns = n_covariates + 3;
  const auto slot = [&item](int index) { return item.row[static_cast<size_t>(index)]; };
  const auto values = [&](int coefficient) {
    const double statistic = slot(columns + coefficient);
    return "," + long_number_text(slot(coefficient)) + "," + long_number_text(statistic) + "," +
           long_number_text(pT(statistic, df));
  };
  const std::string& name = names[static_cast<size_t>(item.snps.front())];
  std::string line = std::to_string(number) + ",(" + name + ")," + name + values(1);
  // Each covariate is followed by the values of the column before its own: the second genotype dummy for the
  // first.
  for (int k = 0; k < n_covariates; ++k) {
    line += ",," + std::string(g_covLabel[k]) + values(2 + k);
  }
  return line;
}
