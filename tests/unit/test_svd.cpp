// SPDX-License-Identifier: Apache-2.0
//
// The singular value decomposition and the host routines around it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "lib/regression.h"
#include "lib/svd.h"

namespace {

constexpr int kRow = kRegressionRowLength;

// A matrix of rows of 10.
struct Rows {
  std::vector<std::array<float, kRow>> rows;

  explicit Rows(int m) : rows(static_cast<size_t>(m)) {}
  float& at(int i, int j) { return rows[static_cast<size_t>(i)][static_cast<size_t>(j)]; }
  float at(int i, int j) const { return rows[static_cast<size_t>(i)][static_cast<size_t>(j)]; }
  RegressionRowC* data() { return reinterpret_cast<RegressionRowC*>(rows.data()); }
  const RegressionRowC* data() const { return reinterpret_cast<const RegressionRowC*>(rows.data()); }
};

Rows random_matrix(std::mt19937& random, int m, int n) {
  std::normal_distribution<float> normal;
  Rows a(m);
  for (int i = 0; i < m; ++i) {
    for (int j = 0; j < n; ++j) {
      a.at(i, j) = normal(random);
    }
  }
  return a;
}

// U diag(w) V' is the matrix, and the columns of U and V are orthonormal where the singular value is not 0.
void expect_decomposition(const Rows& a, const Rows& u, const float* w, const Rows& v, int m, int n,
                          double tolerance) {
  for (int i = 0; i < m; ++i) {
    for (int j = 0; j < n; ++j) {
      double sum = 0.0;
      for (int k = 0; k < n; ++k) {
        sum += static_cast<double>(u.at(i, k)) * static_cast<double>(w[k]) * static_cast<double>(v.at(j, k));
      }
      EXPECT_NEAR(sum, static_cast<double>(a.at(i, j)), tolerance);
    }
  }
  for (int k = 0; k < n; ++k) {
    EXPECT_GE(w[k], 0.0f);
    for (int l = 0; l < n; ++l) {
      double in_u = 0.0;
      double in_v = 0.0;
      for (int i = 0; i < m; ++i) {
        in_u += static_cast<double>(u.at(i, k)) * static_cast<double>(u.at(i, l));
      }
      for (int i = 0; i < n; ++i) {
        in_v += static_cast<double>(v.at(i, k)) * static_cast<double>(v.at(i, l));
      }
      EXPECT_NEAR(in_v, k == l ? 1.0 : 0.0, tolerance);
      if (static_cast<double>(std::min(w[k], w[l])) > 1e-4) {
        EXPECT_NEAR(in_u, k == l ? 1.0 : 0.0, tolerance);
      }
    }
  }
}

TEST(SingularValues, RebuildTallAndSquareMatrices) {
  std::mt19937 random(1);
  for (const int n : {1, 2, 3, 5, 10}) {
    for (const int m : {n, n + 1, 3 * n, 60}) {
      const Rows a = random_matrix(random, m, n);
      Rows u = a;
      Rows v(n);
      float w[kRow];
      ASSERT_EQ(svdcmp_nl_regr_C(u.data(), w, v.data(), m, n), 1);
      expect_decomposition(a, u, w, v, m, n, 2e-5);
    }
  }
}

TEST(SingularValues, OfKnownMatrices) {
  Rows a(2);
  a.at(0, 0) = 3.0f;
  a.at(1, 1) = -2.0f;
  Rows v(2);
  float w[kRow];
  ASSERT_EQ(svdcmp_regr_C(a.data(), w, v.data(), 2), 1);
  std::sort(w, w + 2);
  EXPECT_FLOAT_EQ(w[0], 2.0f);
  EXPECT_FLOAT_EQ(w[1], 3.0f);
}

TEST(SingularValues, OfMatricesWithDependentColumnsVanish) {
  std::mt19937 random(2);
  for (const int n : {2, 4, 9}) {
    Rows a = random_matrix(random, 20, n);
    for (int i = 0; i < 20; ++i) {
      a.at(i, n - 1) = 2.0f * a.at(i, 0);
    }
    Rows u = a;
    Rows v(n);
    float w[kRow];
    ASSERT_EQ(svdcmp_nl_regr_C(u.data(), w, v.data(), 20, n), 1);
    expect_decomposition(a, u, w, v, 20, n, 3e-5);
    EXPECT_LT(*std::min_element(w, w + n), 1e-5f);
  }
}

TEST(SingularValues, OfAZeroMatrixAreZero) {
  Rows a(4);
  Rows v(4);
  float w[kRow];
  ASSERT_EQ(svdcmp_regr_C(a.data(), w, v.data(), 4), 1);
  for (int j = 0; j < 4; ++j) {
    EXPECT_EQ(w[j], 0.0f);
  }
}

// A zero column of a design matrix stays exactly zero, so its coefficient does.
TEST(SingularValues, OfAMatrixWithAZeroColumnHaveAnExactZero) {
  std::mt19937 random(3);
  Rows a = random_matrix(random, 30, 3);
  for (int i = 0; i < 30; ++i) {
    a.at(i, 1) = 0.0f;
  }
  std::vector<float> b(30, 1.0f);
  Rows v(3);
  float w[kRow];
  ASSERT_EQ(svdcmp_nl_regr_C(a.data(), w, v.data(), 30, 3), 1);
  EXPECT_EQ(std::count(w, w + 3, 0.0f), 1);
  float x[kRow];
  svbksb_regr_C(a.data(), w, v.data(), b.data(), x, 30, 3);
  EXPECT_EQ(x[1], 0.0f);
  EXPECT_TRUE(std::isfinite(x[0]) && std::isfinite(x[2]));
}

TEST(SingularValues, OfWhatIsNoNumberDoNotConverge) {
  Rows a(3);
  a.at(0, 0) = a.at(1, 1) = a.at(2, 2) = 1.0f;
  a.at(0, 1) = std::numeric_limits<float>::quiet_NaN();
  Rows inverse(3);
  EXPECT_EQ(svd_inverse_regr_C(a.data(), 3, inverse.data()), 0);
}

TEST(BackSubstitution, SolvesLeastSquares) {
  std::mt19937 random(4);
  const Rows a = random_matrix(random, 50, 4);
  const float truth[] = {1.0f, -2.0f, 0.5f, 3.0f};
  std::vector<float> b(50);
  for (int i = 0; i < 50; ++i) {
    for (int j = 0; j < 4; ++j) {
      b[static_cast<size_t>(i)] += a.at(i, j) * truth[j];
    }
  }
  Rows u = a;
  Rows v(4);
  float w[kRow];
  float x[kRow];
  ASSERT_EQ(svdcmp_nl_regr_C(u.data(), w, v.data(), 50, 4), 1);
  svbksb_regr_C(u.data(), w, v.data(), b.data(), x, 50, 4);
  for (int j = 0; j < 4; ++j) {
    EXPECT_NEAR(x[j], truth[j], 1e-5f);
  }
}

TEST(Inverse, TimesTheMatrixIsTheIdentity) {
  std::mt19937 random(5);
  for (int n = 1; n <= 10; ++n) {
    const Rows b = random_matrix(random, 40, n);
    Rows a(n);
    for (int j = 0; j < n; ++j) {
      for (int k = 0; k < n; ++k) {
        for (int i = 0; i < 40; ++i) {
          a.at(j, k) += b.at(i, j) * b.at(i, k);
        }
      }
    }
    Rows work = a;
    Rows inverse(n);
    ASSERT_EQ(svd_inverse_regr_C(work.data(), n, inverse.data()), 1);
    for (int j = 0; j < n; ++j) {
      for (int k = 0; k < n; ++k) {
        float sum = 0.0f;
        for (int l = 0; l < n; ++l) {
          sum += a.at(j, l) * inverse.at(l, k);
        }
        EXPECT_NEAR(sum, j == k ? 1.0f : 0.0f, 2e-5f);
      }
    }
  }
}

// The border of what counts as zero is the machine epsilon times the largest singular value.
TEST(Inverse, LeavesOutSingularValuesBelowTheMachineEpsilonOfTheLargest) {
  for (const bool kept : {true, false}) {
    const float small = kept ? 1.2e-7f : 1.1e-7f;
    Rows a(2);
    a.at(0, 0) = 1.0f;
    a.at(1, 1) = small;
    Rows inverse(2);
    ASSERT_EQ(svd_inverse_regr_C(a.data(), 2, inverse.data()), 1);
    EXPECT_FLOAT_EQ(inverse.at(0, 0), 1.0f);
    EXPECT_FLOAT_EQ(inverse.at(1, 1), kept ? 1.0f / small : 0.0f);
  }
}

TEST(Pythag, DoesNotOverflowOrUnderflow) {
  EXPECT_FLOAT_EQ(pythag_regr_C(3.0f, 4.0f), 5.0f);
  EXPECT_FLOAT_EQ(pythag_regr_C(-4.0f, 3.0f), 5.0f);
  EXPECT_EQ(pythag_regr_C(0.0f, 0.0f), 0.0f);
  EXPECT_EQ(pythag_regr_C(0.0f, -2.0f), 2.0f);
  EXPECT_FLOAT_EQ(pythag_regr_C(3e30f, 4e30f), 5e30f);
  EXPECT_FLOAT_EQ(pythag_regr_C(3e-30f, 4e-30f), 5e-30f);
}

TEST(Ylogy, LooksOnlyAtWhetherTheResponseIsZero) {
  EXPECT_EQ(ylogy_regr_C(0.0f, 0.0f), 0.0f);
  EXPECT_FLOAT_EQ(ylogy_regr_C(1.0f, 0.5f), std::log(2.0f));
  EXPECT_FLOAT_EQ(ylogy_regr_C(-7.0f, 0.5f), std::log(2.0f));
  EXPECT_TRUE(std::isinf(ylogy_regr_C(1.0f, 0.0f)));
}

TEST(NullModel, WithoutCovariatesHasTheDevianceOfTheShareOfCases) {
  const int n = 50;
  std::vector<float> y(n, 0.0f);
  std::fill_n(y.begin(), 15, 1.0f);
  float dev = 0.0f;
  float df = 0.0f;
  EXPECT_EQ(regression_null_logistic(n, 1, nullptr, 20, y.data(), &dev, &df), n - 1);
  EXPECT_NEAR(dev, -2.0 * (15 * std::log(0.3) + 35 * std::log(0.7)), 1e-4);
  EXPECT_EQ(df, 49.0f);
}

// The degrees of freedom do not count the covariates.
TEST(NullModel, HasOneDegreeOfFreedomLessThanSamplesWhateverTheCovariates) {
  std::mt19937 random(6);
  std::normal_distribution<float> normal;
  for (int covariates = 1; covariates <= 7; ++covariates) {
    const int n = 80;
    std::vector<float> cov(static_cast<size_t>(n * covariates));
    std::vector<float> y(static_cast<size_t>(n));
    for (float& value : cov) {
      value = normal(random);
    }
    for (float& value : y) {
      value = normal(random) > 0.0f ? 1.0f : 0.0f;
    }
    float alone = 0.0f;
    float dev = 0.0f;
    float df = 0.0f;
    regression_null_logistic(n, 1, cov.data(), 20, y.data(), &alone, &df);
    EXPECT_EQ(regression_null_logistic(n, covariates + 1, cov.data(), 20, y.data(), &dev, &df), n - 1);
    EXPECT_EQ(df, 79.0f);
    EXPECT_LT(dev, alone);
    EXPECT_EQ(regression_null_rank(n, covariates + 1, cov.data()), covariates + 1);
  }
}

TEST(NullModel, MarksAFitThatGivesUp) {
  const std::vector<float> cov = {1.0f, std::numeric_limits<float>::quiet_NaN(), 2.0f, 3.0f};
  const std::vector<float> y = {0.0f, 1.0f, 0.0f, 1.0f};
  float dev = 7.0f;
  float df = 7.0f;
  regression_null_logistic(4, 2, cov.data(), 20, y.data(), &dev, &df);
  EXPECT_EQ(dev, 0.0f);
  EXPECT_EQ(df, -1.0f);
  dev = df = 7.0f;
  EXPECT_EQ(regression_null_logistic(4, 2, cov.data(), 0, y.data(), &dev, &df), 0);
  EXPECT_EQ(dev, 7.0f);
  EXPECT_EQ(df, 7.0f);
}

TEST(NullModel, WithoutPassesHasTheDevianceOfAHalf) {
  const std::vector<float> y = {0.0f, 1.0f, 0.0f};
  float dev = 0.0f;
  float df = 0.0f;
  EXPECT_EQ(regression_null_logistic(3, 1, nullptr, 0, y.data(), &dev, &df), 2);
  EXPECT_NEAR(dev, 6.0 * std::log(2.0), 1e-6);
}

TEST(NullModel, KnowsWhenSinglePrecisionCannotTellCovariatesApart) {
  std::vector<float> cov;
  for (int i = 0; i < 40; ++i) {
    cov.insert(cov.end(), {1960.0f + static_cast<float>(i % 20), static_cast<float>(i % 3)});
  }
  EXPECT_EQ(regression_null_rank(40, 3, cov.data()), 2);
}

}  // namespace
