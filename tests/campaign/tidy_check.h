// SPDX-License-Identifier: Apache-2.0
//
// The tidy table of a search against the reference, cell by cell.
#pragma once

#include "tests/reference/naive_run.h"

namespace tavo_test {

// The first difference in words; empty when there is none. nulls: of a run with permutations, else empty.
std::string tidy_difference(const naive::GenotypeData& data, const naive::Run& run,
                            const std::vector<naive::OrderResult>& reference,
                            const std::vector<std::vector<naive::NullBest>>& nulls, const std::string& text);

}  // namespace tavo_test
