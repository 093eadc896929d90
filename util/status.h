// SPDX-License-Identifier: Apache-2.0
//
// The outcome of an operation that can fail: success, or the message to print. Nobody below main prints or
// exits.
#pragma once

#include <string>
#include <utility>

class [[nodiscard]] Status {
 public:
  Status() = default;
  static Status failure(std::string message) {
    Status status;
    status.failed_ = true;
    status.message_ = std::move(message);
    return status;
  }
  bool ok() const { return !failed_; }
  const std::string& message() const { return message_; }

 private:
  bool failed_ = false;
  std::string message_;
};
