// SPDX-License-Identifier: Apache-2.0
//
// The lists of a prefix: for each piece, pattern and class the samples that have the pattern. Only static
// functions, see bit_lanes.h.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "cpu/row_filter.h"
#include "cpu/set_bits.h"

namespace {

constexpr size_t kSamplesPerChunk = 64;

#ifdef __AVX512VBMI2__

// Writes the places of the bits, as offsets of samples, and up to 64 in all. first: of bit 0.
inline size_t write_places(uint64_t bits, size_t first, uint16_t* out) {
  const size_t n = ones(bits);
  const __m512i places = set_bits(bits);
  const __m512i start = _mm512_set1_epi16(static_cast<short>(first));
  const auto offsets = [&](__m256i bytes) {
    static_assert(kSampleBytes == size_t{1} << 7);
    return _mm512_slli_epi16(_mm512_add_epi16(_mm512_cvtepu8_epi16(bytes), start), 7);
  };
  _mm512_storeu_si512(out, offsets(_mm512_castsi512_si256(places)));
  if (n > 32) {
    _mm512_storeu_si512(out + 32, offsets(_mm512_extracti64x4_epi64(places, 1)));
  }
  return n;
}

#else

inline size_t write_places(uint64_t bits, size_t first, uint16_t* out) {
  const uint16_t* const start = out;
  for (; bits != 0; bits &= bits - 1) {
    *out++ = static_cast<uint16_t>((first + static_cast<size_t>(__builtin_ctzll(bits))) * kSampleBytes);
  }
  return static_cast<size_t>(out - start);
}

#endif

inline uint64_t plane_bits(const uint8_t* plane, size_t byte) {
  uint64_t bits;
  memcpy(&bits, plane + byte, sizeof(bits));
  return bits;
}

// The samples of a prefix that have a pattern.
class PatternBits {
 public:
  PatternBits(const RowListInput& in, size_t pattern) : n_(in.n_snps) {
    for (size_t j = 0; j < n_; ++j, pattern /= 3) {
      planes_[j] = in.planes[j] + pattern % 3 * in.plane_bytes;
    }
  }

  // 64 samples from a byte on.
  uint64_t at(size_t byte) const {
    uint64_t bits = ~uint64_t{0};
    for (size_t j = 0; j < n_; ++j) {
      bits &= plane_bits(planes_[j], byte);
    }
    return bits;
  }

 private:
  const size_t n_;
  const uint8_t* planes_[8];
};

// Those without a genotype at one of the SNPs.
class MissingBits {
 public:
  explicit MissingBits(const RowListInput& in) : in_(in) {}

  uint64_t at(size_t byte) const {
    uint64_t present = ~uint64_t{0};
    for (size_t j = 0; j < in_.n_snps; ++j) {
      const uint8_t* planes = in_.planes[j];
      present &= plane_bits(planes, byte) | plane_bits(planes + in_.plane_bytes, byte) |
                 plane_bits(planes + 2 * in_.plane_bytes, byte);
    }
    return ~present;
  }

 private:
  const RowListInput& in_;
};

template <class Bits>
size_t list_part(const Bits& pattern, const RowPart& part, uint16_t* out) {
  size_t n = 0;
  for (size_t done = 0; done < part.n; done += kSamplesPerChunk) {
    uint64_t bits = pattern.at(part.first_byte + done / 8);
    if (part.n - done < kSamplesPerChunk) {
      bits &= (uint64_t{1} << (part.n - done)) - 1;
    }
    n += write_places(bits, part.first_place + done, out + n);
  }
  return n;
}

// Makes the lists of the pieces, one after another.
class ListMaker {
 public:
  ListMaker(RowValues form, const RowListInput& in)
      : in_(in), form_(form), lists_(in.lists), counts_(in.counts) {}

  // Of the samples with a pattern: one list of both classes, or one of each.
  template <class Bits>
  void add(size_t piece, const Bits& pattern) {
    const RowPart* parts = in_.parts + 2 * piece;
    const auto nobody = static_cast<uint16_t>((size_t{parts[0].n} + parts[1].n) * kSampleBytes);
    const size_t plus = in_.cases_plus ? 1 : 0;
    size_t start = at_;
    for (size_t i = 0; i < 2; ++i) {
      const size_t label = i == 0 ? plus : 1 - plus;
      const size_t n = list_part(pattern, parts[label], in_.samples + at_);
      counts_[label] = static_cast<uint16_t>(n);
      at_ += n;
      if (form_ == RowValues::kBytes && i == 0) {
        continue;
      }
      while ((at_ - start) % kListStep != 0) {
        in_.samples[at_++] = nobody;
      }
      *lists_++ = {static_cast<uint32_t>(start), static_cast<uint16_t>(at_ - start),
                   static_cast<uint16_t>(i == 0 ? 0 : n)};
      start = at_;
    }
    counts_ += 2;
  }

 private:
  const RowListInput& in_;
  const RowValues form_;
  RowList* lists_;
  uint16_t* counts_;
  size_t at_ = 0;
};

inline void list(RowValues form, const RowListInput& in) {
  ListMaker maker(form, in);
  for (size_t piece = 0; piece < in.n_pieces; ++piece) {
    for (size_t p = 1; p < in.n_patterns; ++p) {
      maker.add(piece, PatternBits(in, p));
    }
    if (in.list_missing) {
      maker.add(piece, MissingBits(in));
    }
  }
}

}  // namespace
