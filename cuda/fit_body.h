// SPDX-License-Identifier: Apache-2.0
//
// The passes over the samples that a regression of one item is made of, as one GPU thread runs them: design
// rows are built on the fly from the packed genotypes, nothing is kept per sample. Every sum has the order of
// the CPU's (cpu/fit_kernels.h), and so the same bits. A genotype column is 0 or 1, and a 0 adds nothing.
#pragma once

#include "cuda/table_body.h"
#include "device/problem.h"
#include "lib/fit_math.h"

// Rows of the matrices of a fit.
constexpr int kFitStride = kMaxModelColumns;

// Arrays are the device's.
template <typename T>
struct FitSamples {
  GenotypeMatrix genotypes;
  int n_samples;
  int n_covariates;
  const float* response;  // [n_samples]
  const T* covariates;    // [n_samples][n_covariates]; where T is double the standardised ones
};

// The most covariates that a kernel is compiled for; loops over covariates are unrolled to it, so that the
// sums stay in registers. Calls function with the smallest class that holds n_covariates.
template <int Most>
struct CovariateClass {
  static constexpr int kMost = Most;
};
template <typename Function>
void with_covariate_class(int n_covariates, Function function) {
  if (n_covariates == 0) {
    function(CovariateClass<0>());
  } else if (n_covariates <= 3) {
    function(CovariateClass<3>());
  } else {
    function(CovariateClass<kMaxModelCovariates>());
  }
}

// The dummies of an item in one sample, a bit each. One SNP: heterozygous, homozygous for the counted allele,
// of a missing genotype neither. Two SNPs: the bits of the genotype codes, of a missing genotype (code 3)
// both.
template <int Order>
TAVO_HOST_DEVICE unsigned item_code(const GenotypeMatrix& genotypes, const int* item, int sample) {
  const uint32_t* row = genotypes.words + (size_t)sample * (size_t)genotypes.words_per_row;
  const unsigned first = packed_genotype(row, (size_t)item[0]);
  if constexpr (Order == 1) {
    return first == kMissingGenotype ? 0u : first;
  } else {
    return first | packed_genotype(row, (size_t)item[1]) << 2;
  }
}

// Values that depend on an item's code alone are tables of this many.
template <int Order>
constexpr int kItemCodes = 1 << (2 * Order);

template <int Order>
TAVO_HOST_DEVICE bool code_has(unsigned code, int product) {
  const unsigned dummies = product_dummies<Order>(product);
  return (code & dummies) == dummies;
}

// terms[0] and those of the genotype columns that are 1, added in their order.
template <typename T, int Order>
TAVO_HOST_DEVICE T sum_of_columns(const T* terms, unsigned code) {
  T sum = terms[0];
  TAVO_UNROLL
  for (int j = 1; j < genotype_columns(Order); ++j) {
    sum = code_has<Order>(code, j) ? sum + terms[j] : sum;
  }
  return sum;
}

// The linear predictor: what the genotypes contribute, by code; then the covariates.
template <typename T, int Order, int Most>
struct ItemPredictor {
  T by_code[kItemCodes<Order>];
  T slopes[Most + 1];

  TAVO_HOST_DEVICE_MEMBER ItemPredictor(const T* coefficients, int n_covariates) {
    for (unsigned code = 0; code < kItemCodes<Order>; ++code) {
      by_code[code] = sum_of_columns<T, Order>(coefficients, code);
    }
    TAVO_UNROLL
    for (int c = 0; c < Most; ++c) {
      slopes[c] = c < n_covariates ? coefficients[genotype_columns(Order) + c] : T(0);
    }
  }

  TAVO_HOST_DEVICE_MEMBER T eta(unsigned code, const T* z, int n_covariates) const {
    T sum = by_code[code];
    TAVO_UNROLL
    for (int c = 0; c < Most; ++c) {
      if (c < n_covariates) {
        sum += slopes[c] * z[c];
      }
    }
    return sum;
  }
};

// A function of the predictor. Without covariates there are no more values than codes.
template <typename T, int Order, int Most>
struct OfPredictor {
  ItemPredictor<T, Order, Most> predictor;

  // Turns the predictors by code into the values.
  template <typename Function>
  TAVO_HOST_DEVICE_MEMBER OfPredictor(const T* coefficients, int n_covariates, Function function)
      : predictor(coefficients, n_covariates) {
    if constexpr (Most == 0) {
      for (T& value : predictor.by_code) {
        value = function(value);
      }
    }
  }

  template <typename Function>
  TAVO_HOST_DEVICE_MEMBER T at(unsigned code, const T* z, int n_covariates, Function function) const {
    if constexpr (Most == 0) {
      return predictor.by_code[code];
    } else {
      return function(predictor.eta(code, z, n_covariates));
    }
  }
};

// Sums over the samples: plain ones of floats; of doubles in blocks, with compensation.
template <typename T, int Count>
struct ItemSums {
  T block[Count];
  T total[sizeof(T) == 4 ? 1 : Count];
  T lost[sizeof(T) == 4 ? 1 : Count];

  TAVO_HOST_DEVICE_MEMBER ItemSums() {
    TAVO_UNROLL
    for (int i = 0; i < Count; ++i) {
      block[i] = T(0);
      if constexpr (sizeof(T) == 8) {
        total[i] = lost[i] = T(0);
      }
    }
  }

  TAVO_HOST_DEVICE_MEMBER void end_block() {
    TAVO_UNROLL
    for (int i = 0; i < Count; ++i) {
      add_compensated(block[i], &total[i], &lost[i]);
      block[i] = T(0);
    }
  }

  TAVO_HOST_DEVICE_MEMBER T value(int i) const {
    if constexpr (sizeof(T) == 4) {
      return block[i];
    } else {
      return total[i] + lost[i];
    }
  }
};

// Calls each(sample, code, covariates of the sample, response) for every sample in file order.
template <typename T, int Order, int Count, typename Each>
TAVO_HOST_DEVICE void for_item_samples(const FitSamples<T>& in, const int* item, ItemSums<T, Count>& sums,
                                       Each each) {
  const int block = sizeof(T) == 4 ? in.n_samples : kFitBlockSamples;
  for (int begin = 0; begin < in.n_samples; begin += block) {
    const int end = in.n_samples - begin < block ? in.n_samples : begin + block;
    for (int i = begin; i < end; ++i) {
      each(item_code<Order>(in.genotypes, item, i), in.covariates + (size_t)i * (size_t)in.n_covariates,
           (T)in.response[i]);
    }
    if constexpr (sizeof(T) == 8) {
      sums.end_block();
    }
  }
}

// information[np][kFitStride], the sums of x_j x_k mu (1 - mu); where T is double also gradient[np], the sums
// of x_j (y - mu).
template <typename T, int Order, int Most>
TAVO_HOST_DEVICE void sum_information(const FitSamples<T>& in, const int* item, const T* coefficients,
                                      T* information, T* gradient) {
  constexpr int kColumns = genotype_columns(Order);
  constexpr int kProducts = dummy_products(Order);
  constexpr bool kWithGradient = sizeof(T) == 8;
  // The sums, one after the other: products of dummies; covariates with genotype columns; covariates with
  // covariates; the gradient.
  constexpr int kMixed = kProducts;
  constexpr int kSquares = kMixed + Most * kColumns;
  constexpr int kGradient = kSquares + Most * (Most + 1) / 2;
  constexpr int kCount = kGradient + (kWithGradient ? kColumns + Most : 0);
  const int n = in.n_covariates;
  const auto function = [](T eta) { return fit_probability(eta); };
  const OfPredictor<T, Order, Most> probability(coefficients, n, function);
  ItemSums<T, kCount> sums;
  for_item_samples<T, Order>(in, item, sums, [&](unsigned code, const T* z, T y) {
    const T mu = probability.at(code, z, n, function);
    const T complement = T(1) - mu;
    const T weight = mu * complement;
    TAVO_UNROLL
    for (int p = 0; p < kColumns; ++p) {
      sums.block[p] = code_has<Order>(code, p) ? sums.block[p] + weight : sums.block[p];
    }
    // The other products need a missing genotype.
    if (kProducts > kColumns && ((code & code >> 1) & 5u) != 0) {
      TAVO_UNROLL
      for (int p = kColumns; p < kProducts; ++p) {
        sums.block[p] = code_has<Order>(code, p) ? sums.block[p] + weight : sums.block[p];
      }
    }
    TAVO_UNROLL
    for (int c = 0; c < Most; ++c) {
      if (c < n) {
        const T mixed = z[c] * mu * complement;
        TAVO_UNROLL
        for (int j = 0; j < kColumns; ++j) {
          T& sum = sums.block[kMixed + c * kColumns + j];
          sum = code_has<Order>(code, j) ? sum + mixed : sum;
        }
        TAVO_UNROLL
        for (int d = 0; d <= c; ++d) {
          sums.block[kSquares + c * (c + 1) / 2 + d] += (z[c] * z[d]) * mu * complement;
        }
      }
    }
    if constexpr (kWithGradient) {
      const T residual = y - mu;
      TAVO_UNROLL
      for (int j = 0; j < kColumns; ++j) {
        T& sum = sums.block[kGradient + j];
        sum = code_has<Order>(code, j) ? sum + residual : sum;
      }
      TAVO_UNROLL
      for (int c = 0; c < Most; ++c) {
        if (c < n) {
          sums.block[kGradient + kColumns + c] += z[c] * residual;
        }
      }
    }
  });

  const auto put = [&](int j, int k, T value) {
    information[j * kFitStride + k] = information[k * kFitStride + j] = value;
  };
  TAVO_UNROLL
  for (int j = 0; j < kColumns; ++j) {
    TAVO_UNROLL
    for (int k = j; k < kColumns; ++k) {
      const unsigned product = product_dummies<Order>(j) | product_dummies<Order>(k);
      T value = T(0);
      TAVO_UNROLL
      for (int p = 0; p < kProducts; ++p) {
        value = product_dummies<Order>(p) == product ? sums.value(p) : value;
      }
      put(j, k, value);
    }
  }
  TAVO_UNROLL
  for (int c = 0; c < Most; ++c) {
    if (c < n) {
      TAVO_UNROLL
      for (int j = 0; j < kColumns; ++j) {
        put(j, kColumns + c, sums.value(kMixed + c * kColumns + j));
      }
      TAVO_UNROLL
      for (int d = 0; d <= c; ++d) {
        put(kColumns + d, kColumns + c, sums.value(kSquares + c * (c + 1) / 2 + d));
      }
    }
  }
  if constexpr (kWithGradient) {
    TAVO_UNROLL
    for (int j = 0; j < kColumns + Most; ++j) {
      gradient[j] = sums.value(kGradient + j);
    }
  }
}

// The Newton step of a fit in single precision: step[np], the sums of (sum_k inverse_jk x_k) (y - mu).
template <int Order, int Most>
TAVO_HOST_DEVICE void sum_step(const FitSamples<float>& in, const int* item, const float* coefficients,
                               const float* inverse, float* step) {
  constexpr int kColumns = genotype_columns(Order);
  const int n = in.n_covariates;
  // What the genotypes contribute to the inner sums.
  float projected_by_code[kItemCodes<Order>][kColumns + Most];
  for (unsigned code = 0; code < kItemCodes<Order>; ++code) {
    for (int j = 0; j < kColumns + n; ++j) {
      projected_by_code[code][j] = sum_of_columns<float, Order>(inverse + j * kFitStride, code);
    }
  }
  const auto function = [](float eta) { return fit_probability(eta); };
  const OfPredictor<float, Order, Most> probability(coefficients, n, function);
  ItemSums<float, kColumns + Most> sums;
  for_item_samples<float, Order>(in, item, sums, [&](unsigned code, const float* z, float y) {
    const float residual = y - probability.at(code, z, n, function);
    TAVO_UNROLL
    for (int j = 0; j < kColumns + Most; ++j) {
      if (j < kColumns + n) {
        float projected = projected_by_code[code][j];
        TAVO_UNROLL
        for (int c = 0; c < Most; ++c) {
          if (c < n) {
            projected += inverse[j * kFitStride + kColumns + c] * z[c];
          }
        }
        sums.block[j] += projected * residual;
      }
    }
  });
  TAVO_UNROLL
  for (int j = 0; j < kColumns + Most; ++j) {
    step[j] = sums.value(j);
  }
}

// The deviance: the sum of -2 log mu over y != 0 and of -2 log(1 - mu) over y != 1.
template <typename T, int Order, int Most>
TAVO_HOST_DEVICE T sum_deviance(const FitSamples<T>& in, const int* item, const T* coefficients) {
  const int n = in.n_covariates;
  const auto other = [](T eta) { return fit_minus_log(eta, true); };
  const auto one = [](T eta) { return fit_minus_log(eta, false); };
  const OfPredictor<T, Order, Most> of_others(coefficients, n, other);
  const OfPredictor<T, Order, Most> of_ones(coefficients, n, one);
  ItemSums<T, 1> sums;
  for_item_samples<T, Order>(in, item, sums, [&](unsigned code, const T* z, T y) {
    T share = T(0);
    if (T(1) - y != T(0)) {
      share = of_others.at(code, z, n, other);
    }
    if (y != T(0)) {
      share += of_ones.at(code, z, n, one);
    }
    sums.block[0] += T(2) * share;
  });
  return sums.value(0);
}
