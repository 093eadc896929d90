// SPDX-License-Identifier: Apache-2.0
//
// The report of a cross-validated run, read back (docs/formats.md). It names no positions, and its numbers
// have six decimals.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

#include "report/mdr_results.h"
#include "util/in_quotes.h"

namespace {

// The report's names of the measures, in the order of the codes, and the words of --measure.
constexpr struct {
  const char* column;
  const char* word;
} kMeasures[] = {
    {"BA", "ba"},       {"Acc", "accuracy"}, {"Chisq", "homogeneity"},   {"Gamma", "gamma"},
    {"Tau_b", "tau_b"}, {"Tau_c", "tau_c"},  {"Somers_dx", "somers_d1"}, {"Somers_dy", "somers_d2"},
    {"nmi", "nmi"},     {"lr", "lr"}};

constexpr int64_t kMostFolds = 1 << 30;

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) {
      return parts;
    }
    text.remove_prefix(end + 1);
  }
}

std::string_view trimmed(std::string_view text) {
  while (text.starts_with(' ')) {
    text.remove_prefix(1);
  }
  return text;
}

template <typename Number>
bool parse(std::string_view text, Number* value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
  return error == std::errc() && end == text.data() + text.size();
}

// What a column of a block holds.
struct ValueColumn {
  bool testing = false;
  size_t measure = 0;
};

class CvReportReader {
 public:
  CvReportReader(const std::string& path, LineReader& reader, MdrResults* results)
      : path_(path), reader_(reader), results_(results) {
    for (const auto& measure : kMeasures) {
      results_->measures.emplace_back(measure.word);
    }
  }

  Status read() {
    Status status = read_options();
    while (status.ok() && !at_end_) {
      int order = 0;
      bool best = false;
      if (line_.empty() || line_[0] == '=') {
        status = next();
      } else if (is_title(&order, &best)) {
        status = read_block(order, best);
      } else {
        status = failure("found " + in_quotes(line_) + ", expected the title of a block of combinations");
      }
    }
    if (status.ok() && results_->orders.empty() && n_blocks_ == 0) {
      return Status::failure(path_ + ": no block of combinations: the report is not complete");
    }
    if (status.ok()) {
      count_folds();
    }
    return status;
  }

 private:
  Status failure(const std::string& what) const { return line_failure(path_, reader_.line_number(), what); }

  Status next() {
    LineState state = LineState::kLine;
    Status status = reader_.next(kLongestLine, &line_, &state);
    at_end_ = state == LineState::kEnd;
    if (status.ok() && state == LineState::kTooLong) {
      return failure("longer than " + std::to_string(kLongestLine) + " bytes");
    }
    return status;
  }

  void add_setting(const char* name, std::string_view value) {
    results_->settings.push_back({name, std::string(value), 0});
  }

  // Everything before the results.
  Status read_options() {
    add_setting("analysis", "mdr");
    std::map<std::string, std::string, std::less<>> options;
    std::string command;
    for (;;) {
      if (Status status = next(); !status.ok() || at_end_) {
        return status.ok() ? Status::failure(path_ + ": ends before its results: the report is not complete")
                           : status;
      }
      if (line_.find("  Results  ") != std::string::npos && line_[0] == '=') {
        break;
      }
      const size_t comma = line_.find(',');
      const size_t dot = line_.find('.');
      if (line_.starts_with("Command,")) {
        command = line_.substr(comma);
      } else if (comma != std::string::npos && dot < comma) {
        options[line_.substr(dot + 1, comma - dot - 1)] = line_.substr(comma + 1);
      }
    }
    if (options.contains("regression_method")) {
      return Status::failure(
          path_ + ": the report of a regression; its table (tavo --tidy) can be shown, this cannot");
    }
    for (const auto& [line, name] :
         std::initializer_list<std::pair<const char*, const char*>>{{"input_file", "genotype_file"},
                                                                    {"cross validation count", "folds"},
                                                                    {"measure for snp selection", "measure"},
                                                                    {"tie", "tie"}}) {
      if (options.contains(line)) {
        std::string value = options[line];
        if (std::string_view(name) == "measure") {
          std::transform(value.begin(), value.end(), value.begin(), [](char c) {
            return c == '-' ? '_' : c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
          });
        }
        add_setting(name, value);
      }
    }
    if (options.contains("score_file") && options["score_file"] != "-") {
      results_->settings.front().value = "gmdr";
      add_setting("score_file", options["score_file"]);
    }
    std::string missing = "available";
    const std::vector<std::string_view> words = split(command, ' ');
    for (size_t i = 0; i + 1 < words.size(); ++i) {
      if (words[i] == "--missing") {
        missing = words[i + 1];
      }
    }
    add_setting("missing", missing);
    return next();
  }

  // "<<K-Order Best Combination Sets>>" and "<K-Order Combinations of SNPs>".
  bool is_title(int* order, bool* best) const {
    *best = line_.starts_with("<<");
    std::string_view text = line_;
    text.remove_prefix(std::min<size_t>(*best ? 2 : 1, text.size()));
    const size_t dash = text.find('-');
    return line_.starts_with('<') && dash != std::string_view::npos && parse(text.substr(0, dash), order) &&
           *order >= 1 && *order <= 64 &&
           text.substr(dash) == (*best ? "-Order Best Combination Sets>>" : "-Order Combinations of SNPs>");
  }

  // The columns behind the number, the combination and, in the block of the best, its consistency.
  Status read_columns(bool best, std::vector<ValueColumn>* columns) const {
    const std::vector<std::string_view> names = split(line_, ',');
    const size_t first = best ? 3 : 2;
    if (names.size() <= first || names[0] != (best ? "Rank" : "CV") || names[1] != "Best_Combi") {
      return failure("found " + in_quotes(line_) +
                     ", expected the header of a cross-validated run; of other runs, the table (tavo --tidy) "
                     "can be shown");
    }
    for (size_t i = first; i < names.size(); ++i) {
      std::string_view name = trimmed(names[i]);
      if (name.starts_with("Aver_")) {
        name.remove_prefix(5);
      }
      ValueColumn column;
      column.testing = name.starts_with("Test_");
      name.remove_prefix(std::min(name.size(), name.find('_') + 1));
      const auto known = std::find_if(std::begin(kMeasures), std::end(kMeasures),
                                      [&](const auto& measure) { return name == measure.column; });
      if (known != std::end(kMeasures)) {
        column.measure = static_cast<size_t>(known - std::begin(kMeasures));
      } else if (name.starts_with("wBA")) {
        // In this layout the first two of these columns are the measures 8 and 9, the others have no measure.
        int number = 0;
        column.measure = parse(name.substr(3), &number) && number <= 2 ? static_cast<size_t>(7 + number)
                                                                       : std::size(kMeasures);
      } else {
        return failure("unknown column " + in_quotes(name));
      }
      // One layout names the training value of lr like that of nmi.
      if (!column.testing && i > first + 1 && columns->size() >= 2 &&
          columns->at(columns->size() - 2).measure == column.measure &&
          column.measure < std::size(kMeasures)) {
        ++column.measure;
      }
      columns->push_back(column);
    }
    return {};
  }

  // "( rs1 rs2 )".
  Status take_names(std::string_view text, int order, SnpSet* snps) const {
    if (!text.starts_with("( ") || !text.ends_with(" )") || text.size() < 5) {
      return failure("found " + in_quotes(text) + ", expected a combination such as ( rs1 rs2 )");
    }
    text = text.substr(2, text.size() - 4);
    if (order == 1) {
      snps->names.emplace_back(text);
    } else {
      for (const std::string_view name : split(text, ' ')) {
        snps->names.emplace_back(name);
      }
    }
    if (snps->names.size() != static_cast<size_t>(order)) {
      return failure("found " + in_quotes(text) + ", expected " + std::to_string(order) +
                     " names; names with blanks cannot be told apart here, but in the table (tavo --tidy)");
    }
    snps->positions.assign(snps->names.size(), 0);
    return {};
  }

  Status take_values(const std::vector<std::string_view>& fields, const std::vector<ValueColumn>& columns,
                     MeasureValues* values, bool* any) const {
    values->training.assign(std::size(kMeasures), kMissingNumber);
    values->testing.assign(std::size(kMeasures), kMissingNumber);
    for (size_t i = 0; i < columns.size(); ++i) {
      double value = kMissingNumber;
      if (fields[i] != "nan" && !parse(fields[i], &value)) {
        return failure("found " + in_quotes(fields[i]) + ", expected a number");
      }
      *any = *any || value != 0.0;
      if (columns[i].measure < std::size(kMeasures)) {
        (columns[i].testing ? values->testing : values->training)[columns[i].measure] = value;
      }
    }
    return {};
  }

  // One block: its header, and rows up to a line of "=".
  Status read_block(int order, bool best) {
    ++n_blocks_;
    std::vector<ValueColumn> columns;
    Status status = next();
    if (status.ok()) {
      status = read_columns(best, &columns);
    }
    while (status.ok()) {
      status = next();
      if (status.ok() && (at_end_ || line_.starts_with('='))) {
        return at_end_ ? failure("the block is not complete") : next();
      }
      if (status.ok()) {
        status = take_row(order, best, columns);
      }
    }
    return status;
  }

  Status take_row(int order, bool best, const std::vector<ValueColumn>& columns) {
    const size_t n_numbers = columns.size() + (best ? 1 : 0);
    std::vector<std::string_view> fields = split(line_, ',');
    if (fields.size() < n_numbers + 2) {
      return failure(std::to_string(fields.size()) + " fields, expected " + std::to_string(n_numbers + 2));
    }
    int64_t number = 0;
    if (!parse(fields[0], &number) || number < 1 || number > kMostFolds) {
      return failure("found " + in_quotes(fields[0]) + ", expected " + (best ? "a rank" : "a fold") +
                     " from 1");
    }
    // A name may hold commas.
    const size_t numbers_at = fields.size() - n_numbers;
    const auto name_end = static_cast<size_t>(fields[numbers_at].data() - line_.data()) - 1;
    SnpSet snps;
    Status status = take_names(
        std::string_view(line_).substr(fields[0].size() + 1, name_end - fields[0].size() - 1), order, &snps);
    double consistency = kMissingNumber;
    if (status.ok() && best && fields[numbers_at] != "nan" && !parse(fields[numbers_at], &consistency)) {
      return failure("found " + in_quotes(fields[numbers_at]) + ", expected a number");
    }
    fields.erase(fields.begin(), fields.begin() + static_cast<ptrdiff_t>(numbers_at + (best ? 1 : 0)));
    MeasureValues values;
    bool any = false;
    if (status.ok()) {
      status = take_values(fields, columns, &values, &any);
    }
    if (!status.ok() || !any) {
      return status;
    }
    if (results_->setting("analysis") == "gmdr") {
      // Only balanced accuracy is computed.
      std::fill(values.training.begin() + 1, values.training.end(), kMissingNumber);
      std::fill(values.testing.begin() + 1, values.testing.end(), kMissingNumber);
    }
    OrderResults& results = results_of_order(results_, order);
    if (best) {
      Combination combination;
      combination.snps = snps;
      combination.rank = number;
      combination.weighted_consistency = consistency;
      combination.values = values;
      results.combinations.push_back(combination);
    } else {
      int64_t& place = places_[{order, number}];
      results.lists.push_back({snps, number, ++place, values});
    }
    return {};
  }

  // How many lists hold, and are led by, each combination: as far as the report shows the lists.
  void count_folds() {
    for (OrderResults& results : results_->orders) {
      std::map<std::vector<std::string>, std::pair<int, int>> counts;
      for (const ListEntry& entry : results.lists) {
        auto& [listed, first] = counts[entry.snps.names];
        ++listed;
        first += entry.rank == 1 ? 1 : 0;
      }
      for (Combination& combination : results.combinations) {
        const auto& [listed, first] = counts[combination.snps.names];
        combination.folds_listed = listed;
        combination.folds_first = first;
      }
    }
  }

  const std::string& path_;
  LineReader& reader_;
  MdrResults* results_;
  std::string line_;
  bool at_end_ = false;
  int n_blocks_ = 0;
  std::map<std::pair<int, int64_t>, int64_t> places_;
};

}  // namespace

Status read_cv_report(const std::string& path, LineReader& reader, MdrResults* results) {
  return CvReportReader(path, reader, results).read();
}
