// SPDX-License-Identifier: Apache-2.0
//
// Files that are written and read at places of them.
#include <gtest/gtest.h>

#include <filesystem>

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

}  // namespace
}  // namespace tavo_test
