// SPDX-License-Identifier: Apache-2.0
#include "device/commands.h"

#include <cmath>

#include "lib/mdr.h"

bool ScoringRules::own_thresholds() const {
  return missing == kMissingAvailable;
}

int ScoringRules::base() const {
  return table_base(missing);
}

int64_t ScoringRules::cells() const {
  return static_cast<int64_t>(std::pow(base(), order));
}

int64_t ScoringRules::counted_cells() const {
  if (order == 2 || order == 3) {
    return static_cast<int64_t>(std::pow(3, order));
  }
  return cells();
}
