// SPDX-License-Identifier: Apache-2.0
//
// What the current GPU can do at most of the operations that the searches consist of, each measured by a
// kernel that does nothing else. Per second; a runtime error throws.
#pragma once

// Words of 32 bits: one AND, one population count, one addition.
double popcount_words();

// Products of bits or bytes (one multiplication and addition each) by the matrix instructions that the fused
// search uses. 0 where the GPU has none.
double binary_products();
double byte_products();

// Bytes read and written by a copy from device memory to device memory.
double copied_bytes();
