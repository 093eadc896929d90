// SPDX-License-Identifier: Apache-2.0
//
// What a warp of the fused search does with the words of a tile: the counts of 32 rows by 32 columns, made by
// population counts or by the matrix units. All three ways hold the counts in the same elements of the same
// lanes, those of the matrix instructions' accumulators.
//
// A product asks its warp for two things: each(f) runs f(lane, registers) for every lane, and multiply_*
// issues one matrix instruction. On the GPU a thread is its lane (tile_block.cuh); on the host a loop and the
// instructions' definition (tests/cuda/host_block.h) take their place.
#pragma once

#include "cuda/tile_shape.h"

// Of a warp's half tile: 8-row groups, 16-row and 8-column tiles of the matrix instructions.
constexpr int kWarpRows = 32;
constexpr int kRowGroups = kWarpRows / 8;
constexpr int kRowTiles = kWarpRows / 16;
constexpr int kColumnTiles = kTileColumns / 8;

// Columns whose words a lane reads at most.
constexpr int kMostLaneColumns = 8;

// The registers of one lane, lane = 4 * group + member. Rows 8 * i + group of the half tile are its own, and
// element e of tile (m, j) counts row 16 * m + 8 * (e / 2) + group, column 8 * j + 2 * member + e % 2.
struct TileLane {
  // Offsets of its planes from the start of a chunk: of the prefix's SNPs by row, and of the last SNPs.
  uint32_t row_at[kRowGroups][kMaxPrefix];
  uint32_t column_at[kMostLaneColumns];
  // Words of rows and columns: operands of the matrix instructions, fragment by fragment.
  uint32_t rows[kRowTiles][4];
  uint32_t columns[kColumnTiles][2];
  uint32_t row_words[kRowGroups];
  uint32_t column_words[kMostLaneColumns];
  int32_t sums[kRowTiles][kColumnTiles][4];
};

TAVO_HOST_DEVICE int lane_group(int lane) {
  return lane >> 2;
}
TAVO_HOST_DEVICE int lane_member(int lane) {
  return lane & 3;
}

// Reads a lane's words; `at` is the start of the chunk and `word` the word of it.
template <int kOrder, int kColumns>
TAVO_HOST_DEVICE void read_words(const uint32_t* at, int word, TileLane& lane) {
  TAVO_UNROLL
  for (int i = 0; i < kRowGroups; ++i) {
    uint32_t joined = at[lane.row_at[i][0] + (uint32_t)word];
    if constexpr (kOrder > 2) {
      joined &= at[lane.row_at[i][1] + (uint32_t)word];
    }
    if constexpr (kOrder > 3) {
      joined &= at[lane.row_at[i][2] + (uint32_t)word];
    }
    lane.row_words[i] = joined;
  }
  TAVO_UNROLL
  for (int c = 0; c < kColumns; ++c) {
    lane.column_words[c] = at[lane.column_at[c] + (uint32_t)word];
  }
}

// AND and population count: every lane counts all words of its rows and columns.
struct PopcountProduct {
  static constexpr int kLaneColumns = 8;
  TAVO_HOST_DEVICE_MEMBER static int column(int lane, int c) {
    return 8 * (c / 2) + 2 * lane_member(lane) + c % 2;
  }
  TAVO_HOST_DEVICE_MEMBER static uint32_t count(int32_t sum) { return (uint32_t)sum; }

  template <int kOrder, typename Warp>
  TAVO_HOST_DEVICE_MEMBER static void add_chunks(Warp& warp, const uint32_t* chunk, size_t stride, int n) {
    for (; n > 0; --n, chunk += stride) {
      // Not unrolled: the words of the next step would not find registers.
      TAVO_NO_UNROLL
      for (int word = 0; word < kWordsPerChunk; ++word) {
        warp.each([&](int, TileLane& lane) {
          read_words<kOrder, kLaneColumns>(chunk, word, lane);
          TAVO_UNROLL
          for (int row = 0; row < kRowGroups; ++row) {
            TAVO_UNROLL
            for (int c = 0; c < kLaneColumns; ++c) {
              lane.sums[row / 2][c / 2][2 * (row % 2) + c % 2] +=
                  count_bits(lane.row_words[row] & lane.column_words[c]);
            }
          }
        });
      }
    }
  }
};

// The matrix units' binary AND and population count. Member t of a group holds word t of the chunk: bits
// 32 * t to 32 * t + 31 of a row or column.
struct BinaryProduct {
  static constexpr int kLaneColumns = 4;
  TAVO_HOST_DEVICE_MEMBER static int column(int lane, int c) { return 8 * c + lane_group(lane); }
  TAVO_HOST_DEVICE_MEMBER static uint32_t count(int32_t sum) { return (uint32_t)sum; }

  // Words of one chunk, to the operands' part for it: 128 bits of the 256.
  template <int kOrder, typename Warp>
  TAVO_HOST_DEVICE_MEMBER static void read_operands(Warp& warp, const uint32_t* chunk, int part) {
    warp.each([&](int index, TileLane& lane) {
      read_words<kOrder, kLaneColumns>(chunk, lane_member(index), lane);
      TAVO_UNROLL
      for (int m = 0; m < kRowTiles; ++m) {
        lane.rows[m][2 * part] = lane.row_words[2 * m];
        lane.rows[m][2 * part + 1] = lane.row_words[2 * m + 1];
      }
      TAVO_UNROLL
      for (int j = 0; j < kColumnTiles; ++j) {
        lane.columns[j][part] = lane.column_words[j];
      }
    });
  }

  // Two chunks by one instruction, a last one by a shorter one.
  template <int kOrder, typename Warp>
  TAVO_HOST_DEVICE_MEMBER static void add_chunks(Warp& warp, const uint32_t* chunk, size_t stride, int n) {
    for (; n > 1; n -= 2, chunk += 2 * stride) {
      read_operands<kOrder>(warp, chunk, 0);
      read_operands<kOrder>(warp, chunk + stride, 1);
      TAVO_UNROLL
      for (int m = 0; m < kRowTiles; ++m) {
        TAVO_UNROLL
        for (int j = 0; j < kColumnTiles; ++j) {
          warp.multiply_b1_256(m, j);
        }
      }
    }
    if (n > 0) {
      read_operands<kOrder>(warp, chunk, 0);
      TAVO_UNROLL
      for (int m = 0; m < kRowTiles; ++m) {
        TAVO_UNROLL
        for (int j = 0; j < kColumnTiles; ++j) {
          warp.multiply_b1_128(m, j);
        }
      }
    }
  }
};

// The matrix units' products of bytes. A word of 32 samples becomes eight registers of four bytes without a
// shift: register r of a row has bit r of each byte, so bytes are 0 or 2^r, and that of a column, whose bytes
// are turned round, bit 7 - r. Every product of ones is 2^7, and the sums are counts times 128.
struct ByteProduct {
  static constexpr int kLaneColumns = 4;
  TAVO_HOST_DEVICE_MEMBER static int column(int lane, int c) { return 8 * c + lane_group(lane); }
  TAVO_HOST_DEVICE_MEMBER static uint32_t count(int32_t sum) { return (uint32_t)sum >> 7; }

  // Each byte's bits in reverse.
  TAVO_HOST_DEVICE_MEMBER static uint32_t reversed_bytes(uint32_t word) {
#ifdef __CUDA_ARCH__
    return __byte_perm(__brev(word), 0, 0x0123);
#else
    word = (word >> 1 & 0x55555555u) | (word & 0x55555555u) << 1;
    word = (word >> 2 & 0x33333333u) | (word & 0x33333333u) << 2;
    return (word >> 4 & 0x0f0f0f0fu) | (word & 0x0f0f0f0fu) << 4;
#endif
  }

  // Step r of four: bits r and r + 4 of the rows' bytes, the two halves of the instruction's 32 products.
  TAVO_HOST_DEVICE_MEMBER static void spread(int r, TileLane& lane) {
    TAVO_UNROLL
    for (int i = 0; i < kRowGroups; ++i) {
      lane.rows[i / 2][i % 2] = lane.row_words[i] & 0x01010101u << r;
      lane.rows[i / 2][2 + i % 2] = lane.row_words[i] & 0x10101010u << r;
    }
    TAVO_UNROLL
    for (int j = 0; j < kColumnTiles; ++j) {
      lane.columns[j][0] = lane.column_words[j] & 0x80808080u >> r;
      lane.columns[j][1] = lane.column_words[j] & 0x08080808u >> r;
    }
  }

  template <int kOrder, typename Warp>
  TAVO_HOST_DEVICE_MEMBER static void add_chunks(Warp& warp, const uint32_t* chunk, size_t stride, int n) {
    for (; n > 0; --n, chunk += stride) {
      warp.each([&](int index, TileLane& lane) {
        read_words<kOrder, kLaneColumns>(chunk, lane_member(index), lane);
        TAVO_UNROLL
        for (int j = 0; j < kColumnTiles; ++j) {
          lane.column_words[j] = reversed_bytes(lane.column_words[j]);
        }
      });
      TAVO_UNROLL
      for (int r = 0; r < 4; ++r) {
        warp.each([&](int, TileLane& lane) { spread(r, lane); });
        TAVO_UNROLL
        for (int m = 0; m < kRowTiles; ++m) {
          TAVO_UNROLL
          for (int j = 0; j < kColumnTiles; ++j) {
            warp.multiply_u8(m, j);
          }
        }
      }
    }
  }
};
