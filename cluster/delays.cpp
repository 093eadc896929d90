// SPDX-License-Identifier: Apache-2.0
#include "cluster/delays.h"

#include <unistd.h>

#include <chrono>
#include <functional>
#include <random>
#include <thread>

#include "cluster/environment.h"

namespace {

int longest_delay() {
  return static_cast<int>(environment_number("TAVO_RANK_DELAYS", 0.0, 10000.0).value_or(0.0));
}

}  // namespace

void random_delay() {
  static const int longest = longest_delay();
  if (longest > 0) {
    const size_t thread = std::hash<std::thread::id>()(std::this_thread::get_id());
    thread_local std::minstd_rand random(static_cast<unsigned>(thread) + static_cast<unsigned>(getpid()));
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, 1000 * longest)(random)));
  }
}
