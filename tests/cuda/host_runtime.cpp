// SPDX-License-Identifier: Apache-2.0
#include "tests/cuda/host_runtime.h"

#include <cuda_runtime_api.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <set>
#include <string>
#include <utility>

#include "cuda/cuda_check.h"
#include "cuda/gmdr_cuda.h"
#include "cuda/gmdr_search.h"
#include "cuda/mdr_cuda_new.h"
#include "cuda/mdr_search.h"
#include "cuda/mdr_tiles.h"
#include "cuda/occupied_cells.h"
#include "tests/cuda/host_block.h"

struct CUstream_st {
  std::deque<std::function<void()>> work;
  bool copies_back = false;

  void run() {
    while (!work.empty()) {
      work.front()();
      work.pop_front();
    }
    copies_back = false;
  }
};

namespace {

constexpr int kGarbage = 0xa5;
constexpr size_t kMostGarbage =
    1 << 16;  // bytes from the start of an allocation; filling large ones takes long

cudaError_t last_error = cudaSuccess;
std::set<cudaStream_t> streams;

cudaError_t remember(cudaError_t error) {
  if (error != cudaSuccess) {
    last_error = error;
  }
  return error;
}

cudaError_t allocate(void** memory, size_t bytes) {
  if (bytes > tavo_test::host_runtime().free_bytes) {
    return remember(cudaErrorMemoryAllocation);
  }
  *memory = std::malloc(bytes);
  std::memset(*memory, kGarbage, std::min(bytes, kMostGarbage));
  ++tavo_test::host_runtime().allocations_alive;
  return cudaSuccess;
}

cudaError_t release(void* memory) {
  if (memory != nullptr) {
    std::free(memory);
    --tavo_test::host_runtime().allocations_alive;
  }
  return cudaSuccess;
}

// Queues body(arguments, item) for the threads of a launch of n, or fails.
template <typename Arguments, typename Body>
void launch(const char* wrapper, const Arguments& arguments, uint64_t n, Body body, cudaStream_t stream) {
  if (tavo_test::host_launch_begins(wrapper)) {
    tavo_test::host_enqueue(stream, [arguments, n, body] {
      for (uint64_t item = 0; item < n + tavo_test::kSurplusThreads; ++item) {
        body(arguments, static_cast<uint32_t>(item));
      }
    });
  }
  cuda_check_launch((std::string(wrapper) + " execution failed.\n").c_str());
}

}  // namespace

bool tavo_test::host_launch_begins(const char* wrapper) {
  ++host_runtime().launches;
  if (host_runtime().failing_launch == wrapper) {
    remember(cudaErrorInvalidConfiguration);
    return false;
  }
  return true;
}

void tavo_test::host_enqueue(CUstream_st* stream, std::function<void()> work) {
  if (stream == nullptr) {
    work();
  } else {
    stream->work.push_back(std::move(work));
  }
}

tavo_test::HostRuntime& tavo_test::host_runtime() {
  static HostRuntime runtime = [] {
    HostRuntime wanted;
    if (const char* bytes = std::getenv("TAVO_STAND_IN_BYTES"); bytes != nullptr) {
      wanted.free_bytes = std::strtoull(bytes, nullptr, 10);
    }
    if (const char* wrapper = std::getenv("TAVO_STAND_IN_FAILS"); wrapper != nullptr) {
      wanted.failing_launch = wrapper;
    }
    return wanted;
  }();
  return runtime;
}

extern "C" {

const char* cudaGetErrorString(cudaError_t error) {
  return error == cudaErrorMemoryAllocation ? "out of memory" : "invalid configuration argument";
}
cudaError_t cudaGetLastError() {
  return std::exchange(last_error, cudaSuccess);
}
cudaError_t cudaMalloc(void** memory, size_t bytes) {
  return allocate(memory, bytes);
}
// Waits for all that was queued, as the runtime does.
cudaError_t cudaFree(void* memory) {
  if (memory != nullptr) {
    for (const cudaStream_t stream : streams) {
      stream->run();
    }
  }
  return release(memory);
}
cudaError_t cudaHostAlloc(void** memory, size_t bytes, unsigned) {
  return allocate(memory, bytes);
}
cudaError_t cudaFreeHost(void* memory) {
  return release(memory);
}
cudaError_t cudaMemcpyAsync(void* target, const void* source, size_t bytes, cudaMemcpyKind kind,
                            cudaStream_t stream) {
  tavo_test::host_enqueue(stream, [=] { std::memcpy(target, source, bytes); });
  if (kind == cudaMemcpyDeviceToHost && stream != nullptr) {
    stream->copies_back = true;
    const auto busy =
        std::count_if(streams.begin(), streams.end(), [](cudaStream_t s) { return s->copies_back; });
    int& most = tavo_test::host_runtime().most_streams_busy;
    most = std::max(most, static_cast<int>(busy));
  }
  return cudaSuccess;
}
cudaError_t cudaMemsetAsync(void* memory, int value, size_t bytes, cudaStream_t stream) {
  tavo_test::host_enqueue(stream, [=] { std::memset(memory, value, bytes); });
  return cudaSuccess;
}
cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned) {
  *stream = new CUstream_st;
  streams.insert(*stream);
  return cudaSuccess;
}
cudaError_t cudaStreamDestroy(cudaStream_t stream) {
  tavo_test::host_runtime().streams_left_busy += stream->work.empty() ? 0 : 1;
  streams.erase(stream);
  delete stream;
  return cudaSuccess;
}
cudaError_t cudaStreamSynchronize(cudaStream_t stream) {
  stream->run();
  return cudaSuccess;
}
cudaError_t cudaMemGetInfo(size_t* free_bytes, size_t* total_bytes) {
  const tavo_test::HostRuntime& runtime = tavo_test::host_runtime();
  *free_bytes = *total_bytes = runtime.memory_left.value_or(runtime.free_bytes);
  return cudaSuccess;
}
cudaError_t cudaSetDevice(int) {
  return cudaSuccess;
}
cudaError_t cudaGetDeviceCount(int* count) {
  *count = tavo_test::host_runtime().n_gpus;
  return *count > 0 ? cudaSuccess : remember(cudaErrorNoDevice);
}
cudaError_t cudaDeviceGetAttribute(int* value, cudaDeviceAttr attribute, int) {
  switch (attribute) {
    case cudaDevAttrComputeCapabilityMajor:
      *value = tavo_test::host_runtime().major;
      break;
    case cudaDevAttrMaxSharedMemoryPerBlockOptin:
      *value = static_cast<int>(tavo_test::host_runtime().shared_bytes);
      break;
    default:
      *value = 0;
      break;
  }
  return cudaSuccess;
}
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* properties, int) {
  if (tavo_test::host_runtime().properties_fail) {
    return remember(cudaErrorInvalidDevice);
  }
  *properties = cudaDeviceProp{};
  std::strcpy(properties->name, "no GPU");
  properties->major = tavo_test::host_runtime().major;
  properties->regsPerBlock = 65536;
  properties->sharedMemPerBlock = 49152;
  return cudaSuccess;
}

}  // extern "C"

void cuMdrSendBase(MdrSampleData& data, std::span<const uint8_t> phenotype, cudaStream_t stream) {
  upload(data.mdr_response, phenotype, "classes", stream);
}
void cuMdrSendIndices(MdrSampleData& data, std::span<const int> training, std::span<const int> testing,
                      cudaStream_t stream) {
  upload_pair(data.mdr_indices, training, testing, "sample lists", stream);
}
void cuMdrCount(const CountArguments& arguments, cudaStream_t stream) {
  launch("cuMdrCount()", arguments, arguments.active, count_table, stream);
}
void cuMdrCalcSV(const MeasureArguments& arguments, cudaStream_t stream) {
  launch("cuMdrCalcSV", arguments, arguments.active, set_value, stream);
}
void cuMdrCalc(const MeasureArguments& arguments, cudaStream_t stream) {
  launch("cuMdrCalc", arguments, arguments.active, measure_record, stream);
}
void cuGmdrSendBase(GmdrSampleData& data, std::span<const uint8_t> phenotype, std::span<const float> scores,
                    cudaStream_t stream) {
  upload(data.response, phenotype, "classes", stream);
  upload(data.SC, scores, "scores", stream);
}
void cuGmdrSendIndices(GmdrSampleData& data, std::span<const int> training, std::span<const int> testing,
                       cudaStream_t stream) {
  upload_pair(data.indices, training, testing, "sample lists", stream);
}
void cuGmdrCount(const CountArguments& arguments, cudaStream_t stream) {
  launch("cuGmdrCount()", arguments, arguments.active, count_table, stream);
}
void cuGmdrCalcSV(const MeasureArguments& arguments, cudaStream_t stream) {
  launch("cuGmdrCalcSV", arguments, arguments.active, set_value, stream);
}
void cuGmdrCalc(const MeasureArguments& arguments, cudaStream_t stream) {
  launch("cuGmdrCalc", arguments, arguments.active, measure_score_record, stream);
}
void cuOccupiedRecords(const OccupiedRecordArguments& arguments, cudaStream_t stream) {
  launch("cuOccupiedRecords()", arguments, arguments.active, occupied_record, stream);
}
void cuOccupiedSearch(const OccupiedSearchArguments& arguments, cudaStream_t stream) {
  launch("cuOccupiedSearch()", arguments, arguments.range.n_ranks, search_occupied, stream);
}
void cuMdrBuildPlanes(const PlaneBuildArguments& arguments, cudaStream_t stream) {
  launch("cuMdrBuildPlanes()", arguments,
         static_cast<uint64_t>(arguments.genotypes.words_per_row * arguments.n_words), build_planes, stream);
}
void cuGmdrBuildCodes(const CodeBuildArguments& arguments, cudaStream_t stream) {
  launch("cuGmdrBuildCodes()", arguments,
         static_cast<uint64_t>(arguments.genotypes.words_per_row * arguments.n_words), build_codes, stream);
}
void cuMdrSearch(const PlaneSearchArguments& arguments, cudaStream_t stream) {
  using Body = void (*)(const PlaneSearchArguments&, uint64_t);
  constexpr Body kBodies[kMaxCudaPlaneOrder] = {search_planes<1>, search_planes<2>, search_planes<3>,
                                                search_planes<4>, search_planes<5>, search_planes<6>};
  launch("cuMdrSearch()", arguments, arguments.range.n_ranks, kBodies[arguments.range.order - 1], stream);
}

namespace {

template <int kOrder>
void search_listed_by_threads(const PlaneSearchArguments& arguments, RankSink list) {
  constexpr uint64_t kThreads = 100;
  for (uint64_t item = 0; item < kThreads; ++item) {
    search_listed<kOrder>(arguments, list, item, kThreads);
  }
}

template <typename Product, int kOrder>
void search_units(const TileSearchArguments& arguments) {
  tavo_test::HostTileBlock block(arguments.n_pairs, arguments.range.n_folds);
  for (uint64_t unit = 0; unit < tile_units(arguments); ++unit) {
    search_unit<Product, kOrder>(arguments, block, unit);
  }
}

using TileBody = void (*)(const TileSearchArguments&);
template <typename Product>
TileBody tile_body(int order) {
  constexpr TileBody kBodies[] = {search_units<Product, 2>, search_units<Product, 3>,
                                  search_units<Product, 4>};
  return kBodies[order - kLeastTileOrder];
}

TileBody tile_body(SearchKernel kernel, int order) {
  switch (kernel) {
    case SearchKernel::kBinaryTiles:
      return tile_body<BinaryProduct>(order);
    case SearchKernel::kByteTiles:
      return tile_body<ByteProduct>(order);
    default:
      return tile_body<PopcountProduct>(order);
  }
}

}  // namespace

void cuMdrSearchListed(const PlaneSearchArguments& arguments, RankSink list, cudaStream_t stream) {
  using Body = void (*)(const PlaneSearchArguments&, RankSink);
  constexpr Body kBodies[] = {search_listed_by_threads<2>, search_listed_by_threads<3>,
                              search_listed_by_threads<4>};
  if (tavo_test::host_launch_begins("cuMdrSearchListed()")) {
    const Body body = kBodies[arguments.range.order - kLeastTileOrder];
    tavo_test::host_enqueue(stream, [arguments, list, body] {
      tavo_test::host_runtime().survivors += *list.count;
      body(arguments, list);
    });
  }
  cuda_check_launch("cuMdrSearchListed() execution failed.\n");
}
void cuMdrPairValues(const ValueArguments& arguments, cudaStream_t stream) {
  const auto n = static_cast<uint64_t>(arguments.n_snps);
  if (tavo_test::host_launch_begins("cuMdrPairValues()")) {
    ++tavo_test::host_runtime().pair_tables;
    tavo_test::host_enqueue(stream, [arguments, n] {
      for (uint64_t item = 0; item < n * n + tavo_test::kSurplusThreads; ++item) {
        value_pair(arguments, item);
      }
    });
  }
  cuda_check_launch("cuMdrPairValues() execution failed.\n");
}
void cuMdrSnpValues(const ValueArguments& arguments, cudaStream_t stream) {
  launch("cuMdrSnpValues()", arguments, 2 * static_cast<uint64_t>(arguments.n_snps), value_snp, stream);
}
void cuMdrSearchTiles(SearchKernel kernel, const TileSearchArguments& arguments, cudaStream_t stream) {
  if (tavo_test::host_launch_begins("cuMdrSearchTiles()")) {
    ++tavo_test::host_runtime().tile_launches[name_of(kernel)];
    const TileBody body = tile_body(kernel, arguments.shape.order);
    tavo_test::host_enqueue(stream, [arguments, body] { body(arguments); });
  }
  cuda_check_launch("cuMdrSearchTiles() execution failed.\n");
}

namespace {
// Scratch of one thread, with what the last one left.
template <int kOrder, int kWords>
void search_scores_once(const ScoreSearchArguments& arguments, uint64_t item) {
  static FoldSums sums[kScoreEntries<kOrder>];
  static FoldCounts<kWords> counts[kScoreEntries<kOrder>];
  search_scores<kOrder>(arguments, item, sums, counts, 1);
}
}  // namespace

void cuGmdrSearch(const ScoreSearchArguments& arguments, cudaStream_t stream) {
  using Body = void (*)(const ScoreSearchArguments&, uint64_t);
  constexpr Body kBodies[kMaxCudaScoreOrder] = {search_scores_once<1, 1>, search_scores_once<2, 1>,
                                                search_scores_once<3, 1>, search_scores_once<4, 1>};
  launch("cuGmdrSearch()", arguments, arguments.range.n_ranks, kBodies[arguments.range.order - 1], stream);
}
