// SPDX-License-Identifier: Apache-2.0
#include "report/variant_map.h"

#include <algorithm>
#include <charconv>
#include <numeric>

#include "report/tsv_file.h"
#include "tools/line_reader.h"
#include "util/in_quotes.h"
#include "util/split_tabs.h"

namespace {

// Beyond any genome; the chromosomes, one after another, stay within 64 bits.
constexpr int64_t kLargestPosition = 1'000'000'000'000;

struct MapColumns {
  size_t chromosome = 0;
  size_t name = 1;
  size_t position = 3;
  size_t least = 4;   // fields of a line, at least
  bool tabs = false;  // fields stand between single tabs; otherwise between blanks and tabs
};

std::vector<std::string_view> blank_fields(std::string_view line) {
  std::vector<std::string_view> fields;
  for (;;) {
    const size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
      return fields;
    }
    line.remove_prefix(begin);
    const size_t end = std::min(line.find_first_of(" \t"), line.size());
    fields.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

std::string lower(std::string_view text) {
  std::string out(text.starts_with('#') ? text.substr(1) : text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return out;
}

// Finds the columns of a header line; false when one is missing.
bool columns_of_header(const std::vector<std::string_view>& fields, MapColumns* columns) {
  int found = 0;
  const auto take = [&](size_t i, std::initializer_list<const char*> words, size_t* place) {
    const std::string name = lower(fields[i]);
    if (std::find(words.begin(), words.end(), name) != words.end()) {
      *place = i;
      ++found;
    }
  };
  for (size_t i = 0; i < fields.size(); ++i) {
    take(i, {"chr", "chrom", "chromosome"}, &columns->chromosome);
    take(i, {"snp", "id", "name", "rsid", "marker"}, &columns->name);
    take(i, {"pos", "bp", "position"}, &columns->position);
  }
  columns->least = 1 + std::max({columns->chromosome, columns->name, columns->position});
  return found == 3;
}

std::string_view without_chr(std::string_view name) {
  return name.size() > 3 && lower(name.substr(0, 3)) == "chr" ? name.substr(3) : name;
}

// Chromosomes with a number come first, then the named ones.
std::pair<int, int> chromosome_order(const std::string& name) {
  int number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error == std::errc() && end == name.data() + name.size()) {
    return {0, number};
  }
  constexpr const char* kNamed[] = {"X", "Y", "XY", "MT", "M"};
  const auto* known = std::find(std::begin(kNamed), std::end(kNamed), name);
  return {known == std::end(kNamed) ? 2 : 1, static_cast<int>(known - std::begin(kNamed))};
}

}  // namespace

void VariantMap::sort_chromosomes() {
  std::vector<size_t> order(chromosomes_.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [this](size_t a, size_t b) {
    return chromosome_order(chromosomes_[a]) < chromosome_order(chromosomes_[b]);
  });
  std::vector<std::string> sorted;
  std::vector<int> place(order.size());
  for (const size_t i : order) {
    place[i] = static_cast<int>(sorted.size());
    sorted.push_back(chromosomes_[i]);
  }
  chromosomes_ = sorted;
  for (auto& [name, at] : places_) {
    at.chromosome = place[static_cast<size_t>(at.chromosome)];
  }
}

Status VariantMap::open(const std::string& path) {
  LineReader reader;
  Status status = reader.open(path);
  MapColumns columns;
  bool vcf = false;
  bool header = true;  // none was seen yet, and none is needed
  std::unordered_map<std::string, int> chromosome_numbers;
  std::string line;
  while (status.ok()) {
    LineState state = LineState::kLine;
    status = reader.next(kLongestLine, &line, &state);
    if (!status.ok() || state == LineState::kEnd) {
      break;
    }
    const uint64_t number = reader.line_number();
    if (state == LineState::kTooLong) {
      return line_failure(path, number, "longer than " + std::to_string(kLongestLine) + " bytes");
    }
    if (number == 1 && line.starts_with("##fileformat=VCF")) {
      vcf = true;
      columns = {0, 2, 1, 3, true};
    }
    if (vcf && line.starts_with('#')) {
      continue;
    }
    if (line.empty()) {
      continue;
    }
    const std::vector<std::string_view> fields = columns.tabs ? split_tabs(line) : blank_fields(line);
    int64_t position = 0;
    const auto is_position = [&position](std::string_view text) {
      const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), position);
      return error == std::errc() && end == text.data() + text.size() && position >= 0 &&
             position <= kLargestPosition;
    };
    if (number == 1 && header && !vcf &&
        !(fields.size() >= columns.least && is_position(fields[columns.position]))) {
      header = false;
      columns.tabs = line.find('\t') != std::string::npos;
      if (!columns_of_header(columns.tabs ? split_tabs(line) : fields, &columns)) {
        return line_failure(
            path, 1,
            "found " + in_quotes(line) +
                ", expected a .bim file, a VCF, or a header with columns for snp, chr and pos");
      }
      continue;
    }
    if (fields.size() < columns.least) {
      return line_failure(
          path, number,
          std::to_string(fields.size()) + " fields, expected at least " + std::to_string(columns.least));
    }
    if (!is_position(fields[columns.position])) {
      return line_failure(path, number,
                          "field " + std::to_string(columns.position + 1) + ": found " +
                              in_quotes(fields[columns.position]) + ", expected a position");
    }
    const std::string chromosome(without_chr(fields[columns.chromosome]));
    const auto [known, is_new] =
        chromosome_numbers.try_emplace(chromosome, static_cast<int>(chromosomes_.size()));
    if (is_new) {
      chromosomes_.push_back(chromosome);
    }
    places_.try_emplace(std::string(fields[columns.name]), GenomePlace{known->second, position});
  }
  if (status.ok() && places_.empty()) {
    return Status::failure(path + ": no variant");
  }
  if (status.ok()) {
    sort_chromosomes();
  }
  return status;
}

const GenomePlace* VariantMap::find(std::string_view name) const {
  const auto found = places_.find(name);
  return found == places_.end() ? nullptr : &found->second;
}
