// SPDX-License-Identifier: Apache-2.0
//
// The regression fits of the CPU backend: a group of items at a time, one per vector lane, over passes of the
// samples (fit_kernels.h).
#pragma once

#include <memory>

#include "cpu/fit_kernels.h"
#include "cpu/simd.h"
#include "device/problem.h"

class ItemFits {
 public:
  virtual ~ItemFits() = default;

  // Fits items[count][order] into fits[count]. Returns early, without all of them, after a stop signal.
  virtual void run(const int* items, size_t count, ItemFit* fits) = 0;
};

// problem outlives the result. Any number of threads may have one each.
std::unique_ptr<ItemFits> make_item_fits(const Problem& problem, const RegressionRules& rules,
                                         InstructionSet instruction_set);

// What follows is for the two kinds of fit.

template <typename T>
const FitKernels<T>& fit_kernels(InstructionSet instruction_set);

std::unique_ptr<ItemFits> make_logistic_fits(const Problem& problem, const RegressionRules& rules,
                                             InstructionSet instruction_set);
std::unique_ptr<ItemFits> make_linear_fits(const Problem& problem, const RegressionRules& rules,
                                           InstructionSet instruction_set);
