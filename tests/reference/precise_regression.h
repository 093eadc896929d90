// SPDX-License-Identifier: Apache-2.0
//
// Regressions as a textbook has them, in extended precision: orthogonal columns for least squares, Newton's
// method for logistic models. Columns that those before them determine are left out. Shares no code with the
// program.
#pragma once

#include <vector>

namespace tavo_test {

using Extended = long double;
using DesignMatrix = std::vector<std::vector<Extended>>;  // [columns][samples]

struct PreciseFit {
  bool clear = false;      // no column is nearly, but not quite, determined by others: there is one answer
  bool converged = false;  // logistic
  int iterations = 0;      // logistic
  int rank = 0;
  Extended deviance = 0;                  // logistic: -2 log likelihood; linear: residual sum of squares
  Extended largest_predictor = 0;         // logistic: in absolute terms
  std::vector<bool> estimated;            // [columns]
  std::vector<Extended> coefficients;     // [columns], 0 where there is no estimate
  std::vector<Extended> standard_errors;  // [columns]
};

// y: 0 and 1.
PreciseFit precise_logistic(const DesignMatrix& columns, const std::vector<Extended>& y);

PreciseFit precise_linear(const DesignMatrix& columns, const std::vector<Extended>& y);

// P(X > x) of chi-square with df >= 1 degrees of freedom.
Extended precise_upper_tail(Extended x, int df);

}  // namespace tavo_test
