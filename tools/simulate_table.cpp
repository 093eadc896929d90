// SPDX-License-Identifier: Apache-2.0
#include "tools/field_reader.h"
#include "tools/number.h"
#include "tools/simulate_model.h"
#include "util/in_quotes.h"

namespace {

constexpr const char* kMafWord = "maf";
constexpr const char* kPenetranceWord = "penetrance";

// The words of the file, without comments: lines that begin with #.
class TableWords {
 public:
  explicit TableWords(const std::string& path) : path_(path) {}

  Status open() { return reader_.open(path_); }

  // Goes to the next word; *more is false when there is none.
  Status next(bool* more) {
    ++field_;
    while (!started_ || field_ == reader_.fields().size() || reader_.fields().front().starts_with('#')) {
      started_ = true;
      field_ = 0;
      if (Status status = reader_.next(more); !status.ok() || !*more) {
        return status;
      }
    }
    *more = true;
    return {};
  }

  std::string_view word() const { return reader_.fields()[field_]; }

  Status refusal(const std::string& expected) const {
    return Status::failure(reader_.place(field_) + ": found " + in_quotes(word()) + ", expected " + expected);
  }

  Status ended(const std::string& expected) const {
    return Status::failure(path_ + ": ends after line " + std::to_string(reader_.line_number()) +
                           ", expected " + expected);
  }

 private:
  std::string path_;
  FieldReader reader_;
  size_t field_ = 0;
  bool started_ = false;
};

Status expect_word(TableWords& words, const char* expected) {
  bool more = false;
  Status status = words.next(&more);
  if (status.ok() && !more) {
    return words.ended(in_quotes(expected));
  }
  return !status.ok() || words.word() == expected ? status : words.refusal(in_quotes(expected));
}

// The frequencies, up to the word behind them.
Status read_frequencies(TableWords& words, std::vector<double>* maf) {
  for (;;) {
    bool more = false;
    if (Status status = words.next(&more); !status.ok() || !more) {
      return status.ok() ? words.ended(in_quotes(kPenetranceWord)) : status;
    }
    if (!maf->empty() && words.word() == kPenetranceWord) {
      return {};
    }
    double value = 0.0;
    if (!parse_number(words.word(), &value) || value <= 0.0 || value > 0.5) {
      return words.refusal("a frequency above 0, at most 0.5" +
                           (maf->empty() ? "" : ", or " + in_quotes(kPenetranceWord)));
    }
    if (maf->size() == kLargestModelOrder) {
      return words.refusal(in_quotes(kPenetranceWord) + ": an interaction has at most " +
                           std::to_string(kLargestModelOrder) + " SNPs");
    }
    maf->push_back(value);
  }
}

}  // namespace

Status read_penetrance_model(const std::string& path, PenetranceModel* model) {
  *model = PenetranceModel();
  model->description = "file=" + path;
  TableWords words(path);
  Status status = words.open();
  if (status.ok()) {
    status = expect_word(words, kMafWord);
  }
  if (status.ok()) {
    status = read_frequencies(words, &model->maf);
  }
  if (!status.ok()) {
    return status;
  }
  const size_t n_cells = model->cell_probabilities().size();
  const std::string wanted =
      std::to_string(n_cells) + " penetrances of " + std::to_string(model->order()) + " SNPs";
  bool more = true;
  while (model->penetrances.size() < n_cells) {
    if (status = words.next(&more); !status.ok() || !more) {
      return status.ok() ? words.ended(wanted + ", found " + std::to_string(model->penetrances.size()))
                         : status;
    }
    double value = 0.0;
    if (!parse_number(words.word(), &value) || value < 0.0 || value > 1.0) {
      return words.refusal("a penetrance from 0 to 1");
    }
    model->penetrances.push_back(value);
  }
  if (status = words.next(&more); !status.ok() || more) {
    return status.ok() ? words.refusal("the end after " + wanted) : status;
  }
  const double prevalence = model->prevalence();
  if (!(prevalence > 0.0 && prevalence < 1.0)) {
    return Status::failure(path + ": the prevalence is " + shortest_text(prevalence) +
                           ", expected one between 0 and 1, with cases and controls");
  }
  return {};
}
