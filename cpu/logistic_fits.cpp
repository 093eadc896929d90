// SPDX-License-Identifier: Apache-2.0
//
// Logistic fits by iteratively reweighted least squares, Newton's method on the binomial log-likelihood from
// coefficients of 0.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "cpu/item_fits.h"
#include "cpu/item_lanes.h"
#include "lib/fit_math.h"
#include "lib/information_inverse.h"
#include "lib/precise_fit.h"
#include "lib/standardized.h"

namespace {

constexpr size_t kStride = kMaxModelColumns;
static_assert(kStride == kPreciseStride);

template <typename T>
using Matrix = std::array<T, kStride * kStride>;

constexpr float elimination_limit(float) {
  return kSweepLimitSingle;
}
constexpr double elimination_limit(double) {
  return kSweepLimitDouble;
}

// What the iteration of one lane has come to.
template <typename T>
struct Lane {
  bool active = false;
  FitState state = FitState::kFitted;
  bool converged = false;
  int iterations = 0;
  int rank = 0;  // of the first pass: later weights can vanish, the columns stay what they are
  T last_step = 0;
  Matrix<T> covariance{};  // of the last pass
};

template <typename T>
class LogisticFits : public ItemFits {
  static constexpr bool kPrecise = sizeof(T) == 8;

 public:
  LogisticFits(const Problem& problem, const RegressionRules& rules, const FitKernels<T>& kernels)
      : rules_(rules),
        kernels_(kernels),
        columns_(static_cast<size_t>(rules.columns(problem.n_covariates))),
        standardized_(problem.covariates, problem.n_samples, kPrecise ? problem.n_covariates : 0),
        responses_(problem.phenotypes, problem.phenotypes + problem.n_samples),
        item_lanes_(problem, rules.order()),
        mu_(static_cast<size_t>(problem.n_samples) * kernels.lanes),
        coefficients_(columns_ * kernels.lanes),
        step_(columns_ * kernels.lanes),
        information_(columns_ * columns_ * kernels.lanes),
        inverse_(columns_ * columns_ * kernels.lanes),
        measures_(kernels.lanes),
        deviance_(kernels.lanes) {
    input_.n_samples = static_cast<size_t>(problem.n_samples);
    input_.n_covariates = static_cast<size_t>(problem.n_covariates);
    input_.order = static_cast<size_t>(rules.order());
    input_.responses = responses_.data();
    input_.binary =
        std::all_of(responses_.begin(), responses_.end(), [](T y) { return y == T(0) || y == T(1); });
    if constexpr (kPrecise) {
      input_.covariates = standardized_.values().data();
    } else {
      input_.covariates = problem.covariates;
    }
  }

  void run(const int* items, size_t count, ItemFit* fits) override {
    for (size_t i = 0; i < count; i += kernels_.lanes) {
      fit_group(items + i * input_.order, std::min(kernels_.lanes, count - i), fits + i);
    }
  }

 private:
  void fit_group(const int* items, size_t count, ItemFit* fits) {
    item_lanes_.take(items, count, kernels_.lanes);
    input_.dummies = item_lanes_.dummies();
    input_.exclusive = item_lanes_.exclusive();
    std::fill(coefficients_.begin(), coefficients_.end(), T(0));
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      lanes_[l] = Lane<T>();
      lanes_[l].active = l < count;
    }
    if (rules_.iterations <= 0) {  // no pass: the covariance is that at coefficients of 0
      invert_information(FitState::kUnwritten);
      for (size_t l = 0; l < kernels_.lanes; ++l) {
        keep_covariance(l);
      }
    }
    for (int pass = 1; pass <= rules_.iterations && any_active(); ++pass) {
      invert_information(FitState::kFailed);
      find_steps();
      take_steps(pass);
    }
    kernels_.deviance(input_, coefficients_.data(), deviance_.data());
    for (size_t l = 0; l < count; ++l) {
      put_result(l, fits + l);
    }
  }

  bool any_active() const {
    return std::any_of(lanes_.begin(), lanes_.begin() + static_cast<ptrdiff_t>(kernels_.lanes),
                       [](const Lane<T>& lane) { return lane.active; });
  }

  T& at(std::vector<T>& matrix, size_t j, size_t k, size_t l) {
    return matrix[(j * columns_ + k) * kernels_.lanes + l];
  }

  // The covariance of every active lane at its coefficients. A lane whose decomposition gives up ends.
  void invert_information(FitState otherwise) {
    kernels_.information(input_, coefficients_.data(), mu_.data(), information_.data(), step_.data());
    kernels_.invert(information_.data(), columns_, inverse_.data(), measures_.data());
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      if (lanes_[l].active) {
        auto rank = static_cast<int>(columns_);
        if (!(measures_[l] < elimination_limit(T()))) {
          decompose(l, otherwise, &rank);
        }
        if (lanes_[l].iterations == 0) {
          lanes_[l].rank = rank;
        }
      }
    }
  }

  void decompose(size_t l, FitState otherwise, int* rank) {
    Matrix<T> information{};
    Matrix<T> covariance{};
    for (size_t j = 0; j < columns_; ++j) {
      for (size_t k = 0; k < columns_; ++k) {
        information[j * kStride + k] = at(information_, j, k, l);
      }
    }
    Lane<T>& lane = lanes_[l];
    if (!information_inverse<kStride>(information.data(), static_cast<int>(columns_), covariance.data(),
                                      rank)) {
      lane.state = otherwise;
      lane.active = false;
      return;
    }
    for (size_t j = 0; j < columns_; ++j) {
      for (size_t k = 0; k < columns_; ++k) {
        at(inverse_, j, k, l) = covariance[j * kStride + k];
      }
    }
  }

  // Keeps the covariance of the lane's last pass.
  void keep_covariance(size_t l) {
    for (size_t j = 0; j < columns_; ++j) {
      for (size_t k = 0; k < columns_; ++k) {
        lanes_[l].covariance[j * kStride + k] = at(inverse_, j, k, l);
      }
    }
  }

  // step_ of every lane.
  void find_steps() {
    if constexpr (kPrecise) {
      // step_ holds the gradients.
      gradient_ = step_;
      const size_t lanes = kernels_.lanes;
      for (size_t j = 0; j < columns_; ++j) {
        T* step = step_.data() + j * lanes;
        std::fill_n(step, lanes, T(0));
        for (size_t k = 0; k < columns_; ++k) {
          const T* row = inverse_.data() + (j * columns_ + k) * lanes;
          const T* gradient = gradient_.data() + k * lanes;
          for (size_t l = 0; l < lanes; ++l) {
            step[l] += row[l] * gradient[l];
          }
        }
      }
    } else {
      kernels_.step(input_, coefficients_.data(), mu_.data(), inverse_.data(), step_.data());
    }
  }

  void take_steps(int pass) {
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      Lane<T>& lane = lanes_[l];
      if (!lane.active) {
        continue;
      }
      T total = 0;
      for (size_t j = 0; j < columns_; ++j) {
        const T step = step_[j * kernels_.lanes + l];
        total += std::fabs(step);
        coefficients_[j * kernels_.lanes + l] += step;
      }
      lane.iterations = pass;
      lane.last_step = total;
      lane.converged = fit_converged(total, rules_.order());
      lane.active = !lane.converged && pass < rules_.iterations;
      if (!lane.active) {
        keep_covariance(l);
      }
    }
  }

  void put_result(size_t l, ItemFit* fit) const {
    const Lane<T>& lane = lanes_[l];
    fit->state = lane.state;
    fit->converged = lane.converged;
    fit->iterations = lane.iterations;
    fit->rank = lane.rank;
    fit->last_step = static_cast<double>(lane.last_step);
    fit->deviance = static_cast<double>(deviance_[l]);
    for (size_t j = 0; j < columns_; ++j) {
      fit->coefficients[j] = static_cast<double>(coefficients_[j * kernels_.lanes + l]);
      fit->standard_errors[j] = static_cast<double>(std::sqrt(lane.covariance[j * kStride + j]));
    }
    if constexpr (kPrecise) {
      to_original_scale(standardized_.scale(), static_cast<int>(columns_), lane.covariance.data(), kStride,
                        fit->coefficients, fit->standard_errors);
    }
  }

  const RegressionRules rules_;
  const FitKernels<T>& kernels_;
  const size_t columns_;
  const StandardizedCovariates standardized_;
  const std::vector<T> responses_;
  ItemLanes item_lanes_;
  FitInput<T> input_{};
  std::array<Lane<T>, kMaxFitLanes> lanes_;
  std::vector<T> mu_;            // [samples][lanes]
  std::vector<T> coefficients_;  // [columns][lanes]
  std::vector<T> step_;          // [columns][lanes]
  std::vector<T> information_;   // [columns][columns][lanes]
  std::vector<T> inverse_;       // [columns][columns][lanes]
  std::vector<T> gradient_;      // [columns][lanes]
  std::vector<T> measures_;      // [lanes]
  std::vector<T> deviance_;      // [lanes]
};

}  // namespace

std::unique_ptr<ItemFits> make_logistic_fits(const Problem& problem, const RegressionRules& rules,
                                             InstructionSet instruction_set) {
  if (rules.precision == Precision::kDouble) {
    return std::make_unique<LogisticFits<double>>(problem, rules, fit_kernels<double>(instruction_set));
  }
  return std::make_unique<LogisticFits<float>>(problem, rules, fit_kernels<float>(instruction_set));
}
