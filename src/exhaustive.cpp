// SPDX-License-Identifier: Apache-2.0
#include "src/exhaustive.h"

#include <algorithm>
#include <numeric>

#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/mdr.h"
#include "lib/packed_genotypes.h"
#include "lib/permutation.h"
#include "lib/utils.h"
#include "src/folds.h"
#include "src/notice.h"
#include "util/stop_signal.h"

namespace {

// Sample-major rows, whatever the layout of the file.
std::vector<uint32_t> sample_rows(const MdrReader& reader, int words_per_row) {
  const auto width = static_cast<size_t>(words_per_row);
  if (reader.block_count() == words_per_row &&
      reader.words().size() == width * static_cast<size_t>(reader.GetLineCount()) && !reader.transposed()) {
    return reader.words();
  }
  std::vector<uint32_t> words(width * static_cast<size_t>(reader.GetLineCount()), 0);
  for (int s = 0; s < reader.GetLineCount(); ++s) {
    for (int j = 0; j < reader.GetColCount(); ++j) {
      put_packed_genotype(words.data() + static_cast<size_t>(s) * width, static_cast<size_t>(j),
                          static_cast<unsigned>(reader.GetSNPdata(s, j)));
    }
  }
  return words;
}

// The blocks of an order's enumeration, one after another.
class Blocks {
 public:
  Blocks(const ExhaustiveData& data, int order, int block_size)
      : n_snps_(data.n_snps), order_(order), cursor_(static_cast<size_t>(order), -1) {
    const uint64_t total = comb_count(n_snps_, order).value_or(static_cast<uint64_t>(block_size));
    block_size_ = static_cast<int>(std::min<uint64_t>(total, static_cast<uint64_t>(block_size)));
    combinations_.resize(static_cast<size_t>(block_size_) * static_cast<size_t>(order));
  }

  // False when the enumeration is over.
  bool next() {
    combSNP(&order_, &n_snps_, &block_size_, cursor_.data(), &count_, combinations_.data());
    if (count_ > 0) {
      std::copy_n(combination(count_ - 1), order_, cursor_.begin());
    }
    return count_ > 0;
  }

  int count() const { return count_; }
  int capacity() const { return block_size_; }
  const int* combination(int c) const {
    return combinations_.data() + static_cast<size_t>(c) * static_cast<size_t>(order_);
  }

 private:
  int n_snps_;
  int order_;
  int block_size_ = 0;
  int count_ = 0;
  std::vector<int> cursor_;
  std::vector<int> combinations_;
};

// Combinations between two looks at the clock and at the stop signal.
constexpr int kScoredAtATime = 256;

// Scores a whole block. False when a signal asks to stop.
bool score_block(const ExhaustiveData& data, const ExhaustiveRules& rules, const Blocks& blocks,
                 uint64_t done, Progress* progress, double* measures) {
  for (int c = 0; c < blocks.count(); c += kScoredAtATime) {
    if (stop_signal() != 0) {
      return false;
    }
    mdrCombinationAll(data, rules, blocks.combination(c), std::min(kScoredAtATime, blocks.count() - c),
                      measures + static_cast<size_t>(c) * kMeasureCount);
    if (progress != nullptr) {
      progress->update(done + static_cast<uint64_t>(c));
    }
  }
  return true;
}

KeptCombination kept_combination(const int* comb, int order, const double* measures) {
  return {comb_key(comb, order), std::vector<int>(comb, comb + order),
          std::vector<double>(measures, measures + kMeasureCount)};
}

// One measure of every record.
std::vector<double> selected(const std::vector<double>& measures, int count, int measure) {
  std::vector<double> values(static_cast<size_t>(count));
  for (size_t c = 0; c < values.size(); ++c) {
    values[c] = measures[c * kMeasureCount + static_cast<size_t>(measure)];
  }
  return values;
}

}  // namespace

ExhaustiveData make_exhaustive_data(const MdrReader& reader, int case_value, int missing) {
  ExhaustiveData data;
  data.n_snps = reader.GetColCount();
  data.words_per_row = static_cast<int>(packed_words(data.n_snps));
  data.words = sample_rows(reader, data.words_per_row);
  data.classes = code_classes(reader.classes(), case_value);
  data.samples.resize(static_cast<size_t>(reader.GetLineCount()));
  std::iota(data.samples.begin(), data.samples.end(), 0);
  const SampleList counted = make_sample_list(
      data.classes, missing == kMissingComplete ? samples_with_missing(reader) : std::vector<uint8_t>());
  data.n_cases = counted.n_cases;
  data.n_controls = counted.n_controls;
  data.threshold = static_cast<double>(data.n_cases) / data.n_controls;
  return data;
}

void mdrCombinationAll(const ExhaustiveData& data, const ExhaustiveRules& rules, const int* combinations,
                       int count, double* measures) {
  CombinationScorer scorer(rules.order, rules.missing);
  const int n = static_cast<int>(data.samples.size());
  for (int c = 0; c < count; ++c, combinations += rules.order, measures += kMeasureCount) {
    scorer.score(combinations, &data.words_per_row, data.words.data(), data.classes.data(),
                 data.samples.data(), &n, &data.n_cases, &data.n_controls, &data.threshold, &rules.tie,
                 measures);
  }
}

std::vector<double> null_distribution(const ExhaustiveData& data, const ExhaustiveRules& rules,
                                      int n_combinations, int n_permutations) {
  if (data.n_snps < rules.order) {
    return {};
  }
  std::vector<int> sampled(static_cast<size_t>(n_combinations) * static_cast<size_t>(rules.order));
  int n_sampled = 0;
  sampleCombSNP(&rules.order, &data.n_snps, &n_combinations, &n_sampled, sampled.data());
  std::vector<double> measures(static_cast<size_t>(n_sampled) * static_cast<size_t>(n_permutations) *
                               kMeasureCount);
  int n_records = 0;
  const int n = static_cast<int>(data.samples.size());
  generateNull(sampled.data(), &rules.order, &n_sampled, data.words.data(), &data.words_per_row,
               data.classes.data(), &n, data.samples.data(), &n, &data.n_cases, &data.n_controls,
               &data.threshold, &rules.tie, &rules.missing, &n_permutations, &n_records, measures.data());
  return selected(measures, n_records, rules.measure);
}

void keep_best_of_blocks(const ExhaustiveData& data, const ExhaustiveRules& rules, int block_size,
                         MDRResult* result, Progress* progress) {
  std::vector<KeptCombination>& slots = result->kept.front();
  slots.clear();
  Blocks blocks(data, rules.order, block_size);
  std::vector<double> measures(static_cast<size_t>(blocks.capacity()) * kMeasureCount, 0.0);
  std::vector<int> ascending(static_cast<size_t>(blocks.capacity()));
  int n_blocks = 0;
  size_t count = 0;
  uint64_t done = 0;
  for (; blocks.next(); ++n_blocks) {
    const int n = blocks.count();
    if (!score_block(data, rules, blocks, done, progress, measures.data())) {
      return;
    }
    done += static_cast<uint64_t>(n);
    const std::vector<double> values = selected(measures, n, rules.measure);
    const size_t element_size = sizeof(double);
    shellsortIndex(ascending.data(), values.data(), &n, &element_size, cmp_double);
    const size_t n_best = static_cast<size_t>(std::min(n, result->slots));
    slots.resize(std::max(slots.size(), n_best));
    for (size_t i = 0; i < n_best; ++i) {
      const int best = ascending[static_cast<size_t>(n) - 1 - i];
      slots[i] = kept_combination(blocks.combination(best), rules.order,
                                  measures.data() + static_cast<size_t>(best) * kMeasureCount);
    }
    count = n_blocks >= result->slots ? static_cast<size_t>(result->slots) : n_best;
  }
  const KeptCombination empty{
      comb_key(std::vector<int>(static_cast<size_t>(rules.order), 0).data(), rules.order),
      std::vector<int>(static_cast<size_t>(rules.order), 0), std::vector<double>(kMeasureCount, 0.0)};
  slots.resize(count, empty);
  if (n_blocks > 1) {
    notice(
        "order %d: %d blocks of combinations, of which the last one's best are kept; --mode 1 ranks all of "
        "them",
        rules.order, n_blocks);
  }
}

void keep_above_threshold(const ExhaustiveData& data, const ExhaustiveRules& rules, int block_size,
                          double threshold, MDRResult* result, Progress* progress) {
  std::vector<KeptCombination>& slots = result->kept.front();
  slots.clear();
  const auto n_slots = static_cast<size_t>(result->slots);
  Blocks blocks(data, rules.order, block_size);
  std::vector<double> measures(static_cast<size_t>(blocks.capacity()) * kMeasureCount, 0.0);
  for (uint64_t done = 0; slots.size() < n_slots && blocks.next();
       done += static_cast<uint64_t>(blocks.count())) {
    if (!score_block(data, rules, blocks, done, progress, measures.data())) {
      return;
    }
    for (int c = 0; c < blocks.count() && slots.size() < n_slots; ++c) {
      const double* record = measures.data() + static_cast<size_t>(c) * kMeasureCount;
      if (record[rules.measure] > threshold) {
        slots.push_back(kept_combination(blocks.combination(c), rules.order, record));
      }
    }
  }
  if (n_slots > 0 && slots.size() == n_slots) {
    notice("order %d: %zu combinations are above the threshold, and the rest of the order is not looked at",
           rules.order, n_slots);
  }
}
