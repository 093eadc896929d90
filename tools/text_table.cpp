// SPDX-License-Identifier: Apache-2.0
#include "tools/text_table.h"

#include <algorithm>
#include <unordered_map>

#include "lib/packed_genotypes.h"
#include "tools/names.h"
#include "util/in_quotes.h"

namespace {

// A header line is held whole, its names apart. What goes beyond is no table that anybody has made on
// purpose.
constexpr size_t kLongestHeader = size_t{1} << 28;
constexpr size_t kMostColumns = size_t{1} << 24;

// Bytes of a row: room for every field, its separator and blanks for alignment. A longer row holds a mistake.
constexpr size_t kRowBytesPerField = 32;

constexpr std::string_view kMissingTexts[] = {"NA", "-9", "-1", ""};
constexpr int kNoGenotype = -1;

// The genotype code of a field, or kNoGenotype.
int genotype_of(std::string_view field) {
  if (field.size() == 1) {
    return field[0] >= '0' && field[0] <= '2' ? field[0] - '0' : kNoGenotype;
  }
  return std::find(std::begin(kMissingTexts), std::end(kMissingTexts), field) != std::end(kMissingTexts)
             ? static_cast<int>(kMissingGenotype)
             : kNoGenotype;
}

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

std::string_view without_leading_blanks(std::string_view text) {
  const auto* first = std::find_if_not(text.begin(), text.end(), is_blank);
  return text.substr(static_cast<size_t>(first - text.begin()));
}

}  // namespace

Status TextTable::open(const std::string& path, const std::string& class_name) {
  path_ = path;
  class_name_ = class_name;
  Status status = reader_.open(path);
  if (!status.ok()) {
    return status;
  }
  LineState state = LineState::kEnd;
  status = reader_.next(kLongestHeader, &line_, &state);
  if (!status.ok()) {
    return status;
  }
  if (state == LineState::kTooLong) {
    return Status::failure(path_ + ": line 1: longer than " + std::to_string(kLongestHeader) +
                           " bytes, expected a header line of SNP names");
  }
  if (state == LineState::kEnd || without_leading_blanks(line_).empty()) {
    return Status::failure(path_ +
                           ": line 1: empty, expected a header line of SNP names and the class column " +
                           in_quotes(class_name_));
  }
  return read_header(line_);
}

Status TextTable::read_header(std::string_view line) {
  separator_ = line.find('\t') != std::string_view::npos  ? Separator::kTab
               : line.find(',') != std::string_view::npos ? Separator::kComma
                                                          : Separator::kBlanks;
  std::vector<std::string_view> fields;
  for (std::string_view rest = line, field; next_field(&rest, &field);) {
    if (fields.size() == kMostColumns) {
      return Status::failure(path_ + ": line 1: more than " + std::to_string(kMostColumns) + " columns");
    }
    fields.push_back(field);
  }
  n_columns_ = fields.size();
  Status status = take_names(fields);
  if (status.ok()) {
    find_duplicates(fields);
  }
  return status;
}

Status TextTable::take_names(const std::vector<std::string_view>& fields) {
  class_column_ = n_columns_;
  for (size_t i = 0; i < n_columns_; ++i) {
    const std::string column = path_ + ": line 1, column " + std::to_string(i + 1);
    if (fields[i] == class_name_) {
      if (class_column_ < n_columns_) {
        return Status::failure(column + ": a second class column " + in_quotes(class_name_) +
                               ", expected one; the first is column " + std::to_string(class_column_ + 1));
      }
      class_column_ = i;
      continue;
    }
    const std::string fault = name_fault(fields[i]);
    if (!fault.empty()) {
      return Status::failure(column + ": " + fault);
    }
    snp_names_.emplace_back(fields[i]);
  }
  if (class_column_ == n_columns_) {
    return Status::failure(path_ + ": line 1: no class column " + in_quotes(class_name_) + " among " +
                           std::to_string(n_columns_) + " columns, the last is " + in_quotes(fields.back()) +
                           "; --class names the class column");
  }
  if (snp_names_.empty()) {
    return Status::failure(path_ + ": line 1: only the class column " + in_quotes(class_name_) +
                           ", expected at least one SNP column");
  }
  return {};
}

// One warning for all of them: the first, and how many there are.
void TextTable::find_duplicates(const std::vector<std::string_view>& fields) {
  std::unordered_map<std::string_view, size_t> seen;
  seen.reserve(fields.size());
  std::string first;
  size_t count = 0;
  for (size_t i = 0; i < fields.size(); ++i) {
    const auto [entry, is_new] = seen.emplace(fields[i], i);
    if (is_new) {
      continue;
    }
    if (count == 0) {
      first = path_ + ": line 1, column " + std::to_string(i + 1) + ": the SNP name " + in_quotes(fields[i]) +
              " stands in column " + std::to_string(entry->second + 1) + " too";
    }
    ++count;
  }
  if (count == 1) {
    warnings_.push_back(first);
  } else if (count > 1) {
    warnings_.push_back(first + " (" + std::to_string(count) + " names are repeated)");
  }
}

// Takes the next field from the front of *rest. Returns false when there is none; *rest is null then and
// after the last field of a line with single separators, where an empty rest is one more empty field.
bool TextTable::next_field(std::string_view* rest, std::string_view* field) const {
  if (separator_ == Separator::kBlanks) {
    *rest = without_leading_blanks(*rest);
    const auto* end = std::find_if(rest->begin(), rest->end(), is_blank);
    *field = rest->substr(0, static_cast<size_t>(end - rest->begin()));
    rest->remove_prefix(field->size());
    return !field->empty();
  }
  if (rest->data() == nullptr) {
    return false;
  }
  const char separator = separator_ == Separator::kTab ? '\t' : ',';
  const auto* end = std::find(rest->begin(), rest->end(), separator);
  *field = rest->substr(0, static_cast<size_t>(end - rest->begin()));
  if (end == rest->end()) {
    *rest = {};
  } else {
    rest->remove_prefix(field->size() + 1);
  }
  return true;
}

size_t TextTable::count_fields(std::string_view line) const {
  size_t count = 0;
  for (std::string_view field; next_field(&line, &field);) {
    ++count;
  }
  return count;
}

Status TextTable::next(TableRow* row, bool* more) {
  *more = false;
  const size_t limit = kRowBytesPerField * (n_columns_ + kRowBytesPerField);
  LineState state = LineState::kEnd;
  uint64_t first_empty = 0;
  for (;;) {
    Status status = reader_.next(limit, &line_, &state);
    if (!status.ok()) {
      return status;
    }
    if (state == LineState::kEnd) {
      return n_rows_ > 0
                 ? Status()
                 : Status::failure(path_ + ": no sample, expected at least one line after the header");
    }
    if (!line_.empty()) {
      break;
    }
    // Empty lines may end a table. Elsewhere one stands for a sample that got lost.
    if (first_empty == 0) {
      first_empty = reader_.line_number();
    }
  }
  if (first_empty != 0) {
    return Status::failure(path_ + ": line " + std::to_string(first_empty) + ": empty, expected " +
                           std::to_string(n_columns_) + " fields");
  }
  Status status = parse_row(line_, state == LineState::kLine, row);
  if (status.ok()) {
    ++n_rows_;
    *more = true;
  }
  return status;
}

// "FILE: line L, column C (NAME)", column from 0.
std::string TextTable::place(size_t column) const {
  const std::string& name =
      column == class_column_ ? class_name_ : snp_names_[column - (column > class_column_ ? 1 : 0)];
  return path_ + ": line " + std::to_string(reader_.line_number()) + ", column " +
         std::to_string(column + 1) + " (" + escaped(name) + ")";
}

Status TextTable::field_count_failure(size_t found) const {
  const std::string counts = std::to_string(found) + (found == 1 ? " field" : " fields") + ", expected " +
                             std::to_string(n_columns_);
  if (found < n_columns_) {
    return Status::failure(place(found) + ": missing, the line has " + counts);
  }
  return Status::failure(path_ + ": line " + std::to_string(reader_.line_number()) + ", column " +
                         std::to_string(n_columns_ + 1) + ": the line has " + counts);
}

// whole: the line is complete, not only its beginning.
Status TextTable::parse_row(std::string_view line, bool whole, TableRow* row) const {
  row->genotypes.clear();
  row->genotypes.reserve(snp_names_.size());
  size_t column = 0;
  for (std::string_view rest = line, field; column < n_columns_ && next_field(&rest, &field); ++column) {
    const bool is_class = column == class_column_;
    const int code = genotype_of(field);
    if (code >= 0 && !is_class) {
      row->genotypes.push_back(static_cast<uint8_t>(code));
    } else if (is_class && (code == 0 || code == 1)) {
      row->class_value = static_cast<uint8_t>(code);
    } else {
      // A field that got lost or came in moves all those behind it: then their number is the better message.
      const size_t found = count_fields(line);
      if (whole && found != n_columns_) {
        return field_count_failure(found);
      }
      return Status::failure(place(column) + ": found " + in_quotes(field) + ", expected " +
                             (is_class ? "0 or 1"
                                       : std::string("0, 1, 2 or missing (NA, -9, -1") +
                                             (separator_ == Separator::kBlanks ? ")" : " or empty)")));
    }
  }
  if (!whole) {
    return Status::failure(path_ + ": line " + std::to_string(reader_.line_number()) + ": longer than " +
                           std::to_string(line.size()) + " bytes, expected " + std::to_string(n_columns_) +
                           " short fields");
  }
  const size_t found = column < n_columns_ ? column : count_fields(line);
  return found == n_columns_ ? Status() : field_count_failure(found);
}
