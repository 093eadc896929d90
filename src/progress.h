// SPDX-License-Identifier: Apache-2.0
//
// The progress line on standard error: share done, speed and time left of one order.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

class Progress {
 public:
  // choice: "on", "off", or "auto", which is on when standard error is a terminal.
  explicit Progress(const std::string& choice);
  ~Progress() { end(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Begins an order of `total` combinations, of which `known` were done before.
  void begin(int order, uint64_t total, uint64_t known = 0);

  // `done` combinations of the order are done. Prints at most five times a second.
  void update(uint64_t done);

  // Ends the order's line.
  void end();

 private:
  using Clock = std::chrono::steady_clock;

  bool on_;
  bool terminal_;  // one line that is overwritten; otherwise a line per update
  int order_ = 0;
  uint64_t total_ = 0;
  uint64_t known_ = 0;
  Clock::time_point started_;
  Clock::time_point printed_;
  bool shown_ = false;
};
