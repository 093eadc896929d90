// SPDX-License-Identifier: Apache-2.0
#include "src/checkpoint.h"

#include <zlib.h>

#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "lib/float_math.h"
#include "util/output_file.h"
#include "util/split_tabs.h"

namespace {

constexpr const char* kFirstLine = "tavo checkpoint\t1";

// A file of lists of this many entries in all would be larger than any run's.
constexpr uintmax_t kLargestFile = uintmax_t{1} << 32;

// Seconds between two writings; the variable is for tests.
double interval() {
  const char* seconds = std::getenv("TAVO_CHECKPOINT_SECONDS");
  return seconds != nullptr ? std::strtod(seconds, nullptr) : 10.0;
}

std::string hexadecimal(uint32_t number) {
  char text[9];
  std::snprintf(text, sizeof(text), "%08" PRIx32, number);
  return text;
}

uint32_t checksum(std::string_view text) {
  return static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(text.data()), text.size()));
}

// The whole field as a number.
template <typename Number>
bool read_number(std::string_view field, Number* number, int base = 10) {
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), *number, base);
  return error == std::errc() && end == field.data() + field.size();
}

// The lines of a checkpoint in turn.
class Lines {
 public:
  explicit Lines(std::string_view text) : text_(text) {}

  // The fields of the next line; none at the end.
  std::vector<std::string_view> next() {
    if (text_.empty()) {
      return {};
    }
    const size_t end = text_.find('\n');
    const std::string_view line = text_.substr(0, end);
    text_.remove_prefix(end == std::string_view::npos ? text_.size() : end + 1);
    return split_tabs(line);
  }

  // Whether the next line begins with this field.
  bool at(std::string_view name) const {
    return text_.substr(0, name.size()) == name && text_.substr(name.size(), 1) == "\t";
  }

 private:
  std::string_view text_;
};

// The entries of one fold, best first.
bool read_fold(Lines& lines, uint64_t n_searched, std::vector<RankedValue>* list) {
  const std::vector<std::string_view> head = lines.next();
  size_t n = 0;
  if (head.size() != 2 || head[0] != "fold" || !read_number(head[1], &n) || n > n_searched) {
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    const std::vector<std::string_view> fields = lines.next();
    RankedValue entry;
    uint32_t bits = 0;
    if (fields.size() != 2 || !read_number(fields[0], &entry.rank) || entry.rank >= n_searched ||
        !read_number(fields[1], &bits, 16)) {
      return false;
    }
    entry.value = float_from_bits(bits);
    if (!(entry.value > 0.0f) ||
        (i > 0 && !SearchFloor{entry.value, entry.rank}.lets_pass(list->back().value, list->back().rank))) {
      return false;
    }
    list->push_back(entry);
  }
  return true;
}

}  // namespace

Status Checkpoint::open(const std::string& path, RunIdentity identity) {
  identity_ = std::move(identity);
  path_ = path;
  written_ = std::chrono::steady_clock::now();
  std::error_code unknown;
  const auto kind = std::filesystem::status(path, unknown).type();
  if (kind == std::filesystem::file_type::not_found) {
    // Better to know now that it cannot be written than after the first hours.
    OutputFile proof;
    return proof.open(path);
  }
  const uintmax_t size = std::filesystem::file_size(path, unknown);
  if (kind != std::filesystem::file_type::regular || unknown || size > kLargestFile) {
    return Status::failure(path + ": no checkpoint of this program");
  }
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.good() && !file.eof()) {
    return Status::failure(path + ": cannot be read");
  }
  return parse(text);
}

Status Checkpoint::parse(const std::string& text) {
  Status foreign = Status::failure(path_ + ": no checkpoint of this program");
  Status damaged = Status::failure(path_ + ": a damaged checkpoint; without this file the run starts anew");
  Lines lines(text);
  if (text.substr(0, text.find('\n')) != kFirstLine) {
    return foreign;
  }
  lines.next();
  const size_t last = text.rfind("end\t");
  const std::vector<std::string_view> end = last == std::string::npos || last == 0 || text[last - 1] != '\n'
                                                ? std::vector<std::string_view>()
                                                : Lines(std::string_view(text).substr(last)).next();
  uint32_t crc = 0;
  if (end.size() != 2 || !read_number(end[1], &crc, 16) || text.size() != last + 4 + end[1].size() + 1 ||
      crc != checksum(std::string_view(text).substr(0, last))) {
    return damaged;
  }
  RunIdentity identity;
  while (lines.at("run")) {
    const std::vector<std::string_view> fields = lines.next();
    if (fields.size() != 3) {
      return damaged;
    }
    identity.emplace_back(fields[1], fields[2]);
  }
  if (Status status = compare(identity); !status.ok()) {
    return status;
  }
  if (lines.at("seed")) {
    const std::vector<std::string_view> fields = lines.next();
    unsigned seed = 0;
    if (fields.size() != 2 || !read_number(fields[1], &seed)) {
      return damaged;
    }
    seed_ = seed;
  }
  while (lines.at("order")) {
    const std::vector<std::string_view> fields = lines.next();
    int order = 0;
    size_t folds = 0;
    SearchState state;
    if (fields.size() != 4 || !read_number(fields[1], &order) || !read_number(fields[2], &state.next) ||
        !read_number(fields[3], &folds)) {
      return damaged;
    }
    for (size_t f = 0; f < folds; ++f) {
      if (!read_fold(lines, state.next, &state.lists.emplace_back())) {
        return damaged;
      }
    }
    states_[order] = std::move(state);
  }
  return lines.at("end") ? Status() : damaged;
}

Status Checkpoint::compare(const RunIdentity& other) const {
  const auto failure = [&](const std::string& name, const std::string& theirs, const std::string& ours) {
    return Status::failure(path_ + ": of another run: its " + name + " is " + theirs + ", that of this run " +
                           ours + "; give this run another checkpoint file");
  };
  for (size_t i = 0; i < identity_.size() || i < other.size(); ++i) {
    const auto& ours =
        i < identity_.size() ? identity_[i] : std::pair<std::string, std::string>("", "nothing");
    const auto& theirs = i < other.size() ? other[i] : std::pair<std::string, std::string>("", "nothing");
    if (ours != theirs) {
      return failure(ours.first.empty() ? theirs.first : ours.first,
                     ours.first == theirs.first || ours.first.empty() ? theirs.second : "unknown",
                     ours.second);
    }
  }
  return {};
}

const SearchState* Checkpoint::state(int order) const {
  const auto found = states_.find(order);
  return found == states_.end() ? nullptr : &found->second;
}

bool Checkpoint::is_due() const {
  return is_open() &&
         std::chrono::duration<double>(std::chrono::steady_clock::now() - written_).count() >= interval();
}

Status Checkpoint::keep(int order, SearchState state) {
  if (!is_open()) {
    return {};
  }
  states_[order] = std::move(state);
  OutputFile file;
  Status status = file.open(path_);
  const std::string bytes = text();
  if (status.ok()) {
    status = file.write(bytes.data(), bytes.size());
  }
  if (status.ok()) {
    status = file.commit();
  }
  written_ = std::chrono::steady_clock::now();
  return status;
}

std::string Checkpoint::text() const {
  std::string text = std::string(kFirstLine) + "\n";
  for (const auto& [name, value] : identity_) {
    text += "run\t" + name + "\t" + value + "\n";
  }
  if (seed_) {
    text += "seed\t" + std::to_string(*seed_) + "\n";
  }
  for (const auto& [order, state] : states_) {
    text += "order\t" + std::to_string(order) + "\t" + std::to_string(state.next) + "\t" +
            std::to_string(state.lists.size()) + "\n";
    for (const std::vector<RankedValue>& list : state.lists) {
      text += "fold\t" + std::to_string(list.size()) + "\n";
      for (const RankedValue& entry : list) {
        text += std::to_string(entry.rank) + "\t" + hexadecimal(bits_of_float(entry.value)) + "\n";
      }
    }
  }
  return text + "end\t" + hexadecimal(checksum(text)) + "\n";
}

void Checkpoint::remove() {
  std::error_code unknown;
  if (is_open()) {
    std::filesystem::remove(path_, unknown);
  }
}
