// SPDX-License-Identifier: Apache-2.0
//
// The score file. The first byte is the number of samples.
#include "src/score_file.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  FuzzInput input(data, size);
  const int n_samples = input.byte();
  file.set(input.rest());
  Status status;
  const std::optional<std::vector<float>> scores = read_scores(file.path(), n_samples, &status);
  require(scores.has_value(), "a file that is there opens");
  if (status.ok()) {
    require(scores->size() == static_cast<size_t>(n_samples), "a score for each sample");
    const std::vector<uint8_t> classes = classes_of_scores(*scores);
    require(classes.size() == scores->size(), "a class for each score");
  }
  return 0;
}
