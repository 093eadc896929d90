// SPDX-License-Identifier: Apache-2.0
#include "fuzz/search_problem.h"

#include "lib/packed_genotypes.h"

namespace {

// SNPs at most, by order: some dozens of combinations.
constexpr int kMostSnps[] = {0, 40, 20, 8, 7};

// Bytes of the input, and numbers that follow from them when it has no more: a short input makes full data,
// too.
class Draw {
 public:
  explicit Draw(FuzzInput& input) : input_(input) {}

  unsigned byte() {
    if (!input_.rest().empty()) {
      const unsigned next = input_.byte();
      state_ = (state_ ^ next) * kFactor;
      return next;
    }
    state_ = state_ * kFactor + 1;
    return static_cast<unsigned>(state_ >> 56);
  }

  // Two bits.
  unsigned code() {
    if (n_codes_ == 0) {
      codes_ = byte();
      n_codes_ = 4;
    }
    --n_codes_;
    const unsigned code = codes_ & 3;
    codes_ >>= 2;
    return code;
  }

 private:
  static constexpr uint64_t kFactor = 6364136223846793005u;

  FuzzInput& input_;
  uint64_t state_ = 1;
  unsigned codes_ = 0;
  int n_codes_ = 0;
};

// Numbers that cancel and swallow others, zeros and denormals: the order of additions decides signs and ties.
float score_of(unsigned byte) {
  constexpr float kScores[] = {0.0f, 1e8f, -1e8f, 1e-42f, -1e-42f, 1.0f, -1.0f, 0.37f};
  return byte < 128 ? kScores[byte % 8] : static_cast<float>(byte) / 97.0f - 2.0f;
}

}  // namespace

SearchProblem::SearchProblem(FuzzInput input) {
  ScoringRules rules;
  rules.order = input.number(1, kLargestOrder);
  rules.missing = input.number(1, 4);
  rules.tie = input.number(0, 2);
  rules.measure = input.number(0, 9);
  const int n_folds = input.number(1, 9);
  const int first_fold = input.number(0, n_folds - 1);
  const bool leave_out = input.number(0, 3) == 1;
  const bool with_scores = input.number(0, 3) == 1;
  problem_.n_snps = input.number(rules.order, kMostSnps[rules.order]);
  problem_.n_samples = input.number(1, 100);
  setup_.list_size = input.number(1, 20);
  cut_ = input.byte();
  problem_.words_per_row = packed_words(problem_.n_snps);
  draw_samples(input, n_folds, leave_out, with_scores);
  setup_.kind = LoopKind::kSearch;
  setup_.rules = rules;
  views_ = folds_.views(first_fold);
  setup_.folds = views_;
  setup_.samples = folds_.samples;
}

void SearchProblem::draw_samples(FuzzInput& input, int n_folds, bool leave_out, bool with_scores) {
  // Missing genotypes as they come, a few, or none.
  const int missing = input.number(0, 3);
  Draw draw(input);
  std::vector<uint8_t> left_out;
  const auto row = static_cast<size_t>(problem_.words_per_row);
  words_.resize(row * static_cast<size_t>(problem_.n_samples));
  for (size_t s = 0; s < static_cast<size_t>(problem_.n_samples); ++s) {
    const unsigned about = draw.byte();
    classes_.push_back(static_cast<uint8_t>(about & 1));
    left_out.push_back(leave_out && about % 16 >= 14 ? 1 : 0);
    if (with_scores) {
      scores_.push_back(score_of(draw.byte()));
    }
    for (int snp = 0; snp < problem_.n_snps; ++snp) {
      unsigned code = draw.code();
      if (code == kMissingGenotype && missing != 0 && (missing != 1 || draw.byte() % 16 != 0)) {
        code = 0;
      }
      put_packed_genotype(words_.data() + s * row, static_cast<size_t>(snp), code);
    }
  }
  problem_.words = words_.data();
  problem_.classes = classes_.data();
  problem_.scores = with_scores ? scores_.data() : nullptr;
  const SampleList list = make_sample_list(classes_, left_out);
  folds_ = split_folds(list, deal_folds(list.n_cases, list.n_controls, n_folds), n_folds);
}
