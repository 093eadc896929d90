// SPDX-License-Identifier: Apache-2.0
//
// Files that are written and read at places of them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "util/output_file.h"
#include "util/scratch_file.h"

namespace tavo_test {
namespace {

TEST(ScratchFile, HoldsWhatWasWrittenAndHasNoName) {
  const TempDir dir;
  ScratchFile file;
  ASSERT_TRUE(file.open(dir.path().string()).ok());
  EXPECT_TRUE(file.write_at(100000, "later", 5).ok());
  EXPECT_TRUE(file.write_at(0, "first", 5).ok());
  char bytes[6] = {};
  EXPECT_TRUE(file.read_at(100000, bytes, 5).ok());
  EXPECT_STREQ(bytes, "later");
  EXPECT_TRUE(file.read_at(3, bytes, 5).ok());
  EXPECT_EQ(std::string(bytes, 5), std::string("st\0\0\0", 5));
  EXPECT_FALSE(file.read_at(100001, bytes, 5).ok());
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(ScratchFile, SaysWhereItCannotBe) {
  const TempDir dir;
  const std::string folder = (dir / "no").string();
  ScratchFile file;
  EXPECT_EQ(file.open(folder).message(),
            "cannot create a temporary file in " + folder + ": No such file or directory");
}

TEST(OutputFile, PlacesAndAppendedBytesMakeOneFile) {
  const TempDir dir;
  OutputFile file;
  ASSERT_TRUE(file.open((dir / "f").string()).ok());
  EXPECT_TRUE(file.reserve(12).ok());
  EXPECT_TRUE(file.write("head", 4).ok());
  EXPECT_TRUE(file.write_at(9, "end", 3).ok());
  EXPECT_TRUE(file.write_at(6, "mid", 3).ok());
  EXPECT_FALSE(std::filesystem::exists(dir / "f"));
  EXPECT_TRUE(file.commit().ok());
  EXPECT_EQ(read_file(dir / "f"), std::string("head\0\0midend", 12));
}

// The name that a file needs just before it gets its own would be too long: it has one from the start.
TEST(OutputFile, WithALongNameStandsBesideItUntilItIsComplete) {
  const TempDir dir;
  const std::string name(255 - 4 - std::to_string(getpid()).size(), 'n');
  const auto n_files = [&] {
    return std::distance(std::filesystem::directory_iterator(dir.path()),
                         std::filesystem::directory_iterator());
  };
  for (const bool complete : {false, true}) {
    {
      OutputFile file;
      ASSERT_EQ(file.open((dir / name).string()).message(), "");
      ASSERT_TRUE(file.write("text", 4).ok());
      EXPECT_EQ(n_files(), 1);
      EXPECT_FALSE(std::filesystem::exists(dir / name));
      if (complete) {
        ASSERT_EQ(file.commit().message(), "");
      }
    }
    EXPECT_EQ(n_files(), complete ? 1 : 0);
  }
  EXPECT_EQ(read_file(dir / name), "text");
  OutputFile longer;
  EXPECT_FALSE(longer.open((dir / std::string(255, 'n')).string()).ok());
}

TEST(OutputFile, WrittenDirectlyIsEmptyUnlessItIsComplete) {
  const TempDir dir;
  for (const bool complete : {false, true}) {
    {
      OutputFile file;
      ASSERT_TRUE(file.open_directly((dir / "f").string()).ok());
      ASSERT_TRUE(file.write("text", 4).ok());
      if (complete) {
        ASSERT_TRUE(file.commit().ok());
      }
    }
    EXPECT_EQ(read_file(dir / "f"), complete ? "text" : "");
  }
}

class FilesTogether : public ::testing::Test {
 protected:
  void begin(OutputFile& file, const std::string& name) const {
    ASSERT_TRUE(file.open((dir_ / name).string()).ok());
    ASSERT_TRUE(file.write(name.data(), name.size()).ok());
  }

  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  TempDir dir_;
};

TEST_F(FilesTogether, GetTheirNamesAndReplaceOlderOnes) {
  write_file(dir_ / "b", "older");
  {
    OutputFile a;
    OutputFile b;
    begin(a, "a");
    begin(b, "b");
    EXPECT_EQ(commit_together(std::vector<OutputFile*>{&a, &b}).message(), "");
  }
  EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(read_file(dir_ / "a"), "a");
  EXPECT_EQ(read_file(dir_ / "b"), "b");
}

// A folder has taken the last name in the meantime.
TEST_F(FilesTogether, LoseThemWhenOneCannotHaveIts) {
  write_file(dir_ / "b", "older");
  std::filesystem::permissions(dir_ / "b", std::filesystem::perms::owner_read);
  {
    OutputFile a;
    OutputFile b;
    OutputFile c;
    begin(a, "a");
    begin(b, "b");
    begin(c, "c");
    std::filesystem::create_directory(dir_ / "c");
    EXPECT_EQ(commit_together(std::vector<OutputFile*>{&a, &b, &c}).message(),
              "cannot rename the complete file to " + (dir_ / "c").string() + ": Is a directory");
    EXPECT_EQ(read_file(dir_ / "b"), "older");
  }
  EXPECT_EQ(names(), (std::vector<std::string>{"b", "c"}));
  EXPECT_EQ(read_file(dir_ / "b"), "older");
}

}  // namespace
}  // namespace tavo_test
