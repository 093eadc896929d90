// SPDX-License-Identifier: Apache-2.0
//
// The matrix instructions of cuda/matrix_instructions.cuh by their definition: which lane's register holds
// which element, for all 32 lanes of a warp. lane = 4 * group + member.
//   sums, 16 x 8: element e of a lane is row group + 8 * (e / 2), column 2 * member + e % 2.
//   rows, 16 x k: registers 0 and 1 hold rows group and group + 8 of the first half of k, 2 and 3 of the
//   second;
//     within a half, a member holds the elements from member * (k per register) on.
//   columns, k x 8: register 0 holds column `group` of the first half of k, 1 of the second; members alike.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo_test {

// Adds product(row register, column register) over the registers that meet in an element. halves: of k.
template <typename Lanes, typename Product>
void multiply_fragments(Lanes& lanes, int m, int j, int halves, Product product) {
  for (int row = 0; row < 16; ++row) {
    for (int column = 0; column < 8; ++column) {
      int32_t sum = 0;
      for (int half = 0; half < halves; ++half) {
        for (int member = 0; member < 4; ++member) {
          const uint32_t of_row = lanes[4 * (row % 8) + member].rows[m][2 * half + row / 8];
          const uint32_t of_column = lanes[4 * column + member].columns[j][half];
          // No element of either is negative: nothing times anything is nothing.
          if (of_row != 0 && of_column != 0) {
            sum += product(of_row, of_column);
          }
        }
      }
      lanes[4 * (row % 8) + column / 2].sums[m][j][2 * (row / 8) + column % 2] += sum;
    }
  }
}

inline int32_t product_of_bits(uint32_t a, uint32_t b) {
  return __builtin_popcount(a & b);
}

inline int32_t product_of_bytes(uint32_t a, uint32_t b) {
  int32_t sum = 0;
  for (int byte = 0; byte < 4; ++byte) {
    sum += static_cast<int32_t>((a >> (8 * byte) & 0xffu) * (b >> (8 * byte) & 0xffu));
  }
  return sum;
}

}  // namespace tavo_test
