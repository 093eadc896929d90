// SPDX-License-Identifier: Apache-2.0
#include "tools/simulate_random.h"

#include <cmath>

#include "lib/double_math.h"

namespace {

// The finalizer of splitmix64 (Steele, Lea and Flood 2014): neighbouring numbers become unrelated ones.
uint64_t mixed(uint64_t x) {
  x += 0x9e3779b97f4a7c15u;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
  return x ^ (x >> 31);
}

// The natural logarithm of x in (0, 1]: x = 2^e (1 + t) exactly, with t in [0, 1).
double logarithm(double x) {
  int e = 0;
  const double t = 2.0 * std::frexp(x, &e) - 1.0;
  return static_cast<double>(e - 1) * (kLn2High + kLn2Low) + tavo_log1p_unit(t);
}

}  // namespace

RandomStream::RandomStream(uint64_t seed, Purpose purpose, uint64_t number)
    : engine_(mixed(mixed(mixed(seed) ^ static_cast<uint64_t>(purpose)) ^ number)) {}

uint64_t RandomStream::below(uint64_t n) {
  // What is left of the range of 64 bits after whole multiples of n would favour small results: drawn again.
  const uint64_t excess = (UINT64_MAX % n + 1) % n;
  uint64_t x = engine_();
  while (x > UINT64_MAX - excess) {
    x = engine_();
  }
  return x % n;
}

// The polar method (Marsaglia and Bray 1964): two normals from a point of the unit disc.
double RandomStream::normal() {
  if (has_spare_) {
    has_spare_ = false;
    return spare_;
  }
  double x = 0.0;
  double y = 0.0;
  double square = 0.0;
  do {
    x = 2.0 * uniform() - 1.0;
    y = 2.0 * uniform() - 1.0;
    square = x * x + y * y;
  } while (square >= 1.0 || square == 0.0);
  const double factor = std::sqrt(-2.0 * logarithm(square) / square);
  spare_ = y * factor;
  has_spare_ = true;
  return x * factor;
}
