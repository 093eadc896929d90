// SPDX-License-Identifier: Apache-2.0
//
// Tail probabilities of the chi-square and Student t distributions, in the calling convention of the classic
// library of this name (arguments by pointer), computed by Boost.Math. Nothing here throws.
#pragma once

// A p-value that cannot be computed.
inline constexpr double kNoPValue = -9.0;

// *cum = P(X <= *x) and *ccum = P(X > *x) of a chi-square variable X with *df degrees of freedom. *x <= 0
// gives 0 and 1. *df <= 0 has its limit, all mass at 0: 1 and 0 above 0. A NaN gives NaN.
void cumchi(double* x, double* df, double* cum, double* ccum);

// *which = 1 computes *p = P(T <= *t) and *q = P(T > *t) of Student's t with *df degrees of freedom.
// *status becomes 0, or -k when the k-th argument is out of its range, which then is *bound: which 1, df > 0
// and neither NaN. Only *which = 1 is known.
void cdft(int* which, double* p, double* q, double* t, double* df, int* status, double* bound);

// The same for chi-square: *p = P(X <= *x), *q = P(X > *x), x >= 0, df > 0.
void cdfchi(int* which, double* p, double* q, double* x, double* df, int* status, double* bound);

// p-value of the likelihood-ratio test of a model against the null model: 1 - cum of the difference of the
// deviances, with the difference of the degrees of freedom. Formed from the lower tail, so it is 0 below
// about 1e-16. A model that fits worse than the null model gives 1.
double LRtest(float model_dev, float model_df, float null_dev, float null_df);

// P(X > x) of chi-square, computed as such: accurate however small. 1 for x <= 0.
double chi_square_upper_tail(double x, double df);

// Two-sided p-value of a t statistic; kNoPValue for a statistic that is not finite or df <= 0.
double pT(double t, double df);

// Upper-tail p-value of a chi-square statistic; kNoPValue for one that is not finite, or out of range.
double chiprobP(double x, double df);
