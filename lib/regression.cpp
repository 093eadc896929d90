// SPDX-License-Identifier: Apache-2.0
#include "lib/regression.h"

#include <cmath>
#include <cstddef>
#include <vector>

#include "lib/svd.h"

namespace {

constexpr int kRow = kRegressionRowLength;

// The model in hand: coefficients and the probabilities of the last pass.
struct NullFit {
  int nind;
  int columns;
  const float* cov;  // [nind][columns - 1]
  float beta[kRow] = {};
  std::vector<float> mu;

  float x(int i, int j) const {
    return j == 0
               ? 1.0f
               : cov[static_cast<size_t>(i) * static_cast<size_t>(columns - 1) + static_cast<size_t>(j - 1)];
  }

  void predict() {
    for (int i = 0; i < nind; ++i) {
      float eta = 0.0f;
      for (int j = 0; j < columns; ++j) {
        eta += beta[j] * x(i, j);
      }
      mu[static_cast<size_t>(i)] = static_cast<float>(1.0 / (1.0 + std::exp(static_cast<double>(-eta))));
    }
  }

  // The information matrix at mu.
  void gather_information(RegressionRowC* information) const {
    for (int j = 0; j < columns; ++j) {
      for (int k = j; k < columns; ++k) {
        float sum = 0.0f;
        for (int i = 0; i < nind; ++i) {
          const float m = mu[static_cast<size_t>(i)];
          sum += x(i, j) * x(i, k) * m * (1.0f - m);
        }
        information[j][k] = information[k][j] = sum;
      }
    }
  }

  // Its inverse. False when its decomposition gives up.
  bool invert_information(RegressionRowC* inverse) const {
    RegressionRowC information[kRow] = {};
    gather_information(information);
    return svd_inverse_regr_C(information, columns, inverse) != 0;
  }

  // Adds one Newton step to beta. Returns the sum of its absolute values.
  float step(const RegressionRowC* inverse, const float* y) {
    float total = 0.0f;
    for (int j = 0; j < columns; ++j) {
      float change = 0.0f;
      for (int i = 0; i < nind; ++i) {
        float projected = 0.0f;
        for (int k = 0; k < columns; ++k) {
          projected += inverse[j][k] * x(i, k);
        }
        change += projected * (y[i] - mu[static_cast<size_t>(i)]);
      }
      total += std::fabs(change);
      beta[j] += change;
    }
    return total;
  }
};

}  // namespace

int svdcmp_regr_C(RegressionRowC* a, float* w, RegressionRowC* v, int n) {
  return svd_decompose<float, kRow, double>(a[0], w, v[0], n, n);
}

int svdcmp_nl_regr_C(RegressionRowC* a, float* w, RegressionRowC* v, int m, int n) {
  return svd_decompose<float, kRow, double>(a[0], w, v[0], m, n);
}

void svbksb_regr_C(const RegressionRowC* u, const float* w, const RegressionRowC* v, const float* b, float* x,
                   int m, int n) {
  svd_solve<float, kRow>(u[0], w, v[0], b, x, m, n);
}

int svd_inverse_regr_C(RegressionRowC* a, int n, RegressionRowC* inv) {
  int rank = 0;
  return svd_inverse<float, kRow, double>(a[0], n, inv[0], kInverseCutOff, &rank);
}

float pythag_regr_C(float a, float b) {
  return svd_pythag<float, double>(a, b);
}

float ylogy_regr_C(float y, float mu) {
  return y == 0.0f ? 0.0f : static_cast<float>(-std::log(static_cast<double>(mu)));
}

int regression_null_logistic(int nind, int np0, const float* cov, int maxiter, const float* y, float* dev,
                             float* df) {
  NullFit fit{nind, np0, cov, {}, std::vector<float>(static_cast<size_t>(nind), 0.5f)};
  RegressionRowC inverse[kRow] = {};
  bool converged = false;
  for (int pass = 0; pass < maxiter && !converged; ++pass) {
    fit.predict();
    if (!fit.invert_information(inverse)) {
      *dev = 0.0f;
      *df = -1.0f;
      return static_cast<int>(*df);
    }
    converged = static_cast<double>(fit.step(inverse, y)) < 1e-6;
  }
  if (!fit.invert_information(inverse)) {
    return 0;
  }
  fit.predict();
  float deviance = 0.0f;
  for (int i = 0; i < nind; ++i) {
    const float m = fit.mu[static_cast<size_t>(i)];
    deviance += 2.0f * (ylogy_regr_C(1.0f - y[i], 1.0f - m) + ylogy_regr_C(y[i], m));
  }
  *dev = deviance;
  *df = static_cast<float>(nind - 1);
  return nind - 1;
}

int regression_null_rank(int nind, int np0, const float* cov) {
  const NullFit fit{nind, np0, cov, {}, std::vector<float>(static_cast<size_t>(nind), 0.5f)};
  RegressionRowC information[kRow] = {};
  RegressionRowC inverse[kRow] = {};
  fit.gather_information(information);
  int rank = 0;
  svd_inverse<float, kRow, double>(information[0], np0, inverse[0], kInverseCutOff, &rank);
  return rank;
}
