// SPDX-License-Identifier: Apache-2.0
#include "cluster/link.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/cluster/in_process.h"

namespace tavo_test {
namespace {

// Sends back whatever comes, until an end comes.
void echo(Link& link) {
  Bytes message;
  while (link.receive(0, 0.0, &message).ok() && message.size() != sizeof(uint32_t)) {
    link.send(0, message);
  }
}

Bytes counting(size_t n) {
  Bytes bytes(n);
  std::iota(bytes.begin(), bytes.end(), uint8_t{1});
  return bytes;
}

TEST(Links, KeepTheMessagesOfARankInTheirOrderWhateverTheirParts) {
  InProcessJob job(3, echo, 7);
  const size_t sizes[] = {1, 6, 7, 8, 14, 100};
  for (const size_t size : sizes) {
    job.link().send(1, counting(size));
    job.link().send(2, counting(size + 20));
  }
  for (const size_t size : sizes) {
    Bytes one;
    Bytes two;
    ASSERT_TRUE(job.link().receive(1, 0.0, &one).ok());
    ASSERT_TRUE(job.link().receive(2, 0.0, &two).ok());
    EXPECT_EQ(one, counting(size));
    EXPECT_EQ(two, counting(size + 20));
  }
}

TEST(Links, NameARank) {
  InProcessJob job(2, echo);
  EXPECT_EQ(job.link().name(1), "rank 1 (host1)");
}

TEST(Links, GiveARankUpThatIsSilent) {
  InProcessJob job(2, echo);
  Bytes message;
  EXPECT_FALSE(job.link().is_abandoned());
  const Status status = job.link().receive(1, 0.2, &message);
  EXPECT_EQ(status.message(), "rank 1 (host1) has given no sign of life for 0 seconds");
  EXPECT_TRUE(job.link().is_abandoned());
}

// The other may have been suspended with this one.
TEST(Links, DoNotTakeTheirOwnStandstillForSilence) {
  InProcessJob job(2, [](Link& link) {
    Bytes message;
    (void)link.receive(0, 0.0, &message).ok();
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    link.send(0, message);
    (void)link.receive(0, 0.0, &message).ok();
  });
  Bytes message;
  job.link().send(1, counting(5));
  job.suspend(std::chrono::milliseconds(1400));
  EXPECT_EQ(job.link().receive(1, 0.8, &message).message(), "");
  EXPECT_EQ(message, counting(5));
}

TEST(Links, GiveARankUpThatStopsWithinAMessage) {
  InProcessJob job(2, echo);
  job.stop(1);
  job.link().send(1, counting(30));
  Bytes message;
  EXPECT_EQ(job.link().receive(1, 0.3, &message).message(),
            "rank 1 (host1) has given no sign of life for 0 seconds");
}

TEST(Links, GiveARankUpThatStopsWithinABroadcast) {
  InProcessJob job(3, [](Link& link) {
    Bytes bytes(10);
    (void)link.broadcast(bytes.data(), bytes.size(), 0.0).ok();
    for (int i = 0; link.rank() == 1 && i < 100; ++i) {
      link.send_sign_of_life(0);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    Bytes end;
    (void)link.receive(0, 0.0, &end).ok();
  });
  job.stop(2);
  Bytes bytes = counting(10);
  const Status status = job.link().broadcast(bytes.data(), bytes.size(), 1.0);
  EXPECT_TRUE(status.message().starts_with("rank 2 (host2) has given no sign of life")) << status.message();
  EXPECT_TRUE(job.link().is_abandoned());
}

TEST(Links, WaitForARankThatGivesSignsOfLife) {
  InProcessJob job(2, [](Link& link) {
    for (int i = 0; i < 20; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(40));
      link.send_sign_of_life(0);
    }
    link.send(0, counting(9));
    Bytes message;
    (void)link.receive(0, 0.0, &message).ok();
  });
  Bytes message;
  ASSERT_EQ(job.link().receive(1, 0.5, &message).message(), "");
  EXPECT_EQ(message, counting(9));
}

TEST(Links, FailForEverybodyWhenTheTransportDoes) {
  InProcessJob job(2, echo);
  job.cut();
  Bytes message;
  EXPECT_EQ(job.link().receive(1, 0.0, &message).message(), "the job cannot go on: the line is cut");
}

TEST(Links, TellTheEndOfAProcessOfTheirHostAtOnce) {
  Switchboard board(3);
  board.put_on_one_host();
  std::mutex lock;
  std::string told;
  Link first(board.transport(0));
  first.tell_failure([&](const std::string& failure) {
    const std::lock_guard guard(lock);
    told += failure;
  });
  Link second(board.transport(1));
  board.end(2);
  Bytes message;
  EXPECT_EQ(first.receive(1, 0.0, &message).message(), "the job cannot go on");
  // Only the first rank of a host looks after the third.
  EXPECT_TRUE(second.receive(0, 0.1, &message).message().starts_with("rank 0 (host) has given no sign"));
  const std::lock_guard guard(lock);
  EXPECT_EQ(told, "rank 2 (host) has ended before the job");
}

TEST(Links, TellWhatFailedBeforeTheyWereAsked) {
  Switchboard board(2);
  board.put_on_one_host();
  Link first(board.transport(0));
  Bytes message;
  board.end(1);
  EXPECT_EQ(first.receive(1, 0.0, &message).message(),
            "the job cannot go on: rank 1 (host) has ended before the job");
  std::string told;
  first.tell_failure([&](const std::string& failure) { told += failure; });
  EXPECT_EQ(told, "rank 1 (host) has ended before the job");
}

TEST(Links, DoNotTakeABroadcastThatWasCutOffForOneThatIsOver) {
  Switchboard board(2);
  Link first(board.transport(0));
  board.stop(1);
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    board.cut();
  });
  Bytes bytes(100);
  EXPECT_EQ(first.broadcast(bytes.data(), bytes.size(), 0.0).message(),
            "the job cannot go on: the line is cut");
  other.join();
}

TEST(Links, GiveEveryRankTheBytesOfRankZero) {
  constexpr size_t kSize = 100;
  InProcessJob job(
      3,
      [](Link& link) {
        Bytes bytes(kSize);
        (void)link.broadcast(bytes.data(), bytes.size(), 0.0).ok();
        link.send(0, bytes);
        Bytes end;
        (void)link.receive(0, 0.0, &end).ok();
      },
      7);
  Bytes bytes = counting(kSize);
  ASSERT_TRUE(job.link().broadcast(bytes.data(), bytes.size(), 60.0).ok());
  for (const int rank : {1, 2}) {
    Bytes theirs;
    ASSERT_TRUE(job.link().receive(rank, 0.0, &theirs).ok());
    EXPECT_EQ(theirs, bytes);
  }
}

}  // namespace
}  // namespace tavo_test
