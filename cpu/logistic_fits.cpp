// SPDX-License-Identifier: Apache-2.0
//
// Logistic fits by iteratively reweighted least squares, Newton's method on the binomial log-likelihood from
// coefficients of 0.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <iterator>
#include <vector>

#include "cpu/item_fits.h"
#include "cpu/item_lanes.h"
#include "lib/fit_math.h"
#include "lib/information_inverse.h"
#include "lib/normal_equations.h"
#include "lib/precise_fit.h"
#include "lib/standardized.h"
#include "util/stop_signal.h"

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
  size_t item = 0;       // of the batch
  bool present = false;  // whether the lane has an item at all
  bool active = false;   // whether it goes on
  FitState state = FitState::kFitted;
  bool converged = false;
  int iterations = 0;
  int rank = 0;  // of the first pass: later weights can vanish, the columns stay what they are
  T last_step = 0;
  Matrix<T> covariance{};  // of the last pass

  // A state that the iteration has been in, and after how many passes.
  std::array<T, kStride> earlier{};
  int earlier_iterations = 0;
};

// Items side by side that take their passes together.
template <typename T>
struct Group {
  Group(const Problem& problem, int order, size_t columns, size_t lanes)
      : items(problem, order), coefficients(columns * lanes) {}

  size_t active() const {
    return static_cast<size_t>(
        std::count_if(lane.begin(), lane.end(), [](const Lane<T>& l) { return l.active; }));
  }

  ItemLanes items;
  std::array<Lane<T>, kMaxFitLanes> lane;
  std::vector<T> coefficients;  // [columns][lanes]
  bool at_start = false;        // no lane has taken a pass: all coefficients are 0
};

// Items come in groups, one to a lane, and leave their group when half of it or less goes on: they are
// gathered in the lanes of another group, so that no vector waits for its slowest lane.
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
        fresh_(problem, rules.order(), columns_, kernels.lanes),
        gathered_(problem, rules.order(), columns_, kernels.lanes),
        mu_(static_cast<size_t>(problem.n_samples) * kernels.lanes),
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
    for (size_t i = 0; i < input_.n_samples; ++i) {
      const T* z = input_.covariates + i * input_.n_covariates;
      for (size_t c = 0; c < input_.n_covariates; ++c) {
        for (size_t d = 0; d <= c; ++d) {
          covariate_products_.push_back(z[c] * z[d]);
        }
      }
    }
    input_.covariate_products = covariate_products_.data();
    prepare_start();
  }

  void run(const int* items, size_t count, ItemFit* fits) override {
    const size_t few = kernels_.lanes / 2;
    for (size_t i = 0; i < count && stop_signal() == 0; i += kernels_.lanes) {
      begin(items + i * input_.order, i, std::min(kernels_.lanes, count - i));
      iterate(&fresh_, few);
      put_results(&fresh_, fits);
      if (gathered_.active() + fresh_.active() > kernels_.lanes) {
        iterate(&gathered_, few);
        put_results(&gathered_, fits);
        close_ranks();
      }
      gather();
    }
    iterate(&gathered_, 0);
    put_results(&gathered_, fits);
  }

 private:
  // Computes what every first pass has in common. From coefficients of 0 every probability is 1/2 and every
  // weight 1/4, provided that no covariate is infinite or no number.
  void prepare_start() {
    const T* z = input_.covariates;
    const size_t size = input_.n_samples * input_.n_covariates;
    start_known_ = rules_.model == RegressionModel::kLogistic &&
                   std::all_of(z, z + size, [](T x) { return std::isfinite(x); });
    if (!start_known_) {
      return;
    }
    const std::vector<uint16_t> no_dummies(2 * input_.n_samples);
    input_.dummies = no_dummies.data();
    input_.exclusive = true;
    kernels_.information(input_, fresh_.coefficients.data(), mu_.data(), information_.data(), step_.data());
    start_mu_ = mu_;
    start_information_ = information_;
    start_gradient_ = step_;
    constexpr T kHalf = T(1) / 2;
    std::transform(z, z + size, std::back_inserter(start_covariates_), [](T x) { return x * kHalf * kHalf; });
    std::transform(responses_.begin(), responses_.end(), std::back_inserter(start_residuals_),
                   [](T y) { return y - kHalf; });
    start_ = input_;
    start_.covariates = start_covariates_.data();
    start_.responses = start_residuals_.data();
    start_sums_.resize(2 * static_cast<size_t>(dummy_sum_width(static_cast<int>(input_.n_covariates))) *
                       kernels_.lanes);
  }

  // The information matrices and gradients of a first pass.
  void gather_start(const Group<T>& group) {
    start_.dummies = group.items.dummies();
    kernels_.dummy_sums(start_, start_sums_.data());
    information_ = start_information_;
    step_ = start_gradient_;
    const size_t width = input_.n_covariates + 2;
    for (size_t d = 0; d < 2; ++d) {
      const T* sums = start_sums_.data() + d * width * kernels_.lanes;
      for (size_t l = 0; l < kernels_.lanes; ++l) {
        const auto sum = [&](size_t s) { return sums[s * kernels_.lanes + l]; };
        const size_t column = 1 + d;
        at(information_, 0, column, l) = at(information_, column, 0, l) =
            at(information_, column, column, l) = sum(0) / 4;
        for (size_t c = 0; c < input_.n_covariates; ++c) {
          at(information_, column, kNormalDummyColumns + c, l) =
              at(information_, kNormalDummyColumns + c, column, l) = sum(1 + c);
        }
        step_[column * kernels_.lanes + l] = sum(width - 1);
      }
    }
  }

  // Puts items first .. first + count - 1 of the batch into fresh_.
  void begin(const int* items, size_t first, size_t count) {
    fresh_.items.take(items, count, kernels_.lanes);
    std::fill(fresh_.coefficients.begin(), fresh_.coefficients.end(), T(0));
    fresh_.at_start = true;
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      Lane<T>& lane = fresh_.lane[l];
      lane = Lane<T>();
      lane.item = first + l;
      lane.present = l < count;
      lane.active = lane.present && rules_.iterations > 0;
    }
    if (rules_.iterations <= 0) {  // no pass: the covariance is that at coefficients of 0
      invert_information(&fresh_, FitState::kUnwritten);
      for (size_t l = 0; l < kernels_.lanes; ++l) {
        keep_covariance(&fresh_.lane[l], l);
      }
    }
  }

  // Passes until no more than `few` lanes go on.
  void iterate(Group<T>* group, size_t few) {
    while (group->active() > few) {
      invert_information(group, FitState::kFailed);
      find_steps(*group);
      take_steps(group);
    }
  }

  // Moves the lanes of fresh_ that go on to gathered_, which has room for them.
  void gather() {
    if (gathered_.active() == 0) {
      gathered_.items.forget();
    }
    size_t to = gathered_.active();
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      if (fresh_.lane[l].active) {
        move_lane(&fresh_, l, &gathered_, to++);
      }
    }
  }

  // Moves the lanes of gathered_ that go on to its first lanes.
  void close_ranks() {
    size_t to = 0;
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      if (gathered_.lane[l].active) {
        if (l != to) {
          move_lane(&gathered_, l, &gathered_, to);
        }
        ++to;
      }
    }
  }

  void move_lane(Group<T>* source, size_t from, Group<T>* target, size_t to) {
    target->items.take_lane(source->items, from, to);
    target->lane[to] = source->lane[from];
    source->lane[from].active = source->lane[from].present = false;
    for (size_t j = 0; j < columns_; ++j) {
      target->coefficients[j * kernels_.lanes + to] = source->coefficients[j * kernels_.lanes + from];
    }
  }

  T& at(std::vector<T>& matrix, size_t j, size_t k, size_t l) {
    return matrix[(j * columns_ + k) * kernels_.lanes + l];
  }

  void choose_items(const Group<T>& group) {
    input_.dummies = group.items.dummies();
    input_.exclusive = group.items.exclusive();
  }

  // The covariance of every lane at its coefficients. A lane whose decomposition gives up ends.
  void invert_information(Group<T>* group, FitState otherwise) {
    choose_items(*group);
    if (group->at_start && start_known_) {
      gather_start(*group);
    } else {
      kernels_.information(input_, group->coefficients.data(), mu_.data(), information_.data(), step_.data());
    }
    kernels_.invert(information_.data(), columns_, inverse_.data(), measures_.data());
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      Lane<T>& lane = group->lane[l];
      if (lane.present && (lane.active || group->at_start)) {
        auto rank = static_cast<int>(columns_);
        if (!(measures_[l] < elimination_limit(T())) && !decompose(l, &rank)) {
          lane.state = otherwise;
          lane.active = false;
        }
        if (lane.iterations == 0) {
          lane.rank = rank;
        }
      }
    }
  }

  // The generalised inverse of lane l.
  bool decompose(size_t l, int* rank) {
    Matrix<T> information{};
    Matrix<T> covariance{};
    for (size_t j = 0; j < columns_; ++j) {
      for (size_t k = 0; k < columns_; ++k) {
        information[j * kStride + k] = at(information_, j, k, l);
      }
    }
    if (!information_inverse<kStride>(information.data(), static_cast<int>(columns_), covariance.data(),
                                      rank)) {
      return false;
    }
    for (size_t j = 0; j < columns_; ++j) {
      for (size_t k = 0; k < columns_; ++k) {
        at(inverse_, j, k, l) = covariance[j * kStride + k];
      }
    }
    return true;
  }

  // Keeps the covariance of the last pass, which was that of lane l.
  void keep_covariance(Lane<T>* lane, size_t l) {
    for (size_t j = 0; j < columns_; ++j) {
      for (size_t k = 0; k < columns_; ++k) {
        lane->covariance[j * kStride + k] = at(inverse_, j, k, l);
      }
    }
  }

  // step_ of every lane.
  void find_steps(const Group<T>& group) {
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
      const std::vector<T>& mu = group.at_start && start_known_ ? start_mu_ : mu_;
      kernels_.step(input_, group.coefficients.data(), mu.data(), inverse_.data(), step_.data());
    }
  }

  void take_steps(Group<T>* group) {
    group->at_start = false;
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      Lane<T>& lane = group->lane[l];
      if (!lane.active) {
        continue;
      }
      T total = 0;
      for (size_t j = 0; j < columns_; ++j) {
        const T step = step_[j * kernels_.lanes + l];
        total += std::fabs(step);
        group->coefficients[j * kernels_.lanes + l] += step;
      }
      ++lane.iterations;
      lane.last_step = total;
      lane.converged = fit_converged(total, rules_.order());
      if (!lane.converged) {
        skip_cycles(*group, l, &lane);
      }
      lane.active = !lane.converged && lane.iterations < rules_.iterations;
      if (!lane.active) {
        keep_covariance(&lane, l);
      }
    }
  }

  // A pass is a function of the coefficients alone, so coefficients that come back, as rounding can have it,
  // go on in a cycle without end. Its whole turns are left out.
  void skip_cycles(const Group<T>& group, size_t l, Lane<T>* lane) {
    const auto same = [&](size_t j) {
      using Bits = std::array<unsigned char, sizeof(T)>;
      return std::bit_cast<Bits>(group.coefficients[j * kernels_.lanes + l]) ==
             std::bit_cast<Bits>(lane->earlier[j]);
    };
    const int cycle = lane->iterations - lane->earlier_iterations;
    bool back = lane->earlier_iterations > 0;
    for (size_t j = 0; j < columns_ && back; ++j) {
      back = same(j);
    }
    if (back) {
      lane->iterations += (rules_.iterations - lane->iterations) / cycle * cycle;
    } else if (lane->iterations >= 4 && cycle >= lane->earlier_iterations) {
      // After 4, 8, 16, ... passes: a cycle is found after twice its length.
      lane->earlier_iterations = lane->iterations;
      for (size_t j = 0; j < columns_; ++j) {
        lane->earlier[j] = group.coefficients[j * kernels_.lanes + l];
      }
    }
  }

  // The results of the items whose iteration has ended; they leave the group.
  void put_results(Group<T>* group, ItemFit* fits) {
    const auto ended = [](const Lane<T>& lane) { return lane.present && !lane.active; };
    if (std::none_of(group->lane.begin(), group->lane.end(), ended)) {
      return;
    }
    choose_items(*group);
    kernels_.deviance(input_, group->coefficients.data(), deviance_.data());
    for (size_t l = 0; l < kernels_.lanes; ++l) {
      if (ended(group->lane[l])) {
        put_result(*group, l, fits + group->lane[l].item);
        group->lane[l].present = false;
      }
    }
  }

  void put_result(const Group<T>& group, size_t l, ItemFit* fit) const {
    const Lane<T>& lane = group.lane[l];
    fit->state = lane.state;
    fit->converged = lane.converged;
    fit->iterations = lane.iterations;
    fit->rank = lane.rank;
    fit->last_step = static_cast<double>(lane.last_step);
    fit->deviance = static_cast<double>(deviance_[l]);
    for (size_t j = 0; j < columns_; ++j) {
      fit->coefficients[j] = static_cast<double>(group.coefficients[j * kernels_.lanes + l]);
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
  std::vector<T> covariate_products_;
  FitInput<T> input_{};
  Group<T> fresh_;
  Group<T> gathered_;
  // Of every first pass.
  bool start_known_ = false;
  FitInput<T> start_{};  // its covariates are those times their weights, its responses residuals
  std::vector<T> start_covariates_;
  std::vector<T> start_residuals_;
  std::vector<T> start_mu_;           // as mu_
  std::vector<T> start_information_;  // of an item without dummies, as information_
  std::vector<T> start_gradient_;     // the same of the gradient
  std::vector<T> start_sums_;         // [2][covariates + 2][lanes]
  // Of one pass.
  std::vector<T> mu_;           // [samples][lanes]
  std::vector<T> step_;         // [columns][lanes]
  std::vector<T> information_;  // [columns][columns][lanes]
  std::vector<T> inverse_;      // [columns][columns][lanes]
  std::vector<T> gradient_;     // [columns][lanes]
  std::vector<T> measures_;     // [lanes]
  std::vector<T> deviance_;     // [lanes]
};

}  // namespace

std::unique_ptr<ItemFits> make_logistic_fits(const Problem& problem, const RegressionRules& rules,
                                             InstructionSet instruction_set) {
  if (rules.precision == Precision::kDouble) {
    return std::make_unique<LogisticFits<double>>(problem, rules, fit_kernels<double>(instruction_set));
  }
  return std::make_unique<LogisticFits<float>>(problem, rules, fit_kernels<float>(instruction_set));
}
