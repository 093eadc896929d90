// SPDX-License-Identifier: Apache-2.0
#include "report/regression_page.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <set>

#include "report/p_value_plots.h"

namespace {

// Rows that the page's table has, by the smallest p-value.
constexpr size_t kRowsOfTable = 5000;

// A series of p-values that is plotted.
struct Test {
  int column;
  const char* name;  // in the table
  std::vector<double> p;
};

// Columns of the page's table: not those of the intercept and the covariates.
bool is_shown(const std::string& name) {
  return name.find("_intercept") == std::string::npos && name.find("_covariate_") == std::string::npos;
}

struct BestRow {
  double p;
  uint64_t number;
  std::vector<std::string> cells;
  bool operator<(const BestRow& other) const { return p != other.p ? p < other.p : number < other.number; }
};

class Collector {
 public:
  Collector(const RegressionTable& format, const TsvFile& table, const VariantMap* map)
      : format_(format), table_(table), map_(map) {
    if (format.linear()) {
      tests_.push_back({table.find("p_het"), "p_het", {}});
      tests_.push_back({table.find("p_hom"), "p_hom", {}});
    } else {
      tests_.push_back({table.find("p"), "p", {}});
    }
    for (size_t i = 0; i < table.columns().size(); ++i) {
      if (is_shown(table.columns()[i])) {
        shown_.push_back(i);
      }
    }
    if (map != nullptr && !format.pairs()) {
      chromosome_ends_.assign(map->chromosomes().size(), 0);
    }
  }

  void take_row() {
    ++n_rows_;
    const int status = table_.find("status");
    const int converged = table_.find("converged");
    n_failed_ += table_.cell(status) == "failed" ? 1 : 0;
    n_not_converged_ += converged >= 0 && table_.cell(converged) == "false" ? 1 : 0;
    double smallest = kMissingNumber;
    for (Test& test : tests_) {
      double p = kMissingNumber;
      parse_cell_number(table_.cell(test.column), &p);
      test.p.push_back(p);
      smallest = std::isnan(smallest) || p < smallest ? p : smallest;
    }
    keep_best(std::isnan(smallest) ? 2.0 : smallest);
    if (!format_.pairs()) {
      place();
    }
  }

  void write(JsonWriter* json, size_t* n_unplaced) {
    json->member("n_rows", static_cast<int64_t>(n_rows_));
    json->member("n_failed", static_cast<int64_t>(n_failed_));
    json->member("n_not_converged", static_cast<int64_t>(n_not_converged_));
    write_table(json);
    *n_unplaced = 0;
    if (format_.pairs()) {
      return;
    }
    lay_out(n_unplaced);
    json->member("n_unplaced", static_cast<int64_t>(*n_unplaced));
    json->key("tests");
    json->begin_array();
    for (const Test& test : tests_) {
      write_test(test, json);
    }
    json->end_array();
    write_chromosomes(json);
  }

 private:
  void keep_best(double p) {
    if (best_.size() >= kRowsOfTable && !(p < best_.rbegin()->p)) {
      return;
    }
    BestRow row{p, n_rows_, {}};
    for (const size_t column : shown_) {
      row.cells.emplace_back(table_.cell(static_cast<int>(column)));
    }
    best_.insert(std::move(row));
    if (best_.size() > kRowsOfTable) {
      best_.erase(std::prev(best_.end()));
    }
  }

  // Notes name and place of the row's SNP.
  void place() {
    const std::string_view name = table_.cell(format_.name_column());
    name_starts_.push_back(names_.size());
    names_ += name;
    double position = 0.0;
    parse_cell_number(table_.cell(format_.position_column()), &position);
    GenomePlace place{0, static_cast<int64_t>(position)};
    if (map_ != nullptr) {
      const GenomePlace* known = map_->find(name);
      place = known != nullptr ? *known : GenomePlace{-1, 0};
      if (known != nullptr) {
        int64_t& end = chromosome_ends_[static_cast<size_t>(known->chromosome)];
        end = std::max(end, known->position);
      }
    }
    places_.push_back(place);
  }

  std::string_view name_of(size_t row) const {
    const size_t end = row + 1 < name_starts_.size() ? name_starts_[row + 1] : names_.size();
    return std::string_view(names_).substr(name_starts_[row], end - name_starts_[row]);
  }

  // Puts the chromosomes one after another. SNPs without a place lose their points.
  void lay_out(size_t* n_unplaced) {
    int64_t offset = 0;
    for (const int64_t end : chromosome_ends_) {
      offsets_.push_back(offset);
      offset += end;
    }
    for (size_t i = 0; i < places_.size(); ++i) {
      const GenomePlace& at = places_[i];
      const bool known = at.chromosome >= 0;
      *n_unplaced += known ? 0 : 1;
      const int64_t start = known && map_ != nullptr ? offsets_[static_cast<size_t>(at.chromosome)] : 0;
      x_.push_back(known ? static_cast<double>(start + at.position) : 0.0);
    }
  }

  void write_table(JsonWriter* json) const {
    json->key("columns");
    json->begin_array();
    for (const size_t column : shown_) {
      json->text(table_.columns()[column]);
    }
    json->end_array();
    json->key("rows");
    json->begin_array();
    for (const BestRow& row : best_) {
      json->begin_array();
      for (size_t i = 0; i < shown_.size(); ++i) {
        write_cell_value(row.cells[i], format_.type(shown_[i]), json);
      }
      json->end_array();
    }
    json->end_array();
    if (map_ != nullptr && !format_.pairs()) {
      json->key("places");
      json->begin_array();
      for (const BestRow& row : best_) {
        const GenomePlace& at = places_[row.number - 1];
        json->begin_array();
        if (at.chromosome >= 0) {
          json->text(map_->chromosomes()[static_cast<size_t>(at.chromosome)]);
          json->integer(at.position);
        }
        json->end_array();
      }
      json->end_array();
    }
  }

  void write_test(const Test& test, JsonWriter* json) const {
    std::vector<double> known;
    std::vector<double> placed = test.p;
    for (size_t i = 0; i < test.p.size(); ++i) {
      if (!std::isnan(test.p[i])) {
        known.push_back(test.p[i]);
      }
      if (places_[i].chromosome < 0) {
        placed[i] = kMissingNumber;
      }
    }
    json->begin_object();
    json->member("column", test.name);
    json->member("n", static_cast<int64_t>(known.size()));
    if (!known.empty()) {
      json->member("lambda", genomic_inflation(known));
    }
    const std::vector<size_t> drawn = drawn_points(x_, placed);
    const auto n_placed = static_cast<int64_t>(
        std::count_if(placed.begin(), placed.end(), [](double p) { return !std::isnan(p); }));
    json->member("n_placed", n_placed);
    json->key("x");
    json->begin_array();
    for (const size_t i : drawn) {
      json->integer(static_cast<int64_t>(x_[i]));
    }
    json->end_array();
    json->key("y");
    json->begin_array();
    for (const size_t i : drawn) {
      json->number(rounded(log_p(test.p[i])));
    }
    json->end_array();
    json->key("names");
    json->begin_array();
    for (const size_t i : drawn) {
      json->text(name_of(i));
    }
    json->end_array();
    json->key("qq");
    json->begin_array();
    for (const QqPoint& point : qq_points(known)) {
      json->begin_array();
      for (const double value : {point.expected, point.observed, point.low, point.high}) {
        json->number(rounded(value));
      }
      json->end_array();
    }
    json->end_array();
    json->end_object();
  }

  // Four decimals: a picture shows no more.
  static double rounded(double value) { return std::round(value * 1e4) / 1e4; }

  void write_chromosomes(JsonWriter* json) const {
    if (map_ == nullptr) {
      return;
    }
    json->key("chromosomes");
    json->begin_array();
    for (size_t i = 0; i < chromosome_ends_.size(); ++i) {
      if (chromosome_ends_[i] > 0) {
        json->begin_object();
        json->member("name", map_->chromosomes()[i]);
        json->member("start", offsets_[i]);
        json->member("length", chromosome_ends_[i]);
        json->end_object();
      }
    }
    json->end_array();
  }

  const RegressionTable& format_;
  const TsvFile& table_;
  const VariantMap* map_;
  std::vector<Test> tests_;
  std::vector<size_t> shown_;
  uint64_t n_rows_ = 0;
  uint64_t n_failed_ = 0;
  uint64_t n_not_converged_ = 0;
  std::set<BestRow> best_;
  std::string names_;
  std::vector<size_t> name_starts_;
  std::vector<GenomePlace> places_;
  std::vector<int64_t> chromosome_ends_;  // largest position of each
  std::vector<int64_t> offsets_;
  std::vector<double> x_;
};

}  // namespace

Status write_regression_page(const RegressionTable& format, TsvFile& table, LineReader& reader,
                             const VariantMap* map, JsonWriter* json, size_t* n_unplaced) {
  Collector collector(format, table, map);
  Status status;
  for (bool more = true; status.ok() && more;) {
    status = table.next(reader, &more);
    if (status.ok() && more) {
      status = format.check_row(table);
    }
    if (status.ok() && more) {
      collector.take_row();
    }
  }
  if (status.ok()) {
    collector.write(json, n_unplaced);
  }
  return status;
}
