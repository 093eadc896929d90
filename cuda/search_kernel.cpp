// SPDX-License-Identifier: Apache-2.0
#include "cuda/search_kernel.h"

#include <cstdlib>

#include "cuda/search_layout.h"
#include "cuda/tile_shape.h"

namespace {

constexpr SearchKernel kAll[] = {SearchKernel::kThreads, SearchKernel::kPopcountTiles,
                                 SearchKernel::kBinaryTiles, SearchKernel::kByteTiles};

}  // namespace

const char* name_of(SearchKernel kernel) {
  switch (kernel) {
    case SearchKernel::kPopcountTiles:
      return "popcount";
    case SearchKernel::kBinaryTiles:
      return "mma-b1";
    case SearchKernel::kByteTiles:
      return "mma-u8";
    default:
      return "threads";
  }
}

bool has(const GpuTraits& gpu, SearchKernel kernel) {
  switch (kernel) {
    case SearchKernel::kBinaryTiles:
      return gpu.major == 8 || gpu.major == 9;
    case SearchKernel::kByteTiles:
      return gpu.major >= 8;
    default:
      return true;
  }
}

// The population count of all these GPUs makes 16 words, or 512 products of bits, per clock and
// multiprocessor; the matrix units of 8.0 to 8.9 8,192 to 16,384, and 1,024 to 8,192 products of bytes from
// 8.0 on.
SearchKernel default_kernel(const GpuTraits& gpu) {
  for (const SearchKernel kernel : {SearchKernel::kBinaryTiles, SearchKernel::kByteTiles}) {
    if (has(gpu, kernel)) {
      return kernel;
    }
  }
  return SearchKernel::kPopcountTiles;
}

Status forced_search_kernel(const GpuTraits& gpu, std::optional<SearchKernel>* kernel) {
  kernel->reset();
  const char* forced = std::getenv("TAVO_GPU_SEARCH");
  if (forced == nullptr) {
    return {};
  }
  const std::string name = forced;
  std::string names;
  for (const SearchKernel candidate : kAll) {
    if (!has(gpu, candidate)) {
      continue;
    }
    const bool is_matrix = candidate == SearchKernel::kBinaryTiles || candidate == SearchKernel::kByteTiles;
    if (name == name_of(candidate) || (name == "mma" && is_matrix && candidate == default_kernel(gpu))) {
      *kernel = candidate;
      return {};
    }
    names += (names.empty() ? "" : " ") + std::string(name_of(candidate));
  }
  if (default_kernel(gpu) != SearchKernel::kPopcountTiles) {
    names += " mma";
  }
  return Status::failure("TAVO_GPU_SEARCH is `" + name + "`, expected one of: " + names);
}

bool tiles_fit(const GpuTraits& gpu, const Problem& problem, const ScoringRules& rules,
               const Segments& segments) {
  if (rules.order < kLeastTileOrder || rules.order > kMostTileOrder ||
      rules.counted_cells() != rules.cells() || problem.transposed) {
    return false;
  }
  size_t classes[2] = {0, 0};
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    classes[segment % 2] += segments.samples[segment].size();
  }
  return classes[0] <= kMostTileClass && classes[1] <= kMostTileClass &&
         tile_shared_bytes(counted_pairs(segments), segments.n_folds) <= gpu.shared_bytes;
}

SearchKernel search_kernel_for(const GpuTraits& gpu, std::optional<SearchKernel> forced,
                               const Problem& problem, const ScoringRules& rules, const Segments& segments) {
  if (!tiles_fit(gpu, problem, rules, segments)) {
    return SearchKernel::kThreads;
  }
  return forced.value_or(default_kernel(gpu));
}
