// SPDX-License-Identifier: Apache-2.0
#include "cpu/item_lanes.h"

#include <algorithm>
#include <array>

#include "cpu/fit_kernels.h"
#include "lib/packed_genotypes.h"

namespace {

// Bits 0, 2, 4, ... of a word, put together.
uint32_t even_bits(uint32_t x) {
  x &= 0x55555555u;
  x = (x | x >> 1) & 0x33333333u;
  x = (x | x >> 2) & 0x0f0f0f0fu;
  x = (x | x >> 4) & 0x00ff00ffu;
  return (x | x >> 8) & 0x0000ffffu;
}

// The lanes whose item has the SNPs one after the other, in order.
bool are_neighbours(const int* items, size_t count) {
  for (size_t l = 1; l < count; ++l) {
    if (items[l] != items[0] + static_cast<int>(l)) {
      return false;
    }
  }
  return true;
}

}  // namespace

ItemLanes::ItemLanes(const Problem& problem, int order)
    : problem_(problem),
      order_(static_cast<size_t>(order)),
      dummies_(static_cast<size_t>(problem.n_samples) * 2 * order_) {}

void ItemLanes::take(const int* items, size_t count, size_t lanes) {
  exclusive_ = true;
  if (order_ == 1 && count == lanes && are_neighbours(items, count)) {
    take_neighbours(items[0], lanes);
  } else {
    take_any(items, count, lanes);
  }
}

// The words at place `word` of all rows.
const uint32_t* ItemLanes::words_at(size_t word) {
  const auto n_samples = static_cast<size_t>(problem_.n_samples);
  if (words_.empty() || word < first_word_ || word >= first_word_ + kWordsAtATime) {
    first_word_ = word;
    words_.resize(kWordsAtATime * n_samples);
    const size_t count = std::min(kWordsAtATime, static_cast<size_t>(problem_.words_per_row) - word);
    for (size_t i = 0; i < n_samples; ++i) {
      const uint32_t* row = problem_.row(i) + word;
      for (size_t w = 0; w < count; ++w) {
        words_[w * n_samples + i] = row[w];
      }
    }
  }
  return words_.data() + (word - first_word_) * n_samples;
}

// The codes of the lanes stand together in one word or two of each row.
void ItemLanes::take_neighbours(int first_snp, size_t lanes) {
  const auto first = static_cast<size_t>(first_snp);
  const size_t word = first / kGenotypesPerWord;
  const auto shift = static_cast<unsigned>(2 * (first % kGenotypesPerWord));
  const uint32_t used = (uint32_t{1} << lanes) - 1;
  const auto put = [&](size_t i, uint32_t codes) {
    const uint32_t low = even_bits(codes) & used;
    const uint32_t high = even_bits(codes >> 1) & used;
    dummies_[2 * i] = static_cast<uint16_t>(low & ~high);
    dummies_[2 * i + 1] = static_cast<uint16_t>(high & ~low);
  };
  if (shift + 2 * lanes <= 2 * static_cast<size_t>(kGenotypesPerWord)) {
    const uint32_t* words = words_at(word);
    for (size_t i = 0; i < static_cast<size_t>(problem_.n_samples); ++i) {
      put(i, words[i] >> shift);
    }
  } else {
    for (size_t i = 0; i < static_cast<size_t>(problem_.n_samples); ++i) {
      const uint32_t* row = problem_.row(i) + word;
      put(i, static_cast<uint32_t>((row[0] | static_cast<uint64_t>(row[1]) << 32) >> shift));
    }
  }
}

void ItemLanes::take_any(const int* items, size_t count, size_t lanes) {
  const size_t width = 2 * order_;
  std::array<size_t, 2 * kMaxFitLanes> snps{};
  for (size_t l = 0; l < lanes; ++l) {
    for (size_t j = 0; j < order_; ++j) {
      snps[l * order_ + j] = static_cast<size_t>(items[(l < count ? l : 0) * order_ + j]);
    }
  }
  for (size_t i = 0; i < static_cast<size_t>(problem_.n_samples); ++i) {
    const uint32_t* row = problem_.row(i);
    std::array<uint32_t, 4> bits{};
    for (size_t l = 0; l < lanes; ++l) {
      for (size_t j = 0; j < order_; ++j) {
        const unsigned code = packed_genotype(row, snps[l * order_ + j]);
        bits[2 * j] |= (code & 1u) << l;
        bits[2 * j + 1] |= (code >> 1) << l;
      }
    }
    if (order_ == 1) {
      const uint32_t missing = bits[0] & bits[1];
      bits[0] &= ~missing;
      bits[1] &= ~missing;
    } else {
      exclusive_ = exclusive_ && (bits[0] & bits[1]) == 0 && (bits[2] & bits[3]) == 0;
    }
    std::copy_n(bits.begin(), width, dummies_.begin() + static_cast<ptrdiff_t>(i * width));
  }
}

void ItemLanes::part(size_t first, size_t lanes, std::vector<uint16_t>* dummies) const {
  dummies->resize(dummies_.size());
  const uint32_t used = (uint32_t{1} << lanes) - 1;
  std::transform(dummies_.begin(), dummies_.end(), dummies->begin(),
                 [=](uint16_t bits) { return static_cast<uint16_t>(bits >> first & used); });
}

void ItemLanes::take_lane(const ItemLanes& source, size_t from, size_t to) {
  exclusive_ = exclusive_ && source.exclusive_;
  const auto others = static_cast<uint16_t>(~(1u << to));
  std::transform(dummies_.begin(), dummies_.end(), source.dummies_.begin(), dummies_.begin(),
                 [=](uint16_t mine, uint16_t theirs) {
                   return static_cast<uint16_t>((mine & others) | (theirs >> from & 1u) << to);
                 });
}
