// SPDX-License-Identifier: Apache-2.0
#include "util/stop_signal.h"

#include <csignal>
#include <cstdint>
#include <ctime>
#include <string>

namespace {

// As shells report a process that a signal has ended.
constexpr int kSignalStatus = 128;

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

StopFlag process_flag{0};

// Milliseconds within which a signal is an echo of the one before: `timeout` sends its signal twice, to the
// process and to its group, and so may launchers of jobs and terminals that close.
constexpr int64_t kEcho = 500;

int64_t milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);  // which signal handlers may call
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

std::atomic<int64_t> noted_at{0};
static_assert(StopFlag::is_always_lock_free && std::atomic<int64_t>::is_always_lock_free,
              "a signal handler sets them");

// The first is noted; one that is no echo ends the process.
void note_signal(int number) {
  if (process_flag == 0) {
    noted_at = milliseconds();
    process_flag = number;
    return;
  }
  if (milliseconds() - noted_at < kEcho) {
    return;
  }
  for (const int other : kStopSignals) {
    struct sigaction before {};
    if (sigaction(other, nullptr, &before) == 0 && before.sa_handler == note_signal) {
      std::signal(other, SIG_DFL);
    }
  }
  // Delivered when this handler has returned.
  raise(number);
}

const char* name_of(int number) {
  switch (number) {
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    case SIGHUP:
      return "SIGHUP";
    default:
      return nullptr;
  }
}

}  // namespace

const StopFlag& stop_signal() {
  return process_flag;
}

void ignore_write_signals() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

void catch_stop_signals() {
  struct sigaction action {};
  action.sa_handler = note_signal;
  for (const int number : kStopSignals) {
    sigaddset(&action.sa_mask, number);
  }
  for (const int number : kStopSignals) {
    struct sigaction before {};
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
}

Status stopped(const StopFlag& stop) {
  const int number = stop;
  const char* name = name_of(number);
  return Status::failure("interrupted by " + (name != nullptr ? name : "signal " + std::to_string(number)) +
                         "; no result was written");
}

int stopped_status(const StopFlag& stop) {
  return kSignalStatus + stop;
}
