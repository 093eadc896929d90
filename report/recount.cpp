// SPDX-License-Identifier: Apache-2.0
#include "report/recount.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <numeric>
#include <unordered_map>

#include "lib/genotype_cells.h"
#include "lib/mdr.h"
#include "lib/packed_genotypes.h"
#include "tools/tavo_source.h"
#include "util/in_quotes.h"
#include "util/stop_signal.h"

namespace {

// A run's way to count and label.
struct RunRules {
  bool exhaustive = false;
  bool available = true;
  bool complete = false;
  int tie = kTieHigh;
};

int integer_setting(const MdrResults& results, const char* name, int otherwise) {
  const std::string text = results.setting(name);
  int value = otherwise;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? value : otherwise;
}

class Recount {
 public:
  Recount(TavoSource& source, const std::string& path, const RunRules& rules)
      : source_(source), path_(path), rules_(rules) {
    for (const uint32_t word : source.classes()) {
      classes_.push_back((word & 0xff) == 1 ? 1 : 0);
    }
  }

  Status count(MdrResults* results) {
    if (Status status = choose_samples(); !status.ok()) {
      return status;
    }
    for (OrderResults& order : results->orders) {
      for (size_t i = 0; i < std::min(kRecountedRanks, order.combinations.size()); ++i) {
        if (Status status = count_combination(&order.combinations[i]); !status.ok()) {
          return status;
        }
      }
    }
    return {};
  }

 private:
  // The variants first .. first + 15, or what there is of them, one row each.
  Status read_rows(int64_t first, int64_t* count) {
    *count = std::min<int64_t>(kGenotypesPerWord, source_.variants().size() - first);
    rows_.resize(static_cast<size_t>(*count * packed_words(source_.n_samples())));
    return stop_signal() != 0 ? stopped(stop_signal()) : source_.read(first, *count, rows_.data());
  }

  // The analysed samples, cases first: all, or those without a missing genotype.
  Status choose_samples() {
    std::vector<uint8_t> left_out(classes_.size(), 0);
    for (int64_t first = 0; rules_.complete && first < source_.variants().size();
         first += kGenotypesPerWord) {
      int64_t count = 0;
      if (Status status = read_rows(first, &count); !status.ok()) {
        return status;
      }
      for (int64_t j = 0; j < count; ++j) {
        const uint32_t* row = rows_.data() + j * packed_words(source_.n_samples());
        for (size_t s = 0; s < left_out.size(); ++s) {
          left_out[s] = packed_genotype(row, s) == kMissingGenotype ? 1 : left_out[s];
        }
      }
    }
    for (const int wanted : {1, 0}) {
      for (size_t s = 0; s < classes_.size(); ++s) {
        if (classes_[s] == wanted && left_out[s] == 0) {
          samples_.push_back(static_cast<int>(s));
          ++(wanted == 1 ? n_cases_ : n_controls_);
        }
      }
    }
    if (rules_.exhaustive) {
      // Samples that are left out are missing from the totals only.
      samples_.resize(classes_.size());
      std::iota(samples_.begin(), samples_.end(), 0);
    }
    return {};
  }

  // The genotypes of all samples at a SNP.
  Status column_of(int64_t snp, const std::vector<uint8_t>** column) {
    const auto [known, is_new] = columns_.try_emplace(snp);
    *column = &known->second;
    if (!is_new) {
      return {};
    }
    int64_t count = 0;
    const int64_t first = snp - snp % kGenotypesPerWord;
    if (Status status = read_rows(first, &count); !status.ok()) {
      return status;
    }
    const uint32_t* row = rows_.data() + (snp - first) * packed_words(source_.n_samples());
    for (size_t s = 0; s < classes_.size(); ++s) {
      known->second.push_back(static_cast<uint8_t>(packed_genotype(row, s)));
    }
    return {};
  }

  // Where the SNPs are, from 1. The positions of the results must have the names that the results say.
  Status locate(SnpSet* snps) {
    for (size_t j = 0; j < snps->names.size(); ++j) {
      int64_t& position = snps->positions[j];
      if (position == 0) {
        if (by_name_.empty()) {
          for (int64_t i = 0; i < source_.variants().size(); ++i) {
            by_name_.try_emplace(std::string(source_.variants().at(i).name), i + 1);
          }
        }
        const auto found = by_name_.find(snps->names[j]);
        if (found == by_name_.end()) {
          return Status::failure(path_ + ": no SNP " + in_quotes(snps->names[j]) +
                                 " of the results; is it the genotype file of this run?");
        }
        position = found->second;
      } else if (position > source_.variants().size() ||
                 source_.variants().at(position - 1).name != snps->names[j]) {
        return Status::failure(
            path_ + ": SNP " + std::to_string(position) + " is " +
            (position > source_.variants().size() ? "not there"
                                                  : in_quotes(source_.variants().at(position - 1).name)) +
            ", in the results it is " + in_quotes(snps->names[j]) + "; is it the genotype file of this run?");
      }
    }
    return {};
  }

  Status count_combination(Combination* combination) {
    Status status = locate(&combination->snps);
    std::vector<const std::vector<uint8_t>*> columns(combination->snps.names.size());
    for (size_t j = 0; status.ok() && j < columns.size(); ++j) {
      status = column_of(combination->snps.positions[j] - 1, &columns[j]);
    }
    if (!status.ok()) {
      return status;
    }
    const auto order = static_cast<int>(columns.size());
    CellRules rules;
    rules.counted_cells = static_cast<int64_t>(std::pow(3.0, order));
    rules.skip_missing = !rules_.exhaustive || rules_.available;
    rules.risk = rules_.exhaustive ? RiskRule::kDoubleRatio : RiskRule::kSingleRatio;
    rules.own_threshold = rules_.available;
    rules.threshold =
        rules_.exhaustive
            ? static_cast<double>(n_cases_) / n_controls_
            : static_cast<double>(static_cast<float>(n_cases_) / static_cast<float>(n_controls_));
    rules.tie = rules_.tie;
    const auto genotype = [&columns](int sample, int j) {
      return static_cast<unsigned>((*columns[static_cast<size_t>(j)])[static_cast<size_t>(sample)]);
    };
    const CellTable table = count_genotype_cells(samples_, classes_, nullptr, genotype, order, rules);
    combination->cases = table.cases;
    combination->controls = table.controls;
    combination->n = static_cast<double>(table.cases) + table.controls;
    combination->threshold = table.threshold;
    combination->cells.clear();
    for (const GenotypeCell& counted : table.cells) {
      Cell cell;
      int64_t digits = counted.number;
      for (int j = 0; j < order; ++j, digits /= rules.base) {
        cell.genotypes.push_back(static_cast<int>(digits % rules.base));
      }
      cell.cases = counted.cases;
      cell.controls = counted.controls;
      cell.risk = counted.label == kHighRisk ? "high" : counted.label == kLowRisk ? "low" : "none";
      combination->cells.push_back(cell);
    }
    return {};
  }

  TavoSource& source_;
  const std::string& path_;
  const RunRules rules_;
  std::vector<uint8_t> classes_;
  std::vector<int> samples_;
  int n_cases_ = 0;
  int n_controls_ = 0;
  std::vector<uint32_t> rows_;
  std::map<int64_t, std::vector<uint8_t>> columns_;
  std::unordered_map<std::string, int64_t> by_name_;
};

}  // namespace

Status recount_cells(const std::string& genotypes, MdrResults* results, std::vector<std::string>* warnings) {
  RunRules rules;
  const std::string missing = results->setting("missing");
  if (results->setting("analysis") == "gmdr" || missing == "mc") {
    warnings->push_back(genotypes + ": the cells of " +
                        (missing == "mc" ? "a run with --missing mc" : "a score-based run") +
                        " are not recounted; those of the table are shown, as far as it has any");
    return {};
  }
  rules.exhaustive = integer_setting(*results, "mode", 1) >= 2;
  rules.available = missing == "available" || missing.empty();
  rules.complete = missing == "complete";
  rules.tie = tie_rule(integer_setting(*results, "tie", 0));
  TavoSource source;
  if (Status status = source.open(genotypes, std::nullopt); !status.ok()) {
    return status;
  }
  warnings->insert(warnings->end(), source.warnings().begin(), source.warnings().end());
  return Recount(source, genotypes, rules).count(results);
}
