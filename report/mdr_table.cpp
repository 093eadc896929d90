// SPDX-License-Identifier: Apache-2.0
//
// The tidy table of an MDR or GMDR run (docs/formats.md).
#include <limits>
#include <map>

#include "report/mdr_results.h"

namespace {

constexpr int64_t kMostSnps = std::numeric_limits<int32_t>::max();
constexpr int64_t kLargestOrder = 64;

class MdrTableReader {
 public:
  // That runs with a permutation test have.
  static constexpr std::pair<const char*, double Combination::*> kPermutationColumns[] = {
      {"p_testing", &Combination::p_testing},
      {"p_consistency", &Combination::p_consistency},
      {"p_testing_all_orders", &Combination::p_testing_all_orders},
      {"p_consistency_all_orders", &Combination::p_consistency_all_orders}};

  MdrTableReader(TsvFile& table, MdrResults* results) : table_(table), results_(results) {}

  Status find_columns() {
    Status status;
    for (const auto& [name, place] :
         std::initializer_list<std::pair<const char*, int*>>{{"row", &row_},
                                                             {"setting", &setting_},
                                                             {"value", &value_},
                                                             {"order", &order_},
                                                             {"rank", &rank_},
                                                             {"snp1", &snp_},
                                                             {"position1", &position_},
                                                             {"fold", &fold_},
                                                             {"weighted_consistency", &weighted_consistency_},
                                                             {"folds_listed", &folds_listed_},
                                                             {"folds_first", &folds_first_},
                                                             {"p", &p_},
                                                             {"threshold", &threshold_},
                                                             {"genotype1", &genotype_},
                                                             {"n", &n_},
                                                             {"cases", &cases_},
                                                             {"controls", &controls_},
                                                             {"score_sum", &score_sum_},
                                                             {"risk", &risk_}}) {
      if (status.ok()) {
        status = table_.require(name, place);
      }
    }
    if (!status.ok()) {
      return status;
    }
    for (const auto& [name, value] : kPermutationColumns) {
      if (const int column = table_.find(name); column >= 0) {
        permutation_columns_.emplace_back(column, value);
      }
    }
    // The columns of the SNPs stand side by side, as many of each kind as the largest order has.
    while (has_list_column(snp_, "snp", largest_order_) &&
           has_list_column(position_, "position", largest_order_) &&
           has_list_column(genotype_, "genotype", largest_order_)) {
      ++largest_order_;
    }
    const std::vector<std::string>& columns = table_.columns();
    for (size_t i = 0; i < columns.size(); ++i) {
      if (columns[i].starts_with("train_")) {
        const std::string word = columns[i].substr(6);
        results_->measures.push_back(word);
        training_.push_back(static_cast<int>(i));
        testing_.push_back(-1);
        if (status = table_.require("test_" + word, &testing_.back()); !status.ok()) {
          return status;
        }
      }
    }
    return {};
  }

  Status take_row() {
    const std::string_view kind = table_.cell(row_);
    if (kind == "setting") {
      return take_setting();
    }
    if (kind != "combination" && kind != "fold" && kind != "kept" && kind != "cell") {
      return table_.failure(row_, "setting, combination, fold, kept or cell");
    }
    int64_t order = 0;
    SnpSet snps;
    Status status = table_.integer(order_, 1, largest_order_, &order);
    if (status.ok()) {
      status = take_snps(order, &snps);
    }
    if (!status.ok()) {
      return status;
    }
    OrderResults& results = results_of_order(results_, static_cast<int>(order));
    if (kind == "combination") {
      return take_combination(snps, &results);
    }
    return kind == "cell" ? take_cell(snps, &results) : take_entry(snps, kind == "fold", &results);
  }

 private:
  bool has_list_column(int first, const char* name, int count) const {
    const size_t place = static_cast<size_t>(first) + static_cast<size_t>(count);
    return count < kLargestOrder && place < table_.columns().size() &&
           table_.columns()[place] == name + std::to_string(count + 1);
  }

  Status take_setting() {
    Setting setting{std::string(table_.cell(setting_)), std::string(table_.cell(value_)), 0};
    if (!table_.is_missing(order_)) {
      int64_t order = 0;
      if (Status status = table_.integer(order_, 1, kLargestOrder, &order); !status.ok()) {
        return status;
      }
      setting.order = static_cast<int>(order);
    }
    results_->settings.push_back(setting);
    return {};
  }

  Status take_snps(int64_t order, SnpSet* snps) const {
    for (int j = 0; j < order; ++j) {
      snps->names.emplace_back(table_.cell(snp_ + j));
      int64_t position = 0;
      if (Status status = table_.integer(position_ + j, 1, kMostSnps, &position); !status.ok()) {
        return status;
      }
      snps->positions.push_back(position);
    }
    return {};
  }

  Status take_values(MeasureValues* values) const {
    values->training.resize(training_.size());
    values->testing.resize(testing_.size());
    for (size_t m = 0; m < training_.size(); ++m) {
      Status status = table_.number(training_[m], &values->training[m]);
      if (status.ok()) {
        status = table_.number(testing_[m], &values->testing[m]);
      }
      if (!status.ok()) {
        return status;
      }
    }
    return {};
  }

  Status take_combination(const SnpSet& snps, OrderResults* results) {
    Combination combination;
    combination.snps = snps;
    Status status = table_.integer(rank_, 1, kMostSnps, &combination.rank);
    for (const auto& [column, value] : std::initializer_list<std::pair<int, double*>>{
             {weighted_consistency_, &combination.weighted_consistency},
             {folds_listed_, &combination.folds_listed},
             {folds_first_, &combination.folds_first},
             {p_, &combination.p},
             {threshold_, &combination.threshold},
             {n_, &combination.n},
             {cases_, &combination.cases},
             {controls_, &combination.controls}}) {
      if (status.ok()) {
        status = table_.number(column, value);
      }
    }
    for (const auto& [column, value] : permutation_columns_) {
      if (status.ok()) {
        status = table_.number(column, &(combination.*value));
      }
    }
    if (status.ok()) {
      status = take_values(&combination.values);
    }
    if (!status.ok()) {
      return status;
    }
    place_of_[snps.positions] = results->combinations.size();
    results->combinations.push_back(combination);
    return {};
  }

  Status take_entry(const SnpSet& snps, bool of_fold, OrderResults* results) const {
    ListEntry entry;
    entry.snps = snps;
    Status status;
    if (of_fold) {
      status = table_.integer(fold_, 1, kMostSnps, &entry.fold);
    }
    if (status.ok() && !(table_.is_missing(rank_) && !of_fold)) {
      status = table_.integer(rank_, 1, kMostSnps, &entry.rank);
    }
    if (status.ok()) {
      status = take_values(&entry.values);
    }
    if (status.ok()) {
      results->lists.push_back(entry);
    }
    return status;
  }

  Status take_cell(const SnpSet& snps, OrderResults* results) const {
    const auto place = place_of_.find(snps.positions);
    if (place == place_of_.end()) {
      return table_.failure(row_, "its combination in a row before");
    }
    Cell cell;
    for (size_t j = 0; j < snps.names.size(); ++j) {
      const int column = genotype_ + static_cast<int>(j);
      int64_t genotype = 3;
      if (table_.cell(column) != "missing") {
        if (!table_.integer(column, 0, 2, &genotype).ok()) {
          return table_.failure(column, "0, 1, 2 or missing");
        }
      }
      cell.genotypes.push_back(static_cast<int>(genotype));
    }
    Status status = table_.integer(cases_, 0, kMostSnps, &cell.cases);
    if (status.ok()) {
      status = table_.integer(controls_, 0, kMostSnps, &cell.controls);
    }
    if (status.ok()) {
      status = table_.number(score_sum_, &cell.score_sum);
    }
    if (!status.ok()) {
      return status;
    }
    cell.risk = table_.cell(risk_);
    if (cell.risk != "high" && cell.risk != "low" && cell.risk != "none") {
      return table_.failure(risk_, "high, low or none");
    }
    results->combinations[place->second].cells.push_back(cell);
    return {};
  }

  TsvFile& table_;
  MdrResults* results_;
  int row_ = 0, setting_ = 0, value_ = 0, order_ = 0, rank_ = 0, snp_ = 0, position_ = 0, fold_ = 0,
      weighted_consistency_ = 0, folds_listed_ = 0, folds_first_ = 0, p_ = 0, threshold_ = 0, genotype_ = 0,
      n_ = 0, cases_ = 0, controls_ = 0, score_sum_ = 0, risk_ = 0;
  int largest_order_ = 1;
  std::vector<std::pair<int, double Combination::*>> permutation_columns_;  // those that are there
  std::vector<int> training_;
  std::vector<int> testing_;
  std::map<std::vector<int64_t>, size_t> place_of_;  // among the combinations of their order
};

}  // namespace

Status read_mdr_table(TsvFile& table, LineReader& reader, MdrResults* results) {
  MdrTableReader rows(table, results);
  Status status = rows.find_columns();
  for (bool more = true; status.ok() && more;) {
    status = table.next(reader, &more);
    if (status.ok() && more) {
      status = rows.take_row();
    }
  }
  return status;
}
