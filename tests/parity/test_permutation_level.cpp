// SPDX-License-Identifier: Apache-2.0
//
// P-values of permutation tests where there is nothing to find: they must be uniform. Data sets come from
// fixed seeds, so a correct program passes always, or never: the limits are those that 99 of 100 choices of
// seeds keep.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <random>

#include "tests/support/genotype_file.h"
#include "tests/support/run_program.h"

namespace {

constexpr int kDataSets = 200;
constexpr int kPermutations = 99;

// The p-values of the best pair of every data set, by testing value.
std::vector<double> null_p_values(const std::string& measure) {
  std::vector<double> p_values;
  std::mt19937 random(7);
  const tavo_test::TempDir folder;
  for (int i = 0; i < kDataSets; ++i) {
    tavo_test::GenotypeData data = tavo_test::random_data(random, 120, 8, 0.0);
    for (int s = 0; s < data.n_samples; ++s) {
      data.classes[static_cast<size_t>(s)] = static_cast<uint8_t>(s % 2);
    }
    tavo_test::write_file(folder / "in.tavo", tavo_test::normal_file(data));
    const tavo_test::RunResult result = tavo_test::run_program(
        tavo_test::tavo_program(), {"--in",      "in.tavo", "--out",          "out.csv",
                                    "--measure", measure,   "--cv",           "5",
                                    "--thread",  "64",      "--block",        "4",
                                    "--device",  "cpu",     "--permutations", std::to_string(kPermutations),
                                    "--gpu",     "1",       "--seed",         std::to_string(i)},
        folder.path());
    const size_t at = result.err.find("p = ");
    if (result.status != 0 || at == std::string::npos) {
      ADD_FAILURE() << result.out << result.err;
      return {};
    }
    p_values.push_back(std::strtod(result.err.c_str() + at + 4, nullptr));
  }
  return p_values;
}

// The largest distance between the shares of p-values up to each possible one and what they should be.
double kolmogorov_smirnov(const std::vector<double>& p_values) {
  double distance = 0.0;
  for (int k = 1; k <= kPermutations + 1; ++k) {
    const double p = static_cast<double>(k) / (kPermutations + 1);
    const auto below =
        std::count_if(p_values.begin(), p_values.end(), [p](double x) { return x < p + 1e-6; });
    distance =
        std::max(distance, std::abs(static_cast<double>(below) / static_cast<double>(p_values.size()) - p));
  }
  return distance;
}

class PermutationLevel : public testing::TestWithParam<const char*> {};

TEST_P(PermutationLevel, IsWhatItSaysWhereThereIsNothingToFind) {
  const std::vector<double> p_values = null_p_values(GetParam());
  ASSERT_EQ(p_values.size(), static_cast<size_t>(kDataSets));
  // Kolmogorov-Smirnov at 1%.
  const double distance = kolmogorov_smirnov(p_values);
  EXPECT_LT(distance, 1.628 / std::sqrt(kDataSets));
  // 99% of a binomial distribution of 200 trials at 5%.
  const auto positive = std::count_if(p_values.begin(), p_values.end(), [](double p) { return p <= 0.05; });
  EXPECT_GE(positive, 3);
  EXPECT_LE(positive, 19);
  std::cout << GetParam() << ": distance " << distance << ", " << positive << " of " << kDataSets
            << " at 5%\n";
}

INSTANTIATE_TEST_SUITE_P(Measures, PermutationLevel, testing::Values("ba", "lr"),
                         [](const auto& measure) { return std::string(measure.param); });

}  // namespace
