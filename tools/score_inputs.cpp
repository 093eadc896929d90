// SPDX-License-Identifier: Apache-2.0
#include "tools/score_inputs.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "lib/genotype_file.h"
#include "tools/genotype_info.h"
#include "tools/line_reader.h"
#include "tools/sample_columns.h"
#include "util/in_quotes.h"

namespace {

constexpr size_t kLongestLine = 1 << 16;

std::vector<std::string> split_tabs(std::string_view line) {
  std::vector<std::string> fields;
  for (size_t tab = line.find('\t'); tab != std::string_view::npos; tab = line.find('\t')) {
    fields.emplace_back(line.substr(0, tab));
    line.remove_prefix(tab + 1);
  }
  fields.emplace_back(line);
  return fields;
}

std::string place(const std::string& path, uint64_t line) {
  return path + ": line " + std::to_string(line);
}

}  // namespace

Status read_phenotypes(const std::string& path, Layout layout, PhenotypeKind kind,
                       std::vector<double>* phenotypes, size_t* n_other_classes) {
  *n_other_classes = 0;
  GenotypeInfo info;
  Status status = read_genotype_info(path, layout, &info);
  if (!status.ok()) {
    return status;
  }
  InputFile file;
  if (status = file.open(path); !status.ok()) {
    return status;
  }
  const bool normal = info.header.layout == Layout::kNormal;
  if (!normal && kind == PhenotypeKind::kLinear) {
    return Status::failure(path +
                           ": the transposed layout has one byte for a class, no quantitative phenotype");
  }
  const int64_t class_size = normal ? kClassSize : 1;
  const int64_t step = normal ? sample_record_size(info.header.n_snps) : class_size;
  for (int64_t i = 0; i < info.header.n_samples; ++i) {
    unsigned char bytes[kClassSize] = {};
    status = file.read_at(info.header.body_offset() + i * step, bytes, static_cast<size_t>(class_size));
    if (!status.ok()) {
      return status;
    }
    if (kind == PhenotypeKind::kLogistic) {
      phenotypes->push_back(bytes[0] == 1 ? 1.0 : 0.0);
      *n_other_classes += bytes[0] > 1 ? 1 : 0;
      continue;
    }
    float value = 0.0f;
    std::memcpy(&value, bytes, sizeof(value));
    if (!std::isfinite(value)) {
      return Status::failure(path + ": the phenotype of sample " + std::to_string(i + 1) +
                             " is no finite number");
    }
    phenotypes->push_back(static_cast<double>(value));
  }
  return {};
}

Status read_covariate_table(const std::string& path, size_t n_samples, CovariateTable* table) {
  LineReader reader;
  Status status = reader.open(path);
  if (!status.ok()) {
    return status;
  }
  std::string line;
  LineState state = LineState::kEnd;
  const auto next = [&]() -> Status {
    Status read = reader.next(kLongestLine, &line, &state);
    if (read.ok() && state == LineState::kTooLong) {
      return Status::failure(place(path, reader.line_number()) + ": longer than " +
                             std::to_string(kLongestLine) + " bytes");
    }
    return read;
  };
  if (status = next(); !status.ok()) {
    return status;
  }
  if (state == LineState::kEnd) {
    return Status::failure(path + ": empty, expected a header line");
  }
  const size_t fields_wanted = split_tabs(line).size();
  if (fields_wanted <= kIdentifierFields) {
    return Status::failure(place(path, 1) + ": " + std::to_string(fields_wanted) +
                           " fields, expected two identifiers and at least one covariate, separated by tabs");
  }
  Covariates& x = table->covariates;
  x.n_covariates = fields_wanted - kIdentifierFields;
  for (;;) {
    if (status = next(); !status.ok()) {
      return status;
    }
    if (state == LineState::kEnd) {
      break;
    }
    if (x.n_samples == n_samples) {
      return Status::failure(place(path, reader.line_number()) + ": more lines than the " +
                             std::to_string(n_samples) + " samples of the genotype file");
    }
    const std::vector<std::string> fields = split_tabs(line);
    bool missing = false;
    const size_t row = x.values.size();
    x.values.resize(row + x.n_covariates, 0.0);
    for (size_t j = 0; j < x.n_covariates && !missing; ++j) {
      const size_t field = kIdentifierFields + j;
      if (field >= fields.size()) {
        return Status::failure(place(path, reader.line_number()) + ": " + std::to_string(fields.size()) +
                               " fields, expected " + std::to_string(fields_wanted));
      }
      const std::string& text = fields[field];
      missing = text.starts_with("NA");
      char* end = nullptr;
      const double value = std::strtod(text.c_str(), &end);
      if (!missing && (end == text.c_str() || *end != '\0' || !std::isfinite(value))) {
        return Status::failure(place(path, reader.line_number()) + ", field " + std::to_string(field + 1) +
                               ": found " + in_quotes(text) + ", expected a number or NA");
      }
      x.values[row + j] = value;
    }
    if (missing) {
      std::fill(x.values.begin() + static_cast<ptrdiff_t>(row), x.values.end(), 0.0);
      table->first_missing_line = table->n_missing == 0 ? reader.line_number() : table->first_missing_line;
      ++table->n_missing;
    }
    table->missing.push_back(missing ? 1 : 0);
    ++x.n_samples;
  }
  if (x.n_samples != n_samples) {
    return Status::failure(path + ": " + std::to_string(x.n_samples) +
                           " lines after the header, but the genotype file has " + std::to_string(n_samples) +
                           " samples");
  }
  return {};
}
