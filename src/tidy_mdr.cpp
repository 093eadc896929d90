// SPDX-License-Identifier: Apache-2.0
#include "src/tidy_mdr.h"

#include <algorithm>
#include <numeric>

#include "device/problem.h"
#include "lib/comb_rank.h"
#include "lib/genotype_cells.h"
#include "lib/mdr.h"
#include "src/folds.h"
#include "src/option_table.h"
#include "src/run_config.h"
#include "src/tidy_table.h"

namespace {

// Ranks of each order whose genotype cells are written.
constexpr size_t kRanksWithCells = 20;

// The words of --measure with underscores: parts of column names.
std::string measure_word(size_t measure) {
  std::string word = measure_names()[measure];
  std::replace(word.begin(), word.end(), '-', '_');
  return word;
}

// What a row is about, its first cell.
enum class Kind { kSetting, kCombination, kFold, kKept, kCell };

const char* kind_word(Kind kind) {
  switch (kind) {
    case Kind::kSetting:
      return "setting";
    case Kind::kCombination:
      return "combination";
    case Kind::kFold:
      return "fold";
    case Kind::kKept:
      return "kept";
    case Kind::kCell:
      return "cell";
  }
  return "";
}

// The places of the columns. Lists such as the SNPs take a column for each of the largest order.
class Columns {
 public:
  Columns(int maximum_order, bool permuted) : order_(static_cast<size_t>(maximum_order)) {
    row = take("row");
    setting = take("setting");
    value = take("value");
    order = take("order");
    rank = take("rank");
    combination = take("combination");
    snp = take_list("snp");
    position = take_list("position");
    fold = take("fold");
    weighted_consistency = take("weighted_consistency");
    folds_listed = take("folds_listed");
    folds_first = take("folds_first");
    training = names.size();
    for (size_t measure = 0; measure < measure_names().size(); ++measure) {
      take("train_" + measure_word(measure));
      take("test_" + measure_word(measure));
    }
    p = take("p");
    threshold = take("threshold");
    genotype = take_list("genotype");
    n = take("n");
    cases = take("cases");
    controls = take("controls");
    score_sum = take("score_sum");
    risk = take("risk");
    if (permuted) {
      p_testing = take("p_testing");
      p_consistency = take("p_consistency");
      p_testing_all_orders = take("p_testing_all_orders");
      p_consistency_all_orders = take("p_consistency_all_orders");
    }
  }

  std::vector<std::string> names;
  size_t row, setting, value, order, rank, combination, snp, position, fold, weighted_consistency,
      folds_listed, folds_first, training, p, threshold, genotype, n, cases, controls, score_sum, risk;
  // Of runs with a permutation test.
  size_t p_testing = 0, p_consistency = 0, p_testing_all_orders = 0, p_consistency_all_orders = 0;

 private:
  size_t take(const std::string& name) {
    names.push_back(name);
    return names.size() - 1;
  }
  size_t take_list(const std::string& name) {
    const size_t first = names.size();
    for (size_t j = 1; j <= order_; ++j) {
      take(name + std::to_string(j));
    }
    return first;
  }

  size_t order_;
};

// What permutations reached, of one order or of all.
struct NullColumns {
  std::vector<double> testing;
  std::vector<double> consistency;
};

class Writer {
 public:
  Writer(MdrWriter& file, const MdrReader& reader, const RunSettings& settings, const ResultArray& results,
         const PermutationNull& null)
      : file_(file),
        reader_(reader),
        settings_(settings),
        results_(results),
        null_(null),
        null_of_all_{null.of_all_orders(&BestOfOrder::testing),
                     null.of_all_orders(&BestOfOrder::consistency)},
        columns_(settings.maximum_order, settings.permutations > 0),
        names_(reader.ReadHeader()),
        exhaustive_(settings.mode >= 2),
        by_threshold_(settings.mode == 0 || settings.mode == 2),
        scored_(reader.scores() != nullptr && !exhaustive_),
        classes_(code_classes(reader.classes(), settings.case_value)) {
    const bool leave_out = settings.missing + 1 == kMissingComplete;
    analysed_ = make_sample_list(classes_, leave_out ? samples_with_missing(reader) : std::vector<uint8_t>());
    counted_ = analysed_.samples;
    if (exhaustive_) {
      // Samples that are left out are missing from the totals only.
      counted_.resize(classes_.size());
      std::iota(counted_.begin(), counted_.end(), 0);
    }
  }

  void write() {
    TidyRow header;
    for (const std::string& name : columns_.names) {
      header.add(name);
    }
    file_.WriteLine(header.line());
    write_settings();
    for (int order = settings_.minimum_order_minus_1 + 1; order <= settings_.maximum_order; ++order) {
      write_order(order, *results_[static_cast<size_t>(order) - 1]);
    }
  }

 private:
  void write_settings() {
    write_setting("analysis", scored_ ? "gmdr" : "mdr");
    write_setting("version", TAVO_VERSION);
    write_setting("genotype_file", tidy_text(settings_.input));
    if (reader_.scores() != nullptr) {
      write_setting("score_file", tidy_text(szScore));
    }
    write_setting("mode", std::to_string(settings_.mode));
    write_setting("measure", measure_word(static_cast<size_t>(settings_.measure)));
    write_setting("minimum_order", std::to_string(settings_.minimum_order_minus_1 + 1));
    write_setting("maximum_order", std::to_string(settings_.maximum_order));
    if (!exhaustive_) {
      write_setting("folds", std::to_string(settings_.folds));
      write_setting("first_fold", std::to_string(settings_.first_fold + 1));
      write_setting("shuffling", settings_.shuffling != 0 ? "true" : "false");
      if (settings_.seed) {
        write_setting("seed", std::to_string(*settings_.seed));
      }
    }
    write_setting("missing", missing_names()[static_cast<size_t>(settings_.missing)]);
    write_setting("tie", std::to_string(settings_.tie));
    write_setting("top", std::to_string(settings_.top));
    write_setting("samples", std::to_string(reader_.GetLineCount()));
    write_setting("cases", std::to_string(analysed_.n_cases));
    write_setting("controls", std::to_string(analysed_.n_controls));
    write_setting("snps", std::to_string(reader_.GetColCount()));
    if (permuted()) {
      write_setting("permutations", std::to_string(null_.permutations()));
      if (settings_.stop_after > 0) {
        write_setting("stop_after", std::to_string(settings_.stop_after));
      }
      write_thresholds(null_of_all_);
    }
  }

  void write_setting(const char* name, const std::string& value, int order = 0) {
    TidyRow row = row_of(Kind::kSetting);
    row.set(columns_.setting, std::string(name));
    row.set(columns_.value, value);
    if (order > 0) {
      row.set(columns_.order, order);
    }
    file_.WriteLine(row.line());
  }

  void write_order(int order, const MDRResult& result) {
    write_setting("combinations", std::to_string(comb_count(reader_.GetColCount(), order).value_or(0)),
                  order);
    if (by_threshold_) {
      write_setting("permutation_threshold", tidy_number(result.threshold), order);
    }
    if (permuted()) {
      const size_t place = static_cast<size_t>(order - settings_.minimum_order_minus_1 - 1);
      null_of_order_ = {null_.of_order(place, &BestOfOrder::testing),
                        null_.of_order(place, &BestOfOrder::consistency)};
      write_thresholds(null_of_order_, order);
    }
    for (size_t rank = 0; rank < result.best_snps.size(); ++rank) {
      if (result.is_filled(rank)) {
        write_combination(result, rank);
      }
    }
    for (size_t group = 0; group < result.kept.size(); ++group) {
      for (size_t place = 0; place < result.kept[group].size(); ++place) {
        if (result.kept[group][place].is_filled()) {
          write_kept(group, place, result.kept[group][place]);
        }
      }
    }
    for (size_t rank = 0; rank < std::min(kRanksWithCells, result.best_snps.size()); ++rank) {
      if (result.is_filled(rank)) {
        write_cells(rank, result.best_snps[rank]);
      }
    }
  }

  TidyRow row_of(Kind kind) const {
    TidyRow row(columns_.names.size());
    row.set(columns_.row, std::string(kind_word(kind)));
    return row;
  }

  TidyRow row_of(Kind kind, const std::vector<int>& snps) const {
    TidyRow row = row_of(kind);
    row.set(columns_.order, snps.size());
    std::string key;
    for (size_t j = 0; j < snps.size(); ++j) {
      row.set(columns_.snp + j, tidy_text(names_[static_cast<size_t>(snps[j])]));
      row.set(columns_.position + j, snps[j] + 1);
      key += (j == 0 ? "" : ":") + std::to_string(snps[j] + 1);
    }
    row.set(columns_.combination, key);
    return row;
  }

  // Measures that an analysis does not compute have no number.
  bool computes(size_t measure) const {
    return exhaustive_ ? measure <= kChiSquare : !scored_ || measure == kBalancedAccuracy;
  }

  size_t training_column(size_t measure) const { return columns_.training + 2 * measure; }

  void write_combination(const MDRResult& result, size_t rank) {
    const std::vector<int>& snps = result.best_snps[rank];
    TidyRow row = row_of(Kind::kCombination, snps);
    row.set(columns_.rank, rank + 1);
    row.set(columns_.weighted_consistency, result.weighted_cvc[rank]);
    if (!exhaustive_) {
      size_t listed = 0;
      size_t first = 0;
      for (const std::vector<KeptCombination>& list : result.kept) {
        const auto entry = std::find_if(list.begin(), list.end(), [&](const KeptCombination& kept) {
          return kept.snps == snps && kept.is_filled();
        });
        listed += entry != list.end() ? 1 : 0;
        first += entry == list.begin() && entry != list.end() ? 1 : 0;
      }
      row.set(columns_.folds_listed, listed);
      row.set(columns_.folds_first, first);
    }
    for (size_t measure = 0; measure < measure_names().size(); ++measure) {
      const MeasurePair& pair = result.measures[measure];
      if (computes(measure) && !pair.training.empty()) {
        row.set(training_column(measure), pair.training[rank]);
        if (!pair.testing.empty()) {
          row.set(training_column(measure) + 1, pair.testing[rank]);
        }
      }
    }
    if (!exhaustive_ && settings_.measure == kAccuracy && computes(kAccuracy)) {
      row.set(training_column(kAccuracy) + 1, result.ranking_testing[rank]);
    }
    if (by_threshold_ && (settings_.measure == kBalancedAccuracy || settings_.measure == kChiSquare)) {
      row.set(columns_.p, result.p_values[rank]);
    }
    if (permuted()) {
      set_permutation_p_values(result, rank, &row);
    }
    const CellTable table = cells_of(snps);
    row.set(columns_.threshold, table.threshold);
    row.set(columns_.n, table.cases + table.controls);
    row.set(columns_.cases, table.cases);
    row.set(columns_.controls, table.controls);
    file_.WriteLine(row.line());
  }

  bool permuted() const { return settings_.permutations > 0; }

  // Of an order, or of all. A p-value of a test that may end early depends on when its null values came, so
  // that no value divides the small ones from the others.
  void write_thresholds(const NullColumns& null, int order = 0) {
    if (settings_.stop_after > 0) {
      return;
    }
    write_setting("testing_threshold_5_percent", tidy_number(permutation_threshold(null.testing)), order);
    write_setting("consistency_threshold_5_percent", tidy_number(permutation_threshold(null.consistency)),
                  order);
  }

  void set_permutation_p_values(const MDRResult& result, size_t rank, TidyRow* row) const {
    const auto set = [&](size_t column, const std::vector<double>& null, double observed) {
      row->set(column, permutation_p_value(null, observed, settings_.stop_after));
    };
    const double testing = result.ranking_testing[rank];
    const double consistency = result.weighted_cvc[rank];
    set(columns_.p_testing, null_of_order_.testing, testing);
    set(columns_.p_consistency, null_of_order_.consistency, consistency);
    set(columns_.p_testing_all_orders, null_of_all_.testing, testing);
    set(columns_.p_consistency_all_orders, null_of_all_.consistency, consistency);
  }

  // A list's entry: of a fold, or of the one list of an exhaustive run.
  void write_kept(size_t group, size_t place, const KeptCombination& kept) {
    TidyRow row = row_of(exhaustive_ ? Kind::kKept : Kind::kFold, kept.snps);
    if (settings_.mode != 2) {
      row.set(columns_.rank, place + 1);  // mode 2 keeps the order of the enumeration
    }
    if (!exhaustive_) {
      row.set(columns_.fold, group + 1);
    }
    for (size_t measure = 0; measure < measure_names().size(); ++measure) {
      if (!computes(measure)) {
        continue;
      }
      if (exhaustive_) {
        row.set(training_column(measure), kept.record[measure]);
      } else {
        // Cross-validated records hold floats.
        row.set(training_column(measure), static_cast<float>(kept.record[measure]));
        row.set(training_column(measure) + 1, static_cast<float>(kept.record[kTestingEntry + measure]));
      }
    }
    file_.WriteLine(row.line());
  }

  void write_cells(size_t rank, const std::vector<int>& snps) {
    const CellTable table = cells_of(snps);
    const CellRules rules = rules_of(static_cast<int>(snps.size()));
    for (const GenotypeCell& cell : table.cells) {
      TidyRow row = row_of(Kind::kCell, snps);
      row.set(columns_.rank, rank + 1);
      int64_t digits = cell.number;
      for (size_t j = 0; j < snps.size(); ++j, digits /= rules.base) {
        const auto code = static_cast<int>(digits % rules.base);
        row.set(columns_.genotype + j, code == 3 ? std::string("missing") : std::to_string(code));
      }
      row.set(columns_.n, cell.cases + cell.controls);
      row.set(columns_.cases, cell.cases);
      row.set(columns_.controls, cell.controls);
      if (scored_) {
        row.set(columns_.score_sum, cell.case_scores + cell.control_scores);
      }
      const char* risk = cell.label == kHighRisk ? "high" : cell.label == kLowRisk ? "low" : "none";
      row.set(columns_.risk, std::string(risk));
      file_.WriteLine(row.line());
    }
  }

  CellRules rules_of(int order) const {
    const ScoringRules scoring{order, settings_.missing + 1, tie_rule(settings_.tie), settings_.measure};
    CellRules rules;
    rules.base = scoring.base();
    rules.counted_cells = exhaustive_ ? scoring.cells() : scoring.counted_cells();
    rules.skip_missing = !exhaustive_ || settings_.missing + 1 == kMissingAvailable;
    rules.risk = scored_ ? RiskRule::kScores : exhaustive_ ? RiskRule::kDoubleRatio : RiskRule::kSingleRatio;
    rules.own_threshold = scoring.own_thresholds();
    rules.threshold = exhaustive_ ? static_cast<double>(analysed_.n_cases) / analysed_.n_controls
                                  : static_cast<double>(analysed_.threshold());
    rules.tie = scoring.tie;
    return rules;
  }

  CellTable cells_of(const std::vector<int>& snps) const {
    const auto genotype = [&](int sample, int j) {
      return static_cast<unsigned>(reader_.GetSNPdata(sample, snps[static_cast<size_t>(j)]));
    };
    const auto order = static_cast<int>(snps.size());
    return count_genotype_cells(counted_, classes_, scored_ ? reader_.scores() : nullptr, genotype, order,
                                rules_of(order));
  }

  MdrWriter& file_;
  const MdrReader& reader_;
  const RunSettings& settings_;
  const ResultArray& results_;
  const PermutationNull& null_;
  const NullColumns null_of_all_;
  NullColumns null_of_order_;  // that is being written
  const Columns columns_;
  const std::vector<std::string> names_;
  const bool exhaustive_;
  const bool by_threshold_;
  const bool scored_;
  const std::vector<uint8_t> classes_;
  SampleList analysed_;
  std::vector<int> counted_;
};

}  // namespace

void TidyMdr::write(const MdrReader& reader, const RunSettings& settings, const ResultArray& results,
                    const PermutationNull& null) {
  Writer(writer_, reader, settings, results, null).write();
}
