// SPDX-License-Identifier: Apache-2.0
//
// Recorded fold labels, top lists and weighted consistencies.
#include <gtest/gtest.h>

#include <cstdlib>

#include "device/backends.h"
#include "src/TFmMDR.h"
#include "src/folds.h"
#include "src/top_list.h"
#include "tests/support/vectors.h"

namespace {

using tavo_test::Json;

void fold_labels(const Json& in, const Json& out) {
  const int n_cases = in.at("P").get<int>();
  const int n_controls = in.at("Q").get<int>();
  std::vector<int> labels = deal_folds(n_cases, n_controls, in.at("K").get<int>());
  if (in.at("shuffling").get<int>() != 0) {
    ASSERT_EQ(in.at("srand").at(0), in.at("srand").at(1));
    shuffle_folds(labels, n_cases, n_controls, in.at("srand").at(0).get<unsigned>());
  }
  EXPECT_EQ(labels, tavo_test::integers(out.at("labels")));
}

void top_list(const Json& in, const Json& out) {
  const int measure = in.at("measure").get<int>();
  const auto size = in.at("N").get<size_t>();
  TopList top(1, size, measure);
  const std::vector<int> combs = tavo_test::integers(in.at("combs"));
  for (size_t i = 0; i < combs.size(); ++i) {
    double record[kRecordSize] = {};
    record[measure] = tavo_test::number(in.at("values").at(i));
    top.insert(&combs[i], record);
  }
  const auto used = out.at("used").get<size_t>();
  EXPECT_EQ(std::min(combs.size(), size), used);
  const std::vector<TopList::Entry> entries = top.entries(used);
  for (size_t i = 0; i < used; ++i) {
    EXPECT_EQ(entries[i].comb[0], out.at("combs").at(i).get<int>()) << "entry " << i;
    EXPECT_EQ(entries[i].record[static_cast<size_t>(measure)], tavo_test::number(out.at("values").at(i)));
  }
}

void weighted_consistency(const Json& in, const Json& out) {
  const int order = in.at("order").get<int>();
  const int folds = in.at("folds").get<int>();
  const int top = in.at("top").get<int>();
  MDRResult result(order, order - 1, folds, top, top, 1, 0, 0, {});
  for (size_t f = 0; f < in.at("lists").size(); ++f) {
    for (const Json& entry : in.at("lists").at(f)) {
      result.kept[f].push_back(
          {"", tavo_test::integers(entry.at("comb")), tavo_test::numbers(entry.at("record"))});
    }
  }
  TFmMDR driver(*choose_backend("cpu"));
  driver.CalcWeightedCVC_CV(in.at("selection").get<int>(), false, &result);
  ASSERT_EQ(result.top_count, out.at("count").get<int>());
  for (size_t rank = 0; rank < out.at("rank").size(); ++rank) {
    const Json& expected = out.at("rank").at(rank);
    EXPECT_EQ(result.best_snps[rank], tavo_test::integers(expected.at("comb"))) << "rank " << rank + 1;
    EXPECT_TRUE(tavo_test::agree(result.weighted_cvc[rank], tavo_test::number(expected.at("wcvc")), 1e-12));
    const std::vector<double> means = tavo_test::numbers(expected.at("means"));
    for (size_t m = 0; m < kMeasureCount; ++m) {
      if (m == kAccuracy) {
        continue;
      }
      EXPECT_TRUE(tavo_test::agree(result.measures[m].training[rank], means[m], 1e-12)) << "measure " << m;
      EXPECT_TRUE(tavo_test::agree(result.measures[m].testing[rank], means[kTestingEntry + m], 1e-12))
          << "measure " << m;
    }
  }
}

TEST(RecordedCases, FoldsTopListsAndWeightedConsistency) {
  tavo_test::run_cases(
      "folds",
      {{"fold_labels", fold_labels}, {"top_list", top_list}, {"CalcWeightedCVC_CV", weighted_consistency}});
}

}  // namespace
