// SPDX-License-Identifier: Apache-2.0
//
// Want of memory at every single allocation of what begins and ends other things: threads, files under two
// names.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>

#include "cluster/device_team.h"
#include "device/worker.h"
#include "device/worker_pool.h"
#include "tests/faults/failing_allocations.h"
#include "tests/support/fake_backend.h"
#include "tests/support/run_program.h"
#include "util/output_file.h"

// No second names, as on file systems that have none: in place of the C library's.
extern "C" int link(const char* /*from*/, const char* /*to*/) noexcept {
  errno = EPERM;
  return -1;
}

namespace tavo_test {
namespace {

TEST(Allocations, OfAPoolThatFailLeaveNoWorkerBehind) {
  FakeScript script;
  FakeBackend backend(script);
  const Problem problem;
  g_cntDevCuda = 3;
  int n = 0;
  int n_left_behind = 0;
  Status next_pool;
  {
    const QuietStdout quiet;  // also of what a failed expectation says
    n = with_each_allocation_failing(
        [&] { const WorkerPool pool(backend, problem); },
        [&] { n_left_behind += g_pThrData != nullptr || g_isCopied != 0 ? 1 : 0; });
    WorkerPool pool(backend, problem);
    next_pool = pool.broadcast(WorkerCommand{kCommandRelease});
  }
  EXPECT_GE(n, 9);  // the vectors, the arrays, a start record for each worker
  EXPECT_EQ(n_left_behind, 0);
  EXPECT_EQ(next_pool.message(), "");
}

class NoDevices : public FakeBackend {
 public:
  using FakeBackend::FakeBackend;
  std::unique_ptr<Device> open(int) override {
    throw std::runtime_error("a reason that is so long that a copy of it needs memory");
  }
};

// The threads of the team are there when its devices turn out not to be.
TEST(Allocations, OfATeamThatFailLeaveNoThreadBehind) {
  FakeScript script;
  NoDevices backend(script);
  const int n = with_each_allocation_failing(
      [&] {
        DeviceTeam team(backend, {0, 1, 2});
        EXPECT_FALSE(team.each([](Device&, size_t) { return Status(); }).ok());
      },
      [] {});
  EXPECT_GE(n, 3);
}

// A temporary name is there to be taken away.
TEST(Allocations, OfAFileThatIsGivenUpAreNone) {
  const TempDir dir;
  const std::string path = dir / "f";
  const std::string temporary = dir / "a temporary name that needs memory of its own";
  {
    std::optional<OutputFile> file(std::in_place);
    ASSERT_TRUE(file->open_with(path, temporary).ok());
    ASSERT_TRUE(std::filesystem::exists(temporary));
    const FailingAllocation failing(0);
    file.reset();
    EXPECT_FALSE(failing.has_failed());
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(Allocations, OfFilesTogetherThatFailLoseNoOlderOne) {
  const TempDir dir;
  const std::string a_path = dir / "the first of the two files";
  const std::string b_path = dir / "the second of the two files";
  write_file(a_path, "older");
  write_file(b_path, "older");
  const int n = with_each_allocation_failing(
      [&] {
        OutputFile a;
        OutputFile b;
        const Status began = a.open(a_path).ok() ? b.open(b_path) : Status::failure("");
        const Status wrote = began.ok() && a.write("new", 3).ok() ? b.write("new", 3) : Status::failure("");
        if (wrote.ok()) {
          (void)commit_together(std::vector<OutputFile*>{&a, &b}).ok();
        }
      },
      [&] {
        EXPECT_EQ(read_file(a_path), "older");
        EXPECT_EQ(read_file(b_path), "older");
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2);
      });
  EXPECT_GE(n, 10);
  EXPECT_EQ(read_file(a_path), "new");
  EXPECT_EQ(read_file(b_path), "new");
}

}  // namespace
}  // namespace tavo_test
