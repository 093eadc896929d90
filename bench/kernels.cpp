// SPDX-License-Identifier: Apache-2.0
//
// The processor's searches and fits without the program around them, on one thread, and the rate of
// population counts beside them. Options before those of Google Benchmark's own:
//   tavo_bench [--samples=N] [--snps=M] [--benchmark_filter=REGEX ...]
// items_per_second are combinations, or fits; samples_per_second that times the samples.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_data.h"
#include "bench/popcount_rate.h"
#include "cpu/item_fits.h"
#include "cpu/range_search.h"
#include "lib/comb_rank.h"
#include "lib/cv_measures.h"

namespace {

void set_rates(benchmark::State& state, uint64_t items, int n_samples) {
  const auto all = static_cast<double>(items) * static_cast<double>(state.iterations());
  state.SetItemsProcessed(static_cast<int64_t>(all));
  state.counters["samples_per_second"] = benchmark::Counter(all * n_samples, benchmark::Counter::kIsRate);
}

// All combinations, from empty lists, planes and rows already made.
void search_all(benchmark::State& state, RangeSearch& search, const Problem& problem, int order) {
  const uint64_t total = comb_count(problem.n_snps, order).value();
  for (auto _ : state) {
    std::vector<CandidateList> lists(10, CandidateList(10));
    search.run(0, total, lists);
    benchmark::DoNotOptimize(lists.data());
  }
  set_rates(state, total, problem.n_samples);
}

void bench_search(benchmark::State& state, const BenchOptions& options, const ScoringRules& rules,
                  InstructionSet set) {
  const BenchData data(options);
  const WorkerSetupCommand setup = data.search_setup(rules);
  const Segments segments(data.problem(), setup.folds);
  const LanePlanes planes(data.problem(), segments);
  const std::unique_ptr<const SampleRows> rows = make_sample_rows(data.problem(), setup, segments, planes);
  const std::unique_ptr<RangeSearch> search =
      make_lane_search(data.problem(), setup, segments, planes, rows.get(), set);
  search_all(state, *search, data.problem(), rules.order);
}

void bench_scores(benchmark::State& state, const BenchOptions& options, InstructionSet set) {
  const BenchData data(options);
  const Problem problem = data.scored();
  const WorkerSetupCommand setup = data.search_setup({2, 4, 1, kBalancedAccuracy});
  const Segments segments(problem, setup.folds);
  const ScorePlanes planes(problem, setup, segments);
  search_all(state, *make_score_plane_search(problem, setup, planes, set), problem, 2);
}

void bench_fits(benchmark::State& state, const BenchOptions& options, const RegressionRules& rules,
                int n_covariates, InstructionSet set) {
  const BenchData data(options);
  const Problem problem = data.fitted(n_covariates);
  const std::unique_ptr<ItemFits> fits = make_item_fits(problem, rules, set);
  std::vector<int> items;
  for (int snp = 0; snp < problem.n_snps; ++snp) {
    items.push_back(snp);
  }
  std::vector<ItemFit> results(items.size());
  for (auto _ : state) {
    fits->run(items.data(), items.size(), results.data());
    benchmark::DoNotOptimize(results.data());
  }
  set_rates(state, items.size(), problem.n_samples);
}

// What a pair would cost that counts 4 cells of every sample, a bit at a time in the widest registers.
void bench_popcount(benchmark::State& state) {
  const std::vector<uint64_t> a(2048, 0x5555555555555555);
  const std::vector<uint64_t> b(2048, 0x3333333333333333);
  for (auto _ : state) {
    benchmark::DoNotOptimize(count_common_bits(a.data(), b.data(), a.size()));
  }
  const double bits = 64.0 * static_cast<double>(a.size()) * static_cast<double>(state.iterations());
  state.counters["bits_per_second"] = benchmark::Counter(bits, benchmark::Counter::kIsRate);
  state.counters["samples_per_second"] = benchmark::Counter(bits / 4.0, benchmark::Counter::kIsRate);
}

void add_all(const BenchOptions& options, InstructionSet set) {
  const std::string in = std::string("/") + name_of(set);
  const auto search = [&](const std::string& name, const BenchOptions& of, const ScoringRules& rules) {
    benchmark::RegisterBenchmark((name + in).c_str(), [=](benchmark::State& state) {
      bench_search(state, of, rules, set);
    })->Unit(benchmark::kMillisecond);
  };
  BenchOptions unequal = options;
  unequal.cases = 0.3;
  BenchOptions missing = options;
  missing.missing = 0.01;
  BenchOptions few = options;
  few.snps = options.snps / 4;
  search("pairs/ba", options, {2, 4, 1, kBalancedAccuracy});
  search("pairs/ba/30%_cases", unequal, {2, 4, 1, kBalancedAccuracy});
  search("pairs/ba/1%_missing", missing, {2, 4, 1, kBalancedAccuracy});
  search("pairs/homogeneity", options, {2, 4, 1, kChiSquare});
  search("pairs/gamma", options, {2, 4, 1, kGamma});
  search("pairs/nmi", options, {2, 4, 1, kNmi});
  search("triples/ba", few, {3, 4, 1, kBalancedAccuracy});
  search("triples/gamma", few, {3, 4, 1, kGamma});
  BenchOptions scored = options;
  scored.snps = options.snps / 4;
  benchmark::RegisterBenchmark(("pairs/scores" + in).c_str(), [=](benchmark::State& state) {
    bench_scores(state, scored, set);
  })->Unit(benchmark::kMillisecond);
  for (const int covariates : {0, 3}) {
    for (const Precision precision : {Precision::kSingle, Precision::kDouble}) {
      for (const RegressionModel model : {RegressionModel::kLogistic, RegressionModel::kLinear}) {
        const std::string name = std::string(model == RegressionModel::kLogistic ? "logistic" : "linear") +
                                 "/" + (precision == Precision::kSingle ? "single" : "double") + "/" +
                                 std::to_string(covariates) + "_covariates";
        RegressionRules rules;
        rules.model = model;
        rules.precision = precision;
        benchmark::RegisterBenchmark((name + in).c_str(), [=](benchmark::State& state) {
          bench_fits(state, options, rules, covariates, set);
        })->Unit(benchmark::kMillisecond);
      }
    }
  }
}

// Takes --NAME=NUMBER out of the words; false where it is no number above 0.
bool take_option(const std::string& name, int* argc, char** argv, int* value) {
  const std::string start = "--" + name + "=";
  int kept = 0;
  for (int i = 0; i < *argc; ++i) {
    const std::string word = argv[i];
    if (word.compare(0, start.size(), start) == 0) {
      *value = std::atoi(word.c_str() + start.size());
    } else {
      argv[kept++] = argv[i];
    }
  }
  *argc = kept;
  return *value > 0;
}

}  // namespace

int main(int argc, char** argv) {
  BenchOptions options;
  if (!take_option("samples", &argc, argv, &options.samples) ||
      !take_option("snps", &argc, argv, &options.snps)) {
    benchmark::Initialize(&argc, argv);
    return 2;
  }
  benchmark::RegisterBenchmark("popcount", bench_popcount);
  for (const InstructionSet set : {InstructionSet::kAvx512, InstructionSet::kAvx2, InstructionSet::kScalar}) {
    if (has(set)) {
      add_all(options, set);
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
