// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace tavo_test {

// The largest file that this process may write, and an error instead of a signal beyond it.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit lower{bytes, before_.rlim_max};
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &lower);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int) = SIG_DFL;
};

}  // namespace tavo_test
