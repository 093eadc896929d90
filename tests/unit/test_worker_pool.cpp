// SPDX-License-Identifier: Apache-2.0
#include "device/worker_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

#include "device/worker.h"
#include "device/worker_state.h"
#include "src/combination_loop.h"
#include "src/cv_search.h"
#include "src/search_state.h"
#include "tests/support/fake_backend.h"
#include "tests/support/run_program.h"

namespace {

using tavo_test::FakeBackend;
using tavo_test::FakeScript;
using tavo_test::QuietStdout;

class Workers : public testing::Test {
 protected:
  void start(int workers) {
    g_cntDevCuda = workers;
    pool_ = std::make_unique<WorkerPool>(backend_, problem_);
  }

  // One fold whose lists of samples nobody looks at.
  Status loop(int n_combinations, uint64_t launch_size, const LoopOutput& output) {
    std::vector<int> combinations;
    for (int i = 0; i < n_combinations; ++i) {
      combinations.insert(combinations.end(), {i, i + 1});
    }
    double milliseconds = 0.0;
    return mdrCombinationCV(*pool_, ScoringRules{}, FoldView{}, combinations, launch_size, output, 0.0,
                            &milliseconds);
  }

  int times_seen(const std::string& what) const {
    return static_cast<int>(std::count_if(script_.seen.begin(), script_.seen.end(),
                                          [&](const std::string& line) { return line.starts_with(what); }));
  }

  // That the ranges searched are next .. end - 1, each rank once.
  void expect_ranges(uint64_t next, uint64_t end) {
    std::sort(script_.ranges.begin(), script_.ranges.end());
    for (const auto& [first, n] : script_.ranges) {
      EXPECT_EQ(first, next);
      next = first + n;
    }
    EXPECT_EQ(next, end);
  }

  // Values are equal everywhere: of both folds, the first four ranks.
  static void expect_first_ranks(const std::vector<std::vector<RankedValue>>& lists) {
    ASSERT_EQ(lists.size(), 2u);
    for (const std::vector<RankedValue>& list : lists) {
      ASSERT_EQ(list.size(), 4u);
      for (uint64_t i = 0; i < 4; ++i) {
        EXPECT_EQ(list[i].rank, i);
      }
    }
  }

  QuietStdout quiet_;
  FakeScript script_;
  FakeBackend backend_{script_};
  Problem problem_;
  std::unique_ptr<WorkerPool> pool_;
};

TEST_F(Workers, AWorkerReportsEachStepOfItsStart) {
  start(1);
  const std::string out = quiet_.text();
  const char* lines[] = {"CUDA::SENDBASEDATA ENTER\n", "Thread 0 start...\n",   "SET_DEVICE 0 END (",
                         "SEND_DATA 0 END (",          "COPY_BASEDATA 0 END (", "0 INIT END ("};
  size_t position = 0;
  for (const char* line : lines) {
    position = out.find(line, position);
    ASSERT_NE(position, std::string::npos) << line << out;
  }
  EXPECT_NE(out.find("CUDA::SENDBASEDATA END\n"), std::string::npos);
  EXPECT_TRUE(pool_->status().ok());
}

TEST_F(Workers, EveryPassIsSharedAndFewerCombinationsThanWorkersGoToTheFirst) {
  start(3);
  std::vector<double> records;
  LoopOutput output;
  output.records = &records;
  ASSERT_TRUE(loop(2, 100, output).ok());
  EXPECT_EQ(times_seen("evaluate_list 0 2"), 1);
  EXPECT_EQ(times_seen("evaluate_list"), 1);
  EXPECT_EQ(records.size(), 2u * kRecordSize);
  EXPECT_EQ(script_.released, 3);
}

TEST_F(Workers, AFullPassGivesEveryWorkerItsLaunchSize) {
  start(3);
  std::vector<double> records;
  LoopOutput output;
  output.records = &records;
  ASSERT_TRUE(loop(20, 4, output).ok());
  // 12, then 8: 2 each and the remainder of 2 to worker 0.
  EXPECT_EQ(times_seen("evaluate_list 0 4"), 2);
  EXPECT_EQ(times_seen("evaluate_list 1 4"), 1);
  EXPECT_EQ(times_seen("evaluate_list 2 2"), 1);
  EXPECT_EQ(records.size(), 20u * kRecordSize);
}

TEST_F(Workers, OneLoopLeavesOneMarkPairPerWorkerAndItsLine) {
  start(2);
  TopList top(2, 5, 0);
  LoopOutput output;
  output.top = &top;
  ASSERT_TRUE(loop(4, 10, output).ok());
  const std::string out = quiet_.text();
  EXPECT_NE(out.find(" loop] - "), std::string::npos);
  EXPECT_EQ(std::count(out.begin(), out.end(), '*'), 2);
}

TEST_F(Workers, AmongEqualValuesTheFirstEvaluatedStayAhead) {
  start(2);
  script_.late = std::chrono::milliseconds(20);
  TopList top(2, 3, 0);
  LoopOutput output;
  output.top = &top;
  ASSERT_TRUE(loop(9, 2, output).ok());
  const std::vector<TopList::Entry> entries = top.entries(3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(entries[static_cast<size_t>(i)].comb, (std::vector<int>{i, i + 1}));
  }
}

TEST_F(Workers, ALateWorkerIsWaitedFor) {
  start(2);
  script_.late = std::chrono::milliseconds(50);
  std::vector<double> records;
  LoopOutput output;
  output.records = &records;
  ASSERT_TRUE(loop(4, 10, output).ok());
  EXPECT_EQ(std::count(records.begin(), records.end(), 0.5), 4 * kRecordSize);
}

TEST_F(Workers, TheFailureOfOneBatchEndsTheLoopWithItsMessage) {
  script_.fail_in = "evaluate_list";
  script_.fail_device = 1;
  script_.fail_call = 1;
  start(2);
  std::vector<double> records;
  LoopOutput output;
  output.records = &records;
  const Status status = loop(12, 2, output);
  EXPECT_FALSE(status.ok());
  EXPECT_EQ(status.message(), "device 1 failed in evaluate_list");
  EXPECT_EQ(times_seen("evaluate_list 1"), 2);
}

TEST_F(Workers, AnExceptionInAWorkerIsAFailureOfTheRun) {
  script_.fail_in = "set_up";
  script_.throws = true;
  start(2);
  std::vector<double> records;
  LoopOutput output;
  output.records = &records;
  const Status status = loop(1, 1, output);
  EXPECT_FALSE(status.ok());
  EXPECT_EQ(status.message(), "out of memory");
}

TEST_F(Workers, AFailureAtTheStartIsKnownBeforeTheFirstCommand) {
  script_.fail_in = "send_genotypes";
  start(2);
  EXPECT_FALSE(pool_->status().ok());
  EXPECT_EQ(times_seen("send_base_data 0"), 0);
}

TEST_F(Workers, TheSearchCoversEveryRankOnceAndKeepsTheFirstOfEqualValues) {
  start(3);
  script_.late = std::chrono::milliseconds(5);
  const std::vector<FoldView> folds(2);
  Progress progress("off");
  Checkpoint checkpoint;
  std::vector<std::vector<RankedValue>> lists;
  ASSERT_TRUE(search_folds(*pool_, {ScoringRules{}, {}, folds, 4}, 20000, progress, checkpoint, &lists).ok());
  expect_ranges(0, 20000);
  expect_first_ranks(lists);
}

TEST_F(Workers, ALateWorkerDoesNotKeepTheOthersFromSearchingOn) {
  start(2);
  script_.late = std::chrono::milliseconds(40);
  const std::vector<FoldView> folds(2);
  Progress progress("off");
  Checkpoint checkpoint;
  std::vector<std::vector<RankedValue>> lists;
  ASSERT_TRUE(search_folds(*pool_, {ScoringRules{}, {}, folds, 4}, 50000, progress, checkpoint, &lists).ok());
  expect_ranges(0, 50000);
  expect_first_ranks(lists);
  EXPECT_LT(times_seen("search_range 0"), times_seen("search_range 1"));
}

// What one worker has at the end of a stream, another one may have begun.
class TwoCommands : public CommandStream {
 public:
  const WorkerCommand* next(int worker) override {
    given_to.push_back(worker);
    return given_to.size() <= 2 ? &command_ : nullptr;
  }
  void finished(int worker) override { finished_by.push_back(worker); }
  bool settle() override { return settled++ < 3; }

  std::vector<int> given_to;
  std::vector<int> finished_by;
  int settled = 0;

 private:
  WorkerBatchCommand command_;
};

TEST_F(Workers, AStreamEndsWhenEveryCommandIsCountedDownAndAllIsSettled) {
  start(2);
  TwoCommands commands;
  ASSERT_TRUE(pool_->stream(commands).ok());
  EXPECT_EQ(commands.finished_by.size(), 2u);
  EXPECT_GE(commands.settled, 4);
  EXPECT_EQ(getCnt, 0);
}

TEST_F(Workers, AStreamGivesNothingAfterAFailureAndWaitsForTheOthers) {
  script_.fail_in = "evaluate_list";
  script_.fail_device = 1;
  script_.late = std::chrono::milliseconds(30);
  start(2);
  TwoCommands commands;
  EXPECT_EQ(pool_->stream(commands).message(), "device 1 failed in evaluate_list");
  EXPECT_EQ(commands.given_to, (std::vector<int>{0, 1}));
  EXPECT_EQ(commands.finished_by, (std::vector<int>{0}));
}

// There is no memory for the second worker's command when the first has its own.
class OneCommandAndNoMemory : public TwoCommands {
 public:
  const WorkerCommand* next(int worker) override {
    return given_to.empty() ? TwoCommands::next(worker) : throw std::bad_alloc();
  }
};

TEST_F(Workers, AStreamWithoutMemoryEndsWhenWhatWasGivenIsCountedDown) {
  start(2);
  OneCommandAndNoMemory commands;
  EXPECT_THROW((void)pool_->stream(commands), std::bad_alloc);
  EXPECT_EQ(commands.given_to, (std::vector<int>{0}));
  EXPECT_EQ(getCnt, 0);
}

TEST_F(Workers, AReleaseThatThrowsIsAFailure) {
  script_.fail_in = "release";
  script_.fail_device = 1;
  script_.throws = true;
  start(2);
  EXPECT_EQ(pool_->broadcast(WorkerCommand{kCommandRelease}).message(), "out of memory");
  EXPECT_EQ(getCnt, 0);
}

TEST_F(Workers, ASearchPrintsNoMarks) {
  start(2);
  const std::vector<FoldView> folds(1);
  Progress progress("off");
  Checkpoint checkpoint;
  std::vector<std::vector<RankedValue>> lists;
  ASSERT_TRUE(search_folds(*pool_, {ScoringRules{}, {}, folds, 4}, 10, progress, checkpoint, &lists).ok());
  EXPECT_EQ(quiet_.text().find('*'), std::string::npos);
}

TEST_F(Workers, AFailingRangeEndsTheSearch) {
  script_.fail_in = "search_range";
  script_.fail_device = tavo_test::FakeScript::kWhichever;
  script_.fail_call = 2;
  start(2);
  const std::vector<FoldView> folds(1);
  Progress progress("off");
  Checkpoint checkpoint;
  std::vector<std::vector<RankedValue>> lists;
  EXPECT_FALSE(
      search_folds(*pool_, {ScoringRules{}, {}, folds, 4}, 1000000, progress, checkpoint, &lists).ok());
}

TEST_F(Workers, AFailedSearchGoesOnWithTheFirstRankThatItsCheckpointLacks) {
  const tavo_test::TempDir folder;
  const std::string path = (folder / "ck").string();
  const std::vector<FoldView> folds(2);
  Progress progress("off");
  std::vector<std::vector<RankedValue>> lists;
  {
    script_.fail_in = "search_range";
    script_.fail_device = tavo_test::FakeScript::kWhichever;
    script_.fail_call = 3;
    start(2);
    Checkpoint checkpoint;
    ASSERT_TRUE(checkpoint.open(path, {}).ok());
    ASSERT_FALSE(
        search_folds(*pool_, {ScoringRules{}, {}, folds, 4}, 20000, progress, checkpoint, &lists).ok());
    pool_.reset();
  }
  Checkpoint checkpoint;
  ASSERT_EQ(checkpoint.open(path, {}).message(), "");
  SearchState state;
  ASSERT_TRUE(restore_search(checkpoint, 2, {20000, folds.size(), 4, false, 0.0}, &state).ok());
  const uint64_t next = state.next;
  EXPECT_GT(next, 0u);
  EXPECT_LT(next, 20000u);
  script_.ranges.clear();
  script_.fail_in.clear();
  start(3);
  ASSERT_TRUE(search_folds(*pool_, {ScoringRules{}, {}, folds, 4}, 20000, progress, checkpoint, &lists).ok());
  expect_ranges(next, 20000);
  expect_first_ranks(lists);  // which the first search found
}

TEST_F(Workers, ACodeThatIsNoCommandIsIgnoredAndNotCountedDown) {
  start(1);
  for (const uint32_t code : {0u, 8u, 1000u}) {
    const WorkerCommand none{code};
    {
      const WorkerLock lock;
      getCnt = 1;
      g_pThrData[0] = &none;
      pthread_cond_broadcast(&g_command_posted);
    }
    const auto taken = [] {
      const WorkerLock lock;
      return g_pThrData[0] == nullptr;
    };
    while (!taken()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const WorkerLock lock;
    EXPECT_EQ(getCnt, 1);
    getCnt = 0;
  }
  std::vector<double> records;
  LoopOutput output;
  output.records = &records;
  EXPECT_TRUE(loop(1, 1, output).ok());
}

TEST_F(Workers, TerminatingDuringALoopIsAccepted) {
  start(2);
  WorkerSetupCommand setup;
  const FoldView fold;
  setup.folds = {&fold, 1};
  ASSERT_TRUE(pool_->broadcast(setup).ok());
  pool_.reset();
  EXPECT_EQ(script_.released, 0);
  EXPECT_EQ(g_isCopied, 0);
}

TEST_F(Workers, OneWorkerCountsFromOneToZero) {
  start(1);
  std::vector<double> records;
  LoopOutput output;
  output.records = &records;
  ASSERT_TRUE(loop(5, 2, output).ok());
  const WorkerLock lock;
  EXPECT_EQ(getCnt, 0);
}

TEST(PassShares, AFullPassGivesEveryWorkerTheLaunchSize) {
  EXPECT_EQ(pass_shares(12, 4, 3), (std::vector<uint64_t>{4, 4, 4}));
  EXPECT_EQ(pass_shares(100, 4, 3), (std::vector<uint64_t>{4, 4, 4}));
}

TEST(PassShares, TheLastPassIsSplitEquallyAndTheFirstWorkerTakesTheRemainder) {
  EXPECT_EQ(pass_shares(11, 4, 3), (std::vector<uint64_t>{5, 3, 3}));
  EXPECT_EQ(pass_shares(2, 4, 3), (std::vector<uint64_t>{2, 0, 0}));
  EXPECT_EQ(pass_shares(1, 4, 1), (std::vector<uint64_t>{1}));
}

}  // namespace
