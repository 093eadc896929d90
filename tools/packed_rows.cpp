// SPDX-License-Identifier: Apache-2.0
#include "tools/packed_rows.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr int64_t kLanes = kGenotypesPerWord;

// Transposes 16 words of 16 genotypes in place: swaps ever smaller squares that lie opposite each other
// across the diagonal, 8 x 8 genotypes first.
void transpose_square(uint32_t* words) {
  constexpr uint32_t kLowerHalves[] = {0x0000ffffu, 0x00ff00ffu, 0x0f0f0f0fu, 0x33333333u};
  const uint32_t* mask = kLowerHalves;
  for (unsigned size = 8; size > 0; size /= 2, ++mask) {
    for (unsigned i = 0; i < kLanes; i = (i + size + 1) & ~size) {
      const uint32_t swapped = ((words[i] >> (2 * size)) ^ words[i + size]) & *mask;
      words[i] ^= swapped << (2 * size);
      words[i + size] ^= swapped;
    }
  }
}

constexpr uint64_t kLowLanes64 = 0x5555555555555555u;

// Each byte: how many of its four lanes are 1. lanes: low bits only.
uint64_t lanes_per_byte(uint64_t lanes) {
  constexpr uint64_t kPairs = 0x3333333333333333u;
  constexpr uint64_t kNibbles = 0x0f0f0f0f0f0f0f0fu;
  const uint64_t pairs = (lanes & kPairs) + ((lanes >> 2) & kPairs);
  return (pairs + (pairs >> 4)) & kNibbles;
}

int64_t sum_of_bytes(uint64_t bytes) {
  constexpr uint64_t kEvenBytes = 0x00ff00ff00ff00ffu;
  const uint64_t sums = (bytes & kEvenBytes) + ((bytes >> 8) & kEvenBytes);
  return static_cast<int64_t>((sums * 0x0001000100010001u) >> 48);
}

// Up to 16 genotypes that begin anywhere in a row; those behind `count` are 0.
uint32_t lanes_from(const uint32_t* row, int64_t first, int64_t count) {
  const int64_t word = first / kLanes;
  const auto shift = static_cast<unsigned>(2 * (first % kLanes));
  uint32_t lanes = row[word] >> shift;
  if (shift != 0 && first % kLanes + count > kLanes) {
    lanes |= row[word + 1] << (32 - shift);
  }
  return count == kLanes ? lanes : lanes & ((1u << (2 * count)) - 1);
}

}  // namespace

// The portable population count is a table look-up per byte; here fields are added up instead, 32 genotypes
// at a time: pairs of bits into bytes, and the bytes of many words before they are summed.
void count_codes(const uint32_t* row, int64_t n, CodeCounts* counts) {
  constexpr int64_t kWordsPerSum = 126;  // a byte grows by at most 4 for every two words
  int64_t low = 0;
  int64_t high = 0;
  int64_t missing = 0;
  const int64_t n_whole = n / kLanes;
  for (int64_t i = 0; i < n_whole; i += kWordsPerSum) {
    const int64_t end = std::min(i + kWordsPerSum, n_whole);
    uint64_t low_bytes = 0;
    uint64_t high_bytes = 0;
    uint64_t missing_bytes = 0;
    for (int64_t k = i; k + 1 < end; k += 2) {
      uint64_t words = 0;
      std::memcpy(&words, row + k, sizeof(words));
      const uint64_t low_lanes = words & kLowLanes64;
      const uint64_t high_lanes = (words >> 1) & kLowLanes64;
      low_bytes += lanes_per_byte(low_lanes);
      high_bytes += lanes_per_byte(high_lanes);
      missing_bytes += lanes_per_byte(low_lanes & high_lanes);
    }
    low += sum_of_bytes(low_bytes);
    high += sum_of_bytes(high_bytes);
    missing += sum_of_bytes(missing_bytes);
  }
  // An odd whole word, then the part of a word.
  const auto count_word = [&](uint32_t word, uint32_t lanes) {
    low += std::popcount(word & lanes);
    high += std::popcount((word >> 1) & lanes);
    missing += std::popcount(word & (word >> 1) & lanes);
  };
  if (n_whole % 2 != 0) {
    count_word(row[n_whole - 1], kLowLanes);
  }
  if (n % kLanes != 0) {
    count_word(row[n_whole], last_lanes(n));
  }
  (*counts)[0] += n - low - high + missing;
  (*counts)[1] += low - missing;
  (*counts)[2] += high - missing;
  (*counts)[kMissingGenotype] += missing;
}

void count_missing(const uint32_t* row, int64_t n, std::span<uint32_t> missing) {
  const int64_t n_words = packed_words(n);
  for (int64_t i = 0; i < n_words; ++i) {
    uint32_t bits = row[i] & (row[i] >> 1) & (i + 1 == n_words ? last_lanes(n) : kLowLanes);
    for (; bits != 0; bits &= bits - 1) {
      ++missing[static_cast<size_t>(i * kLanes + std::countr_zero(bits) / 2)];
    }
  }
}

void count_other_allele(uint32_t* row, int64_t n) {
  const int64_t n_words = packed_words(n);
  for (int64_t i = 0; i < n_words; ++i) {
    const uint32_t lanes = i + 1 == n_words ? last_lanes(n) : kLowLanes;
    row[i] ^= (~row[i] & lanes) << 1;
  }
}

void from_plink_codes(uint32_t* row, int64_t n) {
  const int64_t n_words = packed_words(n);
  for (int64_t i = 0; i < n_words; ++i) {
    const uint32_t lanes = i + 1 == n_words ? last_lanes(n) : kLowLanes;
    const uint32_t high = row[i] >> 1;
    row[i] = ((~high & lanes) << 1) | ((high ^ row[i]) & lanes);
  }
}

void to_plink_codes(uint32_t* row, int64_t n) {
  const int64_t n_words = packed_words(n);
  for (int64_t i = 0; i < n_words; ++i) {
    const uint32_t lanes = i + 1 == n_words ? last_lanes(n) : kLowLanes;
    const uint32_t not_high = ~(row[i] >> 1) & lanes;
    row[i] = (not_high << 1) | ((not_high ^ row[i]) & lanes);
  }
}

void transpose_packed(const uint32_t* in, int64_t in_stride, int64_t n_rows, int64_t n_columns, uint32_t* out,
                      int64_t out_stride) {
  // Squares of 256 x 256 genotypes stay in the fastest cache: a cache line holds 256 genotypes.
  constexpr int64_t kTile = 256;
  for (int64_t row_tile = 0; row_tile < n_rows; row_tile += kTile) {
    const int64_t row_end = std::min(row_tile + kTile, n_rows);
    for (int64_t column_tile = 0; column_tile < n_columns; column_tile += kTile) {
      const int64_t column_end = std::min(column_tile + kTile, n_columns);
      for (int64_t r = row_tile; r < row_end; r += kLanes) {
        const int64_t height = std::min(kLanes, row_end - r);
        for (int64_t c = column_tile; c < column_end; c += kLanes) {
          const int64_t width = std::min(kLanes, column_end - c);
          uint32_t square[kLanes] = {};
          for (int64_t i = 0; i < height; ++i) {
            square[i] = in[(r + i) * in_stride + c / kLanes];
          }
          transpose_square(square);
          for (int64_t i = 0; i < width; ++i) {
            out[(c + i) * out_stride + r / kLanes] = square[i];
          }
        }
      }
    }
  }
}

LaneSelection::LaneSelection(std::span<const uint32_t> kept, int64_t n) {
  for (const uint32_t lane : kept) {
    if (!runs_.empty() && runs_.back().first + runs_.back().count == lane) {
      ++runs_.back().count;
    } else {
      runs_.push_back({lane, 1});
    }
  }
  n_kept_ = static_cast<int64_t>(kept.size());
  takes_all_ = n_kept_ == n;
}

// A word is written only when 16 genotypes of the input are used up for it, so it never lies behind the place
// that is read next.
void LaneSelection::apply(const uint32_t* in, uint32_t* out) const {
  if (takes_all_) {
    std::memmove(out, in, static_cast<size_t>(packed_words(n_kept_)) * sizeof(uint32_t));
    return;
  }
  uint64_t pending = 0;
  int64_t n_pending = 0;
  for (const Run& run : runs_) {
    for (int64_t done = 0; done < run.count;) {
      const int64_t count = std::min(kLanes, run.count - done);
      pending |= static_cast<uint64_t>(lanes_from(in, run.first + done, count)) << (2 * n_pending);
      n_pending += count;
      done += count;
      if (n_pending >= kLanes) {
        *out++ = static_cast<uint32_t>(pending);
        pending >>= 32;
        n_pending -= kLanes;
      }
    }
  }
  if (n_pending > 0) {
    *out = static_cast<uint32_t>(pending);
  }
}
