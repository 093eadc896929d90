// SPDX-License-Identifier: Apache-2.0
//
// Every number that a header holds at its extremes: the file is refused, or it is one that such a header can
// describe.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "src/FileIO.h"
#include "tests/faults/fault_folder.h"
#include "tests/support/fake_backend.h"
#include "tools/convert.h"

namespace tavo_test {
namespace {

constexpr int64_t kExtremes[] = {0, 1, 5, 6, 7, 255, 65536, 1 << 30, 0x7ffffff1, 0x7fffffff, -0x80000000l,
                                 -1};

std::string with_header(const std::string& file, int64_t samples, int64_t snps, int64_t label) {
  return file.substr(0, 4) + le32(static_cast<uint32_t>(samples)) + le32(static_cast<uint32_t>(snps)) +
         le32(static_cast<uint32_t>(label)) + file.substr(16);
}

// Whether a file of this size can have this header, by its layout alone.
bool fits(const std::string& file, int64_t samples, int64_t snps, int64_t label, bool transposed) {
  if (samples < 1 || snps < 1 || label < 1 || label > 255) {
    return false;
  }
  using Wide = __int128;
  const Wide words = transposed ? Wide(snps) * ((samples + 15) / 16) : Wide(samples) * ((snps + 15) / 16);
  if (16 + Wide(snps) * label + 4 * Wide(samples) + 4 * words > static_cast<Wide>(file.size())) {
    return false;
  }
  for (int64_t j = 0; j < snps; ++j) {
    const std::string slot = file.substr(static_cast<size_t>(16 + j * label), static_cast<size_t>(label));
    if (slot.find('\0') == std::string::npos) {
      return false;  // a name without its end
    }
  }
  return true;
}

class HeaderFields : public testing::TestWithParam<bool> {
 protected:
  std::string base() const {
    // Room for other shapes than the true one: long slots, bytes behind the last record.
    const GenotypeData data = small_data();
    return (GetParam() ? transposed_file(data, 12) : normal_file(data, 12)) + std::string(64, '\0');
  }

  FaultFolder folder_;
};

TEST_P(HeaderFields, OfAGenotypeFileAtTheirExtremes) {
  const std::string file = base();
  QuietStdout quiet;
  int opened = 0;
  int refused = 0;
  for (const int64_t samples : kExtremes) {
    for (const int64_t snps : kExtremes) {
      for (const int64_t label : {int64_t{0}, int64_t{1}, int64_t{6}, int64_t{12}, int64_t{255}, int64_t{256},
                                  int64_t{0x7fffffff}, int64_t{-0x80000000l}, int64_t{-1}}) {
        folder_.write("x.tavo", with_header(file, samples, snps, label));
        MdrReader reader;
        const bool fit = fits(file, samples, snps, label, GetParam());
        ASSERT_EQ(reader.Open(folder_.path("x.tavo").c_str(), false, GetParam() ? 1 : 0), fit)
            << samples << " samples, " << snps << " SNPs, labels of " << label;
        ++(fit ? opened : refused);
      }
    }
  }
  EXPECT_GT(opened, 5);
  EXPECT_GT(refused, 500);
}

// tavo-convert tells the layout by the size of the file: it refuses any other.
TEST_P(HeaderFields, AreRefusedByTheConverter) {
  const GenotypeData data = small_data();
  const std::string file = GetParam() ? transposed_file(data, 12) : normal_file(data, 12);
  for (size_t field = 0; field < 3; ++field) {
    for (const int64_t value : kExtremes) {
      int64_t header[] = {6, 5, 12};
      if (header[field] == value) {
        continue;
      }
      header[field] = value;
      folder_.write("x.tavo", with_header(file, header[0], header[1], header[2]));
      if (header[0] == 7 && !GetParam()) {
        continue;  // seven samples in the other layout take as many bytes
      }
      for (const bool info : {false, true}) {
        ConvertOptions options;
        const Words words =
            info ? Words{"--info", folder_.path("x.tavo").string()}
                 : Words{"--in", folder_.path("x.tavo").string(), "--out", folder_.path("c.tavo").string()};
        ASSERT_TRUE(parse_convert_options(words, &options).ok());
        ConvertReport report;
        const volatile std::sig_atomic_t never = 0;
        const Status status = info ? describe_genotypes(options, &report) : convert(options, never, &report);
        ASSERT_FALSE(status.ok()) << header[0] << " samples, " << header[1] << " SNPs, labels of "
                                  << header[2];
        ASSERT_NE(status.message().find("x.tavo"), std::string::npos) << status.message();
        ASSERT_FALSE(folder_.exists("c.tavo"));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Layouts, HeaderFields, testing::Bool(),
                         [](const auto& layout) { return layout.param ? "Transposed" : "Normal"; });

// ---- the numbers of a checkpoint

constexpr const char* kHugeNumbers[] = {"0",
                                        "2147483647",
                                        "2147483648",
                                        "4294967296",
                                        "9223372036854775807",
                                        "9223372036854775808",
                                        "18446744073709551615",
                                        "18446744073709551616",
                                        "-1"};

class CheckpointFields : public testing::Test {
 protected:
  // A checkpoint of a run that was stopped.
  CheckpointFields() {
    std::mt19937 random(3);
    folder_.write("g.tavo", normal_file(random_data(random, 120, 90, 0.0)));
    const RunResult result = interrupt_program_when(
        tavo_program(), words(), folder_.path(""),
        {{"TAVO_CHECKPOINT_SECONDS", "0"}, {"TAVO_SIMD", "scalar"}}, [this] { return folder_.exists("ck"); },
        SIGTERM);
    EXPECT_EQ(result.status, 128 + SIGTERM) << result.err;
    checkpoint_ = folder_.read("ck");
  }

  static Words words() {
    return {"--in",  "g.tavo", "--out",    "r.csv", "--measure",    "gamma", "--order", "3",
            "--cv",  "2",      "--top",    "2",     "--thread",     "64",    "--block", "4",
            "--gpu", "1",      "--device", "cpu",   "--checkpoint", "ck"};
  }

  RunResult go_on(const std::string& checkpoint) const {
    folder_.write("ck", checkpoint);
    folder_.remove("r.csv");
    return folder_.run(tavo_program(), words());
  }

  static std::string sealed(const std::string& body) {
    char crc[16];
    std::snprintf(
        crc, sizeof(crc), "%08" PRIx32,
        static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(body.data()), body.size())));
    return body + "end\t" + crc + "\n";
  }

  FaultFolder folder_;
  std::string checkpoint_;
};

TEST_F(CheckpointFields, AtTheirExtremesWithATrueChecksum) {
  const std::string body = checkpoint_.substr(0, checkpoint_.rfind("end\t"));
  ASSERT_EQ(sealed(body), checkpoint_);
  int changed = 0;
  for (size_t start = body.find("\norder\t") + 1; start < body.size() && changed < 12; ++changed) {
    // The next field after a tab, of the lines behind the run's identity.
    const size_t tab = body.find('\t', start);
    if (tab == std::string::npos) {
      break;
    }
    const size_t end = body.find_first_of("\t\n", tab + 1);
    for (const char* number : kHugeNumbers) {
      const RunResult result = go_on(sealed(body.substr(0, tab + 1) + number + body.substr(end)));
      ASSERT_EQ(unclean(result), "") << number << " in place of " << body.substr(tab + 1, end - tab - 1);
      ASSERT_TRUE(result.status == 0 || result.status == 1)
          << number << " in place of " << body.substr(tab + 1, end - tab - 1) << " at " << tab << " of\n"
          << body << result.err;
      const std::string left = folder_.exists("r.csv") ? folder_.read("r.csv") : "";
      ASSERT_EQ(result.status == 0, looks_whole(left));
    }
    start = end;
  }
  EXPECT_GE(changed, 5);
}

TEST_F(CheckpointFields, EveryBeginningIsRefused) {
  for (size_t length = 0; length < checkpoint_.size(); length += length + 12 < checkpoint_.size() ? 9 : 1) {
    const std::string prefix = checkpoint_.substr(0, length);
    const RunResult result = go_on(prefix);
    ASSERT_EQ(unclean(result), "") << length;
    ASSERT_EQ(result.status, 1) << length << "\n" << result.err;
    ASSERT_NE(result.err.find("tavo: ck: "), std::string::npos) << result.err;
    ASSERT_EQ(folder_.read("ck"), prefix);
    ASSERT_FALSE(looks_whole(folder_.exists("r.csv") ? folder_.read("r.csv") : ""));
  }
  ASSERT_EQ(go_on(checkpoint_).status, 0);
}

}  // namespace
}  // namespace tavo_test
