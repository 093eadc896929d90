// SPDX-License-Identifier: Apache-2.0
#include "tools/phenotypes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <limits>

#include "tools/bed_source.h"
#include "tools/number.h"
#include "tools/sample_columns.h"
#include "util/in_quotes.h"

namespace {

constexpr uint32_t kControl = 0;
constexpr uint32_t kCase = 1;

enum class Coding { kOneTwo, kZeroOne };

const char* coding_text(Coding coding) {
  return coding == Coding::kOneTwo ? "1 control, 2 case; 0, -9 and NA missing"
                                   : "0 control, 1 case; -9 and NA missing";
}

bool is_missing_text(std::string_view text) {
  return text == "NA" || text == "-9";
}

// A text for each sample, and where it stands; a null place has no text.
struct Texts {
  std::function<const std::string*(size_t sample)> text;  // null: the sample has none
  std::function<std::string(size_t sample)> place;
};

void start(size_t n, bool quantitative, Phenotypes* phenotypes) {
  phenotypes->quantitative = quantitative;
  phenotypes->present.assign(n, 0);
  phenotypes->words.assign(n, 0);
}

Status read_classes(const Texts& texts, Coding coding, const std::string& hint, Phenotypes* phenotypes) {
  for (size_t i = 0; i < phenotypes->present.size(); ++i) {
    const std::string* text = texts.text(i);
    if (text == nullptr || is_missing_text(*text) || (coding == Coding::kOneTwo && *text == "0")) {
      continue;
    }
    const bool is_control = *text == (coding == Coding::kOneTwo ? "1" : "0");
    const bool is_case = *text == (coding == Coding::kOneTwo ? "2" : "1");
    if (!is_control && !is_case) {
      return Status::failure(texts.place(i) + ": found " + in_quotes(*text) + ", expected " +
                             coding_text(coding) + hint);
    }
    phenotypes->present[i] = 1;
    phenotypes->words[i] = is_case ? kCase : kControl;
  }
  return {};
}

Status read_numbers(const Texts& texts, Phenotypes* phenotypes) {
  for (size_t i = 0; i < phenotypes->present.size(); ++i) {
    const std::string* text = texts.text(i);
    if (text == nullptr || is_missing_text(*text)) {
      continue;
    }
    double value = 0.0;
    if (!parse_number(*text, &value)) {
      return Status::failure(texts.place(i) + ": found " + in_quotes(*text) +
                             ", expected a number, or NA or -9 for missing");
    }
    phenotypes->present[i] = 1;
    phenotypes->words[i] = word_of_float(static_cast<float>(value));
  }
  return {};
}

// Classes of a genotype file or a text table.
Status take_words(const std::string& input, const std::vector<uint32_t>& words, bool quantitative,
                  Phenotypes* phenotypes) {
  // The integers 0 and 1, read as floats, are 0 and a number far below the smallest normal one.
  if (quantitative && std::all_of(words.begin(), words.end(), [](uint32_t word) {
        return std::fabs(float_of_word(word)) < std::numeric_limits<float>::min();
      })) {
    return Status::failure(input +
                           ": the class fields hold small integers or nothing but 0, expected floats for "
                           "--quantitative");
  }
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string sample = input + ": sample " + std::to_string(i + 1);
    if (quantitative && !std::isfinite(float_of_word(words[i]))) {
      return Status::failure(sample + ": the phenotype is no finite number");
    }
    if (!quantitative && words[i] != kControl && words[i] != kCase) {
      return Status::failure(sample + ": the class is " + std::to_string(words[i]) +
                             ", expected 0 or 1; --quantitative takes the fields as floats");
    }
  }
  phenotypes->present.assign(words.size(), 1);
  phenotypes->words = words;
  return {};
}

}  // namespace

uint32_t word_of_float(float value) {
  return std::bit_cast<uint32_t>(value);
}

float float_of_word(uint32_t word) {
  return std::bit_cast<float>(word);
}

Status own_phenotypes(const std::string& input, const GenotypeSource& source, bool quantitative,
                      Phenotypes* phenotypes) {
  start(source.samples().size(), quantitative, phenotypes);
  if (!source.classes().empty()) {
    return take_words(input, source.classes(), quantitative, phenotypes);
  }
  const Texts texts = {[&source](size_t i) { return &source.samples()[i].phenotype; },
                       [&input, &source](size_t i) {
                         return input + kFamEnding + ": sample " + std::to_string(i + 1) + " (" +
                                escaped(source.samples()[i].fid) + " " + escaped(source.samples()[i].iid) +
                                "), field 6";
                       }};
  phenotypes->note = input + kFamEnding + ": the phenotype is the sixth column, " +
                     (quantitative ? "a number; -9 and NA missing" : coding_text(Coding::kOneTwo));
  return quantitative ? read_numbers(texts, phenotypes)
                      : read_classes(texts, Coding::kOneTwo,
                                     "; --quantitative takes numbers, --pheno another file", phenotypes);
}

Status file_phenotypes(const std::string& path, const std::optional<std::string>& name, bool quantitative,
                       const GenotypeSource& source, const SampleIndex& index, Phenotypes* phenotypes) {
  start(source.samples().size(), quantitative, phenotypes);
  std::optional<std::vector<std::string>> wanted;
  if (name) {
    wanted = {*name};
  }
  SampleColumns columns;
  Status status = read_sample_columns(path, wanted, source.samples().size(), index, &columns);
  if (!status.ok()) {
    return status;
  }
  if (columns.names.size() > 1) {
    return Status::failure(path + ": line 1: " + std::to_string(columns.names.size()) +
                           " phenotypes, the first is " + in_quotes(columns.names[0]) +
                           "; --pheno-name names one");
  }
  const Texts texts = {
      [&columns](size_t i) { return columns.lines[i] == 0 ? nullptr : &columns.value(i, 0); },
      [&columns](size_t i) { return columns.place(i, 0); }};
  phenotypes->note = path + ": the phenotype is " + escaped(columns.names[0]) + ", ";
  const std::string unknown = columns.unknown_text();
  if (quantitative) {
    phenotypes->note += "a number; -9 and NA missing" + unknown;
    return read_numbers(texts, phenotypes);
  }
  bool has_zero = false;
  bool has_one = false;
  bool has_two = false;
  for (size_t i = 0; i < source.samples().size(); ++i) {
    const std::string* text = texts.text(i);
    has_zero = has_zero || (text != nullptr && *text == "0");
    has_one = has_one || (text != nullptr && *text == "1");
    has_two = has_two || (text != nullptr && *text == "2");
  }
  const Coding coding = has_two ? Coding::kOneTwo : Coding::kZeroOne;
  phenotypes->note += std::string(coding_text(coding)) + unknown;
  status = read_classes(texts, coding, "; --quantitative takes numbers", phenotypes);
  if (status.ok() && has_one && !has_zero && !has_two) {
    return Status::failure(path + ": the phenotype " + in_quotes(columns.names[0]) +
                           " is 1 in every sample that has one, expected two classes: 0 and 1, or 1 and 2");
  }
  return status;
}
