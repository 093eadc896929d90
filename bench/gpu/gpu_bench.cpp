// SPDX-License-Identifier: Apache-2.0
//
// Rates of the CUDA backend on the first GPU, through the interface that the workers use, and what the GPU
// can do at most of the same work.
//   tavo_gpu_bench            all of it, about two minutes
//   tavo_gpu_bench --quick    every part once on tiny data: whether it works, no figures
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/gpu/ceilings.h"
#include "cuda/cuda_backend.h"
#include "cuda/search_kernel.h"
#include "cuda/tile_shape.h"
#include "device/candidate_list.h"
#include "lib/comb_rank.h"
#include "lib/mdr.h"
#include "lib/packed_genotypes.h"

namespace {

constexpr int kFolds = 10;
constexpr int kListSize = 10;

struct Options {
  bool quick = false;
  double seconds = 0.4;  // that a measurement lasts at least
};

void check(const Status& status) {
  if (!status.ok()) {
    std::fprintf(stderr, "tavo_gpu_bench: %s\n", status.message().c_str());
    std::exit(1);
  }
}

class Random {
 public:
  uint32_t word() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<uint32_t>(state_ >> 16);
  }
  float uniform() { return static_cast<float>(word() >> 8) * 0x1p-24f; }

 private:
  uint64_t state_ = 0x9e3779b97f4a7c15;
};

// Random genotypes without an effect, none missing; classes alternate, and folds take the samples in turn.
struct Data {
  Data(int n_samples, int n_snps) {
    problem.n_samples = n_samples;
    problem.n_snps = n_snps;
    problem.words_per_row = static_cast<int64_t>(packed_words(n_snps));
    words.resize(static_cast<size_t>(n_samples) * static_cast<size_t>(problem.words_per_row));
    for (uint32_t& word : words) {
      const uint32_t two = random.word() & random.word() & 0x55555555u;
      word = two << 1 | (random.word() & ~two & 0x55555555u);
    }
    problem.words = words.data();
    std::vector<std::vector<int>> sets[2] = {std::vector<std::vector<int>>(kFolds),
                                             std::vector<std::vector<int>>(kFolds)};
    for (int s = 0; s < n_samples; ++s) {
      classes.push_back(static_cast<uint8_t>(s % 2));
      samples.push_back(s);
      scores.push_back(random.uniform() - 0.5f);
      phenotypes.push_back(static_cast<float>(s % 2));
      for (int f = 0; f < kFolds; ++f) {
        sets[s / 2 % kFolds == f ? 1 : 0][static_cast<size_t>(f)].push_back(s);
      }
    }
    training = std::move(sets[0]);
    testing = std::move(sets[1]);
    for (size_t f = 0; f < kFolds; ++f) {
      folds.push_back({training[f], testing[f], 1.0f});
    }
    problem.classes = classes.data();
  }
  Data(const Data&) = delete;
  Data& operator=(const Data&) = delete;

  Random random;
  std::vector<uint32_t> words;
  std::vector<uint8_t> classes;
  std::vector<int> samples;
  std::vector<float> scores;
  std::vector<float> phenotypes;
  std::vector<std::vector<int>> training;
  std::vector<std::vector<int>> testing;
  std::vector<FoldView> folds;
  Problem problem;
};

std::unique_ptr<Device> open_device(const Problem& problem) {
  std::unique_ptr<Device> device = CudaBackend().open(0);
  check(device->bind());
  check(device->send_genotypes(problem));
  check(device->send_base_data(problem));
  return device;
}

template <typename Work>
double seconds_of(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Items per second of work(n), of as many as the time asks for and there are.
template <typename Work>
double rate(const Options& options, uint64_t first, uint64_t total, Work work) {
  double best = 0.0;
  int rounds = 0;
  for (uint64_t n = std::min(first, total);;) {
    const double seconds = seconds_of([&] { work(n); });
    best = std::max(best, static_cast<double>(n) / seconds);
    if (options.quick || seconds >= options.seconds || (n == total && ++rounds == 3)) {
      // Shorter runs end before the launches have grown.
      return seconds >= options.seconds ? static_cast<double>(n) / seconds : best;
    }
    n = seconds > options.seconds / 4 ? std::min(total, 2 * n) : std::min(total, 4 * n);
  }
}

// Combinations per second of a balanced-accuracy search, with the floors of a run that has seen some of them.
double search_rate(const Options& options, const Data& data, int order) {
  const std::unique_ptr<Device> device = open_device(data.problem);
  WorkerSetupCommand setup;
  setup.kind = LoopKind::kSearch;
  setup.rules = {order, kMissingNone, 1, kBalancedAccuracy};
  setup.folds = data.folds;
  setup.samples = data.samples;
  setup.list_size = kListSize;
  check(device->set_up(setup));
  const uint64_t total = comb_count(data.problem.n_snps, order).value();
  std::vector<SearchFloor> floors(kFolds);
  std::vector<SearchCandidate> candidates;
  const auto search = [&](uint64_t n) {
    WorkerBatchCommand batch;
    batch.n_ranks = n;
    batch.floors = floors.data();
    batch.candidates = &candidates;
    check(device->search_range(batch));
  };
  search(std::min<uint64_t>(total, 1 << 18));
  std::vector<CandidateList> lists(kFolds, CandidateList(kListSize));
  for (const SearchCandidate& candidate : candidates) {
    lists[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
  }
  for (size_t f = 0; f < kFolds; ++f) {
    floors[f] = lists[f].floor();
  }
  const double result = rate(options, 1 << 18, total, search);
  device->release();
  return result;
}

double fit_rate(const Options& options, const Data& data, RegressionRules rules) {
  Problem problem = data.problem;
  problem.classes = nullptr;
  problem.phenotypes = data.phenotypes.data();
  problem.ordered_regression = rules.order() == 2;
  const std::unique_ptr<Device> device = open_device(problem);
  check(device->set_up_regression(RegressionSetupCommand(rules)));
  const int n_snps = std::min(problem.n_snps, rules.order() == 2 ? 1000 : 1 << 20);
  std::vector<int> items;
  for (int i = 0; i < n_snps; ++i) {
    for (int j = i + 1; j < n_snps && rules.order() == 2; ++j) {
      items.insert(items.end(), {i, j});
    }
    if (rules.order() == 1) {
      items.push_back(i);
    }
  }
  const size_t total = items.size() / static_cast<size_t>(rules.order());
  std::vector<ItemFit> fits(total);
  const double result = rate(options, 1 << 12, total, [&](uint64_t n) {
    RegressionBatchCommand batch;
    batch.active = static_cast<uint32_t>(n);
    batch.items = items.data();
    batch.results = fits.data();
    check(device->fit_items(batch));
  });
  device->release();
  return result;
}

struct Ceilings {
  double popcount = 0.0;  // products of bits per second, 32 to a word
  double binary = 0.0;
  double bytes = 0.0;

  double of(const std::string& kernel) const {
    return kernel == name_of(SearchKernel::kBinaryTiles) ? binary
           : kernel == name_of(SearchKernel::kByteTiles) ? bytes
                                                         : popcount;
  }
};

void print_search(const std::string& what, int order, const Data& data, double combinations, double ceiling) {
  const double samples = combinations * data.problem.n_samples;
  std::printf("%-10s order %d  %6d samples  %8.3g combinations/s  %8.3g combinations x samples/s",
              what.c_str(), order, data.problem.n_samples, combinations, samples);
  if (ceiling > 0.0) {
    std::printf("  %5.1f%% of %.3g", 100.0 * samples / ceiling, ceiling);
  }
  std::printf("\n");
  std::fflush(stdout);
}

// Cells that a combination without missing genotypes is counted in: a product each per sample.
double counted_cells(const std::string& kernel, int order) {
  return kernel == name_of(SearchKernel::kThreads) ? 2.0 * power_of_3(order)
                                                   : 2.0 * tile_shape(order, true, true).patterns;
}

void bench_searches(const Options& options, const Data& data, const Ceilings& ceilings) {
  for (int order = 2; order <= 4; ++order) {
    for (const char* kernel : {"threads", "popcount", "mma-b1", "mma-u8"}) {
      setenv("TAVO_GPU_SEARCH", kernel, 1);
      if (CudaBackend().open(0)->bind().ok()) {
        print_search(kernel, order, data, search_rate(options, data, order),
                     ceilings.of(kernel) / counted_cells(kernel, order));
      }
      unsetenv("TAVO_GPU_SEARCH");
    }
  }
}

void bench_score_searches(const Options& options, Data& data) {
  data.problem.scores = data.scores.data();
  for (int order = 2; order <= 4; ++order) {
    print_search("GMDR", order, data, search_rate(options, data, order), 0.0);
  }
  data.problem.scores = nullptr;
}

void bench_fits(const Options& options, const Data& data) {
  struct Model {
    const char* name;
    RegressionModel model;
  };
  for (const Model& model : {Model{"logistic, SNPs", RegressionModel::kLogistic},
                             {"linear, SNPs", RegressionModel::kLinear},
                             {"logistic, pairs", RegressionModel::kOrderedLogistic}}) {
    for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
      RegressionRules rules;
      rules.model = model.model;
      rules.precision = precision;
      std::printf("%-16s %-6s  %6d samples  %8.3g items/s\n", model.name,
                  precision == Precision::kSingle ? "single" : "double", data.problem.n_samples,
                  fit_rate(options, data, rules));
      std::fflush(stdout);
    }
  }
}

Ceilings print_ceilings() {
  Ceilings ceilings;
  ceilings.popcount = 32.0 * popcount_words();
  ceilings.binary = binary_products();
  ceilings.bytes = byte_products();
  std::printf("population counts  %8.3g products of bits/s\n", ceilings.popcount);
  std::printf("matrices of bits   %8.3g products/s%s\n", ceilings.binary,
              ceilings.binary > 0.0 ? "" : " (this GPU has none)");
  std::printf("matrices of bytes  %8.3g products/s%s\n", ceilings.bytes,
              ceilings.bytes > 0.0 ? "" : " (this GPU has none)");
  std::printf("copies             %8.3g bytes/s\n", copied_bytes());
  return ceilings;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (argc == 2 && std::strcmp(argv[1], "--quick") == 0) {
    options.quick = true;
  } else if (argc > 1) {
    std::fprintf(stderr, "tavo_gpu_bench: expected nothing or --quick\n");
    return 1;
  }
  if (CudaBackend().device_count() == 0) {
    std::fprintf(stderr, "tavo_gpu_bench: there is no GPU that the program can use\n");
    return 1;
  }
  std::printf("%s\n", CudaBackend().properties(0).description.c_str());
  const Ceilings ceilings = print_ceilings();
  struct Size {
    int samples;
    int snps;
  };
  const std::vector<Size> sizes = options.quick
                                      ? std::vector<Size>{{150, 12}}
                                      : std::vector<Size>{{2000, 20000}, {8192, 10000}, {65536, 4000}};
  for (const Size& size : sizes) {
    Data data(size.samples, size.snps);
    bench_searches(options, data, ceilings);
    bench_score_searches(options, data);
    bench_fits(options, data);
  }
  return 0;
}
