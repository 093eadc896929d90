// SPDX-License-Identifier: Apache-2.0
//
// The genotypes, classes and covariates that are drawn: whether they follow what they are drawn from.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <sstream>

#include "lib/packed_genotypes.h"
#include "tests/support/run_program.h"
#include "tools/simulate_files.h"
#include "tools/simulate_random.h"
#include "tools/simulate_source.h"

namespace tavo_test {
namespace {

// The upper 0.0001 point of chi-square with 8, 2 and 26 degrees of freedom. Seeds are fixed: what passes once
// passes always.
constexpr double kLimit8 = 31.83;
constexpr double kLimit2 = 18.42;
constexpr double kLimit26 = 61.66;

// Of a stream of bits and of one of normals, recorded once: data of a seed must not change.
constexpr uint64_t kRecordedBits = 4355151346381059769u;
constexpr double kRecordedNormal = 0x1.2d7c9acee0bcbp+0;

std::vector<std::vector<unsigned>> all_genotypes(SimulatedSource& source) {
  const int64_t n_words = packed_words(source.n_samples());
  const int64_t n_snps = source.variants().size();
  std::vector<uint32_t> rows(static_cast<size_t>(n_words * n_snps), 0xffffffffu);
  EXPECT_TRUE(source.read(0, n_snps, rows.data()).ok());
  std::vector<std::vector<unsigned>> genotypes(static_cast<size_t>(n_snps));
  for (size_t j = 0; j < genotypes.size(); ++j) {
    const uint32_t* row = rows.data() + j * static_cast<size_t>(n_words);
    for (size_t i = 0; i < static_cast<size_t>(source.n_samples()); ++i) {
      genotypes[j].push_back(packed_genotype(row, i));
    }
    for (auto i = static_cast<size_t>(source.n_samples()); i < static_cast<size_t>(n_words) * 16; ++i) {
      EXPECT_EQ(packed_genotype(row, i), 0u) << "behind the last sample";
    }
  }
  return genotypes;
}

double chi_square(const std::vector<double>& counts, const std::vector<double>& probabilities) {
  double n = 0.0;
  double sum = 0.0;
  for (size_t c = 0; c < counts.size(); ++c) {
    n += counts[c];
    sum += probabilities[c];
  }
  EXPECT_NEAR(sum, 1.0, 1e-12);
  double statistic = 0.0;
  for (size_t c = 0; c < counts.size(); ++c) {
    const double expected = n * probabilities[c];
    statistic += (counts[c] - expected) * (counts[c] - expected) / expected;
  }
  return statistic;
}

// The cells' frequencies among the samples of one class.
std::vector<double> cell_counts(const SimulatedSource& source,
                                const std::vector<std::vector<unsigned>>& genotypes,
                                const PlantedModel& planted, uint32_t wanted_class) {
  std::vector<double> counts(planted.model.penetrances.size());
  for (size_t i = 0; i < source.classes().size(); ++i) {
    size_t cell = 0;
    for (size_t snp = planted.positions.size(); snp-- > 0;) {
      cell = 3 * cell + genotypes[static_cast<size_t>(planted.positions[snp])][i];
    }
    counts[cell] += source.classes()[i] == wanted_class ? 1.0 : 0.0;
  }
  return counts;
}

TEST(SimulatedData, CellsFollowBayesRuleInCasesAndControls) {
  SimulationPlan plan;
  plan.n_samples = 20001;
  plan.n_cases = 6000;
  plan.n_snps = 40;
  plan.seed = 11;
  PlantedModel pair;
  ASSERT_TRUE(make_epistatic_model({2, 0.3, 0.1, 0.3}, &pair.model).ok());
  pair.positions = {33, 2};  // the order of the model's SNPs, not of the file
  PlantedModel triple;
  ASSERT_TRUE(make_epistatic_model({3, 0.4, 0.05, 0.3}, &triple.model).ok());
  PlantedModel lopsided;
  lopsided.model.maf = {0.2, 0.45};
  lopsided.model.penetrances = {0.1, 0.2, 0.9, 0.3, 0.05, 0.6, 0.2, 0.7, 0.4};
  plan.models = {pair, triple, lopsided};
  choose_positions(&plan);
  SimulatedSource source(plan);
  const std::vector<std::vector<unsigned>> genotypes = all_genotypes(source);
  EXPECT_EQ(std::count(source.classes().begin(), source.classes().end(), 1u), 6000);
  for (const PlantedModel& planted : plan.models) {
    const PenetranceModel& model = planted.model;
    const double k = model.prevalence();
    for (const uint32_t wanted : {0u, 1u}) {
      std::vector<double> bayes = model.cell_probabilities();
      for (size_t c = 0; c < bayes.size(); ++c) {
        bayes[c] *= wanted == 1 ? model.penetrances[c] / k : (1.0 - model.penetrances[c]) / (1.0 - k);
      }
      const std::vector<double> counts = cell_counts(source, genotypes, planted, wanted);
      EXPECT_LT(chi_square(counts, bayes), model.order() == 2 ? kLimit8 : kLimit26);
      // The test has the power to tell them from the population's.
      EXPECT_GT(chi_square(counts, model.cell_probabilities()), 2.0 * kLimit26);
    }
  }
}

TEST(SimulatedData, OtherSnpsAreInEquilibriumAndHaveNothingToDoWithTheClass) {
  SimulationPlan plan;
  plan.n_samples = 5000;
  plan.n_cases = 2500;
  plan.n_snps = 200;
  plan.lowest_maf = plan.highest_maf = 0.2;
  plan.missing = 0.1;
  plan.seed = 5;
  SimulatedSource source(plan);
  const std::vector<std::vector<unsigned>> genotypes = all_genotypes(source);
  std::array<std::vector<double>, 2> counts{std::vector<double>(3), std::vector<double>(3)};
  double n_missing = 0.0;
  for (const std::vector<unsigned>& snp : genotypes) {
    for (size_t i = 0; i < snp.size(); ++i) {
      if (snp[i] == 3) {
        n_missing += 1.0;
      } else {
        counts[source.classes()[i]][snp[i]] += 1.0;
      }
    }
  }
  EXPECT_LT(chi_square(counts[0], {0.64, 0.32, 0.04}), kLimit2);
  EXPECT_LT(chi_square(counts[1], {0.64, 0.32, 0.04}), kLimit2);
  // A million genotypes: a standard deviation is 300.
  EXPECT_NEAR(n_missing, 100000.0, 1500.0);
}

TEST(SimulatedData, FrequenciesFillTheRange) {
  SimulationPlan plan;
  plan.n_samples = 4000;
  plan.n_cases = 2000;
  plan.n_snps = 500;
  plan.lowest_maf = 0.1;
  plan.highest_maf = 0.3;
  SimulatedSource source(plan);
  double sum = 0.0;
  for (const std::vector<unsigned>& snp : all_genotypes(source)) {
    double copies = 0.0;
    for (const unsigned genotype : snp) {
      copies += genotype;
    }
    const double maf = copies / 8000.0;
    EXPECT_GT(maf, 0.1 - 0.02);
    EXPECT_LT(maf, 0.3 + 0.03);
    sum += maf;
  }
  EXPECT_NEAR(sum / 500.0, 0.2, 0.01);
}

TEST(SimulatedData, PlantedSnpsHaveMissingGenotypesToo) {
  SimulationPlan plan;
  plan.n_samples = 10000;
  plan.n_cases = 5000;
  plan.n_snps = 2;
  plan.missing = 0.25;
  plan.models.resize(1);
  ASSERT_TRUE(make_epistatic_model({2, 0.5, 0.5, 0.5}, &plan.models[0].model).ok());
  choose_positions(&plan);
  SimulatedSource source(plan);
  int both = 0;
  for (const std::vector<unsigned>& snp : all_genotypes(source)) {
    const auto n_missing = std::count(snp.begin(), snp.end(), 3u);
    EXPECT_NEAR(static_cast<double>(n_missing), 2500.0, 220.0);  // five standard deviations
  }
  const std::vector<std::vector<unsigned>> genotypes = all_genotypes(source);
  for (size_t i = 0; i < 10000; ++i) {
    both += genotypes[0][i] == 3 && genotypes[1][i] == 3 ? 1 : 0;
  }
  EXPECT_NEAR(both, 625.0, 125.0);
}

// A block of any size is the same part of the same data.
TEST(SimulatedData, DoesNotDependOnTheBlocks) {
  SimulationPlan plan;
  plan.n_samples = 37;
  plan.n_cases = 18;
  plan.n_snps = 70;
  plan.missing = 0.1;
  plan.models.resize(1);
  ASSERT_TRUE(make_epistatic_model({3, 0.5, 0.5, 0.5}, &plan.models[0].model).ok());
  choose_positions(&plan);
  SimulatedSource source(plan);
  const size_t n_words = 3;
  std::vector<uint32_t> whole(n_words * 70);
  ASSERT_TRUE(source.read(0, 70, whole.data()).ok());
  for (const int64_t size : {16, 32, 48}) {
    std::vector<uint32_t> parts(n_words * 70);
    for (int64_t first = 0; first < 70; first += size) {
      ASSERT_TRUE(source
                      .read(first, std::min<int64_t>(size, 70 - first),
                            parts.data() + n_words * static_cast<size_t>(first))
                      .ok());
    }
    EXPECT_EQ(parts, whole);
  }
}

TEST(SimulatedData, PositionsAreFreeOnes) {
  for (uint64_t seed = 0; seed < 50; ++seed) {
    SimulationPlan plan;
    plan.n_snps = 7;
    plan.seed = seed;
    plan.models.resize(3);
    plan.models[0].model.maf = {0.5, 0.5};
    plan.models[1].model.maf = {0.5, 0.5, 0.5};
    plan.models[2].model.maf = {0.5, 0.5};
    plan.models[2].positions = {6, 0};
    choose_positions(&plan);
    std::set<int64_t> all;
    for (const PlantedModel& planted : plan.models) {
      all.insert(planted.positions.begin(), planted.positions.end());
    }
    EXPECT_EQ(all.size(), 7u);
    EXPECT_EQ(plan.models[2].positions, (std::vector<int64_t>{6, 0}));
    EXPECT_TRUE(std::is_sorted(plan.models[1].positions.begin(), plan.models[1].positions.end()));
  }
}

TEST(RandomStreams, AreTheSameEverywhere) {
  RandomStream random(1, RandomStream::Purpose::kBackground, 2);
  const uint64_t bits[] = {random.bits(), random.bits()};
  RandomStream again(1, RandomStream::Purpose::kBackground, 2);
  EXPECT_EQ(again.bits(), bits[0]);
  EXPECT_EQ(bits[0], kRecordedBits);
  RandomStream normals(1, RandomStream::Purpose::kCovariates);
  EXPECT_EQ(normals.normal(), kRecordedNormal);
  std::set<uint64_t> different;
  for (uint64_t seed = 0; seed < 3; ++seed) {
    for (uint64_t number = 0; number < 100; ++number) {
      different.insert(RandomStream(seed, RandomStream::Purpose::kCells, number).bits());
      different.insert(RandomStream(seed, RandomStream::Purpose::kBackground, number).bits());
    }
  }
  EXPECT_EQ(different.size(), 600u);
}

TEST(RandomStreams, DrawIntegersEvenly) {
  RandomStream random(3, RandomStream::Purpose::kPositions);
  std::vector<double> counts(3);
  for (int i = 0; i < 30000; ++i) {
    counts[random.below(3)] += 1.0;
  }
  EXPECT_LT(chi_square(counts, {1.0 / 3, 1.0 / 3, 1.0 / 3}), kLimit2);
}

// Means, variances and correlation within the classes, and the difference of the means.
TEST(SimulatedCovariates, HaveTheEffectsAndTheCorrelationAskedFor) {
  const TempDir folder;
  SimulationPlan plan;
  plan.n_samples = 40000;
  plan.n_cases = 20000;
  plan.n_snps = 1;
  const SimulatedSource source(plan);
  OutputFile file;
  ASSERT_TRUE(file.open((folder / "c").string()).ok());
  ASSERT_TRUE(write_covariates(source, {2, {0.5, -0.25}, 0.4}, 9, &file).ok());
  ASSERT_TRUE(file.commit().ok());
  const std::vector<std::string> lines = split_lines(read_file(folder / "c"));
  ASSERT_EQ(lines.size(), 40001u);
  EXPECT_EQ(lines[0], "FID\tIID\tc1\tc2");
  double mean[2][2] = {};
  double square[2][2] = {};
  double product[2] = {};
  for (size_t i = 0; i < 40000; ++i) {
    std::istringstream fields(lines[i + 1]);
    std::string fid;
    std::string iid;
    double x[2] = {};
    ASSERT_TRUE(fields >> fid >> iid >> x[0] >> x[1]);
    ASSERT_EQ(fid, std::to_string(i + 1));
    const size_t c = source.classes()[i];
    for (size_t j = 0; j < 2; ++j) {
      mean[c][j] += x[j] / 20000;
      square[c][j] += x[j] * x[j] / 20000;
    }
    product[c] += x[0] * x[1] / 20000;
  }
  constexpr double kNear = 0.05;  // seven standard errors of a mean
  // The covariance matrix times the effects: 0.5 - 0.4 * 0.25 and 0.4 * 0.5 - 0.25.
  EXPECT_NEAR(mean[1][0] - mean[0][0], 0.4, kNear);
  EXPECT_NEAR(mean[1][1] - mean[0][1], -0.05, kNear);
  for (size_t c = 0; c < 2; ++c) {
    EXPECT_NEAR(square[c][0] - mean[c][0] * mean[c][0], 1.0, kNear);
    EXPECT_NEAR(square[c][1] - mean[c][1] * mean[c][1], 1.0, kNear);
    EXPECT_NEAR(product[c] - mean[c][0] * mean[c][1], 0.4, kNear);
  }
}

}  // namespace
}  // namespace tavo_test
