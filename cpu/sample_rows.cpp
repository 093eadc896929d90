// SPDX-License-Identifier: Apache-2.0
#include "cpu/sample_rows.h"

#include <algorithm>
#include <cstring>

#include "cpu/shares.h"
#include "lib/bits.h"
#include "lib/packed_genotypes.h"

std::optional<RowWeights> row_weights(const std::vector<int32_t>& training_cases,
                                      const std::vector<int32_t>& training_controls, const Segments& segments,
                                      bool equal) {
  int64_t samples[2] = {0, 0};  // controls, cases
  size_t most_of_segment = 0;
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    samples[segment % 2] += static_cast<int64_t>(segments.samples[segment].size());
    most_of_segment = std::max(most_of_segment, segments.samples[segment].size());
  }
  // The largest share of controls to cases in a fold, and of cases to controls.
  double per_case = 0.0;
  double per_control = 0.0;
  for (size_t f = 0; f < training_cases.size(); ++f) {
    if (training_cases[f] <= 0 || training_controls[f] <= 0) {
      return std::nullopt;
    }
    per_case = std::max(per_case, static_cast<double>(training_controls[f]) / training_cases[f]);
    per_control = std::max(per_control, static_cast<double>(training_cases[f]) / training_controls[f]);
  }
  RowWeights best;
  best.cases_plus = equal || per_case <= per_control;
  const double ratio = equal ? 1.0 : std::min(per_case, per_control);
  // With weights 1 the bound is this much too high. In bytes that costs less than what it saves.
  constexpr double kNear = 0.98;
  if (ratio <= 1.0 && ratio >= kNear && most_of_segment <= static_cast<size_t>(kLargestRowByte)) {
    best.form = RowValues::kBytes;
    return best;
  }
  const int64_t n_plus = samples[best.cases_plus ? 1 : 0];
  const int64_t n_minus = samples[best.cases_plus ? 0 : 1];
  bool found = false;
  double best_excess = 0.0;
  for (int minus = 1; minus <= kLargestRowWeight && minus * n_minus <= kLargestRowWord; ++minus) {
    int plus = std::max(1, static_cast<int>(minus * ratio));
    while (plus < minus * ratio) {  // the smallest integer that is not below
      ++plus;
    }
    const double excess = plus / (minus * ratio);
    if (plus <= kLargestRowWeight && plus * n_plus <= kLargestRowWord && (!found || excess < best_excess)) {
      best.plus = plus;
      best.minus = minus;
      best_excess = excess;
      found = true;
    }
  }
  return found ? std::optional(best) : std::nullopt;
}

SampleRows::SampleRows(const Problem& problem, const LanePlanes& planes, const Segments& segments,
                       RowWeights weights, size_t threads)
    : weights_(weights), n_folds_(static_cast<size_t>(segments.n_folds)), n_pairs_(n_folds_) {
  lay_out(segments);
  const auto snps = static_cast<size_t>(problem.n_snps);
  const size_t n_blocks = (snps + kRowLanes - 1) / kRowLanes;
  const bool bytes = weights_.form == RowValues::kBytes;
  missing_.resize(snps);
  block_missing_.assign(n_blocks, 0);
  find_missing(planes);
  if (weights_.form != RowValues::kCounts) {
    last_words_.assign(n_blocks * words_of_block() * kRowLanes, 0);
    last_bytes_.assign(bytes ? n_blocks * n_folds_ * 2 * kRowLanes : 0, 0);
    beyond_slack_.assign(n_blocks * kRowGroups, 0);
    weigh_missing(planes, segments);
    for (size_t b = 0; b < n_blocks; ++b) {
      fill_values(planes, snps, b);
    }
  }
  rows_.assign(n_blocks * n_samples_ * kSampleBytes, 0);
  fill_in_shares(n_blocks, threads,
                 [&](size_t first, size_t end) { fill_rows(problem, segments, first, end); });
}

void SampleRows::find_missing(const LanePlanes& planes) {
  for (size_t snp = 0; snp < missing_.size(); ++snp) {
    if (planes.snp_missing(static_cast<int>(snp))) {
      block_missing_[snp / kRowLanes] = 1;
      any_missing_ = true;
    }
  }
}

void SampleRows::weigh_missing(const LanePlanes& planes, const Segments& segments) {
  const size_t minus = weights_.cases_plus ? 0 : 1;
  int32_t samples[2] = {0, 0};  // controls, cases
  int32_t most_tested = 0;      // of the minus class
  for (size_t segment = 0; segment < segments.samples.size(); ++segment) {
    const auto n = static_cast<int32_t>(segments.samples[segment].size());
    samples[segment % 2] += n;
    most_tested = segment % 2 == minus && segment < 2 * n_folds_ ? std::max(most_tested, n) : most_tested;
  }
  // A prefix and a last SNP together lack no more than the minus samples of any fold's training set weigh.
  most_missing_ = std::min(kLargestMissing, weights_.minus * (samples[minus] - most_tested) / 2);
  for (size_t snp = 0; snp < missing_.size(); ++snp) {
    if (!planes.snp_missing(static_cast<int>(snp))) {
      continue;
    }
    const uint32_t* counts = planes.marginals(snp / kLanes) + snp % kLanes;
    int32_t lacking[2] = {samples[0], samples[1]};
    for (size_t i = 0; i < 3 * (n_folds_ + 1); ++i) {
      lacking[0] -= static_cast<int32_t>(counts[i * kLanes] & 0xffffu);
      lacking[1] -= static_cast<int32_t>(counts[i * kLanes] >> 16);
    }
    missing_[snp] = {weights_.plus * lacking[1 - minus], weights_.minus * lacking[minus]};
    if (missing_[snp].larger() > most_missing_) {
      beyond_slack_[snp / kGroupLanes] |= uint64_t{1} << snp % kGroupLanes;
    }
  }
}

namespace {

// The first sample of a piece of n of even size, at whole bytes of the planes.
size_t piece_border(size_t samples, size_t piece, size_t n) {
  return piece == n ? samples : samples * piece / n / 8 * 8;
}

// Whether sums of the rows of a piece fit a byte, and places of samples 16 bits. One place is that of the
// sample whose rows have no bits.
bool piece_fits(RowValues form, size_t controls, size_t cases) {
  if (form == RowValues::kBytes) {
    return controls + cases < kPieceSamples;
  }
  return controls < kPieceSamples && cases < kPieceSamples && (controls + cases) * kSampleBytes <= UINT16_MAX;
}

// The least number of pieces that fit.
size_t piece_number(RowValues form, size_t controls, size_t cases) {
  for (size_t n = 1;; ++n) {
    bool fit = true;
    for (size_t piece = 0; piece < n; ++piece) {
      const auto size = [&](size_t all) {
        return piece_border(all, piece + 1, n) - piece_border(all, piece, n);
      };
      fit = fit && piece_fits(form, size(controls), size(cases));
    }
    if (fit) {
      return n;
    }
  }
}

}  // namespace

void SampleRows::lay_out(const Segments& segments) {
  const size_t last = 2 * n_folds_;
  if (!segments.samples[last].empty() || !segments.samples[last + 1].empty()) {
    ++n_pairs_;
  }
  for (size_t pair = 0; pair < n_pairs_; ++pair) {
    const size_t controls = segments.samples[2 * pair].size();
    const size_t cases = segments.samples[2 * pair + 1].size();
    const size_t n = piece_number(weights_.form, controls, cases);
    for (size_t piece = 0; piece < n; ++piece) {
      pieces_.push_back({static_cast<uint32_t>(n_samples_), static_cast<uint32_t>(pair), piece == 0});
      size_t place = 0;
      for (size_t label = 0; label < 2; ++label) {
        const size_t segment = 2 * pair + label;
        const size_t first = piece_border(segments.samples[segment].size(), piece, n);
        const size_t end = piece_border(segments.samples[segment].size(), piece + 1, n);
        const size_t first_byte =
            static_cast<size_t>(segments.first_word[segment]) * sizeof(uint64_t) + first / 8;
        parts_.push_back({static_cast<uint32_t>(first_byte), static_cast<uint16_t>(end - first),
                          static_cast<uint16_t>(place)});
        place += end - first;
      }
      n_samples_ += place + 1;
    }
  }
}

void SampleRows::fill_rows(const Problem& problem, const Segments& segments, size_t first_block, size_t end) {
  constexpr size_t kWordsOfBlock = kRowLanes / kGenotypesPerWord;
  const size_t words = std::min(end * kWordsOfBlock, static_cast<size_t>(packed_words(problem.n_snps)));
  for (size_t p = 0; p < parts_.size(); ++p) {
    const RowPart& part = parts_[p];
    const size_t segment = 2 * size_t{pieces_[p / 2].pair} + p % 2;
    const bool minus = (segment % 2 == 1) != weights_.cases_plus;
    const size_t first =
        8 * (part.first_byte - static_cast<size_t>(segments.first_word[segment]) * sizeof(uint64_t));
    for (size_t i = 0; i < part.n; ++i) {
      const uint32_t* packed = problem.row(static_cast<size_t>(segments.samples[segment][first + i]));
      const size_t sample = pieces_[p / 2].first_sample + part.first_place + i;
      for (size_t w = first_block * kWordsOfBlock; w < words; w += kWordsOfGroup) {
        uint32_t group[kWordsOfGroup] = {};
        std::copy_n(packed + w, std::min(kWordsOfGroup, words - w), group);
        set_bits(w / kWordsOfGroup, sample, group, minus);
      }
    }
  }
}

// The genotypes of a group's packed words in the rows of a sample.
void SampleRows::set_bits(size_t group, size_t sample, const uint32_t (&packed)[kWordsOfGroup], bool minus) {
  uint64_t low = 0;
  uint64_t high = 0;  // both: missing
  for (size_t i = 0; i < kWordsOfGroup; i += 2) {
    const uint64_t genotypes = packed[i] | uint64_t{packed[i + 1]} << 32;
    low |= uint64_t{even_bits(genotypes)} << (kGenotypesPerWord * i);
    high |= uint64_t{even_bits(genotypes >> 1)} << (kGenotypesPerWord * i);
  }
  const size_t b = group / kRowGroups;
  const size_t first_snp = group % kRowGroups * kGroupLanes;
  // 16 SNPs at a time: in their order, or four from each sixteenth of the group, see count_row_bit.
  const auto set = [&](uint8_t* to, uint64_t bits) {
    for (size_t i = 0; i < kWordsOfGroup; ++i) {
      const auto part = static_cast<uint16_t>(bits >> (kGenotypesPerWord * i));
      std::memcpy(to + row_bit(first_snp + i * kGenotypesPerWord) / 8, &part, sizeof(part));
    }
  };
  uint8_t* rows = rows_.data() + (b * n_samples_ + sample) * kSampleBytes;
  if (weights_.form == RowValues::kCounts) {
    set(rows, transpose_nibbles(low));
    set(rows + kRowBytes, transpose_nibbles(high));
    return;
  }
  const uint64_t one = low & ~high;
  const uint64_t two = high & ~low;
  set(rows, minus ? ~one : one);
  set(rows + kRowBytes, minus ? ~two : two);
}

void SampleRows::fill_values(const LanePlanes& planes, size_t n_snps, size_t b) {
  int16_t* words = last_words_.data() + b * words_of_block() * kRowLanes;
  uint8_t* bytes = last_bytes_.data() + b * n_folds_ * 2 * kRowLanes;
  const size_t pairs_in_planes = n_folds_ + 1;
  std::vector<int32_t> value(pairs_in_planes);
  for (size_t snp = b * kRowLanes; snp < std::min(n_snps, (b + 1) * kRowLanes); ++snp) {
    const size_t lane = snp % kRowLanes;
    const size_t group = lane / kGroupLanes;
    const size_t half = word_in_group(lane) / (kGroupLanes / 2);
    const size_t word = word_in_group(lane) % (kGroupLanes / 2);
    const uint32_t* counts = planes.marginals(snp / kLanes) + snp % kLanes;
    for (size_t g = 0; g < 2; ++g) {
      int32_t total = 0;
      for (size_t pair = 0; pair < pairs_in_planes; ++pair) {
        const uint32_t both = counts[((1 + g) * pairs_in_planes + pair) * kLanes];
        value[pair] = weights_.value(static_cast<int32_t>(both >> 16), static_cast<int32_t>(both & 0xffffu));
        total += value[pair];
      }
      if (weights_.form == RowValues::kBytes) {
        words[((2 * group + half) * 2 + g) * (kGroupLanes / 2) + word] = static_cast<int16_t>(total);
        for (size_t f = 0; f < n_folds_; ++f) {
          bytes[((group * n_folds_ + f) * 2 + g) * kGroupLanes + lane % kGroupLanes] =
              static_cast<uint8_t>(value[f] + 128);
        }
      } else {
        for (size_t f = 0; f < n_folds_; ++f) {
          words[(((2 * group + half) * n_folds_ + f) * 2 + g) * (kGroupLanes / 2) + word] =
              static_cast<int16_t>(total - value[f]);
        }
      }
    }
  }
}
