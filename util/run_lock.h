// SPDX-License-Identifier: Apache-2.0
//
// A lock that one process holds: an empty file beside what it guards. What a killed process leaves of it is
// no lock any more, and the next holder takes it over.
#pragma once

#include <string>

#include "util/status.h"

class RunLock {
 public:
  RunLock() = default;
  ~RunLock() { release(); }
  RunLock(const RunLock&) = delete;
  RunLock& operator=(const RunLock&) = delete;

  // Takes the lock. Fails when another process holds it, when the file cannot be created, or when a file that
  // is not empty stands there. A file system without locks gives it to everybody.
  Status take(const std::string& path);

  // Takes the file away.
  void release();

 private:
  int descriptor_ = -1;
  std::string path_;
};
