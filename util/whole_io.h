// SPDX-License-Identifier: Apache-2.0
//
// Reading and writing at a place of a file, all bytes or a failure.
#pragma once

#include <cstddef>
#include <cstdint>

enum class WholeIo {
  kDone,
  kEnd,     // the file ends before the last byte; reading only
  kFailed,  // errno says why
};

// Reads `size` bytes that begin at `offset`.
WholeIo read_whole(int descriptor, void* bytes, size_t size, int64_t offset);

// Writes them. The position of the descriptor does not move.
WholeIo write_whole(int descriptor, const void* bytes, size_t size, int64_t offset);
