// SPDX-License-Identifier: Apache-2.0
//
// How far a pass has come, on standard error if that is a terminal; else nothing.
#pragma once

#include <chrono>
#include <cstdint>

class Progress {
 public:
  // what: a word for the pass, kept by the caller. total: of the steps, 0 when it is not known.
  Progress(const char* what, int64_t total);
  // Clears the line.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Shows the share of the steps that are done, their rate and the time left, or the number of them that are
  // done; five times a second at most.
  void at(int64_t done);

 private:
  const char* what_;
  int64_t total_;
  bool on_terminal_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point last_{};
};
