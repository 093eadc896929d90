// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

// The set bits of a & b, with the widest instructions that this processor has: what a search by population
// counts could not go below.
uint64_t count_common_bits(const uint64_t* a, const uint64_t* b, size_t n_words);
