// SPDX-License-Identifier: Apache-2.0
//
// What a logistic report in single precision lists, from naive fits and written out line by line. The
// covariates-only model and the p-value are the program's own.
#pragma once

#include <string>
#include <vector>

#include "device/problem.h"

namespace tavo_test {

// The rows below the header, at most `top`. The names of the SNPs are rs0, rs1, ...
std::vector<std::string> naive_logistic_rows(const Problem& problem, const RegressionRules& rules,
                                             size_t top);

}  // namespace tavo_test
