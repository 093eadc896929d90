// SPDX-License-Identifier: Apache-2.0
//
// Linear fits by least squares. The normal equations are formed and solved in double precision on
// standardised covariates, whatever the precision of the run, so no design matrix is kept and little is lost;
// covariance and residuals are those of the run's precision.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "cpu/item_fits.h"
#include "cpu/item_lanes.h"
#include "lib/information_inverse.h"
#include "lib/normal_equations.h"
#include "lib/precise_fit.h"
#include "lib/standardized.h"
#include "util/stop_signal.h"

namespace {

constexpr size_t kStride = kNormalStride;
static_assert(kStride == kPreciseStride && kStride >= kMaxModelColumns);

template <typename T>
using Matrix = std::array<T, kStride * kStride>;

// The normal equations of a lane from the shared ones and the sums over its dummies' samples.
template <typename T>
NormalEquations<T> equations_of(const NormalEquations<T>& shared, const std::vector<T>& dummy_sums,
                                size_t n_covariates, size_t lanes, size_t lane) {
  NormalEquations<T> equations = shared;
  const int count = static_cast<int>(n_covariates);
  put_dummy_sums(&equations, count, [&](int d, int s) {
    return dummy_sums[static_cast<size_t>(d * dummy_sum_width(count) + s) * lanes + lane];
  });
  return equations;
}

template <typename T>
class LinearFits : public ItemFits {
  static constexpr bool kPrecise = sizeof(T) == 8;

 public:
  LinearFits(const Problem& problem, const RegressionRules& rules, InstructionSet instruction_set)
      : kernels_(fit_kernels<T>(instruction_set)),
        precise_kernels_(fit_kernels<double>(instruction_set)),
        columns_(static_cast<size_t>(rules.columns(problem.n_covariates))),
        standardized_(problem.covariates, problem.n_samples, problem.n_covariates),
        responses_(problem.phenotypes, problem.phenotypes + problem.n_samples),
        precise_responses_(problem.phenotypes, problem.phenotypes + problem.n_samples),
        item_lanes_(problem, 1),
        coefficients_(columns_ * kernels_.lanes),
        squares_(kernels_.lanes) {
    input_.n_samples = precise_input_.n_samples = static_cast<size_t>(problem.n_samples);
    input_.n_covariates = precise_input_.n_covariates = static_cast<size_t>(problem.n_covariates);
    input_.order = precise_input_.order = 1;
    input_.exclusive = precise_input_.exclusive = true;
    input_.responses = responses_.data();
    precise_input_.responses = precise_responses_.data();
    precise_input_.covariates = standardized_.values().data();
    const size_t width = input_.n_covariates + 2;
    precise_sums_.resize(2 * width * precise_kernels_.lanes);
    precise_shared_ = shared_sums<long double>(precise_responses_.data(), precise_input_.covariates,
                                               precise_input_.n_samples, precise_input_.n_covariates);
    if constexpr (kPrecise) {
      input_.covariates = precise_input_.covariates;
    } else {
      input_.covariates = problem.covariates;
      sums_.resize(2 * width * kernels_.lanes);
      shared_ =
          shared_sums<float>(responses_.data(), input_.covariates, input_.n_samples, input_.n_covariates);
    }
  }

  void run(const int* items, size_t count, ItemFit* fits) override {
    for (size_t i = 0; i < count && stop_signal() == 0; i += kernels_.lanes) {
      fit_group(items + i, std::min(kernels_.lanes, count - i), fits + i);
    }
  }

 private:
  // The solution of one lane; covariance is that of the coefficients on standardised covariates, but for the
  // residual variance.
  struct Solution {
    std::array<double, kStride> coefficients{};
    Matrix<double> covariance{};
  };

  void fit_group(const int* items, size_t count, ItemFit* fits) {
    item_lanes_.take(items, count, kernels_.lanes);
    input_.dummies = item_lanes_.dummies();
    std::fill(coefficients_.begin(), coefficients_.end(), T(0));
    for (size_t first = 0; first < count; first += precise_kernels_.lanes) {
      solve_part(first, std::min(count - first, precise_kernels_.lanes), fits);
    }
    if constexpr (!kPrecise) {
      kernels_.dummy_sums(input_, sums_.data());
    }
    for (size_t l = 0; l < count; ++l) {
      put_coefficients(l, fits + l);
    }
    kernels_.residual_squares(input_, coefficients_.data(), squares_.data());
    for (size_t l = 0; l < count; ++l) {
      put_errors(l, fits + l);
    }
  }

  // Solves the lanes first .. first + count - 1, as many as double precision has.
  void solve_part(size_t first, size_t count, ItemFit* fits) {
    if (kernels_.lanes == precise_kernels_.lanes) {
      precise_input_.dummies = input_.dummies;
    } else {
      item_lanes_.part(first, precise_kernels_.lanes, &part_);
      precise_input_.dummies = part_.data();
    }
    precise_kernels_.dummy_sums(precise_input_, precise_sums_.data());
    for (size_t l = 0; l < count; ++l) {
      NormalEquations<double> equations =
          equations_of(precise_shared_, precise_sums_, input_.n_covariates, precise_kernels_.lanes, l);
      Solution& solution = solutions_[first + l];
      ItemFit& fit = fits[first + l];
      if (!information_inverse<kStride>(equations.products, static_cast<int>(columns_),
                                        solution.covariance.data(), &fit.rank)) {
        fit.state = FitState::kFailed;
        solution = {};
        continue;
      }
      for (size_t j = 0; j < columns_; ++j) {
        double sum = 0.0;
        for (size_t k = 0; k < columns_; ++k) {
          sum += solution.covariance[j * kStride + k] * equations.responses[k];
        }
        solution.coefficients[j] = sum;
      }
    }
  }

  // The coefficients that residuals are computed from, and those of the result.
  void put_coefficients(size_t l, ItemFit* fit) {
    std::array<double, kStride> coefficients = solutions_[l].coefficients;
    std::array<double, kStride> errors{};
    to_original_scale(standardized_.scale(), static_cast<int>(columns_), solutions_[l].covariance.data(),
                      kStride, coefficients.data(), errors.data());
    for (size_t j = 0; j < columns_; ++j) {
      if constexpr (kPrecise) {
        coefficients_[j * kernels_.lanes + l] = solutions_[l].coefficients[j];
        fit->coefficients[j] = coefficients[j];
        fit->standard_errors[j] = errors[j];
      } else {
        coefficients_[j * kernels_.lanes + l] = static_cast<float>(coefficients[j]);
        fit->coefficients[j] = static_cast<double>(static_cast<float>(coefficients[j]));
      }
    }
  }

  // Standard errors, from the residual sum of squares.
  void put_errors(size_t l, ItemFit* fit) {
    fit->deviance = static_cast<double>(squares_[l]);
    // Single precision takes off the columns, whether they depend on others or not.
    const double parameters = kPrecise ? fit->rank : static_cast<double>(columns_);
    const T variance = squares_[l] / static_cast<T>(static_cast<double>(input_.n_samples) - parameters);
    if constexpr (kPrecise) {
      for (size_t j = 0; j < columns_; ++j) {
        fit->standard_errors[j] *= std::sqrt(variance);
      }
    } else {
      NormalEquations<float> equations = equations_of(shared_, sums_, input_.n_covariates, kernels_.lanes, l);
      // What the solution leaves out has no error, and no part in those of the others.
      const auto left_out = [&](size_t j) { return solutions_[l].covariance[j * kStride + j] == 0.0; };
      for (size_t j = 0; j < columns_; ++j) {
        if (left_out(j)) {
          leave_out(&equations, static_cast<int>(columns_), static_cast<int>(j));
        }
      }
      Matrix<float> covariance{};
      int rank = 0;
      information_inverse<kStride>(equations.products, static_cast<int>(columns_), covariance.data(), &rank);
      for (size_t j = 0; j < columns_; ++j) {
        fit->standard_errors[j] =
            left_out(j) ? 0.0 : static_cast<double>(std::sqrt(covariance[j * kStride + j] * variance));
      }
    }
  }

  const FitKernels<T>& kernels_;
  const FitKernels<double>& precise_kernels_;
  const size_t columns_;
  const StandardizedCovariates standardized_;
  const std::vector<T> responses_;
  const std::vector<double> precise_responses_;
  ItemLanes item_lanes_;
  FitInput<T> input_{};
  FitInput<double> precise_input_{};
  NormalEquations<float> shared_;
  NormalEquations<double> precise_shared_;
  std::array<Solution, kMaxFitLanes> solutions_;
  std::vector<uint16_t> part_;
  std::vector<float> sums_;           // [2][covariates + 2][lanes]
  std::vector<double> precise_sums_;  // the same
  std::vector<T> coefficients_;       // [columns][lanes]
  std::vector<T> squares_;            // [lanes]
};

}  // namespace

std::unique_ptr<ItemFits> make_linear_fits(const Problem& problem, const RegressionRules& rules,
                                           InstructionSet instruction_set) {
  if (rules.precision == Precision::kDouble) {
    return std::make_unique<LinearFits<double>>(problem, rules, instruction_set);
  }
  return std::make_unique<LinearFits<float>>(problem, rules, instruction_set);
}
