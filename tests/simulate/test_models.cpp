// SPDX-License-Identifier: Apache-2.0
//
// Penetrance models: what their definitions say, computed here a second time.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/run_program.h"
#include "tools/simulate_model.h"

namespace tavo_test {
namespace {

constexpr double kExact = 1e-12;

double hwe(double maf, int genotype) {
  const double shares[] = {(1 - maf) * (1 - maf), 2 * maf * (1 - maf), maf * maf};
  return shares[genotype];
}

constexpr size_t kPowers[] = {1, 3, 9, 27, 81, 243};

int digit(size_t cell, int place) {
  return static_cast<int>(cell / kPowers[place] % 3);
}

// The penetrance where the SNPs of `mask` have the genotypes that `wanted` has.
double marginal(const PenetranceModel& model, unsigned mask, size_t wanted) {
  double cases = 0.0;
  double all = 0.0;
  for (size_t c = 0; c < model.penetrances.size(); ++c) {
    double p = 1.0;
    bool fits = true;
    for (int i = 0; i < model.order(); ++i) {
      p *= hwe(model.maf[static_cast<size_t>(i)], digit(c, i));
      fits = fits && ((mask >> i & 1u) == 0 || digit(c, i) == digit(wanted, i));
    }
    if (fits) {
      cases += p * model.penetrances[c];
      all += p;
    }
  }
  return cases / all;
}

// The variance of the penetrance over that of the phenotype.
double explained(const PenetranceModel& model) {
  const double k = marginal(model, 0, 0);
  double sum = 0.0;
  for (size_t c = 0; c < model.penetrances.size(); ++c) {
    double p = 1.0;
    for (int i = 0; i < model.order(); ++i) {
      p *= hwe(model.maf[static_cast<size_t>(i)], digit(c, i));
    }
    sum += p * (model.penetrances[c] - k) * (model.penetrances[c] - k);
  }
  return sum / (k * (1 - k));
}

TEST(EpistaticModel, EveryMarginalIsThePrevalenceAndTheHeritabilityIsMet) {
  for (int order = 2; order <= 5; ++order) {
    for (const double maf : {0.1, 0.25, 0.4, 0.5}) {
      for (const double prevalence : {0.05, 0.3, 0.5, 0.8}) {
        PenetranceModel model;
        const EpistaticRules rules{order, maf, 0.0001, prevalence};
        ASSERT_TRUE(make_epistatic_model(rules, &model).ok()) << order << " " << maf << " " << prevalence;
        ASSERT_EQ(model.order(), order);
        ASSERT_EQ(model.penetrances.size(), kPowers[order]);
        for (unsigned mask = 0; mask + 1 < 1u << order; ++mask) {
          for (size_t c = 0; c < model.penetrances.size(); ++c) {
            ASSERT_NEAR(marginal(model, mask, c), prevalence, kExact);
          }
        }
        EXPECT_NEAR(explained(model), rules.heritability, kExact);
        EXPECT_NEAR(model.heritability(), explained(model), kExact);
        EXPECT_NEAR(model.prevalence(), prevalence, kExact);
        EXPECT_LT(model.largest_main_effect(), kExact);
        for (const double f : model.penetrances) {
          EXPECT_TRUE(f >= 0.0 && f <= 1.0);
        }
      }
    }
  }
}

TEST(EpistaticModel, TheMaximumIsReachedAndNotPassed) {
  const EpistaticRules all{2, 0.4, 1.0, 0.2};
  PenetranceModel model;
  const std::string message = make_epistatic_model(all, &model).message();
  const std::string words = "reaches a heritability of at most ";
  const size_t at = message.find(words);
  ASSERT_NE(at, std::string::npos) << message;
  const double most = std::stod(message.substr(at + words.size()));
  EXPECT_GT(most, 0.2);
  EXPECT_FALSE(make_epistatic_model({2, 0.4, most + 2e-6, 0.2}, &model).ok());
  ASSERT_TRUE(make_epistatic_model({2, 0.4, most, 0.2}, &model).ok());
  EXPECT_NEAR(explained(model), most, kExact);
  // At the maximum a penetrance is 0 or 1, but for the digits that the message cuts off.
  double nearest = 1.0;
  for (const double f : model.penetrances) {
    nearest = std::min({nearest, f, 1.0 - f});
  }
  EXPECT_LT(nearest, 1e-5);
}

// With maf 0.5 and prevalence 0.5 the table of 0 and 1 for even and odd numbers of heterozygous SNPs has no
// marginals and explains everything.
TEST(EpistaticModel, ReachesEverythingWhereThatIsPossible) {
  for (int order = 2; order <= 5; ++order) {
    PenetranceModel model;
    ASSERT_TRUE(make_epistatic_model({order, 0.5, 1.0, 0.5}, &model).ok());
    for (size_t c = 0; c < model.penetrances.size(); ++c) {
      int heterozygous = 0;
      for (int i = 0; i < order; ++i) {
        heterozygous += digit(c, i) == 1 ? 1 : 0;
      }
      EXPECT_NEAR(model.penetrances[c], model.penetrances[0] > 0.5 ? 1 - heterozygous % 2 : heterozygous % 2,
                  kExact);
    }
  }
}

class Tables : public ::testing::Test {
 protected:
  std::string refusal_of(const std::string& text) {
    write_file(folder_ / "t", text);
    const Status status = read_penetrance_model((folder_ / "t").string(), &model_);
    const std::string place = (folder_ / "t").string() + ": ";
    EXPECT_TRUE(status.ok() || status.message().starts_with(place)) << status.message();
    return status.ok() ? "" : status.message().substr(place.size());
  }

  TempDir folder_;
  PenetranceModel model_;
};

TEST_F(Tables, AreReadWithTheFirstSnpFastest) {
  EXPECT_EQ(
      refusal_of("# two SNPs\nmaf 0.1 0.4\n\npenetrance\n0.1 0.2 0.3\n0.4 0.5 0.6\n# third\n0.7 0.8 1e0\n"),
      "");
  EXPECT_EQ(model_.maf, (std::vector<double>{0.1, 0.4}));
  EXPECT_EQ(model_.penetrances, (std::vector<double>{0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 1.0}));
  // Genotype 1 of the second SNP: cells 3, 4 and 5.
  EXPECT_NEAR(model_.marginal_penetrances({1})[1], 0.4 * 0.81 + 0.5 * 0.18 + 0.6 * 0.01, kExact);
  EXPECT_NEAR(model_.marginal_penetrances({0})[2], 0.3 * 0.36 + 0.6 * 0.48 + 1.0 * 0.16, kExact);
  EXPECT_NEAR(model_.heritability(), explained(model_), kExact);
  EXPECT_EQ(refusal_of("maf 0.5 penetrance 0 0 1"), "");
  EXPECT_NEAR(model_.prevalence(), 0.25, kExact);
}

TEST_F(Tables, AreRefusedWithTheirPlace) {
  EXPECT_EQ(refusal_of(""), "ends after line 0, expected \"maf\"");
  EXPECT_EQ(refusal_of("maff 0.1"), "line 1, field 1: found \"maff\", expected \"maf\"");
  EXPECT_EQ(refusal_of("maf penetrance"),
            "line 1, field 2: found \"penetrance\", expected a frequency above 0, at most 0.5");
  EXPECT_EQ(refusal_of("maf 0.1 0.6"),
            "line 1, field 3: found \"0.6\", expected a frequency above 0, at most 0.5, or \"penetrance\"");
  EXPECT_EQ(refusal_of("maf 0.1"), "ends after line 1, expected \"penetrance\"");
  EXPECT_EQ(refusal_of("maf 0.1\npenetrance 0.1 0.2"),
            "ends after line 2, expected 3 penetrances of 1 SNPs, found 2");
  EXPECT_EQ(refusal_of("maf 0.1\npenetrance 0.1 0.2 1.5"),
            "line 2, field 4: found \"1.5\", expected a penetrance from 0 to 1");
  EXPECT_EQ(refusal_of("maf 0.1\npenetrance 0.1 0.2 nan"),
            "line 2, field 4: found \"nan\", expected a penetrance from 0 to 1");
  EXPECT_EQ(refusal_of("maf 0.1\npenetrance 0.1 0.2 0.3 0.4"),
            "line 2, field 5: found \"0.4\", expected the end after 3 penetrances of 1 SNPs");
  EXPECT_EQ(refusal_of("maf 0.1\npenetrance 0 0 0"),
            "the prevalence is 0, expected one between 0 and 1, with cases and controls");
  EXPECT_EQ(refusal_of("maf .1 .1 .1 .1 .1 .1 .1 .1 .1 .1 .1 .1 .1"),
            "line 1, field 14: found \".1\", expected \"penetrance\": an interaction has at most 12 SNPs");
  EXPECT_FALSE(read_penetrance_model((folder_ / "none").string(), &model_).ok());
}

}  // namespace
}  // namespace tavo_test
