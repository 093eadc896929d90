// SPDX-License-Identifier: Apache-2.0
//
// The products of the fused search, each with the matrix instructions by their definition, against counting
// bit by bit.
#include <gtest/gtest.h>

#include <random>

#include "tests/cuda/host_block.h"

namespace {

using tavo_test::HostWarp;

constexpr int kColumnsOfPlanes = 72;  // SNPs, rows and columns of the tile among them

// The lane that owns an entry of a half tile, and its element, by the definition of the accumulators.
int32_t sum_of(const HostWarp& warp, int row, int column) {
  const TileLane& lane = warp.lane(4 * (row % 8) + column % 8 / 2);
  return lane.sums[row / 16][column / 8][2 * (row % 16 / 8) + column % 2];
}

template <typename Product, int kOrder>
void expect_counts(std::mt19937& random, int n_chunks) {
  const size_t stride = chunk_stride(kColumnsOfPlanes);
  std::vector<uint32_t> words(stride * static_cast<size_t>(n_chunks));
  for (uint32_t& word : words) {
    // Sparse, dense and full words.
    const unsigned kind = random() % 8;
    word = kind == 0 ? 0 : kind == 1 ? ~0u : static_cast<uint32_t>(random());
  }
  const auto offset = [](int plane) { return static_cast<uint32_t>(plane * kWordsPerChunk); };
  HostWarp warp;
  warp.each([&](int index, TileLane& lane) {
    for (int i = 0; i < kRowGroups; ++i) {
      for (int j = 0; j < kMaxPrefix; ++j) {
        lane.row_at[i][j] = offset(3 * (8 * i + lane_group(index)) + j);
      }
    }
    for (int c = 0; c < Product::kLaneColumns; ++c) {
      lane.column_at[c] = offset(100 + 2 * Product::column(index, c));
    }
    for (auto& tile : lane.sums) {
      for (auto& sums : tile) {
        for (int32_t& sum : sums) {
          sum = 0;
        }
      }
    }
  });
  Product::template add_chunks<kOrder>(warp, words.data(), stride, n_chunks);
  for (int row = 0; row < kWarpRows; ++row) {
    for (int column = 0; column < kTileColumns; ++column) {
      uint32_t expected = 0;
      for (int chunk = 0; chunk < n_chunks; ++chunk) {
        const uint32_t* at = words.data() + static_cast<size_t>(chunk) * stride;
        for (uint32_t w = 0; w < kWordsPerChunk; ++w) {
          uint32_t both = at[offset(100 + 2 * column) + w];
          for (int j = 0; j + 1 < kOrder; ++j) {
            both &= at[offset(3 * row + j) + w];
          }
          expected += static_cast<uint32_t>(__builtin_popcount(both));
        }
      }
      ASSERT_EQ(Product::count(sum_of(warp, row, column)), expected)
          << "row " << row << ", column " << column << ", chunks " << n_chunks;
    }
  }
}

template <typename Product>
class TileProducts : public testing::Test {};
using Products = testing::Types<PopcountProduct, BinaryProduct, ByteProduct>;
TYPED_TEST_SUITE(TileProducts, Products);

TYPED_TEST(TileProducts, CountWhatRowsAndColumnsShare) {
  std::mt19937 random(61);
  for (const int n_chunks : {0, 1, 2, 3, 4, 7}) {
    expect_counts<TypeParam, 2>(random, n_chunks);
    expect_counts<TypeParam, 3>(random, n_chunks);
    expect_counts<TypeParam, 4>(random, n_chunks);
  }
}

TEST(ByteProduct, TurnsTheBitsOfEachByte) {
  EXPECT_EQ(ByteProduct::reversed_bytes(0x01020480u), 0x80402001u);
  EXPECT_EQ(ByteProduct::reversed_bytes(0xf1000035u), 0x8f0000acu);
}

// The longest segment.
TEST(ByteProduct, SumsDoNotOverflow) {
  EXPECT_EQ(ByteProduct::count(128 * kMostTileClass), static_cast<uint32_t>(kMostTileClass));
}

}  // namespace
