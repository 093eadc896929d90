// SPDX-License-Identifier: Apache-2.0
//
// The task of tavo-simulate.
#pragma once

#include <string>
#include <vector>

#include "tools/simulate_options.h"
#include "util/status.h"
#include "util/stop_signal.h"

struct SimulateReport {
  std::string text;                   // for standard output
  std::vector<std::string> warnings;  // for standard error
};

// Makes the files. Gives up when `stop` becomes non-zero. After a failure no target has changed, unless one
// of several could not be given its name when all were complete.
Status simulate(const SimulateOptions& options, const StopFlag& stop, SimulateReport* report);
