// SPDX-License-Identifier: Apache-2.0
#include "util/stop_signal.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

namespace {

// In a process of its own.
void expect_flag(int number) {
  if (stop_signal() != number) {
    _exit(3);
  }
}

TEST(StopSignalDeathTest, ASignalSetsTheFlagAndTheProcessGoesOn) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(
        {
          catch_stop_signals();
          expect_flag(0);
          std::raise(number);
          expect_flag(number);
          _exit(0);
        },
        testing::ExitedWithCode(0), "");
  }
}

TEST(StopSignalDeathTest, ASecondOneOfAnyKindEndsTheProcess) {
  EXPECT_EXIT(
      {
        catch_stop_signals();
        std::raise(SIGTERM);
        expect_flag(SIGTERM);
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        std::raise(SIGINT);
        _exit(4);
      },
      testing::KilledBySignal(SIGINT), "");
}

TEST(StopSignalDeathTest, AnEchoOfTheFirstIsNoSecondOne) {
  EXPECT_EXIT(
      {
        catch_stop_signals();
        std::raise(SIGTERM);
        std::raise(SIGTERM);
        std::raise(SIGHUP);
        expect_flag(SIGTERM);
        _exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(StopSignalDeathTest, WhatTheParentIgnoredStaysIgnored) {
  EXPECT_EXIT(
      {
        std::signal(SIGHUP, SIG_IGN);
        catch_stop_signals();
        std::raise(SIGHUP);
        expect_flag(0);
        std::raise(SIGTERM);
        std::raise(SIGHUP);
        expect_flag(SIGTERM);
        _exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(StopSignalDeathTest, AClosedPipeMakesWritesFail) {
  EXPECT_EXIT(
      {
        ignore_write_signals();
        int ends[2];
        if (pipe(ends) != 0 || close(ends[0]) != 0) {
          _exit(5);
        }
        _exit(write(ends[1], "x", 1) == -1 ? 0 : 6);
      },
      testing::ExitedWithCode(0), "");
}

TEST(StopSignal, HasAMessageAndAStatus) {
  const StopFlag interrupt = SIGINT;
  EXPECT_EQ(stopped(interrupt).message(), "interrupted by SIGINT; no result was written");
  EXPECT_EQ(stopped_status(interrupt), 130);
  const StopFlag other = 40;
  EXPECT_EQ(stopped(other).message(), "interrupted by signal 40; no result was written");
}

}  // namespace
