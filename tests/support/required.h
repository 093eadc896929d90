// SPDX-License-Identifier: Apache-2.0
//
// What a test needs beside the programs: another program, a part of the build. Without it a test is skipped,
// so that the suite can be run anywhere; with TAVO_REQUIRE_TOOLS=1, which scripts/test.sh sets after it has
// installed what is missing, it fails.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace tavo_test {

inline bool tools_required() {
  const char* required = std::getenv("TAVO_REQUIRE_TOOLS");
  return required != nullptr && std::string(required) == "1";
}

}  // namespace tavo_test

// Ends the test unless `there`. In a TEST body or SetUp.
#define TAVO_NEEDS(there, what)                                          \
  if (!(there)) {                                                        \
    if (tavo_test::tools_required()) {                                   \
      FAIL() << "TAVO_REQUIRE_TOOLS=1, but this is missing: " << (what); \
    }                                                                    \
    GTEST_SKIP() << (what) << " is missing";                             \
  }                                                                      \
  static_assert(true, "takes a semicolon")
