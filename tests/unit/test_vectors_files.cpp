// SPDX-License-Identifier: Apache-2.0
//
// Recorded genotype files, whole and cut.
#include <gtest/gtest.h>

#include "src/FileIO.h"
#include "src/run_config.h"
#include "tests/support/run_program.h"
#include "tests/support/vectors.h"

namespace {

using tavo_test::Json;

std::string bytes_of_hex(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// What the reader says beyond the sizes that it announces for every file.
std::string said_beyond_sizes(const std::string& out) {
  std::string rest;
  for (const std::string& line : tavo_test::split_lines(out)) {
    if (!line.starts_with("Label ") && !line.starts_with("Allocated ") &&
        line != " *** TRANSPOSED FILES *** ") {
      rest += line + "\n";
    }
  }
  return rest;
}

void open_file(const Json& in, const Json& out) {
  const tavo_test::TempDir folder;
  const auto path = folder / "case.tavo";
  tavo_test::write_file(path, bytes_of_hex(in.at("hex").get<std::string>()));
  g_transpose = in.at("transpose").get<int>();
  MdrReader reader;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const bool opened = reader.Open(path.c_str(), false, g_transpose);
  const std::string said = said_beyond_sizes(testing::internal::GetCapturedStdout());
  testing::internal::GetCapturedStderr();
  ASSERT_EQ(opened, out.at("result").get<bool>());
  if (!opened) {
    // Of a failure only its own message is recorded; the last label may have been shortened before.
    const size_t before = said.starts_with("Stripped\n") ? 9 : 0;
    EXPECT_EQ(said.substr(before), out.at("message").get<std::string>());
    EXPECT_EQ(reader.GetLineCount(), 0);
    EXPECT_EQ(reader.GetColCount(), 0);
    g_transpose = 0;
    return;
  }
  std::string expected_said;
  for (const Json& line : out.at("said")) {
    expected_said += line.get<std::string>() + "\n";
  }
  EXPECT_EQ(said, expected_said);
  ASSERT_EQ(reader.GetLineCount(), out.at("row").get<int>());
  ASSERT_EQ(reader.GetColCount(), out.at("col").get<int>());
  EXPECT_EQ(reader.block_count(), out.at("blocks").get<int>());
  EXPECT_EQ(reader.ReadHeader(), out.at("names").get<std::vector<std::string>>());
  EXPECT_EQ(reader.classes(), out.at("classes").get<std::vector<uint8_t>>());
  for (int s = 0; s < reader.GetLineCount(); ++s) {
    for (int j = 0; j < reader.GetColCount(); ++j) {
      ASSERT_EQ(reader.GetSNPdata(s, j),
                out.at("genotypes").at(static_cast<size_t>(s)).at(static_cast<size_t>(j)).get<int>())
          << "sample " << s << ", SNP " << j;
    }
  }
  g_transpose = 0;
}

TEST(RecordedCases, OpeningGenotypeFiles) {
  tavo_test::run_cases("files", {{"Open", open_file}});
}

}  // namespace
