// SPDX-License-Identifier: Apache-2.0
//
// Bits of words: counting, gathering and transposing them, for processors without instructions for it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Set bits of a word.
constexpr uint32_t ones_of(uint64_t bits) {
  bits -= bits >> 1 & 0x5555555555555555;
  bits = (bits & 0x3333333333333333) + (bits >> 2 & 0x3333333333333333);
  bits = (bits + (bits >> 4)) & 0x0f0f0f0f0f0f0f0f;
  return static_cast<uint32_t>(bits * 0x0101010101010101 >> 56);
}

// The even bits of a word, side by side.
constexpr uint32_t even_bits(uint64_t word) {
  word &= 0x5555555555555555;
  word = (word | word >> 1) & 0x3333333333333333;
  word = (word | word >> 2) & 0x0f0f0f0f0f0f0f0f;
  word = (word | word >> 4) & 0x00ff00ff00ff00ff;
  word = (word | word >> 8) & 0x0000ffff0000ffff;
  return static_cast<uint32_t>(word | word >> 16);
}

// Nibble j of the 16 bits i changes places with nibble i of the 16 bits j.
constexpr uint64_t transpose_nibbles(uint64_t word) {
  uint64_t change = (word ^ word >> 12) & 0x0000f0f00000f0f0;
  word ^= change ^ change << 12;
  change = (word ^ word >> 24) & 0x00000000ff00ff00;
  return word ^ change ^ change << 24;
}

using BitSquare = std::array<uint64_t, 64>;

// Bit j of word i becomes bit i of word j: ever smaller squares change places.
constexpr void transpose(BitSquare& square) {
  uint64_t mask = 0x00000000ffffffff;
  for (size_t size = 32; size > 0; size /= 2, mask ^= mask << size) {
    for (size_t first = 0; first < square.size(); first += 2 * size) {
      for (size_t i = first; i < first + size; ++i) {
        const uint64_t change = (square[i] >> size ^ square[i + size]) & mask;
        square[i] ^= change << size;
        square[i + size] ^= change;
      }
    }
  }
}
