// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

// Of this process so far, user and system.
inline double processor_seconds() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}
