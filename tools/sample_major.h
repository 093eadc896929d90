// SPDX-License-Identifier: Apache-2.0
//
// Rows of variants out of records of samples.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "util/status.h"

// Where the genotypes of a sample begin in a file of records, and how to read there.
struct SampleRecords {
  int64_t n_samples = 0;
  int64_t first_offset = 0;  // of the first sample's packed genotypes
  int64_t record_size = 0;   // bytes from one sample's to the next one's
  std::function<Status(int64_t offset, void* bytes, size_t size)> read_at;
};

// Reads the variants first .. first + count - 1 of all samples into rows of packed_words(n_samples) words;
// first is a multiple of 16. Memory for the part of 256 samples.
Status read_variants(const SampleRecords& records, int64_t first, int64_t count, uint32_t* rows);
