// SPDX-License-Identifier: Apache-2.0
//
// What a regression left behind, held against naive fits.
#pragma once

#include <filesystem>

#include "tests/campaign/regression_case.h"

namespace tavo_test {

// The lines of a logistic report in single precision below its head: what is compared byte for byte. Empty
// for other models.
std::vector<std::string> reference_rows(const RegressionCase& drawn);

// The first difference in words; empty when there is none. Logistic reports in single precision must equal
// the reference's; the numbers of all others are compared in the tidy table, within the rounding of their
// precision and where there is one answer.
std::string regression_difference(const RegressionCase& drawn, const Setting& setting,
                                  const std::vector<std::string>& rows, const RunResult& result,
                                  const std::filesystem::path& folder);

}  // namespace tavo_test
