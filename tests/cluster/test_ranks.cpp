// SPDX-License-Identifier: Apache-2.0
//
// Rank 0's pool of workers with other ranks behind it, over a link in memory: what they find together is what
// one finds alone, and what goes wrong on one is said with its name.
#include <gtest/gtest.h>

#include <cstdlib>

#include "cluster/cluster_backend.h"
#include "cluster/job.h"
#include "cluster/servant.h"
#include "cpu/cpu_backend.h"
#include "device/worker.h"
#include "lib/comb_rank.h"
#include "src/combination_loop.h"
#include "src/cv_search.h"
#include "src/regression.h"
#include "tests/cluster/in_process.h"
#include "tests/support/fake_backend.h"
#include "tests/support/regression_data.h"
#include "tests/support/search_scene.h"

namespace tavo_test {
namespace {

// Long enough for a busy machine under a sanitizer.
constexpr double kPatience = 60.0;

// A servant with a processor backend of its own.
void serve_on_cpu(Link& link) {
  CpuBackend backend;
  const auto read_words = [](const SharedInput& input, std::vector<uint32_t>*) {
    return Status::failure("cannot read " + input.path);
  };
  (void)serve(link, {[&](const std::string&, Status*) { return &backend; }, read_words}).ok();
}

RankConfig two_workers() {
  RankConfig config;
  config.device = "cpu";
  config.workers = 2;
  config.silence_limit = kPatience;
  return config;
}

// A pool of one worker here and two on each other rank; of one worker alone with one rank.
class PoolOfRanks {
 public:
  PoolOfRanks(int ranks, const Problem& problem)
      : job_(ranks, serve_on_cpu), backend_(local_, job_.link(), 1, kPatience) {
    g_cntDevCuda = 1;
    std::vector<std::string> descriptions;
    EXPECT_EQ(configure_ranks(job_.link(), two_workers(), &descriptions).message(), "");
    EXPECT_EQ(descriptions.size(), static_cast<size_t>(ranks) - 1);
    pool_ = std::make_unique<WorkerPool>(backend_, problem);
    EXPECT_EQ(pool_->status().message(), "");
    EXPECT_EQ(pool_->size(), ranks);
  }
  WorkerPool& operator*() { return *pool_; }

 private:
  CpuBackend local_;
  InProcessJob job_;
  ClusterBackend backend_;
  std::unique_ptr<WorkerPool> pool_;
};

class Ranks : public testing::Test {
 protected:
  QuietStdout quiet_;
};

std::vector<std::vector<RankedValue>> search(int ranks, const Scene& scene, const ScoringRules& rules,
                                             const Problem* other = nullptr) {
  PoolOfRanks pool(ranks, scene.problem);
  const std::vector<FoldView> folds = scene.folds.views(0);
  FoldSearch wanted{rules, scene.folds.samples, folds, 12};
  wanted.problem = other;
  Progress progress("off");
  Checkpoint checkpoint;
  std::vector<std::vector<RankedValue>> lists;
  EXPECT_EQ(search_folds(*pool, wanted, comb_count(scene.problem.n_snps, rules.order).value(), progress,
                         checkpoint, &lists)
                .message(),
            "");
  return lists;
}

void expect_same(const std::vector<std::vector<RankedValue>>& a,
                 const std::vector<std::vector<RankedValue>>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (size_t f = 0; f < a.size(); ++f) {
    ASSERT_EQ(a[f].size(), b[f].size()) << "fold " << f;
    for (size_t i = 0; i < a[f].size(); ++i) {
      EXPECT_EQ(a[f][i].rank, b[f][i].rank);
      EXPECT_EQ(a[f][i].value, b[f][i].value);
    }
  }
}

TEST_F(Ranks, FindTogetherWhatOneFindsAlone) {
  std::mt19937 random(21);
  const Scene scene(random, 60, 40, 0.02, 3, true);
  for (const int measure : {0, 3}) {
    const ScoringRules rules{3, 4, 1, measure};
    expect_same(search(3, scene, rules), search(1, scene, rules));
  }
}

TEST_F(Ranks, TakeThePermutedClassesAndScoresOfASetup) {
  std::mt19937 random(22);
  Scene scene(random, 60, 40, 0.02, 3, false);
  scene.draw_scores(random);
  Problem other = scene.problem;
  const std::vector<float> turned(scene.scores.rbegin(), scene.scores.rend());
  other.scores = turned.data();
  const ScoringRules rules{2, 4, 1, 0};
  const auto lists = search(2, scene, rules, &other);
  expect_same(lists, search(1, scene, rules, &other));
  const auto ranks_of_first = [](const std::vector<std::vector<RankedValue>>& of) {
    std::vector<uint64_t> ranks;
    for (const RankedValue& entry : of[0]) {
      ranks.push_back(entry.rank);
    }
    return ranks;
  };
  EXPECT_NE(ranks_of_first(lists), ranks_of_first(search(1, scene, rules)));
}

TEST_F(Ranks, MakeTheSameRecords) {
  std::mt19937 random(23);
  const Scene scene(random, 50, 30, 0.05, 3, false);
  const std::vector<FoldView> folds = scene.folds.views(0);
  std::vector<int> combinations;
  for (int i = 0; i < 28; ++i) {
    combinations.insert(combinations.end(), {i, i + 1, i + 2});
  }
  std::vector<double> records[2];
  for (const int ranks : {1, 3}) {
    PoolOfRanks pool(ranks, scene.problem);
    LoopOutput output;
    output.records = &records[ranks / 2];
    double milliseconds = 0.0;
    ASSERT_TRUE(
        mdrCombinationCV(*pool, {3, 4, 1, 0}, folds[1], combinations, 5, output, 0.0, &milliseconds).ok());
  }
  EXPECT_EQ(records[0].size(), 28u * kRecordSize);
  EXPECT_EQ(std::memcmp(records[0].data(), records[1].data(), records[0].size() * sizeof(double)), 0);
}

TEST_F(Ranks, FitTheSameModelsInTheSameOrder) {
  RegressionData data;
  std::mt19937 random(24);
  make_random(random, 70, 30, 2, 0.02, false, &data);
  for (const RegressionModel model :
       {RegressionModel::kLogistic, RegressionModel::kLinear, RegressionModel::kOrderedLogistic}) {
    RegressionRules rules;
    rules.model = model;
    std::vector<RegressionRow> rows[2];
    std::vector<int> snps[2];
    for (const int ranks : {1, 3}) {
      PoolOfRanks pool(ranks, data.problem);
      RegressionLoop loop;
      loop.take = [&](FittedItem&& item) {
        rows[ranks / 2].push_back(item.row);
        snps[ranks / 2].insert(snps[ranks / 2].end(), item.snps.begin(), item.snps.end());
      };
      uint64_t next = 0;
      ASSERT_EQ(regrProcess(*pool, data.problem, rules, 7, loop, &next).message(), "");
    }
    EXPECT_EQ(snps[0], snps[1]);
    ASSERT_EQ(rows[0].size(), rows[1].size());
    EXPECT_EQ(std::memcmp(rows[0].data(), rows[1].data(), rows[0].size() * sizeof(RegressionRow)), 0);
  }
}

// A pool of one fake device on rank 0 and one on rank 1, which do what the scripts say.
class FakeRanks : public Ranks {
 protected:
  void start(double limit = kPatience) {
    g_cntDevCuda = 1;
    RankConfig config;
    config.workers = 1;
    config.silence_limit = limit;
    std::vector<std::string> descriptions;
    ASSERT_TRUE(configure_ranks(job_.link(), config, &descriptions).ok());
    EXPECT_EQ(descriptions, (std::vector<std::string>{"fake, 1 worker, fake"}));
    backend_ = std::make_unique<ClusterBackend>(here_, job_.link(), 1, limit);
  }

  Status search() {
    WorkerPool pool(*backend_, problem_);
    if (!pool.status().ok()) {
      return pool.status();
    }
    const std::vector<FoldView> folds(2);
    Progress progress("off");
    Checkpoint checkpoint;
    std::vector<std::vector<RankedValue>> lists;
    return search_folds(pool, {ScoringRules{}, {}, folds, 4}, 100000, progress, checkpoint, &lists);
  }

  FakeScript here_script_;
  FakeScript there_script_;
  FakeBackend here_{here_script_};
  FakeBackend there_{there_script_};
  Problem problem_;
  InProcessJob job_{2, [this](Link& link) {
                      (void)serve(link, {[this](const std::string&, Status*) { return &there_; },
                                         [](const SharedInput& input, std::vector<uint32_t>*) {
                                           return Status::failure("cannot read " + input.path);
                                         }})
                          .ok();
                    }};
  std::unique_ptr<ClusterBackend> backend_;
};

TEST_F(FakeRanks, ThatFailAreNamed) {
  there_script_.fail_in = "search_range";  // at its first: rank 0 may be done before it asks for a second
  start();
  EXPECT_EQ(search().message(), "rank 1 (host1): device 0 failed in search_range");
  EXPECT_FALSE(job_.link().is_abandoned());
}

TEST_F(FakeRanks, ThatThrowAreNamed) {
  there_script_.fail_in = "set_up";
  there_script_.throws = true;
  start();
  EXPECT_EQ(search().message(), "rank 1 (host1): out of memory");
}

TEST_F(FakeRanks, ThatCannotReadTheSharedFileAreNamed) {
  start();
  SharedInput input;
  input.path = "g.tavo";
  backend_->share_input(input);
  EXPECT_EQ(search().message(), "rank 1 (host1): cannot read g.tavo");
}

TEST_F(FakeRanks, ThatTakeLongerThanTheLimitGiveSignsOfLife) {
  there_script_.late = std::chrono::milliseconds(1000);
  start(0.8);
  EXPECT_EQ(search().message(), "");
}

// They say so before the broadcast, in which all would wait for them.
TEST_F(FakeRanks, ThatHaveNoRoomForTheGenotypesAreNamed) {
  start();
  problem_.n_samples = 3;
  problem_.words_per_row = int64_t{1} << 61;
  EXPECT_EQ(search().message(), "rank 1 (host1): out of memory");
  EXPECT_FALSE(job_.link().is_abandoned());
  EXPECT_EQ(dismiss_ranks(job_.link()).message(), "");
}

// Rank 1 is there when it is asked what it has, and then no more.
TEST(LostRanks, AreNamed) {
  const QuietStdout quiet;
  InProcessJob job(2, [](Link& link) {
    Bytes message;
    (void)link.receive(0, 0.0, &message).ok();
    ByteWriter reply = answer();
    reply.put_text("lost soon");
    link.send(0, reply.take());
    (void)link.receive(0, 0.0, &message).ok();
  });
  RankConfig config;
  std::vector<std::string> descriptions;
  ASSERT_TRUE(configure_ranks(job.link(), config, &descriptions).ok());
  FakeScript script;
  FakeBackend here(script);
  ClusterBackend backend(here, job.link(), 1, 0.3);
  g_cntDevCuda = 1;
  const Problem problem;
  const WorkerPool pool(backend, problem);
  EXPECT_TRUE(pool.status().message().starts_with("rank 1 (host1) has given no sign of life"))
      << pool.status().message();
}

TEST(LostRanks, AreNamedAtTheEndOfTheJobToo) {
  setenv("TAVO_RANK_SILENCE", "0.3", 1);
  InProcessJob job(2, [](Link& link) {
    Bytes message;
    while (link.receive(0, 0.0, &message).ok()) {
    }
  });
  EXPECT_TRUE(dismiss_ranks(job.link()).message().starts_with("rank 1 (host1) has given no sign of life"));
  EXPECT_TRUE(job.link().is_abandoned());
  EXPECT_EQ(dismiss_ranks(job.link()).message(), "");  // said before
  unsetenv("TAVO_RANK_SILENCE");
}

TEST(RanksOfAHost, DealItsDevicesAmongThemselves) {
  for (int local = 0; local < 3; ++local) {
    EXPECT_EQ(device_of_rank(0, local, 3, 8), local);
    EXPECT_EQ(device_of_rank(1, local, 3, 8), local + 3);
  }
  EXPECT_EQ(device_of_rank(5, 0, 1, 8), 5);  // alone: its own numbers
  EXPECT_EQ(device_of_rank(0, 5, 8, 1), 0);  // each sees a device of its own
}

class CountedBackend : public FakeBackend {
 public:
  CountedBackend(FakeScript& script, int devices, int all)
      : FakeBackend(script), devices_(devices), all_(all) {}
  int device_count() const override { return devices_; }
  int devices_of_machine() const override { return all_; }

 private:
  int devices_;
  int all_;
};

TEST(RanksOfAHost, TakeTheirPartOfTheDevicesUnlessTheyWereGivenTheirOwn) {
  FakeScript script;
  EXPECT_EQ(workers_of_rank(0, 1, CountedBackend(script, 8, 8)), 8);
  EXPECT_EQ(workers_of_rank(0, 3, CountedBackend(script, 8, 8)), 3);
  EXPECT_EQ(workers_of_rank(2, 3, CountedBackend(script, 8, 8)), 2);
  EXPECT_EQ(workers_of_rank(3, 4, CountedBackend(script, 2, 2)), 1);
  EXPECT_EQ(workers_of_rank(1, 2, CountedBackend(script, 16, 32)), 16);
}

}  // namespace
}  // namespace tavo_test
