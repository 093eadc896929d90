// SPDX-License-Identifier: Apache-2.0
#include "util/stopwatch.h"

#include <chrono>
#include <map>
#include <mutex>

namespace {

using Clock = std::chrono::steady_clock;

struct Timer {
  Clock::time_point started;
  Clock::duration total{};
  bool running = false;

  Clock::duration elapsed() const { return running ? total + (Clock::now() - started) : total; }
};

std::mutex table_lock;
std::map<unsigned, Timer> timers;
unsigned next_timer = 1;

// Runs action on a timer under the lock; 0 when there is no such timer.
template <typename Action>
int with_timer(unsigned timer, Action action) {
  const std::lock_guard lock(table_lock);
  const auto entry = timers.find(timer);
  if (entry == timers.end()) {
    return 0;
  }
  action(entry->second);
  return 1;
}

}  // namespace

int cutCreateTimer(unsigned* timer) {
  const std::lock_guard lock(table_lock);
  *timer = next_timer++;
  timers.emplace(*timer, Timer{});
  return 1;
}

int cutDeleteTimer(unsigned timer) {
  const std::lock_guard lock(table_lock);
  return timers.erase(timer) == 1 ? 1 : 0;
}

int cutResetTimer(unsigned timer) {
  return with_timer(timer, [](Timer& t) {
    t.total = Clock::duration::zero();
    t.started = Clock::now();
  });
}

int cutStartTimer(unsigned timer) {
  return with_timer(timer, [](Timer& t) {
    t.started = Clock::now();
    t.running = true;
  });
}

int cutStopTimer(unsigned timer) {
  return with_timer(timer, [](Timer& t) {
    t.total = t.elapsed();
    t.running = false;
  });
}

float cutGetTimerValue(unsigned timer) {
  float milliseconds = 0.0f;
  with_timer(timer, [&](const Timer& t) {
    milliseconds = std::chrono::duration<float, std::milli>(t.elapsed()).count();
  });
  return milliseconds;
}
