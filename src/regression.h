// SPDX-License-Identifier: Apache-2.0
//
// The regression analysis: one model per SNP or pair of SNPs, on all workers; a top list of logistic fits, a
// line per linear fit.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "device/problem.h"
#include "device/worker_pool.h"
#include "src/progress.h"

// Values of an item as the reports know them; np is the number of design columns:
//   one SNP, logistic   0 deviance; 1 .. np-1 odds ratios; np .. 2np-1 Wald statistics
//   one SNP, linear     0 .. np-1 coefficients; np .. 2np-1 t statistics
//   two SNPs            0 deviance; 1 .. np-1 coefficients; np converged; np+1 iterations; np+2 last step
// The driver writes the p-value of a logistic item into slot np. Slots that nothing writes are 0.
inline constexpr int kRegressionRow = 32;
using RegressionRow = std::array<double, kRegressionRow>;

// The row of a fit, computed in the precision of the run. A failed logistic fit has -1 in slots 0 to 2, a
// failed linear one in slot 0; one without results has none.
RegressionRow regression_row(const ItemFit& fit, const RegressionRules& rules, int columns);

// The covariates-only model, the reference of every likelihood-ratio test.
struct NullModel {
  double deviance = 0.0;            // of a run in single precision a float, widened
  float degrees_of_freedom = 0.0f;  // samples - 1, whatever the covariates; -1 when the fit failed
  int rank = 0;                     // columns less those that depend on others
};

// Fits it. False when a decomposition gave up. problem: of a regression.
bool fit_null_model(const Problem& problem, Precision precision, NullModel* null_model);

// The likelihood-ratio p-value of a logistic item, with 1 and 2 degrees of freedom for one and two SNPs: in
// single precision 1 - the lower tail, in double precision the upper tail.
double logistic_p_value(double deviance, int order, int n_samples, const NullModel& null_model,
                        Precision precision);

// One fitted item.
struct FittedItem {
  std::vector<int> snps;
  RegressionRow row{};
  ItemFit fit;
};

// The items with the smallest p-values, ascending by the p in slot np; what is no number stands after all
// numbers. Of equal ones the earlier stands first, but in double precision, where p can be 0 for many, the
// one with the smaller deviance.
class RegressionTopList {
 public:
  RegressionTopList(size_t size, int columns, Precision precision)
      : size_(size), p_slot_(static_cast<size_t>(columns)), precision_(precision) {}
  void offer(const FittedItem& item);
  const std::vector<FittedItem>& entries() const { return entries_; }

 private:
  size_t size_;
  size_t p_slot_;
  Precision precision_;
  std::vector<FittedItem> entries_;
};

// What the loop over all items does besides fitting them.
struct RegressionLoop {
  std::function<void(FittedItem&&)> take;  // gets every item, in the order of the enumeration
  uint64_t first = 0;                      // rank of the first item to fit
  // Now and then, with the rank behind the last item that was taken: whether to go on. May be empty.
  std::function<bool(uint64_t next)> after_batch;
  Progress* progress = nullptr;  // begun, or null
};

// Fits every item, batch by batch; a batch begins when the one before it is handed out, and the items come in
// order. *next becomes the rank behind the last one that was taken, also on failure. Prints the lines of the
// batches.
Status regrProcess(WorkerPool& pool, const Problem& problem, const RegressionRules& rules,
                   uint64_t launch_size, const RegressionLoop& loop, uint64_t* next);

// Fits the listed items, [count][order] SNP indices, and hands them to take in this order.
Status fit_listed(WorkerPool& pool, const Problem& problem, const RegressionRules& rules,
                  uint64_t launch_size, const std::vector<int>& items,
                  const std::function<void(FittedItem&&)>& take);

// Samples less parameters of a linear fit: its columns in single precision, in double precision those that do
// not depend on others.
double residual_degrees_of_freedom(const ItemFit& fit, const RegressionRules& rules, int n_samples,
                                   int n_covariates);

// The line of one linear item, number from 1.
std::string linear_line(uint64_t number, const FittedItem& item, const RegressionRules& rules, int n_samples,
                        int n_covariates, const std::vector<std::string>& names);
