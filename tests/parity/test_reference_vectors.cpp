// SPDX-License-Identifier: Apache-2.0
//
// The naive implementation itself against recorded records and fold labels.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tests/reference/naive_run.h"
#include "tests/support/vectors.h"

namespace {

using tavo_test::Json;

uint32_t bits(float value) {
  uint32_t number = 0;
  std::memcpy(&number, &value, sizeof(number));
  return std::isnan(value) ? 0x7fc00000u : number;
}

void kernel(const Json& in, const Json& out) {
  tavo_test::GenotypeData data;
  data.n_samples = in.at("N").get<int>();
  data.n_snps = in.at("M").get<int>();
  const auto words = in.at("words").get<std::vector<uint32_t>>();
  const auto row_words = in.at("szJmp").get<size_t>();
  for (size_t s = 0; s < static_cast<size_t>(data.n_samples); ++s) {
    for (size_t j = 0; j < static_cast<size_t>(data.n_snps); ++j) {
      data.genotypes.push_back(static_cast<uint8_t>((words[s * row_words + j / 16] >> (2 * (j % 16))) & 3u));
    }
  }
  naive::Run run;
  run.missing = in.at("missing").get<int>() - 1;
  run.tie = in.at("tie").get<int>() - 1;
  if (!in.at("scores").is_null()) {
    for (const double score : tavo_test::numbers(in.at("scores"))) {
      run.scores.push_back(static_cast<float>(score));
    }
  }
  const std::vector<float> record =
      naive::record(data, run, tavo_test::integers(in.at("comb")), tavo_test::integers(in.at("response")),
                    tavo_test::integers(in.at("train")), tavo_test::integers(in.at("test")),
                    static_cast<float>(tavo_test::number(in.at("run_threshold"))), logf);
  for (size_t i = 0; i < record.size(); ++i) {
    const float wanted = static_cast<float>(tavo_test::number(out.at("record").at(i)));
    const std::string key = std::to_string(i);
    if (out.contains("tol") && out.at("tol").contains(key)) {
      EXPECT_NEAR(record[i], wanted, out.at("tol").at(key).get<double>()) << "entry " << i;
    } else {
      EXPECT_EQ(bits(record[i]), bits(wanted)) << "entry " << i << ": " << record[i];
    }
  }
}

TEST(ReferenceVectors, Records) {
  // Measures of given tables are part of the records above.
  tavo_test::run_cases("kernels", {{"kernel", kernel}, {"mdr_measures", [](const Json&, const Json&) {}}});
}

void fold_labels(const Json& in, const Json& out) {
  tavo_test::GenotypeData data;
  const int n_cases = in.at("P").get<int>();
  const int n_controls = in.at("Q").get<int>();
  data.n_samples = n_cases + n_controls;
  data.classes.assign(static_cast<size_t>(n_cases), 1);
  data.classes.resize(static_cast<size_t>(data.n_samples), 0);
  naive::Run run;
  run.folds = in.at("K").get<int>();
  run.shuffling = in.at("shuffling").get<int>() != 0;
  run.seed = run.shuffling ? in.at("srand").at(0).get<unsigned>() : 0;
  EXPECT_EQ(naive::deal(data, run), tavo_test::integers(out.at("labels")));
}

TEST(ReferenceVectors, FoldLabels) {
  const auto elsewhere = [](const Json&, const Json&) {};  // compared through whole runs
  tavo_test::run_cases(
      "folds", {{"fold_labels", fold_labels}, {"top_list", elsewhere}, {"CalcWeightedCVC_CV", elsewhere}});
}

}  // namespace
