// SPDX-License-Identifier: Apache-2.0
//
// What a Manhattan plot and a QQ plot of many p-values draw. Millions of points are thinned to those that can
// be told apart.
#pragma once

#include <cstddef>
#include <vector>

// The genomic inflation factor lambda: the median of the chi-square statistics with one degree of freedom
// that the p-values stand for, over the median of that distribution. p: in (0, 1] and at least one.
double genomic_inflation(std::vector<double> p);

// -log10 p; that of the smallest number above 0 for p = 0.
double log_p(double p);

// A point of a QQ plot, all -log10: the observed p-value against the one expected at its rank, and the middle
// 95% of what a uniform p-value has at this rank.
struct QqPoint {
  double expected;
  double observed;
  double low;
  double high;
};

// One point for each of the 1,000 smallest p-values, then for ranks that grow by 1% each.
std::vector<QqPoint> qq_points(std::vector<double> p);

// The points of a Manhattan plot that are drawn, ascending: the n_smallest smallest p-values and, of the
// others, the first in each spot of a grid of 800 columns and rows 0.05 high in -log10 p. x: [points]; p:
// [points], NaN for a point without.
std::vector<size_t> drawn_points(const std::vector<double>& x, const std::vector<double>& p,
                                 size_t n_smallest = 20000);
