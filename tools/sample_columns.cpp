// SPDX-License-Identifier: Apache-2.0
#include "tools/sample_columns.h"

#include <algorithm>

#include "tools/field_reader.h"
#include "util/in_quotes.h"

namespace {

Status choose_columns(const FieldReader& reader, const std::optional<std::vector<std::string>>& wanted,
                      SampleColumns* columns) {
  const std::vector<std::string_view>& header = reader.fields();
  const std::string_view first = header[0];
  if ((first != "FID" && first != "#FID") || header.size() < kIdentifierFields || header[1] != "IID") {
    return Status::failure(reader.place() + ": found " + in_quotes(first) +
                           (header.size() > 1 ? " " + in_quotes(header[1]) : "") +
                           ", expected a header line FID IID and names");
  }
  if (header.size() == kIdentifierFields) {
    return Status::failure(reader.place() + ": only FID IID, expected at least one name behind them");
  }
  if (!wanted) {
    for (size_t i = kIdentifierFields; i < header.size(); ++i) {
      columns->names.emplace_back(header[i]);
      columns->fields.push_back(i);
    }
    return {};
  }
  for (const std::string& name : *wanted) {
    const auto begin = header.begin() + kIdentifierFields;
    const auto found = std::find(begin, header.end(), name);
    if (found == header.end()) {
      return Status::failure(reader.place() + ": no column " + in_quotes(name) + " among " +
                             std::to_string(header.size() - kIdentifierFields) + ", the first is " +
                             in_quotes(*begin));
    }
    if (std::find(found + 1, header.end(), name) != header.end()) {
      return Status::failure(reader.place() + ": the column " + in_quotes(name) +
                             " stands there twice, expected once");
    }
    columns->names.push_back(name);
    columns->fields.push_back(static_cast<size_t>(found - header.begin()));
  }
  return {};
}

}  // namespace

std::string SampleColumns::unknown_text() const {
  return unknown_lines == 0 ? "" : " (" + std::to_string(unknown_lines) + " lines match no sample)";
}

std::string SampleColumns::place(size_t sample, size_t column) const {
  return field_place(path, lines[sample], fields[column], names[column]);
}

Status read_sample_columns(const std::string& path, const std::optional<std::vector<std::string>>& wanted,
                           size_t n_samples, const SampleIndex& index, SampleColumns* columns) {
  *columns = SampleColumns();
  columns->path = path;
  FieldReader reader;
  bool more = false;
  Status status = reader.open(path);
  if (status.ok()) {
    status = reader.next(&more);
  }
  if (status.ok() && !more) {
    return Status::failure(path + ": empty, expected a header line FID IID and names");
  }
  if (status.ok()) {
    status = choose_columns(reader, wanted, columns);
  }
  if (!status.ok()) {
    return status;
  }
  const size_t n_fields = reader.fields().size();
  const size_t n_columns = columns->names.size();
  columns->lines.assign(n_samples, 0);
  columns->values.resize(n_samples * n_columns);
  for (;;) {
    status = reader.next(&more);
    if (!status.ok() || !more) {
      return status;
    }
    status = reader.expect_fields(n_fields);
    if (!status.ok()) {
      return status;
    }
    const auto& fields = reader.fields();
    const size_t sample = index.find(fields[0], fields[1]);
    if (sample == SampleIndex::kNone) {
      ++columns->unknown_lines;
      continue;
    }
    if (columns->lines[sample] != 0) {
      return Status::failure(reader.place() + ": a second line for the sample " + in_quotes(fields[0]) + " " +
                             in_quotes(fields[1]) + ", the first is line " +
                             std::to_string(columns->lines[sample]));
    }
    columns->lines[sample] = reader.line_number();
    for (size_t j = 0; j < n_columns; ++j) {
      columns->values[sample * n_columns + j] = fields[columns->fields[j]];
    }
  }
}
