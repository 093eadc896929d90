// SPDX-License-Identifier: Apache-2.0
//
// The checkpoint of a run, and what each kind of run reads from its section. The checksum would turn nearly
// every change away, and the length of a section many, so the first byte says who writes them: 0 the input
// itself, 1 the target the checksum, another one the target all but the lines of a section.
#include <zlib.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "src/checkpoint.h"
#include "src/exhaustive_state.h"
#include "src/regression_state.h"
#include "src/search_state.h"

namespace {

// Sizes of the runs of the inputs in the corpus.
constexpr uint64_t kCombinations = 1000;
constexpr uint64_t kBlock = 64;
constexpr size_t kFolds = 2;
constexpr size_t kSlots = 10;

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

// A file with these lines in the section of one kind of run.
std::string around(int kind, std::string_view lines) {
  const std::string name = kind == 4 ? std::string(kRegressionSection) : order_section(1 + kind);
  return "tavo checkpoint\t2\nrun\tversion\t1\nsection\t" + name + "\t" + std::to_string(lines.size()) +
         "\n" + std::string(lines);
}

void check_lists(const SearchState& state) {
  for (const std::vector<RankedValue>& list : state.lists) {
    require(list.size() <= kSlots, "lists within their size");
    for (size_t i = 0; i < list.size(); ++i) {
      require(list[i].value > 0.0f && list[i].rank < kCombinations, "entries of what was searched");
      require(i == 0 || list[i - 1].value > list[i].value ||
                  (list[i - 1].value == list[i].value && list[i - 1].rank < list[i].rank),
              "lists in their order");
    }
  }
}

void check_ranks(const std::vector<uint64_t>& ranks, size_t most) {
  require(ranks.size() <= most, "no more ranks than places");
  for (const uint64_t rank : ranks) {
    require(rank < kCombinations, "ranks of the run");
  }
}

// What the kinds of run make of the sections: each of an order of its own.
void restore_all(Checkpoint& checkpoint) {
  for (const bool fold_by_fold : {false, true}) {
    SearchState state;
    const SearchLimits limits{kCombinations, kFolds, kSlots, fold_by_fold, 0.0};
    if (restore_search(checkpoint, fold_by_fold ? 2 : 1, limits, &state).ok()) {
      check_lists(state);
    }
  }
  BestOfBlocksState blocks;
  if (restore_blocks(checkpoint, 3, kCombinations, kBlock, kSlots, &blocks).ok()) {
    check_ranks(blocks.slots, kSlots);
    require(blocks.values.size() <= kBlock, "values of one block");
  }
  AboveThresholdState above;
  if (restore_above_threshold(checkpoint, 4, kCombinations, kSlots, &above).ok()) {
    check_ranks(above.kept, kSlots);
  }
  RegressionState regression;
  if (restore_regression(checkpoint, kCombinations, kSlots, &regression).ok()) {
    check_ranks(regression.top, kSlots);
    require(regression.p_values.size() == regression.top.size(), "a p-value for each");
  }
}

// A folder in memory with room for the lock that stands beside a checkpoint.
const std::string& path() {
  static const MemoryFolder folder;
  static const std::string file = folder.prefix();
  return file;
}

void write(std::string_view bytes) {
  std::FILE* file = std::fopen(path().c_str(), "wb");
  require(file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
              std::fclose(file) == 0,
          "room in memory");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const int writer = input.byte();
  if (writer == 0) {
    write(input.rest());
  } else {
    write(completed(writer == 1 ? std::string(input.rest()) : around(writer % 5, input.rest())));
  }
  Checkpoint checkpoint;
  if (checkpoint.open(path(), identity()).ok()) {
    restore_all(checkpoint);
  }
  return 0;
}
