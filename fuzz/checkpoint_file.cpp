// SPDX-License-Identifier: Apache-2.0
//
// The checkpoint of a run. Its checksum would turn nearly every change away, so all but a few inputs get the
// one that they need: those whose first byte is not 0.
#include <zlib.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "src/checkpoint.h"

namespace {

constexpr int kLargestOrder = 8;

// The run of the inputs in the corpus.
const RunIdentity& identity() {
  static const RunIdentity run = {{"version", "1"}};
  return run;
}

// With the last line of a file that is whole.
std::string completed(std::string_view text) {
  char end[16];
  std::snprintf(end, sizeof(end), "end\t%08" PRIx32 "\n",
                static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(text.data()), text.size())));
  return std::string(text) + end;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  FuzzInput input(data, size);
  const bool as_it_is = input.byte() == 0;
  file.set(as_it_is ? std::string(input.rest()) : completed(input.rest()));
  Checkpoint checkpoint;
  if (!checkpoint.open(file.path(), identity()).ok()) {
    return 0;
  }
  for (int order = 1; order <= kLargestOrder; ++order) {
    const SearchState* state = checkpoint.state(order);
    for (size_t f = 0; state != nullptr && f < state->lists.size(); ++f) {
      const std::vector<RankedValue>& list = state->lists[f];
      for (size_t i = 0; i < list.size(); ++i) {
        require(list[i].value > 0.0f && list[i].rank < state->next, "entries of what was searched");
        require(i == 0 || list[i - 1].value > list[i].value ||
                    (list[i - 1].value == list[i].value && list[i - 1].rank < list[i].rank),
                "lists in their order");
      }
    }
  }
  return 0;
}
