// SPDX-License-Identifier: Apache-2.0
//
// Genotype files byte by byte, in both layouts, and what reading them back counts.
#include "tools/genotype_writer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <random>

#include "tests/convert/memory_source.h"
#include "tests/convert/table_text.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"
#include "tools/genotype_info.h"

namespace tavo_test {
namespace {

Status write_genotypes(Layout layout, const std::filesystem::path& path, const GenotypeData& data,
                       int64_t at_a_time = 48) {
  return write_whole_set(*make_tavo_writer(path.string(), layout), data, at_a_time);
}

std::string file_of(Layout layout, const GenotypeData& data) {
  return layout == Layout::kNormal ? normal_file(data) : transposed_file(data);
}

GenotypeData small_data(int n_samples, int n_snps) {
  std::mt19937 random(3);
  return random_data(random, n_samples, n_snps, 0.1);
}

// Around the borders of words, and of the blocks of SNPs that come in.
TEST(GenotypeWriter, BothLayoutsByteByByte) {
  std::mt19937 random(7);
  const TempDir dir;
  for (const int n_samples : {1, 2, 15, 16, 17, 32, 33, 100, 255, 256, 257, 300}) {
    for (const int n_snps : {1, 15, 16, 17, 32, 33, 63, 64, 65, 130}) {
      const GenotypeData data = random_data(random, n_samples, n_snps, 0.15);
      for (const Layout layout : {Layout::kNormal, Layout::kTransposed}) {
        for (const int64_t at_a_time : {16, 64}) {
          ASSERT_EQ(write_genotypes(layout, dir / "g", data, at_a_time).message(), "");
          EXPECT_EQ(read_file(dir / "g"), file_of(layout, data))
              << layout_name(layout) << " " << n_samples << " x " << n_snps;
        }
      }
    }
  }
  EXPECT_EQ(file_names(dir.path()), std::vector<std::string>{"g"});
}

TEST(GenotypeWriter, SeventeenSnpsByHand) {
  GenotypeData data;
  data.n_samples = 2;
  data.n_snps = 17;
  data.classes = {1, 0};
  for (int j = 0; j < 17; ++j) {
    data.names.push_back("s" + std::to_string(j + 1));
  }
  data.genotypes = {0, 1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 1,  //
                    2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3};
  const TempDir dir;
  ASSERT_TRUE(write_genotypes(Layout::kNormal, dir / "n", data).ok());
  const std::string normal = read_file(dir / "n");
  EXPECT_EQ(normal.substr(0, 16), std::string("TAVO\x02\0\0\0\x11\0\0\0\x04\0\0\0", 16));
  EXPECT_EQ(normal.substr(16 + 17 * 4), std::string("\x01\0\0\0\xe4\0\0\x80\x01\0\0\0"
                                                    "\0\0\0\0\x02\0\0\0\x03\0\0\0",
                                                    24));
  ASSERT_TRUE(write_genotypes(Layout::kTransposed, dir / "t", data).ok());
  const std::string transposed = read_file(dir / "t");
  EXPECT_EQ(transposed.substr(16 + 17 * 4, 12), std::string("\x01\0\0\0\0\0\0\0\x08\0\0\0", 12));
  EXPECT_EQ(transposed.size(), 16u + 17 * 4 + 8 + 17 * 4);
  EXPECT_EQ(transposed.substr(transposed.size() - 4), std::string("\x0d\0\0\0", 4));
}

TEST(GenotypeWriter, TheLongestNameSetsTheSlots) {
  const TempDir dir;
  GenotypeData data = small_data(5, 3);
  data.names[1] = std::string(254, 'n');
  ASSERT_TRUE(write_genotypes(Layout::kNormal, dir / "g", data).ok());
  const std::string bytes = read_file(dir / "g");
  EXPECT_EQ(bytes.substr(12, 4), le32(255));
  EXPECT_EQ(bytes, normal_file(data));
  for (const std::string& name :
       {std::string(255, 'n'), std::string(), std::string("a\0b", 3), std::string("a\n")}) {
    data.names[1] = name;
    EXPECT_FALSE(write_genotypes(Layout::kNormal, dir / "h", data).ok());
  }
  EXPECT_EQ(file_names(dir.path()), std::vector<std::string>{"g"});
}

TEST(GenotypeWriter, TheTargetStaysAsItWasUntilTheCommit) {
  const TempDir dir;
  write_file(dir / "g", "before");
  for (const Layout layout : {Layout::kNormal, Layout::kTransposed}) {
    const auto writer = make_tavo_writer((dir / "g").string(), layout);
    WholeSelection whole(small_data(40, 40));
    ASSERT_TRUE(writer->open().ok());
    ASSERT_TRUE(feed(*writer, whole).ok());
    EXPECT_EQ(read_file(dir / "g"), "before");
    // A temporary file stands beside it only where the file system has no files without names.
    EXPECT_LE(file_names(dir.path()).size(), 2u);
  }
  EXPECT_EQ(file_names(dir.path()), std::vector<std::string>{"g"});
  ASSERT_TRUE(write_genotypes(Layout::kNormal, dir / "g", small_data(4, 4)).ok());
  EXPECT_EQ(read_file(dir / "g"), normal_file(small_data(4, 4)));
}

TEST(GenotypeWriter, TwoWritersOfOneTargetDoNotMix) {
  const TempDir dir;
  const GenotypeData data = small_data(20, 20);
  const auto first = make_tavo_writer((dir / "g").string(), Layout::kNormal);
  ASSERT_TRUE(first->open().ok());
  ASSERT_TRUE(write_genotypes(Layout::kTransposed, dir / "g", data).ok());
  EXPECT_EQ(read_file(dir / "g"), transposed_file(data));
  WholeSelection whole(data);
  ASSERT_TRUE(feed(*first, whole).ok());
  ASSERT_TRUE(commit_together(first->files()).ok());
  EXPECT_EQ(read_file(dir / "g"), normal_file(data));
}

TEST(GenotypeWriter, WritesBehindASymbolicLink) {
  const TempDir dir;
  write_file(dir / "real", "before");
  std::filesystem::create_symlink("real", dir / "link");
  const GenotypeData data = small_data(3, 3);
  ASSERT_TRUE(write_genotypes(Layout::kNormal, dir / "link", data).ok());
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "link"));
  EXPECT_EQ(read_file(dir / "real"), normal_file(data));
}

TEST(GenotypeWriter, RefusesTargetsThatCannotBeWritten) {
  const TempDir dir;
  const GenotypeData data = small_data(3, 3);
  EXPECT_EQ(write_genotypes(Layout::kNormal, dir.path(), data).message(),
            "cannot write " + dir.path().string() + ": not a regular file");
  EXPECT_EQ(write_genotypes(Layout::kNormal, "/dev/full", data).message(),
            "cannot write /dev/full: not a regular file");
  EXPECT_EQ(write_genotypes(Layout::kNormal, dir / "no/g", data).message(),
            "cannot create " + (dir / "no/g").string() + ": No such file or directory");
  EXPECT_TRUE(file_names(dir.path()).empty());
}

// A file fails before its first genotype: its size is set aside.
TEST(GenotypeWriter, AFailedWriteLeavesNothingBehind) {
  const TempDir dir;
  for (const int n_samples : {100, 20000}) {
    const GenotypeData data = small_data(n_samples, 100);
    for (const Layout layout : {Layout::kNormal, Layout::kTransposed}) {
      std::string message;
      {
        const FileSizeLimit limit(1000);
        message = write_genotypes(layout, dir / "g", data).message();
      }
      EXPECT_EQ(message, "cannot write " + (dir / "g").string() + ": File too large");
      EXPECT_TRUE(file_names(dir.path()).empty());
    }
  }
}

// The .bim file is the largest here, and fails when the .fam file is complete.
TEST(BedWriter, OneFailedFileTakesTheOthersAlong) {
  const TempDir dir;
  write_file(dir / "p.fam", "older");
  const GenotypeData data = small_data(4, 100);
  std::string message;
  {
    const FileSizeLimit limit(1000);
    message = write_whole_set(*make_bed_writer((dir / "p").string()), data).message();
  }
  EXPECT_EQ(message, "cannot write " + (dir / "p.bim").string() + ": File too large");
  EXPECT_EQ(file_names(dir.path()), std::vector<std::string>{"p.fam"});
  EXPECT_EQ(read_file(dir / "p.fam"), "older");
  EXPECT_EQ(write_whole_set(*make_bed_writer((dir / "p").string()), data).message(), "");
  EXPECT_EQ(file_names(dir.path()), (std::vector<std::string>{"p.bed", "p.bim", "p.fam"}));
}

GenotypeInfo info_of(const std::string& bytes, Layout assumed = Layout::kNormal) {
  const TempDir dir;
  write_file(dir / "g", bytes);
  GenotypeInfo info;
  EXPECT_EQ(read_genotype_info((dir / "g").string(), assumed, &info).message(), "");
  return info;
}

void expect_counts(const GenotypeInfo& info, const GenotypeData& data) {
  EXPECT_EQ(info.header.n_samples, data.n_samples);
  EXPECT_EQ(info.header.n_snps, data.n_snps);
  EXPECT_EQ(info.first_name, data.names.front());
  EXPECT_EQ(info.last_name, data.names.back());
  std::array<int64_t, 4> genotypes{};
  for (const uint8_t code : data.genotypes) {
    ++genotypes[code];
  }
  for (size_t code = 0; code < 4; ++code) {
    EXPECT_EQ(info.genotypes[code], genotypes[code]) << code;
  }
  int64_t classes[3] = {};
  for (const uint8_t value : data.classes) {
    ++classes[std::min<int>(value, 2)];
  }
  EXPECT_EQ(info.controls, classes[0]);
  EXPECT_EQ(info.cases, classes[1]);
  EXPECT_EQ(info.other_classes, classes[2]);
}

TEST(GenotypeInfo, CountsBothLayouts) {
  std::mt19937 random(9);
  for (const int n_samples : {1, 15, 16, 17, 33, 50000}) {
    for (const int n_snps : {1, 15, 16, 17, 32, 33}) {
      GenotypeData data = random_data(random, n_samples, n_snps, 0.15);
      data.classes.back() = 7;
      for (const Layout layout : {Layout::kNormal, Layout::kTransposed}) {
        const GenotypeInfo info = info_of(file_of(layout, data), layout);
        EXPECT_EQ(info.header.layout, layout);
        expect_counts(info, data);
      }
    }
  }
}

TEST(GenotypeInfo, TheSizeTellsTheLayoutWhereItCan) {
  const GenotypeData data = small_data(20, 50);
  for (const Layout assumed : {Layout::kNormal, Layout::kTransposed}) {
    EXPECT_EQ(info_of(normal_file(data), assumed).header.layout, Layout::kNormal);
    EXPECT_EQ(info_of(transposed_file(data), assumed).header.layout, Layout::kTransposed);
    EXPECT_TRUE(info_of(transposed_file(data), assumed).header.layout_is_certain);
    // As many samples as SNPs: one size for both.
    const GenotypeInfo either = info_of(normal_file(small_data(20, 20)), assumed);
    EXPECT_EQ(either.header.layout, assumed);
    EXPECT_FALSE(either.header.layout_is_certain);
  }
}

TEST(GenotypeInfo, BitsBehindTheLastGenotypeDoNotCount) {
  const GenotypeData data = small_data(4, 17);
  std::string bytes = normal_file(data);
  for (size_t s = 0; s < 4; ++s) {
    bytes[bytes.size() - 12 * s - 1] = '\xff';
  }
  expect_counts(info_of(bytes), data);
}

std::string info_failure(const std::string& bytes) {
  const TempDir dir;
  write_file(dir / "g", bytes);
  GenotypeInfo info;
  const std::string message = read_genotype_info((dir / "g").string(), Layout::kNormal, &info).message();
  const std::string start = (dir / "g").string() + ": ";
  EXPECT_TRUE(message.starts_with(start)) << message;
  return message.substr(std::min(message.size(), start.size()));
}

TEST(GenotypeInfo, RefusesWhatIsNoGenotypeFile) {
  const GenotypeData data = small_data(5, 3);
  const std::string good = normal_file(data);
  EXPECT_EQ(info_failure(""), "0 bytes, expected a header of 16");
  EXPECT_EQ(info_failure(good.substr(0, 15)), "15 bytes, expected a header of 16");
  std::string bad = good;
  bad[3] = '\0';
  EXPECT_EQ(info_failure(bad), "bytes 0 to 3: found \"TAV\\x00\", expected \"TAVO\"");
  EXPECT_EQ(info_failure(good.substr(0, 4) + le32(0) + good.substr(8)),
            "bytes 4 to 7: 0 samples, expected at least 1");
  EXPECT_EQ(info_failure(good.substr(0, 8) + le32(0xffffffffu) + good.substr(12)),
            "bytes 8 to 11: -1 SNPs, expected at least 1");
  for (const uint32_t width : {0u, 256u, 0x80000000u}) {
    EXPECT_TRUE(
        info_failure(good.substr(0, 12) + le32(width) + good.substr(16)).starts_with("bytes 12 to 15: "));
  }
  // 16 + 3 * 4 for the names, 5 * 8 for the samples; 16 + 12 + 20 + 12 in the other layout.
  EXPECT_EQ(info_failure(good.substr(0, good.size() - 1)),
            "67 bytes, expected by the header 68 in the normal or 60 in the transposed layout");
  EXPECT_EQ(info_failure(good + "x"),
            "69 bytes, expected by the header 68 in the normal or 60 in the transposed layout");
  EXPECT_EQ(
      info_failure(good.substr(0, 4) + le32(0x7fffffff) + le32(0x7fffffff) + good.substr(12)),
      "68 bytes, expected by the header 1152921521249845256 in the normal or 1152921521249845256 in the "
      "transposed layout");
  bad = good;
  bad.replace(20, 4, "long");
  EXPECT_EQ(info_failure(bad), "SNP 2 (byte 20): the name has no NUL within its 4 bytes");
  GenotypeInfo info;
  EXPECT_FALSE(read_genotype_info("no/such/file", Layout::kNormal, &info).ok());
  EXPECT_FALSE(read_genotype_info("/dev/null", Layout::kNormal, &info).ok());
}

}  // namespace
}  // namespace tavo_test
