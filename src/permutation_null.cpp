// SPDX-License-Identifier: Apache-2.0
#include "src/permutation_null.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

// Of a value: more than the rounding of the folds' values, which are floats, and less than the share of one
// sample in the results.
constexpr double kRounding = 1e-6;

// The larger of two, of which either may be no number.
double larger(double a, double b) {
  return std::isnan(a) || b > a ? b : a;
}

}  // namespace

bool reaches(double null, double observed) {
  // The first comparison is for infinite values.
  return null >= observed || null >= observed - kRounding * std::fabs(observed);
}

BestOfOrder best_of(const MDRResult& result) {
  BestOfOrder best{kNone, kNone};
  for (size_t rank = 0; rank < result.best_snps.size(); ++rank) {
    if (result.is_filled(rank)) {
      best.testing = larger(best.testing, result.ranking_testing[rank]);
      best.consistency = larger(best.consistency, result.weighted_cvc[rank]);
    }
  }
  return best;
}

BestOfOrder best_of_all(std::span<const BestOfOrder> orders) {
  BestOfOrder best{kNone, kNone};
  for (const BestOfOrder& of_one : orders) {
    best = {larger(best.testing, of_one.testing), larger(best.consistency, of_one.consistency)};
  }
  return best;
}

std::vector<double> PermutationNull::of_order(size_t order, double BestOfOrder::*statistic) const {
  std::vector<double> column;
  for (const std::vector<BestOfOrder>& best : values_) {
    column.push_back(best[order].*statistic);
  }
  return column;
}

std::vector<double> PermutationNull::of_all_orders(double BestOfOrder::*statistic) const {
  std::vector<double> column;
  for (const std::vector<BestOfOrder>& best : values_) {
    column.push_back(best_of_all(best).*statistic);
  }
  return column;
}

StopRule::StopRule(std::span<const BestOfOrder> observed, int stop_after) : stop_after_(stop_after) {
  for (const double value : statistics_of(observed)) {
    watched_.push_back({value});
  }
}

std::vector<double> StopRule::statistics_of(std::span<const BestOfOrder> orders) {
  std::vector<double> statistics;
  for (const BestOfOrder& best : orders) {
    statistics.insert(statistics.end(), {best.testing, best.consistency});
  }
  const BestOfOrder best = best_of_all(orders);
  statistics.insert(statistics.end(), {best.testing, best.consistency});
  return statistics;
}

void StopRule::add(std::span<const BestOfOrder> best) {
  const std::vector<double> statistics = statistics_of(best);
  for (size_t i = 0; i < watched_.size(); ++i) {
    watched_[i].reached += reaches(statistics[i], watched_[i].observed) ? 1 : 0;
  }
}

bool StopRule::is_met() const {
  return stop_after_ > 0 && std::all_of(watched_.begin(), watched_.end(), [this](const Watched& watched) {
           return std::isnan(watched.observed) || watched.reached >= stop_after_;
         });
}

double permutation_p_value(std::span<const double> null, double observed, int stop_after) {
  if (std::isnan(observed)) {
    return kNone;
  }
  int reached = 0;
  for (size_t i = 0; i < null.size(); ++i) {
    reached += reaches(null[i], observed) ? 1 : 0;
    if (stop_after > 0 && reached == stop_after) {
      return static_cast<double>(stop_after) / static_cast<double>(i + 1);
    }
  }
  return (1.0 + reached) / (1.0 + static_cast<double>(null.size()));
}

double permutation_threshold(std::span<const double> null) {
  // (1 + most) / (1 + all) <= 1 / 20.
  const ptrdiff_t most = (1 + std::ssize(null)) / 20 - 1;
  std::vector<double> numbers;
  std::copy_if(null.begin(), null.end(), std::back_inserter(numbers),
               [](double x) { return !std::isnan(x); });
  if (most < 0 || std::ssize(numbers) <= most) {
    return kNone;
  }
  std::nth_element(numbers.begin(), numbers.begin() + most, numbers.end(), std::greater<>());
  return numbers[static_cast<size_t>(most)];
}
