// SPDX-License-Identifier: Apache-2.0
//
// In a program of its own: here nothing has seeded the generator.
#include <gtest/gtest.h>

#include "lib/rng.h"

namespace {

TEST(RngStart, TheFirstDrawsOfAProcessNeedNoSeed) {
  for (const unsigned long expected : {3499211612UL, 581869302UL, 3890346734UL, 3586334585UL, 545404204UL}) {
    EXPECT_EQ(int32_rand(), expected);
  }
}

}  // namespace
