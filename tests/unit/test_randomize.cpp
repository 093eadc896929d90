// SPDX-License-Identifier: Apache-2.0
//
// In a program of its own, linked with --wrap for time, srand and rand: the real ones would make this take up
// to 2^31 draws.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "lib/permutation.h"

namespace {
time_t now = 0;
unsigned seeded_with = 0;
int first_draw = 0;
int n_draws = 0;
}  // namespace

extern "C" {
time_t __wrap_time(time_t* result);
void __wrap_srand(unsigned seed);
int __wrap_rand();

time_t __wrap_time(time_t* result) {
  if (result != nullptr) {
    *result = now;
  }
  return now;
}

void __wrap_srand(unsigned seed) {
  seeded_with = seed;
  n_draws = 0;
}

int __wrap_rand() {
  return n_draws++ == 0 ? first_draw : 0;
}
}

namespace {

TEST(Randomize, SeedsWithTheTimeAndDiscardsAsManyDrawsAsItReturns) {
  now = 1234567;
  first_draw = 5000;
  EXPECT_EQ(randomize(), 5000);
  EXPECT_EQ(seeded_with, 1234567U);
  EXPECT_EQ(n_draws, 1 + 5000);
}

TEST(Randomize, TheLargestDrawIsReducedToNone) {
  first_draw = 2147483647;
  EXPECT_EQ(randomize(), 0);
  EXPECT_EQ(n_draws, 1);
}

}  // namespace
