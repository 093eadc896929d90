// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fake_backend.h"

#include <gtest/gtest.h>

namespace tavo_test {

QuietStdout::QuietStdout() {
  testing::internal::CaptureStdout();
}

QuietStdout::~QuietStdout() {
  if (capturing_) {
    testing::internal::GetCapturedStdout();
  }
}

std::string QuietStdout::text() {
  capturing_ = false;
  return testing::internal::GetCapturedStdout();
}

}  // namespace tavo_test
