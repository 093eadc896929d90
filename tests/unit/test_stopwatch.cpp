// SPDX-License-Identifier: Apache-2.0
#include "util/stopwatch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

void wait(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST(Stopwatch, TimeAccumulatesBetweenStartAndStop) {
  unsigned timer = 0;
  ASSERT_EQ(cutCreateTimer(&timer), 1);
  EXPECT_EQ(cutGetTimerValue(timer), 0.0f);
  cutStartTimer(timer);
  wait(20);
  cutStopTimer(timer);
  const float first = cutGetTimerValue(timer);
  EXPECT_GE(first, 20.0f);
  wait(20);
  EXPECT_EQ(cutGetTimerValue(timer), first);
  cutStartTimer(timer);
  wait(20);
  cutStopTimer(timer);
  EXPECT_GE(cutGetTimerValue(timer), first + 20.0f);
  cutResetTimer(timer);
  EXPECT_EQ(cutGetTimerValue(timer), 0.0f);
  EXPECT_EQ(cutDeleteTimer(timer), 1);
}

TEST(Stopwatch, AnUnknownTimerIsAnError) {
  EXPECT_EQ(cutStartTimer(0), 0);
  EXPECT_EQ(cutStopTimer(0), 0);
  EXPECT_EQ(cutResetTimer(0), 0);
  EXPECT_EQ(cutDeleteTimer(0), 0);
  EXPECT_EQ(cutGetTimerValue(0), 0.0f);
}

}  // namespace
