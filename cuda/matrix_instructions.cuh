// SPDX-License-Identifier: Apache-2.0
//
// One matrix instruction each: sums += rows * columns, by all threads of a warp together. Their definition is
// written out for the host in tests/cuda/matrix_reference.h. Code for a GPU without the instruction stops.
#pragma once

#include <stdint.h>

// Binary products are machine instructions from compute capability 8.0 to 9.0. For later GPUs the compiler
// makes them from products of bytes, which ByteProduct does better: they are left out.
#if defined(__CUDA_ARCH__) && __CUDA_ARCH__ >= 800 && __CUDA_ARCH__ < 1000
#define TAVO_BINARY_PRODUCTS
#endif
#if defined(__CUDA_ARCH__) && __CUDA_ARCH__ >= 800
#define TAVO_BYTE_PRODUCTS
#endif

// 16 x 8 counts over 256 bits.
static __device__ __forceinline__ void multiply_b1_256(const uint32_t (&rows)[4],
                                                       const uint32_t (&columns)[2], int32_t (&sums)[4]) {
#ifdef TAVO_BINARY_PRODUCTS
  asm volatile(
      "mma.sync.aligned.m16n8k256.row.col.s32.b1.b1.s32.and.popc "
      "{%0, %1, %2, %3}, {%4, %5, %6, %7}, {%8, %9}, {%0, %1, %2, %3};"
      : "+r"(sums[0]), "+r"(sums[1]), "+r"(sums[2]), "+r"(sums[3])
      : "r"(rows[0]), "r"(rows[1]), "r"(rows[2]), "r"(rows[3]), "r"(columns[0]), "r"(columns[1]));
#else
  __trap();
#endif
}

// The same over 128 bits: the first two registers of the rows, the first of the columns.
static __device__ __forceinline__ void multiply_b1_128(const uint32_t (&rows)[4],
                                                       const uint32_t (&columns)[2], int32_t (&sums)[4]) {
#ifdef TAVO_BINARY_PRODUCTS
  asm volatile(
      "mma.sync.aligned.m16n8k128.row.col.s32.b1.b1.s32.and.popc "
      "{%0, %1, %2, %3}, {%4, %5}, {%6}, {%0, %1, %2, %3};"
      : "+r"(sums[0]), "+r"(sums[1]), "+r"(sums[2]), "+r"(sums[3])
      : "r"(rows[0]), "r"(rows[1]), "r"(columns[0]));
#else
  __trap();
#endif
}

// 16 x 8 sums over 32 products of bytes.
static __device__ __forceinline__ void multiply_u8(const uint32_t (&rows)[4], const uint32_t (&columns)[2],
                                                   int32_t (&sums)[4]) {
#ifdef TAVO_BYTE_PRODUCTS
  asm volatile(
      "mma.sync.aligned.m16n8k32.row.col.s32.u8.u8.s32 "
      "{%0, %1, %2, %3}, {%4, %5, %6, %7}, {%8, %9}, {%0, %1, %2, %3};"
      : "+r"(sums[0]), "+r"(sums[1]), "+r"(sums[2]), "+r"(sums[3])
      : "r"(rows[0]), "r"(rows[1]), "r"(rows[2]), "r"(rows[3]), "r"(columns[0]), "r"(columns[1]));
#else
  __trap();
#endif
}
