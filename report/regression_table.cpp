// SPDX-License-Identifier: Apache-2.0
#include "report/regression_table.h"

#include <cmath>
#include <limits>

Status RegressionTable::begin(const TsvFile& table) {
  pairs_ = table.find("snp1") >= 0;
  linear_ = table.find("rss") >= 0;
  int other = 0;
  Status status = table.require(pairs_ ? "snp1" : "snp", &name_);
  if (status.ok()) {
    status = table.require(pairs_ ? "position1" : "position", &position_);
  }
  for (const char* name : {"number", "n", "status", linear_ ? "df_residual" : "p",
                           linear_ ? "p_het" : "lr_statistic", linear_ ? "p_hom" : "df"}) {
    if (status.ok()) {
      status = table.require(name, &other);
    }
  }
  if (!status.ok()) {
    return status;
  }
  for (const std::string& name : table.columns()) {
    types_.push_back(name == "snp" || name == "snp1" || name == "snp2" ? ColumnType::kName
                     : name == "status"                                ? ColumnType::kStatus
                     : name == "converged"                             ? ColumnType::kFlag
                     : name == "p" || name.starts_with("p_")           ? ColumnType::kProbability
                                                                       : ColumnType::kNumber);
  }
  return {};
}

Status RegressionTable::check_row(const TsvFile& table) const {
  for (size_t i = 0; i < types_.size(); ++i) {
    const auto column = static_cast<int>(i);
    const std::string_view text = table.cell(column);
    double value = 0.0;
    if (types_[i] == ColumnType::kStatus && text != "ok" && text != "failed") {
      return table.failure(column, "ok or failed");
    }
    if (types_[i] == ColumnType::kFlag && text != "true" && text != "false" && text != "NA") {
      return table.failure(column, "true, false or NA");
    }
    if (types_[i] == ColumnType::kProbability || types_[i] == ColumnType::kNumber) {
      if (Status status = table.number(column, &value); !status.ok()) {
        return status;
      }
      if (types_[i] == ColumnType::kProbability && !(std::isnan(value) || (value >= 0.0 && value <= 1.0))) {
        return table.failure(column, "a probability");
      }
    }
  }
  int64_t position = 0;
  return table.integer(position_, 1, std::numeric_limits<int32_t>::max(), &position);
}

void write_cell_value(std::string_view text, ColumnType type, JsonWriter* json) {
  double value = kMissingNumber;
  switch (type) {
    case ColumnType::kName:
    case ColumnType::kStatus:
      json->text(text);
      break;
    case ColumnType::kFlag:
      if (text == "NA") {
        json->null();
      } else {
        json->boolean(text == "true");
      }
      break;
    case ColumnType::kProbability:
    case ColumnType::kNumber:
      parse_cell_number(text, &value);
      json->number(value);
      break;
  }
}

Status write_regression_rows(const RegressionTable& format, TsvFile& table, LineReader& reader,
                             JsonWriter* json) {
  json->key("rows");
  json->begin_array();
  Status status;
  for (bool more = true; status.ok() && more;) {
    status = table.next(reader, &more);
    if (status.ok() && more) {
      status = format.check_row(table);
    }
    if (!status.ok() || !more) {
      break;
    }
    json->begin_object();
    for (size_t i = 0; i < table.columns().size(); ++i) {
      json->key(table.columns()[i]);
      write_cell_value(table.cells()[i], format.type(i), json);
    }
    json->end_object();
  }
  json->end_array();
  return status;
}
