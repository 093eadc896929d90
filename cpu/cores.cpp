// SPDX-License-Identifier: Apache-2.0
#include "cpu/cores.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

namespace {

// Cores of the affinity mask. The mask of a machine with many processors does not fit the fixed cpu_set_t.
int affinity_cores() {
  for (int processors = 1024; processors <= 1 << 20; processors *= 2) {
    cpu_set_t* set = CPU_ALLOC(processors);
    const size_t size = CPU_ALLOC_SIZE(processors);
    const bool known = sched_getaffinity(0, size, set) == 0;
    const int count = known ? CPU_COUNT_S(size, set) : 0;
    CPU_FREE(set);
    if (known) {
      return std::max(count, 1);
    }
  }
  return static_cast<int>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
}

// Cores' worth of time that one control group grants, 0 without a limit.
double group_quota(const std::string& folder) {
  double period = 0.0;
  std::string text;
  if (std::ifstream file(folder + "/cpu.max"); file >> text >> period) {
    return text == "max" || period <= 0.0 ? 0.0 : std::strtod(text.c_str(), nullptr) / period;
  }
  double quota = 0.0;
  std::ifstream quota_file(folder + "/cpu.cfs_quota_us");
  std::ifstream period_file(folder + "/cpu.cfs_period_us");
  if (quota_file >> quota && period_file >> period && quota > 0.0 && period > 0.0) {
    return quota / period;
  }
  return 0.0;
}

// The tightest quota on the way from the process's control group up to the root, 0 without one.
double quota_cores() {
  double tightest = 0.0;
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {
    // hierarchy-ID:controllers:path; version 2 has no controllers.
    const size_t first = line.find(':');
    const size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    if (second == std::string::npos) {
      continue;
    }
    const std::string controllers = line.substr(first + 1, second - first - 1);
    if (!controllers.empty() && controllers.find("cpu") == std::string::npos) {
      continue;
    }
    const std::string root = controllers.empty() ? "/sys/fs/cgroup" : "/sys/fs/cgroup/" + controllers;
    for (std::string path = line.substr(second + 1);;) {
      const double quota = group_quota(root + path);
      if (quota > 0.0 && (tightest == 0.0 || quota < tightest)) {
        tightest = quota;
      }
      const size_t slash = path.rfind('/');
      if (path.size() <= 1 || slash == std::string::npos) {
        break;
      }
      path.resize(std::max<size_t>(slash, 1));
    }
  }
  return tightest;
}

}  // namespace

int usable_cores() {
  const int cores = affinity_cores();
  const double quota = quota_cores();
  return quota > 0.0 ? std::clamp(static_cast<int>(std::ceil(quota)), 1, cores) : cores;
}

size_t second_level_cache() {
  const long bytes = sysconf(_SC_LEVEL2_CACHE_SIZE);
  return bytes > 0 ? static_cast<size_t>(bytes) : 0;
}
