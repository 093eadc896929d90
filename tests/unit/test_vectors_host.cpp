// SPDX-License-Identifier: Apache-2.0
//
// Recorded cases of combinations, count tables, host measures and random numbers.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "lib/comb.h"
#include "lib/cv_measures.h"
#include "lib/mdr.h"
#include "lib/permutation.h"
#include "lib/rng.h"
#include "lib/utils.h"
#include "tests/support/vectors.h"

namespace {

using tavo_test::expect_agree;
using tavo_test::flat_integers;
using tavo_test::integers;
using tavo_test::Json;
using tavo_test::number;
using tavo_test::numbers;
using tavo_test::run_cases;

using Bytes = std::vector<uint8_t>;

constexpr unsigned long kDefaultSeed = 5489;

// Puts the generator into the state that the case asks for, which is always that of a new one.
void start_generator(const Json& in) {
  ASSERT_EQ(in.at("generator").get<std::string>(), "fresh (seed 5489)");
  init_rng(kDefaultSeed);
}

int integer(const Json& in, const char* name) {
  return in.at(name).get<int>();
}

Json split(const std::vector<int>& flat, int k, int count) {
  Json lists = Json::array();
  for (int c = 0; c < count; ++c) {
    lists.push_back(std::vector<int>(flat.begin() + c * k, flat.begin() + (c + 1) * k));
  }
  return lists;
}

// ---- combinations

void run_nextstep(const Json& in, const Json& out) {
  const int k = integer(in, "k");
  const int n = integer(in, "n");
  std::vector<int> comb = integers(in.at("comb"));
  const int result = comb_nextstep(&k, &n, comb.data());
  EXPECT_EQ(result, integer(out, "result"));
  if (!out.at("comb").is_null()) {
    EXPECT_EQ(comb, integers(out.at("comb")));
  }
}

void run_blocks(const Json& in, const Json& out) {
  const int k = integer(in, "k");
  const int n = integer(in, "n");
  const int max_count = integer(in, "maxCount");
  std::vector<int> state = integers(in.at("state"));
  std::vector<int> block(static_cast<size_t>(k) * static_cast<size_t>(max_count));
  Json blocks = Json::array();
  int count = 0;
  do {
    combSNP(&k, &n, &max_count, state.data(), &count, block.data());
    blocks.push_back(split(block, k, count));
    if (count > 0) {
      state.assign(block.begin() + (count - 1) * k, block.begin() + count * k);
    }
  } while (count > 0 && blocks.size() <= out.at("blocks").size());
  EXPECT_EQ(blocks, out.at("blocks"));
}

void run_calls(const Json& in, const Json& out) {
  const int k = integer(in, "k");
  const int n = integer(in, "n");
  const int max_count = integer(in, "maxCount");
  std::vector<int> state = integers(in.at("state"));
  std::vector<int> block(static_cast<size_t>(k) * static_cast<size_t>(max_count + 1));
  Json calls = Json::array();
  for (size_t call = 0; call < out.at("calls").size(); ++call) {
    int count = -1;
    const int result = combSNP2(&k, &n, &max_count, state.data(), &count, block.data());
    calls.push_back({{"result", result}, {"combs", split(block, k, count)}});
  }
  EXPECT_EQ(calls, out.at("calls"));
  if (out.contains("state")) {
    EXPECT_EQ(state, integers(out.at("state")));
  }
}

void run_sample(const Json& in, const Json& out) {
  const int k = integer(in, "k");
  const int n = integer(in, "n");
  const int want = integer(in, "want");
  start_generator(in);
  std::vector<int> combs(static_cast<size_t>(k) * static_cast<size_t>(want));
  int count = -1;
  sampleCombSNP(&k, &n, &want, &count, combs.data());
  EXPECT_EQ(count, integer(out, "count"));
  EXPECT_EQ(split(combs, k, count), out.at("combs"));
  EXPECT_EQ(int32_rand(), out.at("next_draw").get<unsigned long>());
}

TEST(VectorsHost, EveryCaseOfCombinationsHolds) {
  run_cases("comb",
            {
                {"comb_nextstep", run_nextstep},
                {"combSNP", run_blocks},
                {"combSNP2", run_calls},
                {"sampleCombSNP", run_sample},
                {"estimate",
                 [](const Json& in, const Json& out) {
                   EXPECT_EQ(comb_estimate(integer(in, "k"), integer(in, "n")), number(out.at("estimate")));
                 }},
                {"key",
                 [](const Json& in, const Json& out) {
                   const std::vector<int> comb = integers(in.at("comb"));
                   EXPECT_EQ(comb_key(comb.data(), static_cast<int>(comb.size())),
                             out.at("key").get<std::string>());
                 }},
                {"GetComb",
                 [](const Json& in, const Json& out) {
                   EXPECT_EQ(comb_key_field(in.at("key").get<std::string>().c_str(), integer(in, "field")),
                             integer(out, "index"));
                 }},
            });
}

// ---- count tables

// table has twice the entries of the case: those beyond it must stay empty.
void expect_table(const std::vector<int>& table, int cases, int controls, const Json& out) {
  std::vector<int> expected = integers(out.at("table"));
  expected.resize(table.size());
  EXPECT_EQ(table, expected);
  EXPECT_EQ(cases, integer(out, "cases"));
  EXPECT_EQ(controls, integer(out, "controls"));
}

void run_count(CountFunction function, const Json& in, const Json& out) {
  const int n_words = integer(in, "W");
  const int k = integer(in, "k");
  const int base = integer(in, "B");
  const std::vector<int> weight = integers(in.at("weight"));
  const std::vector<int> snps = integers(in.at("snp"));
  const std::vector<int> samples = integers(in.at("samples"));
  const int n_listed = static_cast<int>(samples.size());
  const auto words = in.at("words").get<std::vector<uint32_t>>();
  const auto response = in.at("response").get<Bytes>();
  int cases = integer(in, "cases");
  int controls = integer(in, "controls");
  std::vector<int> table(2 * out.at("table").size());
  function(&n_words, weight.data(), snps.data(), &k, &base, samples.data(), &n_listed, words.data(),
           response.data(), &cases, &controls, table.data());
  expect_table(table, cases, controls, out);
}

void run_available_2(const Json& in, const Json& out) {
  const int n_words = integer(in, "W");
  const int weight1 = integer(in, "weight1");
  const int weight2 = integer(in, "weight2");
  const int s1 = integer(in, "s1");
  const int s2 = integer(in, "s2");
  const std::vector<int> samples = integers(in.at("samples"));
  const int n_listed = static_cast<int>(samples.size());
  const auto words = in.at("words").get<std::vector<uint32_t>>();
  const auto response = in.at("response").get<Bytes>();
  int cases = -1;
  int controls = -1;
  std::vector<int> table(2 * out.at("table").size());
  countTable_available_2(&n_words, &weight1, &weight2, &s1, &s2, samples.data(), &n_listed, words.data(),
                         response.data(), &cases, &controls, table.data());
  expect_table(table, cases, controls, out);
}

void run_make_index(const Json& in, const Json& out) {
  const std::vector<int> weight = integers(in.at("weight"));
  const std::vector<int> offset = integers(in.at("offset"));
  const int k = integer(in, "k");
  const auto bytes = in.at("bytes").get<Bytes>();
  const int n_samples = integer(in, "nSamples");
  std::vector<int> index(static_cast<size_t>(n_samples), -1);
  makeIndex(weight.data(), offset.data(), &k, bytes.data(), &n_samples, index.data());
  EXPECT_EQ(index, integers(out.at("index")));
}

void run_label(const Json& in, const Json& out) {
  const std::vector<int> table = integers(in.at("table"));
  const std::string letters = "UHL";
  std::string labels;
  for (size_t entry = 0; entry < table.size(); entry += 2) {
    const int label =
        risk_label(table[entry], table[entry + 1], number(in.at("threshold")), integer(in, "tie"));
    labels += letters.at(static_cast<size_t>(label));
  }
  EXPECT_EQ(labels, out.at("labels").get<std::string>());
}

TEST(VectorsHost, EveryCaseOfCountTablesHolds) {
  static_assert(kUnlabelled == 0 && kHighRisk == 1 && kLowRisk == 2, "the letters follow the labels");
  const auto counted_by = [](auto count) {
    return [count](const Json& in, const Json& out) { run_count(count, in, out); };
  };
  run_cases("tables", {
                          {"countTable_none", counted_by(countTable_none)},
                          {"countTable_available", counted_by(countTable_available)},
                          {"countTable_EM", counted_by(countTable_EM)},
                          {"countTable_available_2", run_available_2},
                          {"makeIndex", run_make_index},
                          {"label", run_label},
                      });
}

// ---- measures

void run_measures(const Json& in, const Json& out) {
  const int n = integer(in, "N");
  const int cases = integer(in, "nCases");
  const int controls = integer(in, "nControls");
  const std::vector<int> table = integers(in.at("table"));
  const int n_entries = integer(in, "nEntries");
  const double threshold = number(in.at("threshold"));
  const int tie = integer(in, "tie");
  std::vector<double> values = numbers(in.at("out"));
  calculateMeasuresAll(&n, &cases, &controls, table.data(), &n_entries, &threshold, &tie, values.data());
  expect_agree(values, numbers(out.at("out")));
}

TEST(VectorsHost, EveryCaseOfMeasuresHolds) {
  run_cases("measures", {
                            {"calculateMeasuresAll", run_measures},
                            {"sign",
                             [](const Json& in, const Json& out) {
                               EXPECT_EQ(sign(number(in.at("x")), number(in.at("y"))),
                                         integer(out, "result"));
                             }},
                            {"cmp_double",
                             [](const Json& in, const Json& out) {
                               const double a = number(in.at("a"));
                               const double b = number(in.at("b"));
                               EXPECT_EQ(cmp_double(&a, &b), integer(out, "result"));
                             }},
                            {"realnum",
                             [](const Json& in, const Json& out) {
                               EXPECT_EQ(realnum(number(in.at("x"))), integer(out, "result"));
                             }},
                        });
}

// ---- random numbers and permutation

void expect_draws(const Json& expected) {
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(int32_rand(), expected[i].get<unsigned long>()) << "draw " << i;
  }
}

void expect_next_draw(const Json& out) {
  EXPECT_EQ(int32_rand(), out.at("next_draw").get<unsigned long>());
}

void run_draws(const Json& in, const Json& out) {
  start_generator(in);
  ASSERT_EQ(out.at("draws").size(), in.at("draws").get<size_t>());
  expect_draws(out.at("draws"));
}

void run_seed(const Json& in, const Json& out) {
  init_rng(static_cast<unsigned long>(in.at("seed").get<int64_t>()));
  expect_draws(out.at("draws"));
}

void run_permute_values(const Json& in, const Json& out) {
  start_generator(in);
  auto values = in.at("values").get<Bytes>();
  const int n = static_cast<int>(values.size());
  ASSERT_EQ(integer(in, "calls"), 2);
  permuteValues(values.data(), &n);
  EXPECT_EQ(values, out.at("after_1").get<Bytes>());
  permuteValues(values.data(), &n);
  EXPECT_EQ(values, out.at("after_2").get<Bytes>());
  expect_next_draw(out);
}

void run_permute_by_index(const Json& in, const Json& out) {
  start_generator(in);
  auto values = in.at("values").get<Bytes>();
  const std::vector<int> index = integers(in.at("index"));
  const int n = static_cast<int>(index.size());
  permuteValuesByIndex(values.data(), index.data(), &n);
  EXPECT_EQ(values, out.at("values").get<Bytes>());
  expect_next_draw(out);
}

void run_permute_index(const Json& in, const Json& out) {
  start_generator(in);
  std::vector<int> index = integers(in.at("index"));
  const int n = integer(in, "n");
  const int k = integer(in, "k");
  Json after_each = Json::array();
  for (int call = 0; call < integer(in, "calls"); ++call) {
    permuteIndex(index.data(), &n, &k);
    after_each.push_back(index);
  }
  EXPECT_EQ(after_each, out.at("after_each"));
  expect_next_draw(out);
}

void run_quantile(const Json& in, const Json& out) {
  std::vector<double> values = numbers(in.at("values"));
  const int n = integer(in, "n");
  const double p = number(in.at("p"));
  expect_agree({quantile(values.data(), &n, &p)}, {number(out.at("result"))});
  EXPECT_EQ(values, numbers(out.at("values")));
}

void run_pvalue(const Json& in, const Json& out) {
  std::vector<double> null = numbers(in.at("null"));
  const int n = integer(in, "n");
  const int sorted = integer(in, "sorted");
  expect_agree({pvalue(null.data(), &n, number(in.at("x")), &sorted)}, {number(out.at("result"))});
}

void run_pvalues(const Json& in, const Json& out) {
  std::vector<double> null = numbers(in.at("null"));
  const std::vector<double> values = numbers(in.at("values"));
  const int n = integer(in, "n");
  const int n_values = integer(in, "nValues");
  const int sorted = integer(in, "sorted");
  std::vector<double> result = numbers(in.at("out"));
  pvalueVector(null.data(), &n, values.data(), &n_values, &sorted, result.data());
  expect_agree(result, numbers(out.at("out")));
}

void run_shellsort(const Json& in, const Json& out) {
  const std::vector<double> values = numbers(in.at("values"));
  const int n = static_cast<int>(values.size());
  const size_t size = sizeof(double);
  std::vector<int> index(values.size(), -1);
  shellsortIndex(index.data(), values.data(), &n, &size, cmp_double);
  EXPECT_EQ(index, integers(out.at("index")));
}

void run_null(const Json& in, const Json& out) {
  const std::vector<int> combs = flat_integers(in.at("combs"));
  const int n_combs = static_cast<int>(in.at("combs").size());
  const int k = integer(in, "k");
  const auto words = in.at("words").get<std::vector<uint32_t>>();
  const int n_words = integer(in, "W");
  const auto response = in.at("response").get<Bytes>();
  const int n_samples = integer(in, "nSamples");
  const std::vector<int> samples = integers(in.at("samples"));
  const int n = integer(in, "N");
  const int cases = integer(in, "nCases");
  const int controls = integer(in, "nControls");
  const double threshold = number(in.at("threshold"));
  const int tie = integer(in, "tie");
  const int missing = integer(in, "missing");
  const int n_perm = integer(in, "nPerm");
  ASSERT_EQ(samples.size(), static_cast<size_t>(n));
  start_generator(in);
  int count = -1;
  std::vector<double> records(16 * static_cast<size_t>(n_combs * n_perm), 77.0);
  generateNull(combs.data(), &k, &n_combs, words.data(), &n_words, response.data(), &n_samples,
               samples.data(), &n, &cases, &controls, &threshold, &tie, &missing, &n_perm, &count,
               records.data());
  EXPECT_EQ(count, integer(out, "count"));
  std::vector<double> expected;
  for (const Json& record : out.at("records")) {
    const std::vector<double> values = numbers(record);
    expected.insert(expected.end(), values.begin(), values.end());
  }
  expect_agree(records, expected);
  expect_next_draw(out);
}

TEST(VectorsHost, EveryCaseOfRandomNumbersAndPermutationHolds) {
  run_cases("random", {
                          {"int32_rand", run_draws},
                          {"init_rng", run_seed},
                          {"permuteValues", run_permute_values},
                          {"permuteValuesByIndex", run_permute_by_index},
                          {"permuteIndex", run_permute_index},
                          {"quantile", run_quantile},
                          {"pvalue", run_pvalue},
                          {"pvalueVector", run_pvalues},
                          {"shellsortIndex", run_shellsort},
                          {"generateNull", run_null},
                      });
}

}  // namespace
