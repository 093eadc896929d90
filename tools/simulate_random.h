// SPDX-License-Identifier: Apache-2.0
//
// Random numbers of simulated data: the same for a seed on every platform. The engine is fixed to the bit by
// the language; the distributions of the standard library are not, so these are our own, without a
// mathematical library.
#pragma once

#include <cstdint>
#include <random>

class RandomStream {
 public:
  // What a stream is for. Streams of different purpose or number are independent of each other.
  enum class Purpose : uint64_t { kStatus = 1, kPositions, kCells, kModelMissing, kBackground, kCovariates };

  RandomStream(uint64_t seed, Purpose purpose, uint64_t number = 0);

  // 64 random bits.
  uint64_t bits() { return engine_(); }

  // Uniform in [0, 1): a multiple of 2^-53.
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }

  // An integer from 0 to n - 1, each as likely as the others. n >= 1.
  uint64_t below(uint64_t n);

  // Standard normal.
  double normal();

 private:
  std::mt19937_64 engine_;
  double spare_ = 0.0;
  bool has_spare_ = false;
};
