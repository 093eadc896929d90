// SPDX-License-Identifier: Apache-2.0
#include "cpu/row_tile.h"

#include <algorithm>
#include <numeric>

namespace {

// The filter's scratch should stay in a core's second-level cache, beside the rows.
constexpr size_t kScratchBytes = size_t{720} * 1024;
constexpr size_t kMostPrefixes = 16;

// Rows of more bytes than this do not stay beside the scratch.
constexpr size_t kNearRows = size_t{512} * 1024;

size_t most_frequent_genotype(const LanePlanes& planes, int snp) {
  const auto lane = static_cast<size_t>(snp) % kLanes;
  const uint32_t* totals = planes.totals(static_cast<size_t>(snp) / kLanes);
  const auto samples = [&](size_t g) {
    return (totals[g * kLanes + lane] & 0xffffu) + (totals[g * kLanes + lane] >> 16);
  };
  const size_t more = samples(1) > samples(0) ? 1 : 0;
  return samples(2) > samples(more) ? 2 : more;
}

struct ClassCounts {
  int32_t controls = 0;
  int32_t cases = 0;
};

// A number times a share, not below it.
int32_t at_least(int32_t number, float share) {
  return number == 0 ? 0 : static_cast<int32_t>(static_cast<float>(number) * share) + 1;
}

}  // namespace

RowTile::RowTile(const SampleRows& rows, const LanePlanes& planes, const Segments& segments, int order,
                 const RowKernels& kernels)
    : rows_(rows),
      planes_(planes),
      segments_(segments),
      kernels_(kernels),
      n_folds_(static_cast<size_t>(segments.n_folds)) {
  snp_planes_.resize(static_cast<size_t>(order) - 1);
  for (SnpPlanes& snp : snp_planes_) {
    snp.words.resize(3 * planes.words() + 1);
    n_patterns_ *= 3;
  }
  n_lists_ = n_patterns_ - (rows.any_missing() ? 0 : 1);
  const RowValues form = rows.weights().form;
  const size_t most_cells = n_lists_ * (counts() && rows.any_missing() ? 3 : 2);
  const size_t value_bytes = form == RowValues::kBytes ? 1 : form == RowValues::kWords ? 2 : 4;
  const size_t scratch = rows.n_pairs() * most_cells * kCountStride * value_bytes;
  const size_t n = std::clamp<size_t>(kScratchBytes / scratch, 1, kMostPrefixes);
  if (counts()) {
    pair_counts_.resize(n * scratch / value_bytes);
  } else {
    values_.resize(n * scratch);
    slack_bytes_.assign(kRowLanes, 0);
    slack_words_.assign(kRowLanes, 0);
  }
  prefixes_.resize(n);
  views_.resize(n);
  passing_.resize(n * kRowGroups);
  for (Prefix& prefix : prefixes_) {
    prefix.lists.resize(rows.pieces().size() * n_lists_ * (form == RowValues::kBytes ? 1 : 2));
    prefix.values.resize((n_folds_ + 1) * n_patterns_);
    prefix.pairs.resize(n_lists_ * (rows.n_pairs() + 1));
    prefix.samples.resize(planes.words() * kSamplesPerPlaneWord + prefix.lists.size() * kListStep + 64);
  }
  counts_.resize(rows.pieces().size() * n_lists_ * 2);
  by_pair_.resize(rows.n_pairs());
  left_.resize(rows.n_pairs());
}

void RowTile::add(const int* comb, size_t first, size_t end) {
  const uint8_t* planes_of_snp[kMaxOrder - 1];
  for (size_t j = 0; j < snp_planes_.size(); ++j) {
    SnpPlanes& of = snp_planes_[j];
    if (of.snp != comb[j]) {
      of.snp = comb[j];
      // What pattern 0 has follows from the others: sums, which do not ask which pattern is which, leave out
      // the genotype that most samples have.
      const size_t first_genotype = counts() ? 0 : most_frequent_genotype(planes_, of.snp);
      for (size_t g = 0; g < 3; ++g) {
        for (size_t w = 0; w < planes_.words(); ++w) {
          of.words[g * planes_.words() + w] = planes_.word(of.snp, (first_genotype + g) % 3, w);
        }
      }
    }
    planes_of_snp[j] = reinterpret_cast<const uint8_t*>(of.words.data());
  }
  Prefix& prefix = prefixes_[n_prefixes_++];
  kernels_.list(rows_.weights().form,
                {planes_of_snp, snp_planes_.size(), planes_.words() * sizeof(uint64_t), n_patterns_,
                 n_lists_ == n_patterns_, rows_.parts().data(), rows_.pieces().size(),
                 rows_.weights().cases_plus, prefix.samples.data(), prefix.lists.data(), counts_.data()});
  if (counts()) {
    set_pairs(prefix);
  } else {
    set_values(prefix);
  }
  prefix.first_snp = first;
  prefix.end_snp = end;
}

// The values of the patterns, whatever the last SNP: pattern 0 has what the others leave.
void RowTile::set_values(Prefix& prefix) {
  const RowWeights& weights = rows_.weights();
  const bool bytes = weights.form == RowValues::kBytes;
  for (size_t pair = 0; pair < rows_.n_pairs(); ++pair) {
    left_[pair] = weights.value(static_cast<int32_t>(segments_.samples[2 * pair + 1].size()),
                                static_cast<int32_t>(segments_.samples[2 * pair].size()));
  }
  // Takes a list out of what is left, and into by_pair_; returns its samples of all pairs.
  const auto take_list = [&](size_t list) {
    ClassCounts samples;
    std::fill(by_pair_.begin(), by_pair_.end(), 0);
    for (size_t piece = 0; piece < rows_.pieces().size(); ++piece) {
      const uint16_t* counts = counts_.data() + (piece * n_lists_ + list) * 2;
      const size_t pair = rows_.pieces()[piece].pair;
      const int32_t value = weights.value(counts[1], counts[0]);
      by_pair_[pair] += value;
      left_[pair] -= value;
      samples.controls += counts[0];
      samples.cases += counts[1];
    }
    return samples;
  };
  prefix.missing_excess = 0;
  prefix.missing = 0;
  if (n_lists_ == n_patterns_) {
    const ClassCounts samples = take_list(n_patterns_ - 1);
    const int32_t total = weights.value(samples.cases, samples.controls);
    for (size_t f = 0; f < n_folds_; ++f) {
      prefix.missing_excess = std::max(prefix.missing_excess, total - by_pair_[f]);
    }
    const int32_t plus = weights.plus * (weights.cases_plus ? samples.cases : samples.controls);
    prefix.missing = std::max(plus, plus - total);
  }
  for (size_t pattern = n_patterns_; pattern-- > 0;) {
    if (pattern == 0) {
      by_pair_ = left_;
    } else {
      take_list(pattern - 1);
    }
    const int32_t total = std::accumulate(by_pair_.begin(), by_pair_.end(), int32_t{0});
    for (size_t f = 0; f < n_folds_; ++f) {
      prefix.values[f * n_patterns_ + pattern] =
          static_cast<int16_t>(bytes ? by_pair_[f] : total - by_pair_[f]);
    }
    prefix.values[n_folds_ * n_patterns_ + pattern] = static_cast<int16_t>(total);
  }
}

void RowTile::set_pairs(Prefix& prefix) {
  std::fill(prefix.pairs.begin(), prefix.pairs.end(), 0);
  const uint16_t* counts = counts_.data();
  for (const RowPiece& piece : rows_.pieces()) {
    for (size_t list = 0; list < n_lists_; ++list, counts += 2) {
      const uint32_t pair = counts[0] | uint32_t{counts[1]} << 16;
      uint32_t* pairs = prefix.pairs.data() + list * (rows_.n_pairs() + 1);
      pairs[piece.pair] += pair;
      pairs[rows_.n_pairs()] += pair;
    }
  }
}

RowPieces RowTile::row_pieces() const {
  return {rows_.pieces().data(), rows_.pieces().size(), rows_.n_samples(),
          rows_.n_samples() * kSampleBytes > kNearRows};
}

void RowTile::make_views(size_t block, size_t first, size_t end) {
  const size_t start = block * kRowLanes;
  for (size_t i = first; i < end; ++i) {
    const Prefix& prefix = prefixes_[i];
    const size_t from = std::max(prefix.first_snp, start) - start;
    const size_t to = std::min(prefix.end_snp - start, kRowLanes);
    views_[i] = {prefix.samples.data(), prefix.lists.data(),
                 prefix.values.data(),  0,
                 from / kGroupLanes,    (to + kGroupLanes - 1) / kGroupLanes};
  }
}

// The slacks of a block's SNPs that lack genotypes, in the places where the kernel expects them.
void RowTile::set_last_slacks(size_t block, float floor) {
  const size_t first = block * kRowLanes;
  const size_t n = std::min(kRowLanes, rows_.n_snps() - first);
  for (size_t lane = 0; lane < n; ++lane) {
    const int32_t missing = rows_.missing(first + lane).larger();
    const int32_t slack = missing > rows_.most_missing() ? 0 : missing + at_least(missing, floor);
    if (rows_.weights().form == RowValues::kBytes) {
      slack_bytes_[lane] = static_cast<uint8_t>(std::min(slack, 255));
    } else {
      slack_words_[lane / kGroupLanes * kGroupLanes + word_in_group(lane)] = static_cast<int16_t>(slack);
    }
  }
}

void RowTile::filter(size_t block, size_t first, size_t end, const int16_t* needs, float floor) {
  make_views(block, first, end);
  const RowWeights& weights = rows_.weights();
  if (rows_.any_missing()) {
    set_last_slacks(block, floor);
    for (size_t i = first; i < end; ++i) {
      views_[i].slack =
          static_cast<int16_t>(prefixes_[i].missing_excess + at_least(prefixes_[i].missing, floor));
    }
  }
  const void* last_slacks =
      weights.form == RowValues::kBytes ? static_cast<const void*>(slack_bytes_.data()) : slack_words_.data();
  kernels_.filter(weights.form, {rows_.block(block), row_pieces(), rows_.n_pairs(), n_patterns_,
                                 n_lists_ == n_patterns_, weights.plus, weights.minus, views_.data() + first,
                                 end - first, rows_.last_bytes(block), rows_.last_words(block), last_slacks,
                                 needs, n_folds_, values_.data(), passing_.data() + first * kRowGroups});
  if (rows_.any_missing()) {
    for (size_t i = first * kRowGroups; i < end * kRowGroups; ++i) {
      passing_[i] |= rows_.beyond_slack(block)[i % kRowGroups];
    }
  }
}

void RowTile::count(size_t block, size_t first, size_t end) {
  make_views(block, first, end);
  const RowCountInput input{
      rows_.block(block), rows_.block_missing(block), row_pieces(), rows_.n_pairs(),
      n_lists_,           views_.data() + first,      end - first,  pair_counts_.data()};
  counted_cells_ = counted_cells(input);
  first_counted_ = first;
  kernels_.count(input);
}

LaneDeriveInput RowTile::counted(size_t prefix, size_t lane, size_t b) const {
  const size_t of_pair = counted_cells_ * kCountStride;
  const uint32_t* counts = pair_counts_.data() + (prefix - first_counted_) * rows_.n_pairs() * of_pair + lane;
  return {counts,
          kCountStride,
          rows_.n_pairs(),
          n_folds_ + 1,
          n_patterns_,
          n_lists_,
          counted_cells_ / n_lists_,
          prefixes_[prefix].pairs.data(),
          planes_.marginals(b),
          planes_.totals(b)};
}
