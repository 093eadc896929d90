// SPDX-License-Identifier: Apache-2.0
//
// Random regressions: data, options, and the files that a run reads.
#pragma once

#include <memory>

#include "tests/campaign/setting.h"
#include "tests/support/regression_data.h"

namespace tavo_test {

struct RegressionCase {
  std::unique_ptr<RegressionData> data;  // of the samples that the run keeps
  RegressionRules rules;
  bool plain = false;  // the scale of every covariate suits single precision
  size_t top = 10;
  int order_position = -1;  // of the value of --order among the words of the command line
  Words options;
  std::string genotype_bytes;
  std::string covariate_text;  // empty: no covariates
};

// What a regression can be drawn for.
struct RegressionForm {
  RegressionModel model = RegressionModel::kLogistic;
  Precision precision = Precision::kSingle;
};

RegressionCase draw_regression(Draw& draw, const RegressionForm& form);

}  // namespace tavo_test
