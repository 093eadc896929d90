// SPDX-License-Identifier: Apache-2.0
//
// What a written data set holds, in a line.
#pragma once

#include <cstdint>
#include <string>

#include "tools/selection.h"

// "TARGET: N samples (phenotypes), M SNPs, X missing genotypes (share), FORMAT". missing: of all genotypes.
std::string data_set_summary(const std::string& target, const Selection& selection, int64_t missing,
                             const std::string& format);

// What to say about classes that a search can do nothing with: all samples have the same. Empty otherwise.
std::string one_class_warning(const Selection& selection);
