// SPDX-License-Identifier: Apache-2.0
#include "src/regression.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <deque>
#include <memory>
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

// Hands over the fits of items, [fits][order] SNP indices.
void take_fits(const Problem& problem, const RegressionRules& rules, std::span<const int> items,
               std::span<const ItemFit> fits, const std::function<void(FittedItem&&)>& take) {
  const auto width = static_cast<size_t>(rules.order());
  for (size_t i = 0; i < fits.size(); ++i) {
    FittedItem item;
    const std::span<const int> snps = items.subspan(i * width, width);
    item.snps.assign(snps.begin(), snps.end());
    item.fit = fits[i];
    item.row = regression_row(item.fit, rules, rules.columns(problem.n_covariates));
    take(std::move(item));
  }
}

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
  take_fits(problem, rules, items, fits, take);
  return {};
}

// How many items a part has: what takes about a second, as far as the parts before it tell, so that a run
// that keeps a checkpoint, or is stopped, need not wait for a launch of a million slow fits.
class PartSize {
 public:
  uint64_t get() const { return size_; }

  void learn(uint64_t items, double seconds) {
    const double wanted = kSeconds * static_cast<double>(items) / std::max(seconds, kShortest);
    const double most = kGrowth * static_cast<double>(size_);
    size_ = static_cast<uint64_t>(std::clamp(wanted, static_cast<double>(kSmallest), most));
  }

 private:
  static constexpr double kSeconds = 1.0;
  static constexpr double kShortest = 1e-6;
  static constexpr double kGrowth = 16.0;
  static constexpr uint64_t kSmallest = 1024;

  uint64_t size_ = kSmallest;
};

// The most items of a batch: a launch for each worker, but not more than can be numbered and held.
uint64_t batch_items(uint64_t launch_size, int n_workers) {
  constexpr uint64_t kMost = uint64_t{1} << 30;
  const auto workers = static_cast<uint64_t>(n_workers);
  return launch_size > kMost / workers ? kMost : launch_size * workers;
}

// The batches of a run over all items. Each is cut into one share per worker, and those into parts, which go
// to whichever worker is free; parts that are fitted wait for their turn.
class PartStream : public CommandStream {
 public:
  PartStream(const WorkerPool& pool, const Problem& problem, const RegressionRules& rules,
             uint64_t launch_size, const RegressionLoop& loop)
      : problem_(problem),
        rules_(rules),
        order_(rules.order()),
        launch_size_(launch_size),
        loop_(loop),
        n_workers_(pool.size()),
        capacity_(batch_items(launch_size, pool.size())),
        total_(comb_count(problem.n_snps, order_).value()),
        cursor_(static_cast<size_t>(order_), -1),
        begun_(loop.first),
        taken_(loop.first),
        given_(static_cast<size_t>(pool.size()), nullptr) {
    if (loop.first > 0 && loop.first < total_) {
      comb_unrank(problem.n_snps, order_, loop.first, cursor_.data());
    }
    goes_on_ = begun_ < total_;
    cutCreateTimer(&timer_);
    cutStartTimer(timer_);
  }
  ~PartStream() override { cutDeleteTimer(timer_); }
  PartStream(const PartStream&) = delete;
  PartStream& operator=(const PartStream&) = delete;

  // Rank behind the last item that was taken.
  uint64_t taken() const { return taken_; }

  const WorkerCommand* next(int worker) override {
    if (left_ == 0 && parts_.size() <= kPartsAhead * static_cast<size_t>(n_workers_)) {
      begin_batch();
    }
    if (left_ == 0 || !wanted_) {
      return nullptr;
    }
    while (shares_.front() == 0) {
      shares_.pop_front();
    }
    const uint64_t count = std::min(shares_.front(), part_size_.get());
    shares_.front() -= count;
    Part& part = parts_.emplace_back();
    part.batch = batch_;
    part.fits.resize(count);
    part.command.active = static_cast<uint32_t>(count);
    part.command.items = batch_->data() + batch_->size() - left_ * static_cast<size_t>(order_);
    part.command.results = part.fits.data();
    left_ -= count;
    given_[static_cast<size_t>(worker)] = &part;
    return &part.command;
  }

  void finished(int worker) override {
    Part& part = *given_[static_cast<size_t>(worker)];
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - part.begun;
    part_size_.learn(part.fits.size(), time.count());
    part.is_fitted = true;
  }

  bool settle() override {
    if (parts_.empty() || !parts_.front().is_fitted) {
      return false;
    }
    const Part& part = parts_.front();
    if (wanted_) {
      take_fits(problem_, rules_, {part.command.items, part.fits.size() * static_cast<size_t>(order_)},
                part.fits, loop_.take);
      taken_ += part.fits.size();
      if (loop_.progress != nullptr) {
        loop_.progress->update(taken_);
      }
      wanted_ = !loop_.after_batch || loop_.after_batch(taken_);
    }
    parts_.pop_front();
    return true;
  }

 private:
  // Parts that may wait for one that is late while the next batch begins, per worker.
  static constexpr size_t kPartsAhead = 2;

  struct Part {
    std::shared_ptr<const std::vector<int>> batch;  // that it is of
    RegressionBatchCommand command;
    std::vector<ItemFit> fits;
    std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
    bool is_fitted = false;
  };

  // The next batch, and the line that announces it.
  void begin_batch() {
    if (!goes_on_ || !wanted_) {
      return;
    }
    const int batch_size = static_cast<int>(std::min(capacity_, total_));
    const auto width = static_cast<size_t>(order_);
    const auto items = std::make_shared<std::vector<int>>(static_cast<size_t>(batch_size) * width);
    int count = 0;
    goes_on_ = combSNP2(&order_, &problem_.n_snps, &batch_size, cursor_.data(), &count, items->data()) == 0;
    cutStopTimer(timer_);
    const double milliseconds = static_cast<double>(cutGetTimerValue(timer_));
    std::printf("%d, [%.3lf ms, %.3lf ms/per]\n", static_cast<int>(begun_), milliseconds,
                milliseconds / static_cast<double>(capacity_));
    cutResetTimer(timer_);
    cutStartTimer(timer_);
    items->resize(static_cast<size_t>(count) * width);
    batch_ = items;
    left_ = static_cast<uint64_t>(count);
    const std::vector<uint64_t> shares = pass_shares(left_, launch_size_, n_workers_);
    shares_.assign(shares.begin(), shares.end());
    begun_ += left_;
  }

  const Problem& problem_;
  const RegressionRules rules_;
  const int order_;
  const uint64_t launch_size_;
  const RegressionLoop& loop_;
  const int n_workers_;
  const uint64_t capacity_;
  const uint64_t total_;
  std::vector<int> cursor_;  // of the enumeration
  uint64_t begun_;           // items of the batches so far
  uint64_t taken_;
  std::shared_ptr<const std::vector<int>> batch_;  // the latest: its items
  uint64_t left_ = 0;                              // items of it, at its end, that no worker was given
  std::deque<uint64_t> shares_;                    // what is left of those of the workers
  PartSize part_size_;
  std::deque<Part> parts_;    // that workers were given, from the next to be taken on
  std::vector<Part*> given_;  // [worker]
  bool goes_on_ = false;      // there are more batches
  bool wanted_ = true;        // by the loop
  unsigned timer_ = 0;
};

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
  const size_t batch = batch_items(launch_size, pool.size()) * static_cast<size_t>(rules.order());
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
  std::printf("Order is %d\n", rules.order());
  PartStream parts(pool, problem, rules, launch_size, loop);
  Status status = pool.stream(parts);
  *next = parts.taken();
  return status.ok() ? pool.broadcast(WorkerCommand{kCommandRelease}) : status;
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
