// SPDX-License-Identifier: Apache-2.0
#include "cluster/delays.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>

namespace {

int longest_delay() {
  const char* text = std::getenv("TAVO_RANK_DELAYS");
  return text != nullptr ? static_cast<int>(std::strtol(text, nullptr, 10)) : 0;
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
