// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "src/FileIO.h"
#include "tests/support/run_program.h"

namespace {

namespace fs = std::filesystem;
using tavo_test::read_file;
using tavo_test::TempDir;
using tavo_test::write_file;

TEST(MdrWriter, EveryLineEndsWithALineFeed) {
  const TempDir folder;
  MdrWriter writer;
  ASSERT_TRUE(writer.Save((folder / "a").c_str()));
  writer.WriteLine("one");
  writer.WriteLine("");
  ASSERT_TRUE(writer.Close().ok());
  EXPECT_EQ(read_file(folder / "a"), "one\n\n");
}

TEST(MdrWriter, SaveTruncatesAndFailsInAMissingFolder) {
  const TempDir folder;
  write_file(folder / "a", "old text");
  MdrWriter writer;
  ASSERT_TRUE(writer.Save((folder / "a").c_str()));
  ASSERT_TRUE(writer.Close().ok());
  EXPECT_EQ(read_file(folder / "a"), "");
  MdrWriter other;
  EXPECT_FALSE(other.Save((folder / "none" / "a").c_str()));
  EXPECT_FALSE(other.SaveWhenComplete((folder / "none" / "a").c_str()));
}

TEST(MdrWriter, TheTargetChangesOnlyWhenAllIsWritten) {
  const TempDir folder;
  write_file(folder / "a", "old");
  MdrWriter writer;
  ASSERT_TRUE(writer.SaveWhenComplete((folder / "a").c_str()));
  writer.WriteLine("new");
  EXPECT_EQ(read_file(folder / "a"), "old");
  ASSERT_TRUE(writer.Close().ok());
  EXPECT_EQ(read_file(folder / "a"), "new\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST(MdrWriter, AWriterThatIsNotClosedLeavesNothingBehind) {
  const TempDir folder;
  {
    MdrWriter writer;
    ASSERT_TRUE(writer.SaveWhenComplete((folder / "a").c_str()));
    writer.WriteLine("half");
  }
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(MdrWriter, ASymbolicLinkStaysALink) {
  const TempDir folder;
  write_file(folder / "real", "old");
  fs::create_symlink(folder / "real", folder / "link");
  MdrWriter writer;
  ASSERT_TRUE(writer.SaveWhenComplete((folder / "link").c_str()));
  writer.WriteLine("new");
  ASSERT_TRUE(writer.Close().ok());
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(read_file(folder / "real"), "new\n");
}

TEST(MdrWriter, AFullDeviceIsReported) {
  MdrWriter writer;
  ASSERT_TRUE(writer.SaveWhenComplete("/dev/full"));
  writer.WriteLine("text");
  const Status status = writer.Close();
  EXPECT_FALSE(status.ok());
  EXPECT_NE(status.message().find("/dev/full"), std::string::npos);
  struct stat info {};
  ASSERT_EQ(stat("/dev/full", &info), 0);
  EXPECT_TRUE(S_ISCHR(info.st_mode));
}

}  // namespace
