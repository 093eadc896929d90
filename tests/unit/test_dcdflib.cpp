// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "lib/dcdflib.h"
#include "tests/support/regression_data.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const double kNan = std::nan("");

struct Tails {
  double lower;
  double upper;
};

Tails chi_square(double x, double df) {
  Tails tails{};
  cumchi(&x, &df, &tails.lower, &tails.upper);
  return tails;
}

struct StudentOutcome {
  int status;
  double bound;
  Tails tails;
};

StudentOutcome student(int which, double t, double df) {
  StudentOutcome outcome{7, 7.0, {7.0, 7.0}};
  cdft(&which, &outcome.tails.lower, &outcome.tails.upper, &t, &df, &outcome.status, &outcome.bound);
  return outcome;
}

void expect_digits(double actual, double expected) {
  EXPECT_NEAR(actual, expected, 2e-13 * expected);
}

// Both tails, over degrees of freedom 1 to 3000 and statistics 0.001 to 700, as R computes them.
TEST(Distributions, HaveThirteenDigitsInCommonWithR) {
  const auto table = tavo_test::recorded_table("distributions.tsv");
  ASSERT_GT(table.size(), 200u);
  for (size_t r = 1; r < table.size(); ++r) {
    const double x = std::stod(table[r][1]);
    const double df = std::stod(table[r][2]);
    SCOPED_TRACE(table[r][0] + "(" + table[r][1] + ", " + table[r][2] + ")");
    const Tails tails = table[r][0] == "chisq" ? chi_square(x, df) : student(1, x, df).tails;
    expect_digits(tails.lower, std::stod(table[r][3]));
    expect_digits(tails.upper, std::stod(table[r][4]));
  }
}

TEST(Cumchi, OfNothingOrLessIsZero) {
  for (const double x : {0.0, -1.0, -kInfinity}) {
    EXPECT_EQ(chi_square(x, 2.0).lower, 0.0);
    EXPECT_EQ(chi_square(x, 2.0).upper, 1.0);
  }
  EXPECT_EQ(chi_square(kInfinity, 2.0).lower, 1.0);
  EXPECT_TRUE(std::isnan(chi_square(kNan, 2.0).lower));
}

TEST(Cumchi, WithoutDegreesOfFreedomHasAllMassAtZero) {
  for (const double df : {0.0, -3.0}) {
    EXPECT_EQ(chi_square(1.0, df).lower, 1.0);
    EXPECT_EQ(chi_square(-1.0, df).lower, 0.0);
  }
}

TEST(Cdft, NamesTheArgumentThatIsOutOfRange) {
  EXPECT_EQ(student(2, 1.0, 5.0).status, -1);
  EXPECT_EQ(student(2, 1.0, 5.0).bound, 1.0);
  for (const double df : {0.0, -1.0, kNan}) {
    EXPECT_EQ(student(1, 1.0, df).status, -5);
    EXPECT_EQ(student(1, 1.0, df).bound, 0.0);
  }
  EXPECT_EQ(student(1, kNan, 5.0).status, -4);
  EXPECT_EQ(student(1, 1.0, 5.0).status, 0);
}

TEST(Cdft, IsSymmetric) {
  EXPECT_EQ(student(1, 0.0, 7.0).tails.upper, 0.5);
  EXPECT_EQ(student(1, -2.5, 7.0).tails.lower, student(1, 2.5, 7.0).tails.upper);
  EXPECT_EQ(student(1, kInfinity, 7.0).tails.upper, 0.0);
}

// 1 - the lower tail: good to about 1e-16, and 0 beyond.
TEST(LRtest, IsFormedFromTheLowerTail) {
  EXPECT_NEAR(LRtest(100.0f, 98.0f, 110.0f, 99.0f), 0.0015654022580025, 1e-15);
  EXPECT_EQ(LRtest(100.0f, 98.0f, 100.0f, 99.0f), 1.0);
  EXPECT_EQ(LRtest(120.0f, 98.0f, 100.0f, 99.0f), 1.0);  // worse than the null model
  EXPECT_EQ(LRtest(-1.0f, 98.0f, 200.0f, 99.0f), 0.0);   // a failed fit
  EXPECT_EQ(LRtest(100.0f, 97.0f, 200.0f, 99.0f), 0.0);
  EXPECT_EQ(LRtest(100.0f, 98.0f, 0.0f, -1.0f), 1.0);  // a failed null model
  EXPECT_GT(chi_square_upper_tail(100.0, 2.0), 1e-23);
}

TEST(TwoSidedStudent, MarksWhatCannotBeComputed) {
  EXPECT_EQ(pT(0.0, 10.0), 1.0);
  EXPECT_EQ(pT(2.0, 10.0), pT(-2.0, 10.0));
  EXPECT_NEAR(pT(2.0, 10.0), 0.0733880347707404, 1e-15);
  for (const double t : {kNan, kInfinity, -kInfinity}) {
    EXPECT_EQ(pT(t, 10.0), kNoPValue);
  }
  EXPECT_EQ(pT(1.0, 0.0), kNoPValue);
  EXPECT_EQ(kNoPValue, -9.0);
}

TEST(ChiSquareP, MarksWhatCannotBeComputed) {
  EXPECT_NEAR(chiprobP(3.84, 1.0), 0.0500435212487, 1e-12);
  EXPECT_EQ(chiprobP(0.0, 1.0), 1.0);
  EXPECT_EQ(chiprobP(kNan, 1.0), kNoPValue);
  EXPECT_EQ(chiprobP(kInfinity, 1.0), kNoPValue);
  EXPECT_EQ(chiprobP(-1.0, 1.0), kNoPValue);
  EXPECT_EQ(chiprobP(1.0, 0.0), kNoPValue);
}

}  // namespace
