// SPDX-License-Identifier: Apache-2.0
#include "report/mdr_json.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace {

// Numbers that are missing are left out.
void optional_member(const char* name, double value, JsonWriter* json) {
  if (!std::isnan(value)) {
    json->member(name, value);
  }
}

void write_snps(const SnpSet& snps, JsonWriter* json) {
  json->key("snps");
  json->begin_array();
  for (const std::string& name : snps.names) {
    json->text(name);
  }
  json->end_array();
  if (!snps.positions.empty() && snps.positions.front() > 0) {
    json->key("positions");
    json->begin_array();
    for (const int64_t position : snps.positions) {
      json->integer(position);
    }
    json->end_array();
  }
}

void write_values(const char* name, const std::vector<std::string>& measures,
                  const std::vector<double>& values, JsonWriter* json) {
  json->key(name);
  json->begin_object();
  for (size_t m = 0; m < measures.size(); ++m) {
    optional_member(measures[m].c_str(), values[m], json);
  }
  json->end_object();
}

void write_both_values(const std::vector<std::string>& measures, const MeasureValues& values,
                       JsonWriter* json) {
  write_values("train", measures, values.training, json);
  write_values("test", measures, values.testing, json);
}

void write_cell(const Cell& cell, JsonWriter* json) {
  json->begin_object();
  json->key("genotypes");
  json->begin_array();
  for (const int genotype : cell.genotypes) {
    if (genotype == 3) {
      json->text("missing");
    } else {
      json->integer(genotype);
    }
  }
  json->end_array();
  json->member("cases", cell.cases);
  json->member("controls", cell.controls);
  optional_member("score_sum", cell.score_sum, json);
  json->member("risk", cell.risk);
  json->end_object();
}

void write_combination(const std::vector<std::string>& measures, const Combination& combination,
                       JsonWriter* json) {
  json->begin_object();
  json->member("rank", combination.rank);
  write_snps(combination.snps, json);
  optional_member("weighted_consistency", combination.weighted_consistency, json);
  optional_member("folds_listed", combination.folds_listed, json);
  optional_member("folds_first", combination.folds_first, json);
  write_both_values(measures, combination.values, json);
  optional_member("p", combination.p, json);
  optional_member("p_testing", combination.p_testing, json);
  optional_member("p_consistency", combination.p_consistency, json);
  optional_member("p_testing_all_orders", combination.p_testing_all_orders, json);
  optional_member("p_consistency_all_orders", combination.p_consistency_all_orders, json);
  optional_member("threshold", combination.threshold, json);
  optional_member("n", combination.n, json);
  optional_member("cases", combination.cases, json);
  optional_member("controls", combination.controls, json);
  if (!combination.cells.empty()) {
    json->key("cells");
    json->begin_array();
    for (const Cell& cell : combination.cells) {
      write_cell(cell, json);
    }
    json->end_array();
  }
  json->end_object();
}

void write_settings(const std::vector<Setting>& settings, int order, JsonWriter* json) {
  json->key("settings");
  json->begin_object();
  for (const Setting& setting : settings) {
    if (setting.order == order) {
      json->member(setting.name, setting.value);
    }
  }
  json->end_object();
}

void write_order(const MdrResults& results, const OrderResults& order, const MdrJsonLimits& limits,
                 JsonWriter* json) {
  json->begin_object();
  json->member("order", int64_t{order.order});
  write_settings(results.settings, order.order, json);
  json->member("n_combinations", static_cast<int64_t>(order.combinations.size()));
  json->key("combinations");
  json->begin_array();
  std::set<std::vector<std::string>> with_lists;
  for (size_t i = 0; i < std::min(order.combinations.size(), limits.combinations); ++i) {
    write_combination(results.measures, order.combinations[i], json);
    if (i < limits.combinations_with_lists) {
      with_lists.insert(order.combinations[i].snps.names);
    }
  }
  json->end_array();
  const bool whole = limits.combinations_with_lists >= order.combinations.size() &&
                     limits.combinations_with_lists == std::numeric_limits<size_t>::max();
  json->key("lists");
  json->begin_array();
  for (const ListEntry& entry : order.lists) {
    if (!whole && !(entry.fold > 0 && entry.rank == 1) && !with_lists.contains(entry.snps.names)) {
      continue;
    }
    json->begin_object();
    if (entry.fold > 0) {
      json->member("fold", entry.fold);
    }
    if (entry.rank > 0) {
      json->member("rank", entry.rank);
    }
    write_snps(entry.snps, json);
    write_both_values(results.measures, entry.values, json);
    json->end_object();
  }
  json->end_array();
  json->end_object();
}

}  // namespace

void write_mdr_members(const MdrResults& results, const MdrJsonLimits& limits, JsonWriter* json) {
  write_settings(results.settings, 0, json);
  json->key("measures");
  json->begin_array();
  for (const std::string& measure : results.measures) {
    json->text(measure);
  }
  json->end_array();
  json->key("orders");
  json->begin_array();
  for (const OrderResults& order : results.orders) {
    write_order(results, order, limits, json);
  }
  json->end_array();
}
