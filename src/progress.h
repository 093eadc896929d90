// SPDX-License-Identifier: Apache-2.0
//
// The progress line on standard error: share done, speed and time left of one order, or of another task.
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
  void begin(int order, uint64_t total, uint64_t known = 0) {
    begin("order " + std::to_string(order), "combinations", total, known);
  }

  // Begins a task of `total` things, of which `known` were done before.
  void begin(const std::string& task, const char* things, uint64_t total, uint64_t known);

  // `done` of them are done. Prints at most five times a second.
  void update(uint64_t done);

  // Ends the line.
  void end();

 private:
  using Clock = std::chrono::steady_clock;

  bool on_;
  bool terminal_;  // one line that is overwritten; otherwise a line per update
  std::string task_;
  const char* things_ = "";
  uint64_t total_ = 0;
  uint64_t known_ = 0;
  Clock::time_point started_;
  Clock::time_point printed_;
  bool shown_ = false;
};
