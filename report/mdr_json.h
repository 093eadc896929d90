// SPDX-License-Identifier: Apache-2.0
//
// The results of an MDR or GMDR run as JSON (docs/report.md).
#pragma once

#include <cstdint>
#include <limits>

#include "report/json_writer.h"
#include "report/mdr_results.h"

// What is written of each order: everything, or what a page can show.
struct MdrJsonLimits {
  size_t combinations = std::numeric_limits<size_t>::max();
  // Lists are written as far as they hold one of so many first combinations, or lead a fold.
  size_t combinations_with_lists = std::numeric_limits<size_t>::max();
};

// The members of the object that is open.
void write_mdr_members(const MdrResults& results, const MdrJsonLimits& limits, JsonWriter* json);
