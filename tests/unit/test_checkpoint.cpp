// SPDX-License-Identifier: Apache-2.0
#include "src/checkpoint.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/file_size_limit.h"
#include "tests/support/run_program.h"
#include "tests/unit/sealed_checkpoint.h"

namespace {

using tavo_test::read_file;
using tavo_test::sealed_checkpoint;
using tavo_test::TempDir;
using tavo_test::write_file;

const RunIdentity kRun = {{"version", "1"}, {"--order", "2-3"}, {"--cv", "2"}};

// What a section holds.
std::string section(Checkpoint& checkpoint, const std::string& name) {
  std::string text;
  bool found = false;
  const Status status = checkpoint.restore(
      name,
      [&](StateLines& lines) {
        while (!lines.at_end()) {
          for (const std::string_view field : lines.next()) {
            text += std::string(field) + ";";
          }
        }
        return true;
      },
      &found);
  return !status.ok() ? "refused" : found ? text : "none";
}

class Checkpoints : public testing::Test {
 protected:
  std::string path() const { return (folder_ / "ck").string(); }

  // The message of a refusal, or nothing.
  std::string refusal(const RunIdentity& run = kRun) const {
    Checkpoint checkpoint;
    return checkpoint.open(path(), run).message();
  }

  void keep_some() const {
    Checkpoint checkpoint;
    ASSERT_TRUE(checkpoint.open(path(), kRun).ok());
    checkpoint.set_seed(12);
    GrowingFile* rows = nullptr;
    ASSERT_TRUE(checkpoint.rows(Checkpoint::kResultRows, &rows).ok());
    rows->append("first\nsecond\n");
    checkpoint.keep("order 2", "a\t1\n");
    checkpoint.keep("order 3", "");
  }

  // Whether a checkpoint of these lines behind its identity is refused as damaged.
  void expect_damaged(const std::string& lines) const {
    write_file(path(), sealed_checkpoint("run\tversion\t1\nrun\t--order\t2-3\nrun\t--cv\t2\n" + lines));
    EXPECT_EQ(refusal(), path() + ": a damaged checkpoint; without this file the run starts anew") << lines;
  }

  std::string names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) {
      text += name + " ";
    }
    return text;
  }

  TempDir folder_;
};

TEST_F(Checkpoints, GiveBackWhatWasKept) {
  keep_some();
  EXPECT_EQ(names(), "ck ck.rows ");
  Checkpoint checkpoint;
  ASSERT_EQ(checkpoint.open(path(), kRun).message(), "");
  EXPECT_EQ(checkpoint.seed(), 12u);
  EXPECT_EQ(section(checkpoint, "order 2"), "a;1;");
  EXPECT_EQ(section(checkpoint, "order 3"), "");
  EXPECT_EQ(section(checkpoint, "order 4"), "none");
  GrowingFile* rows = nullptr;
  ASSERT_EQ(checkpoint.rows(Checkpoint::kResultRows, &rows).message(), "");
  std::string text;
  ASSERT_TRUE(rows->read_all([&](std::string_view piece) {
                    text += piece;
                    return Status();
                  })
                  .ok());
  EXPECT_EQ(text, "first\nsecond\n");
  checkpoint.remove();
  EXPECT_EQ(names(), "");
}

TEST_F(Checkpoints, ThatAreNotOpenKeepNothing) {
  Checkpoint checkpoint;
  EXPECT_FALSE(checkpoint.is_open());
  EXPECT_FALSE(checkpoint.is_due());
  checkpoint.keep("order 2", "a\n");
  EXPECT_EQ(section(checkpoint, "order 2"), "none");
  checkpoint.remove();
}

TEST_F(Checkpoints, ASectionThatIsNotReadToItsEndIsRefused) {
  keep_some();
  Checkpoint checkpoint;
  ASSERT_TRUE(checkpoint.open(path(), kRun).ok());
  EXPECT_TRUE(checkpoint.restore("order 3", [](StateLines&) { return true; }).ok());
  EXPECT_FALSE(checkpoint.is_refused());
  EXPECT_FALSE(checkpoint.restore("order 2", [](StateLines&) { return true; }).ok());
  EXPECT_TRUE(checkpoint.is_refused());
}

// What a run that was killed leaves goes with the next one; other files stay.
TEST_F(Checkpoints, TakeOverWhatAKilledRunLeft) {
  keep_some();
  write_file(path() + ".tmp", "tavo checkpoint\t2\nhalf of it");
  write_file(path() + ".lock", "");
  {
    Checkpoint checkpoint;
    ASSERT_EQ(checkpoint.open(path(), kRun).message(), "");
  }
  EXPECT_EQ(names(), "ck ck.rows ");
  for (const char* name : {".tmp", ".lock"}) {
    write_file(path() + name, "my thesis\n");
    EXPECT_EQ(refusal().rfind(path() + name + ": stands in the way", 0), 0u) << refusal();
    EXPECT_EQ(read_file(path() + name), "my thesis\n");
    std::filesystem::remove(path() + name);
  }
}

TEST_F(Checkpoints, AreOfOneRunAtATime) {
  Checkpoint checkpoint;
  ASSERT_TRUE(checkpoint.open(path(), kRun).ok());
  EXPECT_EQ(refusal(), path() + ".lock: another run holds this lock");
  checkpoint.remove();
  EXPECT_EQ(refusal(), "");
}

TEST_F(Checkpoints, WithImpossibleLinesAreRefused) {
  for (const char* lines :
       {"run\t--new\n", "seed\t-1\n", "seed\t4294967296\n", "seed\n", "rows\trows\t1\n", "rows\trows\t1\tx\n",
        "rows\trows\t99999999999999999999\t00000000\n", "rows\tr\t1\t00000000\nrows\tr\t1\t00000000\n",
        "section\ta\n", "section\ta\t1\n", "section\ta\t18446744073709551615\nb\n", "section\ta\t-1\n",
        "section\ta\t2\nb\nsection\ta\t2\nb\n", "section\ta\t2\nb\nseed\t1\n", "more\n", "\n"}) {
    expect_damaged(lines);
  }
  expect_damaged(std::string(5000, '\t') + "\n");
  write_file(path(),
             "tavo checkpoint\t1\nend\t" + hexadecimal(checksum("tavo checkpoint\t1\n", 18), 8) + "\n");
  EXPECT_NE(refusal().find(": a checkpoint of another version of this program"), std::string::npos);
}

// A file of nothing but a size takes no memory.
TEST_F(Checkpoints, OfAnySizeAreRefusedAtOnce) {
  write_file(path(), "tavo checkpoint\t2\n");
  std::filesystem::resize_file(path(), 1 << 26);
  EXPECT_EQ(refusal(), path() + ": a damaged checkpoint; without this file the run starts anew");
}

TEST_F(Checkpoints, WhoseRowsAreNotAsTheyWereAreRefused) {
  keep_some();
  const std::string whole = read_file(path() + ".rows");
  const auto rows_refusal = [&] {
    Checkpoint checkpoint;
    GrowingFile* rows = nullptr;
    EXPECT_TRUE(checkpoint.open(path(), kRun).ok());
    const Status status = checkpoint.rows(Checkpoint::kResultRows, &rows);
    EXPECT_EQ(checkpoint.is_refused(), !status.ok());
    return status.message();
  };
  const std::string wrong = path() + ".rows: does not hold the rows that the checkpoint counts on";
  for (size_t size = 0; size < whole.size(); ++size) {
    write_file(path() + ".rows", whole.substr(0, size));
    ASSERT_EQ(rows_refusal().rfind(wrong, 0), 0u) << size;
    std::string other = whole;
    other[size] = static_cast<char>(other[size] ^ 1);
    write_file(path() + ".rows", other);
    ASSERT_EQ(rows_refusal().rfind(wrong, 0), 0u) << size;
  }
  std::filesystem::remove(path() + ".rows");
  EXPECT_EQ(rows_refusal().rfind(wrong, 0), 0u);
  // What came after the checkpoint is cut off.
  write_file(path() + ".rows", whole + "third\nhal");
  EXPECT_EQ(rows_refusal(), "");
  EXPECT_EQ(read_file(path() + ".rows"), whole);
}

TEST_F(Checkpoints, LeaveAFileThatStandsWhereTheirRowsWouldGo) {
  write_file(path() + ".rows", "my thesis\n");
  Checkpoint checkpoint;
  GrowingFile* rows = nullptr;
  ASSERT_TRUE(checkpoint.open(path(), kRun).ok());
  EXPECT_FALSE(checkpoint.rows(Checkpoint::kResultRows, &rows).ok());
  EXPECT_EQ(read_file(path() + ".rows"), "my thesis\n");
}

// The rows end where the disk does; the checkpoint stays as it was.
TEST_F(Checkpoints, DoNotCountOnRowsThatCouldNotBeWritten) {
  keep_some();
  const std::string before = read_file(path());
  Checkpoint checkpoint;
  GrowingFile* rows = nullptr;
  ASSERT_TRUE(checkpoint.open(path(), kRun).ok());
  ASSERT_TRUE(checkpoint.rows(Checkpoint::kResultRows, &rows).ok());
  const tavo_test::FileSizeLimit limit(500);
  rows->append(std::string(1000, 'x') + "\n");
  testing::internal::CaptureStderr();
  checkpoint.keep("order 2", "a\t2\n");
  checkpoint.keep("order 2", "a\t3\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tavo: the checkpoint is not up to date: cannot write " + path() + ".rows: File too large\n");
  EXPECT_EQ(read_file(path()), before);
  EXPECT_FALSE(rows->status().ok());
}

TEST_F(Checkpoints, OfAnotherRunAreRefusedWithTheDifference) {
  keep_some();
  EXPECT_EQ(
      refusal({{"version", "1"}, {"--order", "2-3"}, {"--cv", "10"}}),
      path() + ": of another run: its --cv is 2, that of this run 10; give this run another checkpoint file");
  EXPECT_NE(refusal({{"version", "2"}, {"--order", "2-3"}, {"--cv", "2"}})
                .find("its version is 1, that of this run 2"),
            std::string::npos);
  // An option that the other program did not know, or this one does not.
  EXPECT_NE(refusal({{"version", "1"}, {"--order", "2-3"}}).find("its --cv is 2"), std::string::npos);
  EXPECT_NE(refusal({{"version", "1"}, {"--order", "2-3"}, {"--cv", "2"}, {"--new", "5"}}).find("--new"),
            std::string::npos);
}

TEST_F(Checkpoints, ThatAreCutAnywhereAreRefused) {
  keep_some();
  const std::string whole = read_file(path());
  for (size_t size = 0; size < whole.size(); ++size) {
    write_file(path(), whole.substr(0, size));
    ASSERT_NE(refusal(), "") << size << " bytes";
  }
}

TEST_F(Checkpoints, WithAnyByteChangedAreRefused) {
  keep_some();
  const std::string whole = read_file(path());
  for (size_t i = 0; i < whole.size(); ++i) {
    for (const int change : {1, 128}) {
      std::string other = whole;
      other[i] = static_cast<char>(other[i] ^ change);
      write_file(path(), other);
      ASSERT_NE(refusal(), "") << "byte " << i << ", change " << change;
    }
  }
  write_file(path(), whole + "\n");
  EXPECT_NE(refusal(), "");
}

TEST_F(Checkpoints, ThatAreNoneAreNotOverwritten) {
  write_file(path(), "my thesis\n");
  EXPECT_EQ(refusal(), path() + ": no checkpoint of this program");
  EXPECT_EQ(read_file(path()), "my thesis\n");
  std::filesystem::remove(path());
  std::filesystem::create_directory(path());
  EXPECT_EQ(refusal(), path() + ": no checkpoint of this program");
}

TEST_F(Checkpoints, InAFolderThatIsNotThereAreRefusedAtOnce) {
  Checkpoint checkpoint;
  EXPECT_FALSE(checkpoint.open((folder_ / "none/ck").string(), kRun).ok());
}

}  // namespace
