// SPDX-License-Identifier: Apache-2.0
#include "report/variant_map.h"

#include <gtest/gtest.h>

#include "tests/support/run_program.h"

namespace tavo_test {
namespace {

class VariantMaps : public testing::Test {
 protected:
  Status open(const std::string& text) {
    write_file(folder_ / "map", text);
    return map_.open((folder_ / "map").string());
  }

  // "chromosome:position" of a name, or "".
  std::string at(const std::string& name) const {
    const GenomePlace* place = map_.find(name);
    return place == nullptr ? ""
                            : map_.chromosomes().at(static_cast<size_t>(place->chromosome)) + ":" +
                                  std::to_string(place->position);
  }

  TempDir folder_;
  VariantMap map_;
};

TEST_F(VariantMaps, ReadsABimFile) {
  ASSERT_TRUE(open("2\trs1\t0\t500\tA\tG\n1 rs2 0.5 70 A G\nX\trs3\t0\t9\tA\tC\n10\trs1\t0\t1\tA\tG\n").ok());
  EXPECT_EQ(map_.chromosomes(), (std::vector<std::string>{"1", "2", "10", "X"}));
  EXPECT_EQ(at("rs1"), "2:500");
  EXPECT_EQ(at("rs2"), "1:70");
  EXPECT_EQ(at("rs3"), "X:9");
  EXPECT_EQ(at("rs4"), "");
}

TEST_F(VariantMaps, ReadsAVcf) {
  ASSERT_TRUE(
      open("##fileformat=VCFv4.2\n##x\n#CHROM\tPOS\tID\tREF\tALT\nchr7\t12\tsnp a\tA\tC\n7\t13\trs9\tA\tC\n")
          .ok());
  EXPECT_EQ(map_.chromosomes(), (std::vector<std::string>{"7"}));
  EXPECT_EQ(at("snp a"), "7:12");
  EXPECT_EQ(at("rs9"), "7:13");
}

TEST_F(VariantMaps, ReadsATableWithAHeader) {
  ASSERT_TRUE(open("#CHR\tBP\tother\tSNP\n3\t44\tx\trs5\n").ok());
  EXPECT_EQ(at("rs5"), "3:44");
  VariantMap blanks;
  write_file(folder_ / "map", "snp chr pos\nrs6 4 5\n");
  ASSERT_TRUE(blanks.open((folder_ / "map").string()).ok());
  EXPECT_NE(blanks.find("rs6"), nullptr);
}

TEST_F(VariantMaps, RefusesOtherFilesWithTheirLine) {
  const struct {
    const char* text;
    const char* part;
  } cases[] = {
      {"", "no variant"},
      {"##fileformat=VCFv4.2\n#CHROM\tPOS\tID\n", "no variant"},
      {"1\trs1\t0\n", "line 1: found"},
      {"name only\n", "expected a .bim file, a VCF, or a header"},
      {"1\trs1\t0\t5\tA\tG\n1\trs2\t0\n", "line 2: 3 fields, expected at least 4"},
      {"1\trs1\t0\t5\tA\tG\n1\trs2\t0\tx\tA\tG\n", "line 2: field 4: found \"x\", expected a position"},
      {"1\trs1\t0\t5\tA\tG\n1\trs2\t0\t-4\tA\tG\n", "line 2: field 4: found \"-4\""},
      {"snp\tchr\tpos\nrs1\t1\t99999999999999999999\n", "line 2: field 3"},
      {"snp\tchr\tpos\nrs1\t1\t1000000000001\n", "line 2: field 3"},
  };
  for (const auto& one : cases) {
    VariantMap map;
    write_file(folder_ / "map", one.text);
    const Status status = map.open((folder_ / "map").string());
    EXPECT_FALSE(status.ok()) << one.text;
    EXPECT_NE(status.message().find(one.part), std::string::npos) << status.message();
  }
  VariantMap absent;
  EXPECT_FALSE(absent.open((folder_ / "absent").string()).ok());
}

}  // namespace
}  // namespace tavo_test
