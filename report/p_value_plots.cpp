// SPDX-License-Identifier: Apache-2.0
#include "report/p_value_plots.h"

#include <algorithm>
#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/erf.hpp>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <unordered_set>

namespace {

// The statistic whose upper tail has this probability, one degree of freedom.
double chi_square_of(double p) {
  const double z = boost::math::erfc_inv(std::max(p, std::numeric_limits<double>::min()));
  return 2.0 * z * z;
}

constexpr double kGridColumns = 800.0;
constexpr double kGridRowHeight = 0.05;

}  // namespace

double genomic_inflation(std::vector<double> p) {
  // The statistic falls with p, so its median is that of the median p.
  const size_t middle = p.size() / 2;
  std::nth_element(p.begin(), p.begin() + static_cast<ptrdiff_t>(middle), p.end());
  double median = chi_square_of(p[middle]);
  if (p.size() % 2 == 0) {
    const double before = *std::max_element(p.begin(), p.begin() + static_cast<ptrdiff_t>(middle));
    median = 0.5 * (median + chi_square_of(before));
  }
  return median / chi_square_of(0.5);
}

double log_p(double p) {
  return -std::log10(std::max(p, std::numeric_limits<double>::denorm_min()));
}

std::vector<QqPoint> qq_points(std::vector<double> p) {
  std::sort(p.begin(), p.end());
  std::vector<QqPoint> points;
  const auto n = static_cast<double>(p.size());
  for (size_t rank = 1; rank <= p.size();
       rank = rank < 1000 ? rank + 1 : std::max(rank + 1, rank + rank / 100)) {
    const auto i = static_cast<double>(rank);
    points.push_back({log_p((i - 0.5) / n), log_p(p[rank - 1]),
                      log_p(boost::math::ibeta_inv(i, n - i + 1.0, 0.975)),
                      log_p(boost::math::ibeta_inv(i, n - i + 1.0, 0.025))});
  }
  return points;
}

std::vector<size_t> drawn_points(const std::vector<double>& x, const std::vector<double>& p,
                                 size_t n_smallest) {
  std::vector<size_t> points;
  for (size_t i = 0; i < p.size(); ++i) {
    if (!std::isnan(p[i])) {
      points.push_back(i);
    }
  }
  if (points.size() <= n_smallest) {
    return points;
  }
  const auto smaller = [&p](size_t a, size_t b) { return p[a] != p[b] ? p[a] < p[b] : a < b; };
  const auto others = points.begin() + static_cast<ptrdiff_t>(n_smallest);
  std::nth_element(points.begin(), others, points.end(), smaller);
  std::sort(others, points.end());
  const double lowest = *std::min_element(x.begin(), x.end());
  const double width = std::max(*std::max_element(x.begin(), x.end()) - lowest, 1.0) / kGridColumns;
  std::unordered_set<int64_t> taken;
  const auto end = std::remove_if(others, points.end(), [&](size_t i) {
    const auto column = static_cast<int64_t>((x[i] - lowest) / width);
    const auto row = static_cast<int64_t>(log_p(p[i]) / kGridRowHeight);
    return !taken.insert(row * 1024 + column).second;
  });
  points.erase(end, points.end());
  std::sort(points.begin(), points.end());
  return points;
}
