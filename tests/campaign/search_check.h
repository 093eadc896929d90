// SPDX-License-Identifier: Apache-2.0
//
// What a search left behind, held against the reference.
#pragma once

#include <filesystem>

#include "tests/campaign/search_case.h"

namespace tavo_test {

// What the reference says of a case: computed once, compared with every setting's run.
struct SearchReference {
  std::vector<naive::OrderResult> orders;
  std::vector<std::vector<naive::NullBest>> nulls;  // [permutation][order]
};

SearchReference reference_results(const SearchCase& drawn);

// The first difference between what the run left in the folder and the reference, in words; empty when there
// is none. Looks at the result file and the list files byte for byte, at the tidy table and the null values
// number for number.
std::string search_difference(const SearchCase& drawn, const Setting& setting,
                              const SearchReference& reference, const RunResult& result,
                              const std::filesystem::path& folder);

// The same of the result file alone, out.csv.
std::string report_difference(const std::vector<std::string>& expected, const std::filesystem::path& path);

}  // namespace tavo_test
