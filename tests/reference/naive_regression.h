// SPDX-License-Identifier: Apache-2.0
//
// Regression fits written out as one reads them: a design matrix per item, one step after the other, all in
// single precision. What the program fits many at a time must give these bits.
#pragma once

#include <vector>

#include "device/problem.h"

namespace tavo_test {

// Logistic: fills fit with the state, iterations, last step, deviance, coefficients and standard errors.
ItemFit naive_logistic(const Problem& problem, const RegressionRules& rules, const int* item);

// Linear, by singular value decomposition of the weighted design matrix.
ItemFit naive_linear(const Problem& problem, const int* item);

}  // namespace tavo_test
