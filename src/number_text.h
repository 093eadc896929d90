// SPDX-License-Identifier: Apache-2.0
//
// Numbers as result files print them.
#pragma once

#include <span>
#include <string>

// "%f"; a NaN, whatever its sign, is "nan".
std::string number_text(double value);

// The same with "%.20f".
std::string long_number_text(double value);

// The measures of a per-fold row, in its order: training and testing value of each. A row in mode 1 has those
// of kMode1FoldMeasures, in mode 0 those of kMode0FoldMeasures.
inline constexpr int kMode1FoldMeasures[] = {1, 0, 2, 3, 4, 5, 6, 7, 8, 9};
inline constexpr int kMode0FoldMeasures[] = {1, 0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};

// ",training,testing" for each measure, from a record of 32 doubles.
std::string fold_values_text(std::span<const double> record, std::span<const int> measures);
