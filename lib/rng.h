// SPDX-License-Identifier: Apache-2.0
//
// The process-wide random number generator: the 32-bit Mersenne Twister MT19937 (Matsumoto and Nishimura
// 1998). The first draw seeds it with the reference default 5489, so every run draws the same sequence but
// where
// --seed asks for another. One state, no lock: used on the main thread only.
#pragma once

// The next tempered output, 0 .. 2^32 - 1.
unsigned long int32_rand();

// Reseeds with seed, kept to 32 bits.
void init_rng(unsigned long seed);
