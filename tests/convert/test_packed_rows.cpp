// SPDX-License-Identifier: Apache-2.0
//
// Work on packed rows against the same work genotype by genotype.
#include "tools/packed_rows.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Codes = std::vector<uint8_t>;

Codes random_codes(std::mt19937& random, int64_t n) {
  Codes codes(static_cast<size_t>(n));
  for (uint8_t& code : codes) {
    code = static_cast<uint8_t>(random() % 4);
  }
  return codes;
}

// The row with `rest` in the bits behind the last genotype.
std::vector<uint32_t> packed(const Codes& codes, uint32_t rest = 0) {
  std::vector<uint32_t> row((codes.size() + 15) / 16, 0);
  for (size_t i = 0; i < row.size() * 16; ++i) {
    row[i / 16] |= (i < codes.size() ? codes[i] : rest) << (2 * (i % 16));
  }
  return row;
}

const std::vector<int64_t> kSizes = {1,  2,  3,  4,  5,   15,  16,  17,   31,
                                     32, 33, 48, 64, 255, 256, 257, 1000, 5000};

TEST(PackedRows, CountsWhateverStandsBehindTheRow) {
  std::mt19937 random(1);
  for (const int64_t n : kSizes) {
    const Codes codes = random_codes(random, n);
    CodeCounts expected{};
    std::vector<uint32_t> expected_missing(codes.size(), 5);
    for (size_t i = 0; i < codes.size(); ++i) {
      ++expected[codes[i]];
      expected_missing[i] += codes[i] == 3 ? 1 : 0;
    }
    for (uint32_t rest = 0; rest < 4; ++rest) {
      CodeCounts counts{};
      count_codes(packed(codes, rest).data(), n, &counts);
      EXPECT_EQ(counts, expected) << n;
      std::vector<uint32_t> missing(codes.size(), 5);
      count_missing(packed(codes, rest).data(), n, missing);
      EXPECT_EQ(missing, expected_missing) << n;
    }
  }
}

// A byte of the sums holds the most when every genotype has the same code.
TEST(PackedRows, CountsRowsOfOneCode) {
  for (uint8_t code = 0; code < 4; ++code) {
    CodeCounts expected{};
    expected[code] = 100001;
    CodeCounts counts{};
    count_codes(packed(Codes(100001, code)).data(), 100001, &counts);
    EXPECT_EQ(counts, expected);
  }
}

TEST(PackedRows, RecodesAndClearsWhatStandsBehindTheRow) {
  constexpr uint8_t kFromPlink[] = {2, 3, 1, 0};
  constexpr uint8_t kOther[] = {2, 1, 0, 3};
  std::mt19937 random(2);
  for (const int64_t n : kSizes) {
    const Codes codes = random_codes(random, n);
    Codes copies = codes;
    Codes other = codes;
    for (size_t i = 0; i < codes.size(); ++i) {
      copies[i] = kFromPlink[codes[i]];
      other[i] = kOther[codes[i]];
    }
    std::vector<uint32_t> row = packed(codes, 2);
    from_plink_codes(row.data(), n);
    EXPECT_EQ(row, packed(copies)) << n;
    to_plink_codes(row.data(), n);
    EXPECT_EQ(row, packed(codes)) << n;
    count_other_allele(row.data(), n);
    EXPECT_EQ(row, packed(other)) << n;
  }
}

TEST(PackedRows, TransposesEverySize) {
  std::mt19937 random(3);
  for (const int64_t n_rows : {1, 2, 15, 16, 17, 33, 256, 257, 300}) {
    for (const int64_t n_columns : {1, 3, 15, 16, 17, 40, 255, 256, 257, 530}) {
      std::vector<Codes> rows;
      std::vector<Codes> columns(static_cast<size_t>(n_columns));
      // Rows with some room behind them, which the transposition must neither read nor write.
      const int64_t in_stride = packed_words(n_columns) + 1;
      const int64_t out_stride = packed_words(n_rows) + 2;
      std::vector<uint32_t> in(static_cast<size_t>(n_rows * in_stride), 0xffffffffu);
      for (int64_t r = 0; r < n_rows; ++r) {
        rows.push_back(random_codes(random, n_columns));
        const std::vector<uint32_t> row = packed(rows.back(), 1);
        std::copy(row.begin(), row.end(), in.begin() + r * in_stride);
        for (int64_t c = 0; c < n_columns; ++c) {
          columns[static_cast<size_t>(c)].push_back(rows.back()[static_cast<size_t>(c)]);
        }
      }
      constexpr uint32_t kUntouched = 0xabcdabcdu;
      std::vector<uint32_t> expected(static_cast<size_t>(n_columns * out_stride), kUntouched);
      for (int64_t c = 0; c < n_columns; ++c) {
        const std::vector<uint32_t> column = packed(columns[static_cast<size_t>(c)]);
        std::copy(column.begin(), column.end(), expected.begin() + c * out_stride);
      }
      std::vector<uint32_t> out(expected.size(), kUntouched);
      transpose_packed(in.data(), in_stride, n_rows, n_columns, out.data(), out_stride);
      EXPECT_EQ(out, expected) << n_rows << " x " << n_columns;
    }
  }
}

TEST(LaneSelection, TakesAnyGenotypesAlsoInPlace) {
  std::mt19937 random(4);
  for (const int64_t n : kSizes) {
    for (const unsigned share : {1u, 5u, 9u, 10u}) {
      const Codes codes = random_codes(random, n);
      std::vector<uint32_t> kept;
      Codes expected;
      for (uint32_t i = 0; i < codes.size(); ++i) {
        if (random() % 10 < share) {
          kept.push_back(i);
          expected.push_back(codes[i]);
        }
      }
      const LaneSelection lanes(kept, n);
      EXPECT_EQ(lanes.size(), static_cast<int64_t>(kept.size()));
      std::vector<uint32_t> row = packed(codes);
      std::vector<uint32_t> out(packed(expected).size(), 0xffffffffu);
      lanes.apply(row.data(), out.data());
      EXPECT_EQ(out, packed(expected)) << n;
      lanes.apply(row.data(), row.data());
      row.resize(out.size());
      EXPECT_EQ(row, packed(expected)) << n;
    }
  }
}

}  // namespace
