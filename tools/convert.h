// SPDX-License-Identifier: Apache-2.0
//
// The two tasks of tavo-convert.
#pragma once

#include <csignal>
#include <string>
#include <vector>

#include "tools/options.h"
#include "util/status.h"

// What a task has to say: text for standard output, and warnings for standard error.
struct ConvertReport {
  std::string text;
  std::vector<std::string> warnings;
};

// Makes the genotype file. Gives up when `stop` becomes non-zero. After a failure the target is as it was
// before.
Status convert_table(const ConvertOptions& options, const volatile std::sig_atomic_t& stop,
                     ConvertReport* report);

// Says what a genotype file holds.
Status describe_genotypes(const ConvertOptions& options, ConvertReport* report);
