// SPDX-License-Identifier: Apache-2.0
//
// The permutation threshold and the p-values of ranked combinations, from an order's null distribution.
#pragma once

#include <vector>

#include "src/MDRResult.h"

// The quantile of the null measures at this level; infinite, so that nothing passes, when there are none.
double null_threshold(const std::vector<double>& null_measures, double level);

// Fills result->p_values, one per rank, 0 at first. With permutation set and a ranking measure of balanced
// accuracy, chi-square or gamma: the share of the null measures that is at least the ranked training value.
void rank_p_values(int measure, bool permutation, MDRResult* result);
