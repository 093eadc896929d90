// SPDX-License-Identifier: Apache-2.0
#include "tools/progress.h"

#include <unistd.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>

namespace {

constexpr std::chrono::milliseconds kPause{200};
constexpr const char* kClearLine = "\r\033[K";

}  // namespace

Progress::Progress(const char* what, int64_t total)
    : what_(what), total_(total), on_terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  if (shown_) {
    std::fputs(kClearLine, stderr);
  }
}

void Progress::at(int64_t done) {
  const auto now = std::chrono::steady_clock::now();
  if (!on_terminal_ || now - last_ < kPause) {
    return;
  }
  last_ = now;
  shown_ = true;
  if (total_ == 0) {
    std::fprintf(stderr, "%s%s: %" PRId64, kClearLine, what_, done);
    return;
  }
  const double share = static_cast<double>(done) / static_cast<double>(total_);
  const double seconds = std::chrono::duration<double>(now - started_).count();
  std::fprintf(stderr, "%s%s: %.0f%%", kClearLine, what_, 100.0 * share);
  if (done > 0) {
    const int64_t left = std::llround(seconds / share - seconds);
    std::fprintf(stderr, ", %.0f a second, %" PRId64 ":%02d left", static_cast<double>(done) / seconds,
                 left / 60, static_cast<int>(left % 60));
  }
}
