// SPDX-License-Identifier: Apache-2.0
#include "cpu/item_fits.h"

template <>
const FitKernels<float>& fit_kernels<float>(InstructionSet instruction_set) {
  switch (instruction_set) {
    case InstructionSet::kAvx512:
      return fit_kernels_avx512_float();
    case InstructionSet::kAvx2:
      return fit_kernels_avx2_float();
    default:
      return fit_kernels_portable_float();
  }
}

template <>
const FitKernels<double>& fit_kernels<double>(InstructionSet instruction_set) {
  switch (instruction_set) {
    case InstructionSet::kAvx512:
      return fit_kernels_avx512_double();
    case InstructionSet::kAvx2:
      return fit_kernels_avx2_double();
    default:
      return fit_kernels_portable_double();
  }
}

std::unique_ptr<ItemFits> make_item_fits(const Problem& problem, const RegressionRules& rules,
                                         InstructionSet instruction_set) {
  return rules.model == RegressionModel::kLinear ? make_linear_fits(problem, rules, instruction_set)
                                                 : make_logistic_fits(problem, rules, instruction_set);
}
