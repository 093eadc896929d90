// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

// The number that a variable of the environment holds and nothing else, when it lies within the limits.
std::optional<double> environment_number(const char* variable, double least, double most);
