// SPDX-License-Identifier: Apache-2.0
#include "lib/dcdflib.h"

#include <boost/math/distributions/students_t.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <cmath>
#include <limits>

namespace {

// Errors become values: NaN for arguments outside a domain, 0 and infinity beyond the range of doubles.
using Policy = boost::math::policies::policy<
    boost::math::policies::domain_error<boost::math::policies::ignore_error>,
    boost::math::policies::pole_error<boost::math::policies::ignore_error>,
    boost::math::policies::overflow_error<boost::math::policies::ignore_error>,
    boost::math::policies::underflow_error<boost::math::policies::ignore_error>,
    boost::math::policies::denorm_error<boost::math::policies::ignore_error>,
    boost::math::policies::evaluation_error<boost::math::policies::ignore_error>,
    boost::math::policies::rounding_error<boost::math::policies::ignore_error>,
    boost::math::policies::indeterminate_result_error<boost::math::policies::ignore_error>,
    boost::math::policies::promote_double<false>>;

// Positions of arguments, as a negative status names them.
constexpr int kWhichArgument = 1;
constexpr int kStatisticArgument = 4;
constexpr int kDegreesArgument = 5;

// Refuses an argument: what is out of range, and the nearest bound.
void refuse(int argument, double nearest, int* status, double* bound) {
  *status = -argument;
  *bound = nearest;
}

// Whether `which` and the degrees of freedom are usable; *status and *bound say what is wrong otherwise.
bool accepts(int which, double df, int* status, double* bound) {
  *status = 0;
  *bound = 0.0;
  if (which != 1) {
    refuse(kWhichArgument, 1.0, status, bound);
  } else if (!(df > 0.0)) {
    refuse(kDegreesArgument, 0.0, status, bound);
  }
  return *status == 0;
}

}  // namespace

void cumchi(double* x, double* df, double* cum, double* ccum) {
  if (std::isnan(*x) || std::isnan(*df)) {
    *cum = *ccum = std::numeric_limits<double>::quiet_NaN();
  } else if (*x <= 0.0) {
    *cum = 0.0;
    *ccum = 1.0;
  } else if (*df <= 0.0 || std::isinf(*x)) {
    *cum = 1.0;
    *ccum = 0.0;
  } else {
    *cum = boost::math::gamma_p(*df / 2.0, *x / 2.0, Policy());
    *ccum = boost::math::gamma_q(*df / 2.0, *x / 2.0, Policy());
  }
}

void cdft(int* which, double* p, double* q, double* t, double* df, int* status, double* bound) {
  if (!accepts(*which, *df, status, bound)) {
    return;
  }
  if (std::isnan(*t)) {
    refuse(kStatisticArgument, 0.0, status, bound);
  } else if (std::isinf(*t)) {
    *p = *t > 0.0 ? 1.0 : 0.0;
    *q = 1.0 - *p;
  } else {
    const boost::math::students_t_distribution<double, Policy> distribution(*df);
    *p = boost::math::cdf(distribution, *t);
    *q = boost::math::cdf(boost::math::complement(distribution, *t));
  }
}

void cdfchi(int* which, double* p, double* q, double* x, double* df, int* status, double* bound) {
  if (!accepts(*which, *df, status, bound)) {
    return;
  }
  if (!(*x >= 0.0)) {
    refuse(kStatisticArgument, 0.0, status, bound);
  } else {
    cumchi(x, df, p, q);
  }
}

double LRtest(float model_dev, float model_df, float null_dev, float null_df) {
  double statistic = static_cast<double>(null_dev) - static_cast<double>(model_dev);
  double df = static_cast<double>(null_df) - static_cast<double>(model_df);
  double cum = 0.0;
  double ccum = 0.0;
  cumchi(&statistic, &df, &cum, &ccum);
  return 1.0 - cum;
}

double chi_square_upper_tail(double x, double df) {
  double cum = 0.0;
  double ccum = 0.0;
  cumchi(&x, &df, &cum, &ccum);
  return ccum;
}

double pT(double t, double df) {
  if (!std::isfinite(t)) {
    return kNoPValue;
  }
  int which = 1;
  double p = 0.0;
  double q = 0.0;
  double magnitude = std::fabs(t);
  int status = 0;
  double bound = 0.0;
  cdft(&which, &p, &q, &magnitude, &df, &status, &bound);
  return status != 0 ? kNoPValue : 2.0 * q;
}

double chiprobP(double x, double df) {
  if (!std::isfinite(x)) {
    return kNoPValue;
  }
  int which = 1;
  double p = 0.0;
  double q = 0.0;
  int status = 0;
  double bound = 0.0;
  cdfchi(&which, &p, &q, &x, &df, &status, &bound);
  return status != 0 ? kNoPValue : q;
}
