// SPDX-License-Identifier: Apache-2.0
#include "cpu/simd.h"

#include <cstdlib>

namespace {
// Best first.
constexpr InstructionSet kAll[] = {InstructionSet::kAvx512, InstructionSet::kAvx2, InstructionSet::kScalar};
}  // namespace

const char* name_of(InstructionSet set) {
  switch (set) {
    case InstructionSet::kAvx512:
      return "avx512";
    case InstructionSet::kAvx2:
      return "avx2";
    default:
      return "scalar";
  }
}

bool has(InstructionSet set) {
  switch (set) {
    case InstructionSet::kAvx512:
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
             __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
             __builtin_cpu_supports("avx512vpopcntdq") && __builtin_cpu_supports("avx512vbmi2") &&
             __builtin_cpu_supports("gfni") && __builtin_cpu_supports("popcnt");
    case InstructionSet::kAvx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
    default:
      return true;
  }
}

std::string instruction_sets_here() {
  std::string names;
  for (const InstructionSet set : kAll) {
    if (has(set)) {
      names += (names.empty() ? "" : " ") + std::string(name_of(set));
    }
  }
  return names;
}

Status choose_instruction_set(InstructionSet* set) {
  const char* forced = std::getenv("TAVO_SIMD");
  for (const InstructionSet candidate : kAll) {
    if (has(candidate) && (forced == nullptr || std::string(forced) == name_of(candidate))) {
      *set = candidate;
      return {};
    }
  }
  return Status::failure("TAVO_SIMD is `" + std::string(forced) +
                         "`, expected one of: " + instruction_sets_here());
}
