// SPDX-License-Identifier: Apache-2.0
//
// Recorded exhaustive runs: kept combinations, ranking, p-values and the whole report.
#include <gtest/gtest.h>

#include <regex>

#include "device/backends.h"
#include "device/worker.h"
#include "lib/rng.h"
#include "src/TFmMDR.h"
#include "src/run_config.h"
#include "tests/support/fake_backend.h"
#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"
#include "tests/support/vectors.h"

namespace {

using tavo_test::Json;

// The command line that a recorded report shows. Option values that the report looks up by position stand
// behind the arguments that it prints.
class CommandLine {
 public:
  explicit CommandLine(const Json& cfg) {
    for (const Json& argument : cfg.at("argv")) {
      texts_.push_back(argument.get<std::string>());
    }
    g_argc = static_cast<int>(texts_.size());
    g_combOrder = place(cfg.at("order_text"));
    g_selidx = place(cfg.at("measure_text"));
    g_misidx = place(cfg.at("missing_text"));
    g_tieidx = place(cfg.at("tie_text"));
    g_topidx = place(cfg.at("top_text"));
    g_shuidx = place(cfg.at("shuffling_text"));
    for (std::string& text : texts_) {
      pointers_.push_back(text.data());
    }
    g_argv = pointers_.data();
    copy(cfg.at("in"), szInput);
    copy(cfg.at("out"), szOutput);
    copy(cfg.at("score"), szScore);
    g_cntDevCuda = cfg.at("gpus").get<int>();
    g_cntThreadCuda = cfg.at("threads").get<int>();
    g_cntBlockCuda = cfg.at("blocks").get<int>();
  }

  ~CommandLine() {
    g_argc = 0;
    g_argv = nullptr;
    g_combOrder = g_selidx = g_misidx = g_tieidx = g_topidx = g_shuidx = -1;
    szInput[0] = szOutput[0] = szScore[0] = '\0';
  }
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

 private:
  int place(const Json& text) {
    if (text.is_null()) {
      return -1;
    }
    texts_.push_back(text.get<std::string>());
    return static_cast<int>(texts_.size()) - 1;
  }

  static void copy(const Json& text, char (&target)[kPathSize]) {
    const auto value = text.get<std::string>();
    ASSERT_LT(value.size(), static_cast<size_t>(kPathSize));
    target[value.copy(target, kPathSize - 1)] = '\0';
  }

  std::vector<std::string> texts_;
  std::vector<char*> pointers_;
};

std::string file_bytes(const Json& in) {
  const auto words = in.at("words").get<std::vector<uint32_t>>();
  const auto names = in.at("names").get<std::vector<std::string>>();
  const auto row_words = in.at("W").get<size_t>();
  std::string bytes = "TAVO" + tavo_test::le32(in.at("N").get<uint32_t>()) +
                      tavo_test::le32(in.at("M").get<uint32_t>()) + tavo_test::le32(32);
  for (std::string name : names) {
    name.resize(32, '\0');
    bytes += name;
  }
  for (size_t s = 0; s < in.at("N").get<size_t>(); ++s) {
    bytes += tavo_test::le32(in.at("classes").at(s).get<uint32_t>());
    for (size_t w = 0; w < row_words; ++w) {
      bytes += tavo_test::le32(words[s * row_words + w]);
    }
  }
  return bytes;
}

void expect_order(const Json& expected, const MDRResult& result) {
  const std::vector<KeptCombination>& kept = result.kept.front();
  ASSERT_EQ(kept.size(), expected.at("row_count").get<size_t>());
  EXPECT_EQ(result.top_count, expected.at("count").get<int>());
  EXPECT_EQ(result.null_measures.size(), expected.at("null_size").get<size_t>());
  if (!expected.at("threshold").is_null()) {
    EXPECT_TRUE(tavo_test::agree(result.threshold, tavo_test::number(expected.at("threshold")), 1e-12));
  }
  for (size_t row = 0; row < kept.size(); ++row) {
    const Json& wanted = expected.at("rows").at(row);
    EXPECT_EQ(kept[row].key, wanted.at("key").get<std::string>()) << "row " << row;
    EXPECT_EQ(kept[row].snps, tavo_test::integers(wanted.at("comb"))) << "row " << row;
    tavo_test::expect_agree(kept[row].record, tavo_test::numbers(wanted.at("measures")));
  }
  for (size_t rank = 0; rank < expected.at("rank").size(); ++rank) {
    const Json& wanted = expected.at("rank").at(rank);
    EXPECT_EQ(result.best_snps[rank], tavo_test::integers(wanted.at("comb"))) << "rank " << rank + 1;
    EXPECT_TRUE(tavo_test::agree(result.weighted_cvc[rank], tavo_test::number(wanted.at("wcvc")), 1e-12));
    EXPECT_TRUE(tavo_test::agree(result.p_values[rank], tavo_test::number(wanted.at("p")), 1e-12));
  }
}

void run_exhaustive(const Json& in, const Json& out) {
  const tavo_test::TempDir folder;
  tavo_test::write_file(folder / "a.tavo", file_bytes(in));
  const CommandLine command_line(in.at("cfg"));
  MdrReader reader;
  {
    const tavo_test::QuietStdout quiet;
    ASSERT_TRUE(reader.Open((folder / "a.tavo").c_str(), false, 0));
  }

  RunSettings settings;
  settings.mode = in.at("mode").get<int>();
  settings.minimum_order_minus_1 = in.at("min_order").get<int>() - 1;
  settings.maximum_order = in.at("max_order").get<int>();
  settings.measure = in.at("selection").get<int>();
  settings.tie = in.at("tie").get<int>() - 1;
  settings.missing = in.at("missing").get<int>() - 1;
  settings.top = in.at("top").get<int>();
  settings.null_level = in.at("level").get<double>();
  settings.null_combinations = in.at("sampled").get<int>();
  settings.null_permutations = in.at("permutations").get<int>();
  settings.block_size = in.at("block").get<int>();
  ResultArray results = TFmMDR::make_results(settings);
  init_rng(5489);
  testing::internal::CaptureStderr();  // notices
  TFmMDR driver(*choose_backend("cpu"));
  Checkpoint checkpoint;
  const bool done = driver.CalcMdrMethodALL(reader, settings, results, checkpoint).ok();
  testing::internal::GetCapturedStderr();
  ASSERT_TRUE(done);
  for (const auto& [order, expected] : out.at("orders").items()) {
    SCOPED_TRACE("order " + order);
    expect_order(expected, *results[std::stoul(order) - 1]);
  }
  const std::string report = (folder / "report").string();
  ASSERT_TRUE(driver.WriteResultALL(report, 0.0, settings.mode, reader.ReadHeader(), results).ok());
  const std::vector<std::string> lines = tavo_test::split_lines(tavo_test::read_file(report));
  ASSERT_EQ(lines.size(), out.at("report").size());
  for (size_t i = 0; i < lines.size(); ++i) {
    // The sign of a NaN is not meant.
    const std::string wanted =
        std::regex_replace(out.at("report").at(i).get<std::string>(), std::regex("-nan"), "nan");
    // The report names the path that it was given.
    EXPECT_EQ(lines[i], wanted.starts_with("2.result_file,") ? "2.result_file," + report : wanted)
        << "line " << i + 1;
  }
}

void run_report(const Json& in, const Json& out) {
  const tavo_test::TempDir folder;
  RunSettings settings;
  settings.mode = in.at("mode").get<int>();
  const ResultArray results = TFmMDR::make_results(settings);
  TFmMDR driver(*choose_backend("cpu"));
  const std::string report = (folder / "report").string();
  ASSERT_TRUE(driver.WriteResultALL(report, 0.0, settings.mode, {}, results).ok());
  const std::vector<std::string> lines = tavo_test::split_lines(tavo_test::read_file(report));
  ASSERT_FALSE(lines.empty());
  // Nothing stands after the banner of the results.
  EXPECT_NE(lines.back().find("  Results  "), std::string::npos);
  EXPECT_TRUE(out.at("result_lines").empty());
}

TEST(RecordedCases, ExhaustiveRuns) {
  tavo_test::run_cases("exhaustive", {{"CalcMdrMethodALL", run_exhaustive}, {"WriteResultALL", run_report}});
}

}  // namespace
