// SPDX-License-Identifier: Apache-2.0
//
// The fit kernels, for whatever instruction set the including file is compiled for. Everything is in an
// unnamed namespace; that file exports the tables.
#pragma once

#include "cpu/fit_kernels.h"
#include "cpu/fit_lanes.h"
#include "cpu/interleaved_lanes.h"
#include "lib/sweep_inverse.h"

namespace {

constexpr size_t kMostCovariates = 7;
constexpr size_t kMostColumns = 16;

// The lanes in which each product of dummies is 1, for one sample. Entry 0, the intercept, is not used.
template <typename T, int Order, size_t Products>
struct SampleColumns {
  LaneSet<T> set[Products];

  explicit SampleColumns(const uint16_t* dummies) {
    for (size_t p = 1; p < Products; ++p) {
      unsigned lanes = ~0u;
      for (size_t d = 0; d < 2 * size_t{Order}; ++d) {
        if ((product_dummies<Order>(static_cast<int>(p)) >> d & 1u) != 0) {
          lanes &= dummies[d];
        }
      }
      set[p] = lanes_of<T>(lanes);
    }
  }
};

// Sums over the samples: plain ones of floats; of doubles in blocks, with compensation.
template <typename T, size_t Count>
struct Sums {
  Vector<T> block[Count];
  Vector<T> total[Count];
  Vector<T> lost[Count];

  Sums() {
    for (size_t i = 0; i < Count; ++i) {
      block[i] = total[i] = lost[i] = Vector<T>{};
    }
  }

  void end_block(size_t used) {
    for (size_t i = 0; i < used; ++i) {
      add_compensated(block[i], &total[i], &lost[i]);
      block[i] = Vector<T>{};
    }
  }

  Vector<T> value(size_t i) const { return sizeof(T) == 4 ? block[i] : total[i] + lost[i]; }
};

// Calls predict(samples) for all samples of a block, kTogether at a time (the last ones may be one repeated),
// then sample(i) for each, and ends the blocks of sums of doubles. What predict does for some samples waits
// for nothing that it does for others.
template <typename T, size_t Count, typename Predict, typename Sample>
inline void for_samples(size_t n_samples, Sums<T, Count>& sums, size_t used, Predict predict, Sample sample) {
  for (size_t begin = 0; begin < n_samples; begin += kFitBlockSamples) {
    const size_t end = begin + kFitBlockSamples < n_samples ? begin + kFitBlockSamples : n_samples;
    for (size_t i = begin; i < end; i += kTogether) {
      size_t samples[kTogether];
      for (size_t p = 0; p < kTogether; ++p) {
        samples[p] = i + p < end ? i + p : end - 1;
      }
      predict(samples);
    }
    for (size_t i = begin; i < end; ++i) {
      sample(i);
    }
    if constexpr (sizeof(T) == 8) {
      sums.end_block(used);
    }
  }
}

template <typename T, size_t Count, typename Sample>
inline void for_samples(size_t n_samples, Sums<T, Count>& sums, size_t used, Sample sample) {
  for_samples(
      n_samples, sums, used, [](const size_t*) {}, sample);
}

// The sum of a row [columns][lanes] over the columns of a sample, each times its value, from the first column
// to the last: the linear predictor, where the row is that of the coefficients.
template <typename T, int Order>
struct RowSum {
  static constexpr size_t kColumns = genotype_columns(Order);
  Vector<T> row[kColumns + kMostCovariates];
  Vector<T> of[3];  // of one SNP: of the genotype columns

  RowSum() = default;
  RowSum(const T* from, size_t columns) {
    for (size_t j = 0; j < columns; ++j) {
      row[j] = load(from + j * kLaneCount<T>);
    }
    of[0] = row[0];
    of[1] = row[0] + row[1];
    of[2] = row[0] + row[2];
  }

  template <size_t Products>
  Vector<T> at(const SampleColumns<T, Order, Products>& x, const T* z, size_t n_covariates) const {
    Vector<T> sum = row[0];
    if constexpr (Order == 1) {
      sum = choose(x.set[2], of[2], choose(x.set[1], of[1], of[0]));
    } else {
      for (size_t j = 1; j < kColumns; ++j) {
        sum = add_in(x.set[j], sum, row[j]);
      }
    }
    for (size_t c = 0; c < n_covariates; ++c) {
      sum += row[kColumns + c] * z[c];
    }
    return sum;
  }
};

// A value that depends on the genotype alone: a function of the predictor of one SNP without covariates.
template <typename T>
struct ByGenotype {
  Vector<T> of[3];  // neither dummy, the first, the second

  template <typename Function>
  ByGenotype(const T* coefficients, Function function) {
    const Vector<T> base = load(coefficients);
    of[0] = function(base);
    of[1] = function(base + load(coefficients + kLaneCount<T>));
    of[2] = function(base + load(coefficients + 2 * kLaneCount<T>));
  }

  template <int Order, size_t Products>
  Vector<T> at(const SampleColumns<T, Order, Products>& x) const {
    return choose(x.set[2], of[2], choose(x.set[1], of[1], of[0]));
  }
};

// Covariates: their number, or -1 where it is that of the input. Products: see SampleColumns.
template <typename T, int Order, int Covariates, size_t Products>
void information_pass(const FitInput<T>& in, const T* coefficients, T* mu_out, T* information, T* gradient) {
  constexpr size_t kColumns = genotype_columns(Order);
  constexpr size_t kCovariates = Covariates < 0 ? kMostCovariates : static_cast<size_t>(Covariates);
  constexpr size_t kLanes = kLaneCount<T>;
  constexpr bool kByGenotype = Order == 1 && Covariates == 0;
  constexpr bool kWithGradient = sizeof(T) == 8;
  // The sums, one after the other: products of dummies; covariates with genotype columns; covariates with
  // covariates; the gradient.
  constexpr size_t kMixed = Products;
  constexpr size_t kSquares = kMixed + kCovariates * kColumns;
  constexpr size_t kGradient = kSquares + kCovariates * (kCovariates + 1) / 2;
  constexpr size_t kCount = kGradient + (kWithGradient ? kColumns + kCovariates : 0);
  const size_t n_covariates = Covariates < 0 ? in.n_covariates : kCovariates;

  Sums<T, kCount> sums;
  const RowSum<T, Order> predictor(coefficients, kColumns + n_covariates);
  const ByGenotype<T> mu_of(coefficients, [](Vector<T> eta) { return probability_of(eta); });
  const ByGenotype<T> weight_of(coefficients, [](Vector<T> eta) {
    const Vector<T> mu = probability_of(eta);
    return mu * (static_cast<T>(1) - mu);
  });
  const auto predict = [&](const size_t* samples) {
    if constexpr (!kByGenotype) {
      const auto mu = probability(each_part<Vector<T>>([&](size_t p) {
        const SampleColumns<T, Order, kColumns> x(in.dummies + samples[p] * 2 * Order);
        return predictor.at(x, in.covariates + samples[p] * n_covariates, n_covariates);
      }));
      for (size_t p = 0; p < kTogether; ++p) {
        store(mu_out + samples[p] * kLanes, mu.part[p]);
      }
    }
  };
  for_samples(in.n_samples, sums, kCount, predict, [&](size_t i) {
    const SampleColumns<T, Order, Products> x(in.dummies + i * 2 * Order);
    const T* z = in.covariates + i * n_covariates;
    const T* zz = in.covariate_products + i * (n_covariates * (n_covariates + 1) / 2);
    Vector<T> mu{};
    Vector<T> complement{};
    Vector<T> weight;
    if constexpr (kByGenotype) {
      weight = weight_of.at(x);
      if constexpr (kWithGradient) {
        mu = mu_of.at(x);
      }
    } else {
      mu = load(mu_out + i * kLanes);
      complement = static_cast<T>(1) - mu;
      weight = mu * complement;
    }
    sums.block[0] += weight;
    for (size_t p = 1; p < Products; ++p) {
      sums.block[p] = add_in(x.set[p], sums.block[p], weight);
    }
    size_t square = 0;
    for (size_t c = 0; c < n_covariates; ++c) {
      const Vector<T> mixed = z[c] * mu * complement;
      Vector<T>* row = sums.block + kMixed + c * kColumns;
      row[0] += mixed;
      for (size_t j = 1; j < kColumns; ++j) {
        row[j] = add_in(x.set[j], row[j], mixed);
      }
      for (size_t d = 0; d <= c; ++d) {
        sums.block[kSquares + square] += zz[square] * mu * complement;
        ++square;
      }
    }
    if constexpr (kWithGradient) {
      const Vector<T> residual = in.responses[i] - mu;
      Vector<T>* slope = sums.block + kGradient;
      slope[0] += residual;
      for (size_t j = 1; j < kColumns; ++j) {
        slope[j] = add_in(x.set[j], slope[j], residual);
      }
      for (size_t c = 0; c < n_covariates; ++c) {
        slope[kColumns + c] += z[c] * residual;
      }
    }
  });

  const size_t columns = kColumns + n_covariates;
  const auto put = [&](size_t j, size_t k, Vector<T> value) {
    store(information + (j * columns + k) * kLanes, value);
    store(information + (k * columns + j) * kLanes, value);
  };
  for (size_t j = 0; j < kColumns; ++j) {
    for (size_t k = j; k < kColumns; ++k) {
      const unsigned product =
          product_dummies<Order>(static_cast<int>(j)) | product_dummies<Order>(static_cast<int>(k));
      Vector<T> value{};
      for (size_t p = 0; p < Products; ++p) {
        if (product_dummies<Order>(static_cast<int>(p)) == product) {
          value = sums.value(p);
        }
      }
      put(j, k, value);
    }
  }
  size_t square = kSquares;
  for (size_t c = 0; c < n_covariates; ++c) {
    for (size_t j = 0; j < kColumns; ++j) {
      put(j, kColumns + c, sums.value(kMixed + c * kColumns + j));
    }
    for (size_t d = 0; d <= c; ++d) {
      put(kColumns + d, kColumns + c, sums.value(square++));
    }
  }
  if constexpr (kWithGradient) {
    for (size_t j = 0; j < columns; ++j) {
      store(gradient + j * kLanes, sums.value(kGradient + j));
    }
  }
}

template <typename T>
void inverse_pass(const T* matrices, size_t columns, T* inverses, T* measures) {
  constexpr size_t kLanes = kLaneCount<T>;
  Vector<T> matrix[kMostColumns * kMostColumns];
  Vector<T> inverse[kMostColumns * kMostColumns];
  for (size_t i = 0; i < columns * columns; ++i) {
    matrix[i] = load(matrices + i * kLanes);
  }
  sweep_inverse(matrix, columns, columns, inverse);
  for (size_t i = 0; i < columns * columns; ++i) {
    store(inverses + i * kLanes, inverse[i]);
  }
  store(measures, condition_measure(matrix, inverse, columns, columns, sizeof(T) == 8));
}

// The step of one SNP without covariates and responses of 0 and 1: each sample adds one of six values.
void binary_step_pass(const FitInput<float>& in, const float* coefficients, const float*,
                      const float* inverse, float* step) {
  constexpr size_t kColumns = 3;
  constexpr size_t kLanes = kLaneCount<float>;
  const ByGenotype<float> mu(coefficients, [](FloatVector eta) { return probability_of(eta); });
  FloatVector terms[2][kColumns][3];  // by response, column, genotype
  for (size_t j = 0; j < kColumns; ++j) {
    const ByGenotype<float> projected(inverse + j * kColumns * kLanes, [](FloatVector sum) { return sum; });
    for (size_t g = 0; g < 3; ++g) {
      terms[0][j][g] = projected.of[g] * (0.0f - mu.of[g]);
      terms[1][j][g] = projected.of[g] * (1.0f - mu.of[g]);
    }
  }
  FloatVector sums[kColumns];
  for (FloatVector& sum : sums) {
    sum = FloatVector{};
  }
  const auto add = [&](const FloatVector(&of)[kColumns][3], size_t i) {
    const SampleColumns<float, 1, kColumns> x(in.dummies + 2 * i);
    for (size_t j = 0; j < kColumns; ++j) {
      sums[j] += choose(x.set[2], of[j][2], choose(x.set[1], of[j][1], of[j][0]));
    }
  };
  // Two ways, so that the terms of both can stay in registers: the responses come in the same order in every
  // pass, which branch predictors learn.
  for (size_t i = 0; i < in.n_samples; ++i) {
    if (in.responses[i] != 0.0f) {
      add(terms[1], i);
    } else {
      add(terms[0], i);
    }
  }
  for (size_t j = 0; j < kColumns; ++j) {
    store(step + j * kLanes, sums[j]);
  }
}

template <int Order, int Covariates>
void step_pass(const FitInput<float>& in, const float* coefficients, const float* mu_in, const float* inverse,
               float* step) {
  constexpr size_t kColumns = genotype_columns(Order);
  constexpr size_t kCovariates = Covariates < 0 ? kMostCovariates : static_cast<size_t>(Covariates);
  constexpr size_t kLanes = kLaneCount<float>;
  constexpr bool kByGenotype = Order == 1 && Covariates == 0;
  const size_t n_covariates = Covariates < 0 ? in.n_covariates : kCovariates;
  const size_t columns = kColumns + n_covariates;

  FloatVector sums[kColumns + kCovariates];
  RowSum<float, Order> rows[kColumns + kCovariates];
  for (size_t j = 0; j < columns; ++j) {
    sums[j] = FloatVector{};
    rows[j] = RowSum<float, Order>(inverse + j * columns * kLanes, columns);
  }
  const ByGenotype<float> by_genotype(coefficients, [](FloatVector eta) { return probability_of(eta); });
  for (size_t i = 0; i < in.n_samples; ++i) {
    const SampleColumns<float, Order, kColumns> x(in.dummies + i * 2 * Order);
    const float* z = in.covariates + i * n_covariates;
    const FloatVector mu = kByGenotype ? by_genotype.at(x) : load(mu_in + i * kLanes);
    const FloatVector residual = in.responses[i] - mu;
    for (size_t j = 0; j < columns; ++j) {
      sums[j] += rows[j].at(x, z, n_covariates) * residual;
    }
  }
  for (size_t j = 0; j < columns; ++j) {
    store(step + j * kLanes, sums[j]);
  }
}

template <typename T, int Order, int Covariates>
void deviance_pass(const FitInput<T>& in, const T* coefficients, T* deviance) {
  constexpr size_t kColumns = genotype_columns(Order);
  constexpr bool kByGenotype = Order == 1 && Covariates == 0;
  const size_t n_covariates = Covariates < 0 ? in.n_covariates : static_cast<size_t>(Covariates);

  Sums<T, 1> sums;
  const RowSum<T, Order> predictor(coefficients, kColumns + n_covariates);
  const auto minus_log = [](bool complement) {
    return [=](Vector<T> eta) { return minus_log_probability_of(eta, complement); };
  };
  const ByGenotype<T> of_others(coefficients, minus_log(true));
  const ByGenotype<T> of_cases(coefficients, minus_log(false));
  for_samples(in.n_samples, sums, 1, [&](size_t i) {
    const SampleColumns<T, Order, kColumns> x(in.dummies + i * 2 * Order);
    const T y = in.responses[i];
    const auto share_of = [&](bool complement) {
      if constexpr (kByGenotype) {
        return (complement ? of_others : of_cases).at(x);
      } else {
        return minus_log(complement)(predictor.at(x, in.covariates + i * n_covariates, n_covariates));
      }
    };
    // The response is an indicator: 0 or not, 1 or not.
    Vector<T> share{};
    if (static_cast<T>(1) - y != static_cast<T>(0)) {
      share = share_of(true);
    }
    if (y != static_cast<T>(0)) {
      share += share_of(false);
    }
    sums.block[0] += static_cast<T>(2) * share;
  });
  store(deviance, sums.value(0));
}

// The same for responses of 0 and 1, of which each has one share.
template <typename T, int Order>
void binary_deviance_pass(const FitInput<T>& in, const T* coefficients, T* deviance) {
  constexpr size_t kColumns = genotype_columns(Order);
  Sums<T, 1> sums;
  const RowSum<T, Order> predictor(coefficients, kColumns + in.n_covariates);
  Vector<T> shares[kFitBlockSamples];
  const auto predict = [&](const size_t* samples) {
    bool complement[kTogether];
    const auto eta = each_part<Vector<T>>([&](size_t p) {
      complement[p] = in.responses[samples[p]] == static_cast<T>(0);
      const SampleColumns<T, Order, kColumns> x(in.dummies + samples[p] * 2 * Order);
      return predictor.at(x, in.covariates + samples[p] * in.n_covariates, in.n_covariates);
    });
    const auto some = minus_log_probability(eta, complement);
    for (size_t p = 0; p < kTogether; ++p) {
      shares[samples[p] % kFitBlockSamples] = some.part[p];
    }
  };
  for_samples(in.n_samples, sums, 1, predict,
              [&](size_t i) { sums.block[0] += static_cast<T>(2) * shares[i % kFitBlockSamples]; });
  store(deviance, sums.value(0));
}

template <typename T, int Covariates>
void dummy_sums_pass(const FitInput<T>& in, T* out) {
  constexpr size_t kMost = (Covariates < 0 ? kMostCovariates : static_cast<size_t>(Covariates)) + 2;
  const size_t width = Covariates < 0 ? in.n_covariates + 2 : kMost;
  Sums<T, 2 * kMost> sums;
  const Vector<T> one = broadcast(static_cast<T>(1));
  for_samples(in.n_samples, sums, 2 * kMost, [&](size_t i) {
    const T* z = in.covariates + i * (width - 2);
    const Vector<T> y = broadcast(in.responses[i]);
    for (size_t d = 0; d < 2; ++d) {
      const LaneSet<T> set = lanes_of<T>(in.dummies[2 * i + d]);
      Vector<T>* row = sums.block + d * kMost;
      row[0] = add_in(set, row[0], one);
      for (size_t c = 0; c + 2 < width; ++c) {
        row[1 + c] = add_in(set, row[1 + c], broadcast(z[c]));
      }
      row[width - 1] = add_in(set, row[width - 1], y);
    }
  });
  for (size_t d = 0; d < 2; ++d) {
    for (size_t s = 0; s < width; ++s) {
      store(out + (d * width + s) * kLaneCount<T>, sums.value(d * kMost + s));
    }
  }
}

template <typename T>
void residual_pass(const FitInput<T>& in, const T* coefficients, T* squares) {
  Sums<T, 1> sums;
  const RowSum<T, 1> predictor(coefficients, 3 + in.n_covariates);
  for_samples(in.n_samples, sums, 1, [&](size_t i) {
    const SampleColumns<T, 1, 3> x(in.dummies + 2 * i);
    const Vector<T> residual =
        predictor.at(x, in.covariates + i * in.n_covariates, in.n_covariates) - in.responses[i];
    sums.block[0] += residual * residual;
  });
  store(squares, sums.value(0));
}

// The function for the number of covariates of the input. Few are common, and have functions of their own.
template <typename T>
void information_of(const FitInput<T>& in, const T* coefficients, T* mu, T* information, T* gradient) {
  const auto pass = in.order == 2
                        ? (in.exclusive ? information_pass<T, 2, -1, 9> : information_pass<T, 2, -1, 16>)
                    : in.n_covariates == 0 ? information_pass<T, 1, 0, 3>
                    : in.n_covariates == 1 ? information_pass<T, 1, 1, 3>
                    : in.n_covariates == 2 ? information_pass<T, 1, 2, 3>
                    : in.n_covariates == 3 ? information_pass<T, 1, 3, 3>
                                           : information_pass<T, 1, -1, 3>;
  pass(in, coefficients, mu, information, gradient);
}

void step_of(const FitInput<float>& in, const float* coefficients, const float* mu, const float* inverse,
             float* step) {
  const auto pass = in.order == 2          ? step_pass<2, -1>
                    : in.n_covariates == 0 ? (in.binary ? binary_step_pass : step_pass<1, 0>)
                    : in.n_covariates == 1 ? step_pass<1, 1>
                    : in.n_covariates == 2 ? step_pass<1, 2>
                    : in.n_covariates == 3 ? step_pass<1, 3>
                                           : step_pass<1, -1>;
  pass(in, coefficients, mu, inverse, step);
}

template <typename T>
void deviance_of(const FitInput<T>& in, const T* coefficients, T* deviance) {
  const auto pass = in.order == 2 ? (in.binary ? binary_deviance_pass<T, 2> : deviance_pass<T, 2, -1>)
                    : in.n_covariates == 0 ? deviance_pass<T, 1, 0>
                    : in.binary            ? binary_deviance_pass<T, 1>
                                           : deviance_pass<T, 1, -1>;
  pass(in, coefficients, deviance);
}

template <typename T>
void dummy_sums_of(const FitInput<T>& in, T* sums) {
  const auto pass = in.n_covariates == 0   ? dummy_sums_pass<T, 0>
                    : in.n_covariates == 1 ? dummy_sums_pass<T, 1>
                    : in.n_covariates == 2 ? dummy_sums_pass<T, 2>
                    : in.n_covariates == 3 ? dummy_sums_pass<T, 3>
                                           : dummy_sums_pass<T, -1>;
  pass(in, sums);
}

constexpr FitKernels<float> kFloatKernels = {
    kLaneCount<float>,  information_of<float>, inverse_pass<float>, step_of,
    deviance_of<float>, dummy_sums_of<float>,  residual_pass<float>};
constexpr FitKernels<double> kDoubleKernels = {
    kLaneCount<double>,  information_of<double>, inverse_pass<double>, nullptr,
    deviance_of<double>, dummy_sums_of<double>,  residual_pass<double>};

}  // namespace
