// SPDX-License-Identifier: Apache-2.0
//
// The results of an MDR or GMDR run as the report programs hold them, whatever file they come from. Numbers
// that a file does not have are kMissingNumber.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "report/tsv_file.h"

struct Setting {
  std::string name;
  std::string value;
  int order = 0;  // 0: of the whole run
};

// Training and testing values, [measures of the results].
struct MeasureValues {
  std::vector<double> training;
  std::vector<double> testing;
};

struct Cell {
  std::vector<int> genotypes;  // [order], 3 is a missing genotype that counts as a level
  int64_t cases = 0;
  int64_t controls = 0;
  double score_sum = kMissingNumber;
  std::string risk;  // high, low, none
};

// The SNPs of a combination.
struct SnpSet {
  std::vector<std::string> names;  // [order]
  std::vector<int64_t> positions;  // [order], from 1; 0 where the file does not tell

  bool operator==(const SnpSet&) const = default;
};

struct Combination {
  SnpSet snps;
  int64_t rank = 0;
  double weighted_consistency = kMissingNumber;
  double folds_listed = kMissingNumber;
  double folds_first = kMissingNumber;
  MeasureValues values;
  double p = kMissingNumber;
  // Of a permutation test of the whole search, by testing value and by consistency, within the order and over
  // all.
  double p_testing = kMissingNumber;
  double p_consistency = kMissingNumber;
  double p_testing_all_orders = kMissingNumber;
  double p_consistency_all_orders = kMissingNumber;
  double threshold = kMissingNumber;
  double n = kMissingNumber;
  double cases = kMissingNumber;
  double controls = kMissingNumber;
  std::vector<Cell> cells;
};

// An entry of the list of a fold, or of the one list of an exhaustive run.
struct ListEntry {
  SnpSet snps;
  int64_t fold = 0;  // from 1; 0 in an exhaustive run
  int64_t rank = 0;  // from 1; 0 where the list has no order
  MeasureValues values;
};

struct OrderResults {
  int order = 0;
  std::vector<Combination> combinations;  // by rank
  std::vector<ListEntry> lists;           // fold after fold, best first
};

struct MdrResults {
  std::vector<Setting> settings;
  std::vector<std::string> measures;  // the words of the columns: ba, accuracy, ...
  std::vector<OrderResults> orders;   // ascending

  // The value of a setting of the whole run, or "".
  std::string setting(const std::string& name) const;
};

// The results of one order, made where there are none.
OrderResults& results_of_order(MdrResults* results, int order);

// Reads the rest of a tidy table whose header has been taken. Every row is checked; a failure names file,
// line and column.
Status read_mdr_table(TsvFile& table, LineReader& reader, MdrResults* results);

// Reads the rest of the report of a cross-validated run, whose first line has been read. Places that no
// combination filled are left out.
Status read_cv_report(const std::string& path, LineReader& reader, MdrResults* results);
