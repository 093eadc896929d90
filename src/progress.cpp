// SPDX-License-Identifier: Apache-2.0
#include "src/progress.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace {

constexpr std::chrono::milliseconds kInterval{200};
// In a log the line is not overwritten: after the first, one now and then is enough.
constexpr std::chrono::seconds kLogInterval{10};

std::string duration_text(double seconds) {
  char text[64];
  const auto whole = std::llround(seconds);
  if (whole >= 3600) {
    std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof(text), "%lld:%02lld", whole / 60, whole % 60);
  }
  return text;
}

std::string rate_text(double rate) {
  char text[64];
  const bool many = rate >= 1e5;
  std::snprintf(text, sizeof(text), many ? "%.3g million/s" : "%.0f/s", many ? rate / 1e6 : rate);
  return text;
}

}  // namespace

Progress::Progress(const std::string& choice)
    : on_(choice == "on" || (choice == "auto" && isatty(STDERR_FILENO) != 0)),
      terminal_(isatty(STDERR_FILENO) != 0) {}

void Progress::begin(const std::string& task, const char* things, uint64_t total, uint64_t known) {
  task_ = task;
  things_ = things;
  total_ = total;
  known_ = known;
  started_ = printed_ = Clock::now();
  shown_ = false;
}

void Progress::update(uint64_t done) {
  const Clock::time_point now = Clock::now();
  if (!on_ || now - printed_ < (shown_ && !terminal_ ? kLogInterval : kInterval) || done <= known_) {
    return;
  }
  printed_ = now;
  const double seconds = std::chrono::duration<double>(now - started_).count();
  const double rate = static_cast<double>(done - known_) / seconds;
  const double share = static_cast<double>(done) / static_cast<double>(total_);
  const double left = static_cast<double>(total_ - done) / rate;
  std::fflush(stdout);
  std::fprintf(stderr, "%stavo: %s: %.1f%% of %llu %s, %s, %s left%s", terminal_ ? "\r\033[K" : "",
               task_.c_str(), 100.0 * share, static_cast<unsigned long long>(total_), things_,
               rate_text(rate).c_str(), duration_text(left).c_str(), terminal_ ? "" : "\n");
  shown_ = true;
}

void Progress::end() {
  if (shown_ && terminal_) {
    std::fputs("\r\033[K", stderr);
  }
  shown_ = false;
}
