// SPDX-License-Identifier: Apache-2.0
#include "src/exhaustive.h"

#include <algorithm>
#include <cinttypes>
#include <numeric>

#include "lib/comb.h"
#include "lib/comb_rank.h"
#include "lib/mdr.h"
#include "lib/packed_genotypes.h"
#include "lib/permutation.h"
#include "lib/utils.h"
#include "src/exhaustive_state.h"
#include "src/folds.h"
#include "src/notice.h"
#include "src/search_state.h"
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

// The blocks of an order's enumeration, one after another, from the one that holds rank `first` on.
class Blocks {
 public:
  Blocks(const ExhaustiveData& data, int order, int block_size, uint64_t first)
      : n_snps_(data.n_snps), order_(order), cursor_(static_cast<size_t>(order), -1) {
    const uint64_t total = comb_count(n_snps_, order).value_or(static_cast<uint64_t>(block_size));
    block_size_ = static_cast<int>(std::min<uint64_t>(total, static_cast<uint64_t>(block_size)));
    combinations_.resize(static_cast<size_t>(block_size_) * static_cast<size_t>(order));
    if (first > 0 && first >= capacity()) {
      next_start_ = first - first % capacity();
      comb_unrank(n_snps_, order, next_start_ - 1, cursor_.data());
    }
  }

  // False when the enumeration is over.
  bool next() {
    start_ = next_start_;
    combSNP(&order_, &n_snps_, &block_size_, cursor_.data(), &count_, combinations_.data());
    if (count_ > 0) {
      std::copy_n(combination(count_ - 1), order_, cursor_.begin());
    }
    next_start_ += static_cast<uint64_t>(count_);
    return count_ > 0;
  }

  uint64_t capacity() const { return static_cast<uint64_t>(block_size_); }
  uint64_t start() const { return start_; }  // rank of the block's first combination
  int count() const { return count_; }
  const int* combination(int c) const {
    return combinations_.data() + static_cast<size_t>(c) * static_cast<size_t>(order_);
  }

 private:
  int n_snps_;
  int order_;
  int block_size_ = 0;
  int count_ = 0;
  uint64_t start_ = 0;
  uint64_t next_start_ = 0;
  std::vector<int> cursor_;
  std::vector<int> combinations_;
};

// Combinations between two looks at the clock and at the stop signal.
constexpr int kScoredAtATime = 256;

// Scores the combinations of a block from number `known` on, some at a time, each time followed by scored(c),
// the number of the first that is not scored. Fails when a signal asks to stop.
template <typename Scored>
Status score_block(const ExhaustiveData& data, const ExhaustiveRules& rules, const Blocks& blocks, int known,
                   double* measures, const Scored& scored) {
  for (int c = known; c < blocks.count();) {
    if (stop_signal() != 0) {
      return stopped(stop_signal());
    }
    const int n = std::min(kScoredAtATime, blocks.count() - c);
    mdrCombinationAll(data, rules, blocks.combination(c), n,
                      measures + static_cast<size_t>(c) * kMeasureCount);
    c += n;
    scored(c);
  }
  return {};
}

KeptCombination kept_combination(const int* comb, int order, const double* measures) {
  return {comb_key(comb, order), std::vector<int>(comb, comb + order),
          std::vector<double>(measures, measures + kMeasureCount)};
}

// The combination of a rank, scored.
KeptCombination scored_combination(const ExhaustiveData& data, const ExhaustiveRules& rules, uint64_t rank) {
  std::vector<int> comb(static_cast<size_t>(rules.order));
  comb_unrank(data.n_snps, rules.order, rank, comb.data());
  std::vector<double> measures(kMeasureCount, 0.0);
  mdrCombinationAll(data, rules, comb.data(), 1, measures.data());
  return kept_combination(comb.data(), rules.order, measures.data());
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

Status keep_best_of_blocks(const ExhaustiveData& data, const ExhaustiveRules& rules, int block_size,
                           Progress& progress, Checkpoint& checkpoint, MDRResult* result) {
  std::vector<KeptCombination>& slots = result->kept.front();
  slots.clear();
  const uint64_t total = comb_count(data.n_snps, rules.order).value();
  const auto n_slots = static_cast<size_t>(std::max(result->slots, 0));
  BestOfBlocksState state;
  Status status =
      restore_blocks(checkpoint, rules.order, total, static_cast<uint64_t>(block_size), n_slots, &state);
  if (!status.ok()) {
    return status;
  }
  for (const uint64_t rank : state.slots) {
    slots.push_back(scored_combination(data, rules, rank));
  }
  progress.begin(rules.order, total, state.next);
  Blocks blocks(data, rules.order, block_size, state.next);
  std::vector<double> measures(blocks.capacity() * kMeasureCount, 0.0);
  std::vector<int> ascending(blocks.capacity());
  while (state.next < total && blocks.next()) {
    const int n = blocks.count();
    // Of combinations that are known the value will do: the best of them are scored again.
    const auto known = static_cast<int>(state.values.size());
    for (size_t c = 0; c < state.values.size(); ++c) {
      measures[c * kMeasureCount + static_cast<size_t>(rules.measure)] = state.values[c];
    }
    const auto keep = [&] {
      state.values = selected(measures, static_cast<int>(state.next - blocks.start()), rules.measure);
      checkpoint.keep(order_section(rules.order), lines_of(state));
    };
    status = score_block(data, rules, blocks, known, measures.data(), [&](int scored) {
      state.next = blocks.start() + static_cast<uint64_t>(scored);
      progress.update(state.next);
      if (checkpoint.is_due() && scored < n) {
        keep();
      }
    });
    if (!status.ok()) {
      keep();
      return status;
    }
    const std::vector<double> values = selected(measures, n, rules.measure);
    const size_t element_size = sizeof(double);
    shellsortIndex(ascending.data(), values.data(), &n, &element_size, cmp_double);
    const size_t n_best = std::min(static_cast<size_t>(n), n_slots);
    slots.resize(std::max(slots.size(), n_best));
    state.slots.resize(slots.size());
    for (size_t i = 0; i < n_best; ++i) {
      const int best = ascending[static_cast<size_t>(n) - 1 - i];
      state.slots[i] = blocks.start() + static_cast<uint64_t>(best);
      slots[i] = best < known ? scored_combination(data, rules, state.slots[i])
                              : kept_combination(blocks.combination(best), rules.order,
                                                 measures.data() + static_cast<size_t>(best) * kMeasureCount);
    }
    state.values.clear();
    if (checkpoint.is_due() || state.next == total) {
      checkpoint.keep(order_section(rules.order), lines_of(state));
    }
  }
  progress.end();
  const KeptCombination empty{
      comb_key(std::vector<int>(static_cast<size_t>(rules.order), 0).data(), rules.order),
      std::vector<int>(static_cast<size_t>(rules.order), 0), std::vector<double>(kMeasureCount, 0.0)};
  const uint64_t n_blocks = total == 0 ? 0 : (total - 1) / blocks.capacity() + 1;
  const uint64_t in_last = total == 0 ? 0 : total - (n_blocks - 1) * blocks.capacity();
  slots.resize(n_blocks > n_slots ? n_slots : static_cast<size_t>(std::min<uint64_t>(in_last, n_slots)),
               empty);
  if (n_blocks > 1) {
    notice("order %d: %" PRIu64
           " blocks of combinations, of which the last one's best are kept; --mode 1 ranks all of them",
           rules.order, n_blocks);
  }
  return {};
}

Status keep_above_threshold(const ExhaustiveData& data, const ExhaustiveRules& rules, int block_size,
                            double threshold, Progress& progress, Checkpoint& checkpoint, MDRResult* result) {
  std::vector<KeptCombination>& slots = result->kept.front();
  slots.clear();
  const uint64_t total = comb_count(data.n_snps, rules.order).value();
  const auto n_slots = static_cast<size_t>(result->slots);
  const auto measure = static_cast<size_t>(rules.measure);
  AboveThresholdState state;
  Status status = restore_above_threshold(checkpoint, rules.order, total, n_slots, &state);
  for (size_t i = 0; i < state.kept.size() && status.ok(); ++i) {
    slots.push_back(scored_combination(data, rules, state.kept[i]));
    status = slots.back().record[measure] > threshold ? Status() : checkpoint.damaged();
  }
  if (!status.ok()) {
    return status;
  }
  progress.begin(rules.order, total, state.next);
  const auto keep = [&] { checkpoint.keep(order_section(rules.order), lines_of(state)); };
  Blocks blocks(data, rules.order, block_size, state.next);
  std::vector<double> measures(blocks.capacity() * kMeasureCount, 0.0);
  while (state.next < total && slots.size() < n_slots && blocks.next()) {
    const auto known = static_cast<int>(state.next - blocks.start());
    int next = known;
    status = score_block(data, rules, blocks, known, measures.data(), [&](int scored) {
      for (; next < scored && slots.size() < n_slots; ++next) {
        const double* record = measures.data() + static_cast<size_t>(next) * kMeasureCount;
        if (record[measure] > threshold) {
          slots.push_back(kept_combination(blocks.combination(next), rules.order, record));
          state.kept.push_back(blocks.start() + static_cast<uint64_t>(next));
        }
      }
      state.next = blocks.start() + static_cast<uint64_t>(scored);
      progress.update(state.next);
      if (checkpoint.is_due()) {
        keep();
      }
    });
    if (!status.ok()) {
      keep();
      return status;
    }
  }
  keep();
  progress.end();
  if (n_slots > 0 && slots.size() == n_slots) {
    notice("order %d: %zu combinations are above the threshold, and the rest of the order is not looked at",
           rules.order, n_slots);
  }
  return {};
}
