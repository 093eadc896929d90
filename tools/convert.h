// SPDX-License-Identifier: Apache-2.0
//
// The two tasks of tavo-convert.
#pragma once

#include <string>
#include <vector>

#include "tools/options.h"
#include "util/status.h"
#include "util/stop_signal.h"

// What a task has to say: text for standard output, and warnings for standard error.
struct ConvertReport {
  std::string text;
  std::vector<std::string> warnings;
};

// Makes the files. Gives up when `stop` becomes non-zero. After a failure no target has changed.
Status convert(const ConvertOptions& options, const StopFlag& stop, ConvertReport* report);

// Says what a genotype file holds.
Status describe_genotypes(const ConvertOptions& options, ConvertReport* report);
