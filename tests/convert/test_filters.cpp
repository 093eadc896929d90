// SPDX-License-Identifier: Apache-2.0
//
// Filters against the same counts made genotype by genotype, and lists of samples and variants.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "tests/convert/convert_folder.h"
#include "tests/convert/plink_files.h"

namespace tavo_test {
namespace {

GenotypeData rare_data(unsigned seed, int n_samples, int n_snps, double missing) {
  std::mt19937 random(seed);
  GenotypeData data = random_data(random, n_samples, n_snps, missing);
  // Rare alleles of every frequency, some as the counted and some as the other one.
  for (int s = 0; s < n_samples; ++s) {
    for (int j = 0; j < n_snps; ++j) {
      uint8_t& code = data.genotypes[static_cast<size_t>(s * n_snps + j)];
      if (code != 3 && j % 3 != 0 && random() % static_cast<unsigned>(n_snps) > static_cast<unsigned>(j)) {
        code = j % 3 == 1 ? 0 : 2;
      }
    }
  }
  return data;
}

std::vector<int> all(int n) {
  std::vector<int> numbers(static_cast<size_t>(n));
  std::iota(numbers.begin(), numbers.end(), 0);
  return numbers;
}

GenotypeData part_of(const GenotypeData& data, const std::vector<int>& samples,
                     const std::vector<int>& snps) {
  GenotypeData part;
  part.n_samples = static_cast<int>(samples.size());
  part.n_snps = static_cast<int>(snps.size());
  for (const int s : samples) {
    part.classes.push_back(data.classes[static_cast<size_t>(s)]);
    for (const int j : snps) {
      part.genotypes.push_back(data.at(s, j));
    }
  }
  for (const int j : snps) {
    part.names.push_back(data.names[static_cast<size_t>(j)]);
  }
  return part;
}

// How many genotypes of a code a group has.
int count(const GenotypeData& data, const std::vector<int>& samples, const std::vector<int>& snps, int code) {
  int n = 0;
  for (const int s : samples) {
    for (const int j : snps) {
      n += data.at(s, j) == code ? 1 : 0;
    }
  }
  return n;
}

// Percent, so that the limits are compared in integers here.
struct Limits {
  int mind;
  int geno;
  int maf;
};

TEST(Filters, MindThenGenoThenMaf) {
  const ConvertFolder folder;
  for (const Limits limits :
       {Limits{15, 20, 5}, Limits{20, 10, 20}, Limits{100, 100, 0}, Limits{29, 29, 29}}) {
    const GenotypeData data = rare_data(static_cast<unsigned>(limits.maf), 100, 90, 0.18);
    write_plink_files(folder / "p", data);
    std::vector<int> samples = all(100);
    std::vector<int> snps = all(90);
    const auto dropped = [](std::vector<int>* items, const char* plural, auto is_dropped) {
      const auto n = std::erase_if(*items, is_dropped);
      return std::to_string(n) + " " + plural + " dropped, " + std::to_string(items->size()) + " left";
    };
    const std::string mind = dropped(&samples, "samples", [&](int s) {
      return 100 * count(data, {s}, snps, 3) > limits.mind * static_cast<int>(snps.size());
    });
    const std::string geno = dropped(&snps, "variants", [&](int j) {
      return 100 * count(data, samples, {j}, 3) > limits.geno * static_cast<int>(samples.size());
    });
    const std::string maf = dropped(&snps, "variants", [&](int j) {
      const int called = static_cast<int>(samples.size()) - count(data, samples, {j}, 3);
      const int copies = count(data, samples, {j}, 1) + 2 * count(data, samples, {j}, 2);
      return 100 * std::min(copies, 2 * called - copies) < limits.maf * 2 * called;
    });
    ASSERT_FALSE(samples.empty() || snps.empty());
    const auto share = [](int percent) { return std::to_string(percent / 100.0).substr(0, 4); };
    const std::string out = folder.output_of("--bfile p --out g --mind " + share(limits.mind) + " --geno " +
                                             share(limits.geno) + " --maf " + share(limits.maf));
    const Words lines = split_lines(out);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_TRUE(lines[1].starts_with("--mind ") && lines[1].ends_with(": " + mind)) << lines[1] << mind;
    EXPECT_TRUE(lines[2].starts_with("--geno ") && lines[2].ends_with(": " + geno)) << lines[2] << geno;
    EXPECT_TRUE(lines[3].starts_with("--maf ") && lines[3].ends_with(": " + maf)) << lines[3] << maf;
    EXPECT_EQ(folder.read("g"), normal_file(part_of(data, samples, snps)));
  }
}

TEST(Filters, ListsOfSamples) {
  const ConvertFolder folder;
  const GenotypeData data = rare_data(5, 6, 20, 0.1);
  write_plink_files(folder / "p", data);
  folder.write("k", "#FID IID\nF5 I5\nI2\nF3\tI3 0 0\nF1 I2\nI9\n\n");
  std::string out = folder.output_of("--bfile p --out g --keep k");
  EXPECT_TRUE(has_line(out, "--keep k (2 entries match no sample): 3 samples dropped, 3 left")) << out;
  EXPECT_EQ(folder.read("g"), normal_file(part_of(data, {1, 2, 4}, all(20))));
  out = folder.output_of("--bfile p --out g --make-bed q --remove k");
  EXPECT_TRUE(has_line(out, "--remove k (2 entries match no sample): 3 samples dropped, 3 left")) << out;
  EXPECT_EQ(folder.read("g"), normal_file(part_of(data, {0, 3, 5}, all(20))));
  EXPECT_EQ(folder.read("q.bed"), bed_bytes(part_of(data, {0, 3, 5}, all(20))));
  folder.write("r", "I2\n");
  folder.output_of("--bfile p --out g --keep k --remove r");
  EXPECT_EQ(folder.read("g"), normal_file(part_of(data, {2, 4}, all(20))));
  // As some editors write it.
  folder.write("m", "\xef\xbb\xbfI2\r\nF3 I3");
  EXPECT_TRUE(
      has_line(folder.output_of("--bfile p --out g --keep m"), "--keep m: 4 samples dropped, 2 left"));
  folder.write("none", "I9\n");
  EXPECT_EQ(folder.refusal_of("--bfile p --out h --keep none"),
            "--keep none (1 entry matches no sample): 6 samples dropped, 0 left, expected at least one");
}

TEST(Filters, ListsOfVariants) {
  const ConvertFolder folder;
  const GenotypeData data = rare_data(6, 20, 40, 0.1);
  write_plink_files(folder / "p", data);
  folder.write("x", "rs39 rs3\nrs17\trs17\nrs99\n");
  std::string out = folder.output_of("--bfile p --out g --extract x");
  EXPECT_TRUE(has_line(out, "--extract x (1 entry matches no variant): 37 variants dropped, 3 left")) << out;
  EXPECT_EQ(folder.read("g"), normal_file(part_of(data, all(20), {3, 17, 39})));
  std::vector<int> others = all(40);
  std::erase_if(others, [](int j) { return j == 3 || j == 17 || j == 39; });
  out = folder.output_of("--bfile p --out g --transpose 1 --exclude x");
  EXPECT_TRUE(has_line(out, "--exclude x (1 entry matches no variant): 3 variants dropped, 37 left")) << out;
  EXPECT_EQ(folder.read("g"), transposed_file(part_of(data, all(20), others)));
  EXPECT_EQ(folder.refusal_of("--bfile p --out h --extract x --exclude x"),
            "--exclude x (1 entry matches no variant): 3 variants dropped, 0 left, expected at least one");
  folder.write("bad", std::string("rs1\nr\0s2\n", 9));
  EXPECT_EQ(folder.refusal_of("--bfile p --out h --extract bad"),
            "bad: line 2, field 1: the SNP name \"r\\x00s2\" holds a control character");
  EXPECT_EQ(folder.refusal_of("--bfile p --out h --extract absent"),
            "cannot open absent: No such file or directory");
}

TEST(Filters, TablesAndGenotypeFilesToo) {
  const ConvertFolder folder;
  const GenotypeData data = rare_data(7, 33, 50, 0.1);
  std::string table = "Class";
  for (const std::string& name : data.names) {
    table += " " + name;
  }
  for (int s = 0; s < 33; ++s) {
    table += "\n" + std::to_string(data.classes[static_cast<size_t>(s)]);
    for (int j = 0; j < 50; ++j) {
      table += data.at(s, j) == 3 ? " NA" : " " + std::to_string(data.at(s, j));
    }
  }
  folder.write("t", table);
  folder.write("n", normal_file(data));
  folder.write("s", transposed_file(data));
  folder.write("k", "2\n0 17\n33 33\n");
  folder.write("x", "rs0 rs31 rs32 rs49");
  for (const std::string input : {"t", "n", "s"}) {
    folder.output_of("--in " + input + " --out g --keep k --extract x");
    EXPECT_EQ(folder.read("g"), normal_file(part_of(data, {1, 16, 32}, {0, 31, 32, 49}))) << input;
  }
}

// Without any genotype a variant has no frequency: --maf drops it.
TEST(Filters, AVariantWithoutGenotypesHasNoFrequency) {
  const ConvertFolder folder;
  folder.write("t", "a b Class\nNA 0 1\nNA 1 0\n");
  folder.output_of("--in t --out g --maf 0.25");
  EXPECT_TRUE(has_line(folder.output_of("--info g"), "first SNP: b"));
  EXPECT_TRUE(has_line(folder.output_of("--in t --out g --maf 0"), "--maf 0: 0 variants dropped, 2 left"));
}

TEST(Filters, RefusesWrongUsage) {
  const ConvertFolder folder;
  write_plink_files(folder / "p", rare_data(8, 3, 3, 0.0));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"--bfile p --in t --out g", "only one of --in, --bfile and --vcf is possible"},
      {"--bfile p", "--in, --bfile or --vcf and --out or --make-bed are needed, or --info"},
      {"--bfile p --out g --class y", "--class and --in-transpose go with --in only"},
      {"--bfile p --out g --split", "--split goes with --vcf only"},
      {"--bfile p --out g --split --split", "option --split is given twice"},
      {"--in p --out g --count a2", "--count goes with --bfile and --vcf only; --in has no alleles"},
      {"--bfile p --out g --count b", "option --count: found \"b\", expected a1 (alt) or a2 (ref)"},
      {"--vcf p --out g", "--vcf needs --pheno"},
      {"--bfile p --out g --pheno-name y", "--pheno-name needs --pheno"},
      {"--bfile p --out g --covar c", "--covar and --covar-out go together"},
      {"--bfile p --out g --covar-name c", "--covar-name needs --covar"},
      {"--bfile p --out g --covar c --covar-out d --covar-name a,,b",
       "option --covar-name: found \"a,,b\", expected different names separated by commas"},
      {"--bfile p --out g --covar c --covar-out d --covar-name a,a",
       "option --covar-name: found \"a,a\", expected different names separated by commas"},
      {"--bfile p --make-bed g --transpose 1", "--transpose needs --out or --info"},
      {"--bfile p --out g --quantitative --transpose 1",
       "--quantitative and --transpose 1 do not go together: the layout has one byte for a class"},
      {"--bfile p --out g --maf 0.6", "option --maf: found \"0.6\", expected a number from 0 to 0.5"},
      {"--bfile p --out g --geno -0.1", "option --geno: found \"-0.1\", expected a number from 0 to 1"},
      {"--bfile p --out g --mind nan", "option --mind: found \"nan\", expected a number from 0 to 1"},
      {"--info g --maf 0.1", "--info goes with --transpose only"},
  };
  const Words before = folder.names();
  for (const auto& [line, message] : cases) {
    const RunResult run = folder.run_line(line);
    EXPECT_EQ(run.status, 2) << line;
    EXPECT_EQ(run.err, "tavo-convert: " + message + " (tavo-convert --help lists the options)\n");
  }
  EXPECT_EQ(folder.names(), before);
}

}  // namespace
}  // namespace tavo_test
