// SPDX-License-Identifier: Apache-2.0
//
// A second implementation of whole MDR runs, as plain as it can be: loops over folds, combinations and
// samples, no planes, no segments, no threads. It shares no code with the program (but the logarithm that a
// test hands in); what it says a result file holds is compared with what the program writes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/support/genotype_file.h"

namespace naive {

using tavo_test::GenotypeData;

struct Run {
  int mode = 1;
  int min_order = 2;
  int max_order = 2;
  int folds = 10;
  int first_fold = 0;
  int measure = 0;
  int missing = 3;  // 0 none, 1 mc, 2 complete, 3 available
  int tie = 0;
  int top = 10;
  bool shuffling = false;
  unsigned seed = 0;
  std::optional<unsigned> permutation_seed;
  bool transposed = false;    // the file's layout: cross-validated runs do not count the SNP-major one
  std::vector<float> scores;  // of a score-based run: one per sample

  // What the report repeats.
  std::string input;
  std::string output;
  std::string score_path;
  std::string order_text = "2";
  std::string measure_text;
  std::optional<std::string> missing_text;
  std::optional<std::string> tie_text;
  std::optional<std::string> top_text;
  std::optional<std::string> shuffling_text;
  int workers = 1;
  int threads = 1;
  int blocks = 1;
};

// The natural logarithm of nmi and lr, in single precision: the caller's, since two good ones differ in the
// last bit.
using LogFunction = float (*)(float);

// The lines before the results: the two frames and, between them, the lines of the options.
std::vector<std::string> report_head(const std::vector<std::string>& options);

// A combination that a list holds: its SNPs and its measures, 32 of a cross-validated run and 16 of an
// exhaustive one.
struct Entry {
  std::vector<int> comb;
  std::vector<double> values;
};

// A ranked combination.
struct Ranked {
  std::vector<int> comb;
  double weight = 0.0;
  std::vector<double> values;
  double p = 0.0;
};

// What a run leaves of one order.
struct OrderResult {
  std::vector<std::vector<Entry>> lists;  // per fold; one of an exhaustive run
  std::vector<Ranked> ranked;
};

// Of every order, from the smallest to the largest.
std::vector<OrderResult> results(const GenotypeData& data, const Run& run, LogFunction log);

// The lines of the result file. The lines of the time and of the command line are left as "Total time," and
// "Command,".
std::vector<std::string> report(const GenotypeData& data, const Run& run,
                                const std::vector<OrderResult>& results);

OrderResult cross_validated(const GenotypeData& data, const Run& run, int order,
                            const std::vector<int>& fold_of, LogFunction log);
OrderResult exhaustive(const GenotypeData& data, const Run& run, int order);

// The fold of every sample, -1 for one that is left out.
std::vector<int> deal(const GenotypeData& data, const Run& run);

// 1 for a case, by the scores if there are any.
std::vector<int> classes(const GenotypeData& data, const Run& run);

// Samples without any missing genotype.
std::vector<bool> complete_samples(const GenotypeData& data);

// All combinations of k out of n, in lexicographic order.
std::vector<std::vector<int>> combinations(int n, int k);

// 32 single-precision measures. train and test: the samples of both sets in the order of the run's sample
// list.
std::vector<float> record(const GenotypeData& data, const Run& run, const std::vector<int>& comb,
                          const std::vector<int>& classes, const std::vector<int>& train,
                          const std::vector<int>& test, float run_threshold, LogFunction log);

// The indices that order values ascending, as a Shell sort with a fixed table of gaps leaves them.
std::vector<int> shell_order(const std::vector<double>& values);

// The random sequence of a process: starts at its first draw.
class Random;

// The ranking measure of 100 sampled combinations, 100 shuffles each; draws from *random.
std::vector<double> null_values(const GenotypeData& data, const Run& run, int order, Random& random);

// What the best ranked combination of a permuted run reaches: testing value of the ranking measure, and
// weighted consistency; NaN without any.
struct NullBest {
  double testing;
  double consistency;
};

// [permutation][order of the run].
std::vector<std::vector<NullBest>> permuted_bests(const GenotypeData& data, const Run& run, int permutations,
                                                  LogFunction log);

// The p-value of an observed value of a statistic against its null values of one order (its index), or
// without one of all orders: (1 + permutations that reach it) / (1 + permutations). NaN of a NaN.
double permutation_p(const std::vector<std::vector<NullBest>>& nulls, std::optional<size_t> order,
                     double NullBest::*statistic, double observed);

// The first difference between the text of a table of null values and these, in words; empty when there is
// none. first_order: that of the first of each permutation's values.
std::string null_table_difference(const std::vector<std::vector<NullBest>>& nulls, int first_order,
                                  const std::string& text);

double quantile(std::vector<double> values, double level);
double p_value(const std::vector<double>& null, double x);

}  // namespace naive
