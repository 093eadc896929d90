// SPDX-License-Identifier: Apache-2.0
//
// The checksum of everything that a checkpoint compares: CRC-32.
#pragma once

#include <zlib.h>

#include <cstdint>

// Of `size` bytes, or, with the checksum of the bytes before them, of all of them.
inline uint32_t checksum(const void* bytes, size_t size, uint32_t before = 0) {
  return static_cast<uint32_t>(crc32_z(before, static_cast<const Bytef*>(bytes), size));
}
