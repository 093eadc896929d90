// SPDX-License-Identifier: Apache-2.0
#include "util/stop_signal.h"

#include <csignal>
#include <string>

namespace {

// As shells report a process that a signal has ended.
constexpr int kSignalStatus = 128;

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

StopFlag process_flag{0};
static_assert(StopFlag::is_always_lock_free, "a signal handler sets it");

void note_signal(int number) {
  process_flag = number;
  for (const int other : kStopSignals) {
    struct sigaction before {};
    if (sigaction(other, nullptr, &before) == 0 && before.sa_handler == note_signal) {
      std::signal(other, SIG_DFL);
    }
  }
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
