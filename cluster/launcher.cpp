// SPDX-License-Identifier: Apache-2.0
#include "cluster/launcher.h"

#include <optional>

#include "cluster/environment.h"

namespace {

constexpr double kMostProcesses = 1 << 24;

std::optional<int> count_of(const char* variable, double least) {
  const std::optional<double> number = environment_number(variable, least, kMostProcesses);
  return number && *number == static_cast<int>(*number) ? std::optional(static_cast<int>(*number))
                                                        : std::nullopt;
}

}  // namespace

LaunchedAs launched_as() {
  struct Variables {
    const char* rank;
    const char* size;
  };
  for (const Variables& of :
       {Variables{"OMPI_COMM_WORLD_RANK", "OMPI_COMM_WORLD_SIZE"}, Variables{"PMI_RANK", "PMI_SIZE"}}) {
    if (const std::optional<int> size = count_of(of.size, 1)) {
      return {count_of(of.rank, 0).value_or(0), *size};
    }
  }
  if (const std::optional<int> rank = count_of("PMIX_RANK", 0)) {
    return {*rank, count_of("SLURM_STEP_NUM_TASKS", 1).value_or(0)};
  }
  return {};
}
