// SPDX-License-Identifier: Apache-2.0
//
// What the searches of permuted data reached, and the p-values that follow.
#pragma once

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "src/MDRResult.h"

// The best of one order: among the ranked combinations the largest average testing value of the ranking
// measure and the largest weighted consistency. NaN where no combination was ranked.
struct BestOfOrder {
  double testing;
  double consistency;
};

// Of a ranking that CalcWeightedCVC_CV made.
BestOfOrder best_of(const MDRResult& result);

// The largest of the orders, for either statistic.
BestOfOrder best_of_all(std::span<const BestOfOrder> orders);

// What the permutations drawn so far reached: [permutation][order of the run].
class PermutationNull {
 public:
  // The best of every order of one more permutation.
  void add(std::vector<BestOfOrder> best) { values_.push_back(std::move(best)); }

  size_t permutations() const { return values_.size(); }
  std::span<const BestOfOrder> of(size_t permutation) const { return values_[permutation]; }

  // One statistic, permutation by permutation: of one order, or the largest over all orders.
  std::vector<double> of_order(size_t order, double BestOfOrder::*statistic) const;
  std::vector<double> of_all_orders(double BestOfOrder::*statistic) const;

 private:
  std::vector<std::vector<BestOfOrder>> values_;
};

// Whether a null value is at least as large as an observed one. Averages over folds that are equal as
// fractions differ in their last digits with the order and the sizes of the folds, so a part in a million
// counts as nothing. False where either is no number.
bool reaches(double null, double observed);

// Says when the best values of a run have been reached so often that no more permutations are needed: both
// statistics, of each order and over all orders.
class StopRule {
 public:
  // observed: [order]. stop_after: how often, 0: never enough.
  StopRule(std::span<const BestOfOrder> observed, int stop_after);

  // Takes in one more permutation, [order].
  void add(std::span<const BestOfOrder> best);

  bool is_met() const;

 private:
  // A value of the run, and how many null values reach it.
  struct Watched {
    double observed;
    int reached = 0;
  };

  static std::vector<double> statistics_of(std::span<const BestOfOrder> orders);

  int stop_after_;
  std::vector<Watched> watched_;
};

// The p-value of `observed` against null values in the order in which they were drawn. With stop_after = 0,
// or as long as fewer than that reach it: (1 + those) / (1 + all), which is exact under the null
// hypothesis. Otherwise h / l, with l the number drawn when the h-th = stop_after-th came (Besag and Clifford
// 1991, section 2): what came later is not looked at. A NaN among the null values reaches nothing; that of a
// NaN is NaN.
double permutation_p_value(std::span<const double> null, double observed, int stop_after);

// The null value above which a value, one that it does not reach, has a p-value
// (1 + those that reach it) / (1 + all) of at most 5%. NaN when there are too few null values.
double permutation_threshold(std::span<const double> null);
