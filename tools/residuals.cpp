// SPDX-License-Identifier: Apache-2.0
#include "tools/residuals.h"

#include <cmath>
#include <numeric>

namespace {

// A column that loses this share of its length when those before it are taken out depends on them.
constexpr double kDependence = 1e-10;
constexpr int kMostIterations = 200;
constexpr double kConverged = 1e-12;
constexpr int kMostHalvings = 60;
// Where the weights of the fitted probabilities leave this little of a column that is independent without
// them, its coefficient grows without end. Each iteration takes a factor of about 1.6 away.
constexpr double kSeparated = 1e-8;
// Weights of samples on the wrong side of the predictor stay above this: their residuals, divided by the
// weight, would drown the others. It changes the way to the maximum, not the maximum.
constexpr double kLeastWeight = 1e-12;
// A residual keeps its sign in single precision, too, however sure the model is: it tells cases from
// controls.
constexpr double kLeastResidual = 1e-30;

// The design with its intercept, columns centred and scaled but for it: the fit does not depend on units
// then.
struct Design {
  size_t rows = 0;
  size_t columns = 0;
  std::vector<double> values;  // [columns][rows]
  std::vector<double> centre;  // [columns]
  std::vector<double> scale;   // [columns]

  const double* column(size_t j) const { return values.data() + j * rows; }

  explicit Design(const Covariates& x)
      : rows(x.n_samples),
        columns(x.n_covariates + 1),
        values(rows * columns, 1.0),
        centre(columns, 0.0),
        scale(columns, 1.0) {
    for (size_t j = 1; j < columns; ++j) {
      double sum = 0.0;
      for (size_t i = 0; i < rows; ++i) {
        sum += x.values[i * x.n_covariates + j - 1];
      }
      centre[j] = sum / static_cast<double>(rows);
      double squares = 0.0;
      for (size_t i = 0; i < rows; ++i) {
        double& value = values[j * rows + i];
        value = x.values[i * x.n_covariates + j - 1] - centre[j];
        squares += value * value;
      }
      const double deviation = std::sqrt(squares / static_cast<double>(rows));
      // A constant column keeps its rounding errors, which the solver then finds to depend on the intercept.
      scale[j] = deviation > kDependence * (std::fabs(centre[j]) + 1e-300) ? deviation : 0.0;
      for (size_t i = 0; i < rows; ++i) {
        values[j * rows + i] = scale[j] > 0.0 ? values[j * rows + i] / scale[j] : 0.0;
      }
    }
  }

  // Coefficients of the columns as they were given.
  std::vector<double> on_original_scale(const std::vector<double>& scaled) const {
    std::vector<double> original = scaled;
    for (size_t j = 1; j < columns; ++j) {
      original[j] = scaled[j] / scale[j];
      original[0] -= original[j] * centre[j];
    }
    return original;
  }
};

double dot(const double* a, const double* b, size_t n) {
  return std::inner_product(a, a + n, b, 0.0);
}

// Minimises sum of weight * (target - design * coefficients)^2 by orthogonalising the weighted columns one
// after the other (twice each, which keeps them orthogonal to rounding). Fails with the number of the first
// covariate of whose length no more than the share `dependence` is left.
Status weighted_least_squares(const Design& design, const std::vector<double>& weights,
                              const std::vector<double>& target, double dependence,
                              std::vector<double>* coefficients) {
  const size_t n = design.rows;
  const size_t p = design.columns;
  std::vector<double> q(n * p);
  std::vector<double> r(p * p, 0.0);
  std::vector<double> projected(p);
  std::vector<double> root(n);
  std::vector<double> rest(n);
  double largest_root = 0.0;
  for (size_t i = 0; i < n; ++i) {
    root[i] = std::sqrt(weights[i]);
    rest[i] = root[i] * target[i];
    largest_root = std::fmax(largest_root, root[i]);
  }
  for (size_t j = 0; j < p; ++j) {
    double* column = q.data() + j * n;
    for (size_t i = 0; i < n; ++i) {
      column[i] = root[i] * design.column(j)[i];
    }
    // Not the weighted length: weights may take all of a column away, and leave nothing to compare with.
    const double length = largest_root * std::sqrt(dot(design.column(j), design.column(j), n));
    for (int pass = 0; pass < 2; ++pass) {
      for (size_t k = 0; k < j; ++k) {
        const double share = dot(q.data() + k * n, column, n);
        r[k * p + j] += share;
        for (size_t i = 0; i < n; ++i) {
          column[i] -= share * q[k * n + i];
        }
      }
    }
    const double left = std::sqrt(dot(column, column, n));
    if (!(left > dependence * length) || length == 0.0) {
      return Status::failure(j == 0 ? "no sample carries weight"
                                    : "covariate " + std::to_string(j) +
                                          " is constant or depends on those before it");
    }
    r[j * p + j] = left;
    for (size_t i = 0; i < n; ++i) {
      column[i] /= left;
    }
    projected[j] = dot(column, rest.data(), n);
    for (size_t i = 0; i < n; ++i) {
      rest[i] -= projected[j] * column[i];
    }
  }
  coefficients->assign(p, 0.0);
  for (size_t j = p; j-- > 0;) {
    double value = projected[j];
    for (size_t k = j + 1; k < p; ++k) {
      value -= r[j * p + k] * (*coefficients)[k];
    }
    (*coefficients)[j] = value / r[j * p + j];
  }
  return {};
}

std::vector<double> predictor(const Design& design, const std::vector<double>& coefficients) {
  std::vector<double> eta(design.rows, 0.0);
  for (size_t j = 0; j < design.columns; ++j) {
    for (size_t i = 0; i < design.rows; ++i) {
      eta[i] += coefficients[j] * design.column(j)[i];
    }
  }
  return eta;
}

// What a sample adds to the likelihood and its derivatives, computed without cancellation however large the
// predictor is. margin: the predictor, its sign turned for controls, so that above 0 is the right side.
struct Bernoulli {
  double log_likelihood;
  double residual;  // distance of the fitted probability from the sample's class, above 0
  double weight;

  explicit Bernoulli(double margin) {
    const double tail = std::exp(-std::fabs(margin));
    log_likelihood = std::fmin(margin, 0.0) - std::log1p(tail);
    residual = (margin > 0.0 ? tail : 1.0) / (1.0 + tail);
    weight = tail / ((1.0 + tail) * (1.0 + tail));
  }
};

double margin(double eta, double y) {
  return y > 0.5 ? eta : -eta;
}

double log_likelihood(const std::vector<double>& eta, const std::vector<double>& y) {
  double sum = 0.0;
  for (size_t i = 0; i < y.size(); ++i) {
    sum += Bernoulli(margin(eta[i], y[i])).log_likelihood;
  }
  return sum;
}

Status separated() {
  return Status::failure("the covariates separate cases from controls: the model has no best fit");
}

// Newton's step from the predictor eta.
Status newton_step(const Design& design, const std::vector<double>& eta, const std::vector<double>& y,
                   std::vector<double>* step) {
  std::vector<double> weights(design.rows);
  std::vector<double> target(design.rows);
  bool all_on_their_side = true;
  for (size_t i = 0; i < design.rows; ++i) {
    const double distance = margin(eta[i], y[i]);
    const Bernoulli sample(distance);
    all_on_their_side = all_on_their_side && distance > 0.0;
    weights[i] = distance > 0.0 ? sample.weight : std::fmax(sample.weight, kLeastWeight);
    // residual / weight, which is 1 + tail on the right side even where both vanish.
    const double ratio = distance > 0.0 ? 1.0 + std::exp(-distance) : sample.residual / weights[i];
    target[i] = y[i] > 0.5 ? ratio : -ratio;
  }
  // Any larger multiple of such coefficients has a higher likelihood.
  if (all_on_their_side) {
    return separated();
  }
  return weighted_least_squares(design, weights, target, kSeparated, step).ok() ? Status() : separated();
}

}  // namespace

Status linear_residuals(const Covariates& x, const std::vector<double>& y, std::vector<double>* coefficients,
                        std::vector<double>* residuals) {
  const Design design(x);
  std::vector<double> scaled;
  Status status =
      weighted_least_squares(design, std::vector<double>(design.rows, 1.0), y, kDependence, &scaled);
  if (!status.ok()) {
    return status;
  }
  const std::vector<double> fitted = predictor(design, scaled);
  residuals->resize(y.size());
  for (size_t i = 0; i < y.size(); ++i) {
    (*residuals)[i] = y[i] - fitted[i];
  }
  *coefficients = design.on_original_scale(scaled);
  return {};
}

Status logistic_residuals(const Covariates& x, const std::vector<double>& y,
                          std::vector<double>* coefficients, std::vector<double>* residuals) {
  const Design design(x);
  const double n_cases = std::accumulate(y.begin(), y.end(), 0.0);
  if (n_cases == 0.0 || n_cases == static_cast<double>(y.size())) {
    return Status::failure("all samples have one class");
  }
  std::vector<double> scaled;
  // Dependence of the covariates, apart from what the weights do to them.
  if (Status status =
          weighted_least_squares(design, std::vector<double>(design.rows, 1.0), y, kDependence, &scaled);
      !status.ok()) {
    return status;
  }
  scaled.assign(design.columns, 0.0);
  std::vector<double> eta(design.rows, 0.0);
  double likelihood = log_likelihood(eta, y);
  bool converged = false;
  for (int iteration = 0; iteration < kMostIterations && !converged; ++iteration) {
    std::vector<double> step;
    if (Status status = newton_step(design, eta, y, &step); !status.ok()) {
      return status;
    }
    double length = 0.0;
    double size = 1.0;
    for (size_t j = 0; j < step.size(); ++j) {
      length = std::fmax(length, std::fabs(step[j]));
      size = std::fmax(size, std::fabs(scaled[j]));
    }
    // Close to the maximum the likelihood is flat to rounding, and full steps are right. Far from it they may
    // lead beyond.
    const double slack = 1e-12 * std::fabs(likelihood);
    converged = length <= kConverged * size;
    bool moved = false;
    for (int halving = 0; halving < kMostHalvings && !moved; ++halving) {
      std::vector<double> next = scaled;
      for (size_t j = 0; j < next.size(); ++j) {
        next[j] += std::ldexp(step[j], -halving);
      }
      const std::vector<double> next_eta = predictor(design, next);
      const double next_likelihood = log_likelihood(next_eta, y);
      if (next_likelihood >= likelihood - slack) {
        moved = true;
        scaled = next;
        eta = next_eta;
        likelihood = next_likelihood;
      }
    }
    if (!moved) {
      break;
    }
  }
  if (!converged) {
    return Status::failure("the logistic model of the covariates did not converge in " +
                           std::to_string(kMostIterations) + " iterations");
  }
  residuals->resize(y.size());
  for (size_t i = 0; i < y.size(); ++i) {
    const double residual = std::fmax(Bernoulli(margin(eta[i], y[i])).residual, kLeastResidual);
    (*residuals)[i] = y[i] > 0.5 ? residual : -residual;
  }
  *coefficients = design.on_original_scale(scaled);
  return {};
}
