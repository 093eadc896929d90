// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "cpu/simd.h"

namespace tavo_test {

// The instruction sets that this processor has.
inline std::vector<InstructionSet> sets_here() {
  std::vector<InstructionSet> sets;
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (has(set)) {
      sets.push_back(set);
    }
  }
  return sets;
}

}  // namespace tavo_test
