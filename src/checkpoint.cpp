// SPDX-License-Identifier: Apache-2.0
#include "src/checkpoint.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "src/notice.h"
#include "src/remnant.h"
#include "util/checksum.h"
#include "util/in_quotes.h"
#include "util/output_file.h"

namespace {

constexpr std::string_view kFirstLine = "tavo checkpoint\t2\n";
// Of every version.
constexpr std::string_view kKind = "tavo checkpoint\t";

constexpr const char* kTemporary = "tmp";
constexpr const char* kLock = "lock";

constexpr int kChecksumDigits = 8;

// Seconds between two writings; the variable is for tests.
double interval() {
  const char* seconds = std::getenv("TAVO_CHECKPOINT_SECONDS");
  return seconds != nullptr ? std::strtod(seconds, nullptr) : 10.0;
}

std::string checksum_text(uint32_t sum) {
  return hexadecimal(sum, kChecksumDigits);
}

bool read_checksum(std::string_view field, uint32_t* sum) {
  return field.size() == kChecksumDigits && read_number(field, sum, 16);
}

std::string end_line(uint32_t sum) {
  std::string line;
  add_line(&line, {"end", checksum_text(sum)});
  return line;
}

// Whether the last line of the file is the checksum of what stands before it. Takes no memory for a large
// file that is none of ours.
bool is_whole(std::ifstream& file, uintmax_t size) {
  const size_t n_end = end_line(0).size();
  if (size < n_end) {
    return false;
  }
  uint32_t sum = 0;
  std::vector<char> piece(1 << 18);
  for (uintmax_t left = size - n_end; left > 0;) {
    const auto n = static_cast<size_t>(std::min<uintmax_t>(left, piece.size()));
    if (!file.read(piece.data(), static_cast<std::streamsize>(n))) {
      return false;
    }
    sum = checksum(piece.data(), n, sum);
    left -= n;
  }
  std::string end(n_end, '\0');
  return file.read(end.data(), static_cast<std::streamsize>(n_end)) && end == end_line(sum);
}

}  // namespace

std::vector<std::string> Checkpoint::files(const std::string& path) {
  std::vector<std::string> files = {path};
  for (const char* name : {kTemporary, kLock, kResultRows, kTidyRows}) {
    files.push_back(path + "." + name);
  }
  return files;
}

std::string Checkpoint::beside(const std::string& name) const {
  return target_ + "." + name;
}

Status Checkpoint::open(const std::string& path, RunIdentity identity) {
  identity_ = std::move(identity);
  path_ = path;
  std::error_code unknown;
  const std::filesystem::path real = std::filesystem::canonical(path, unknown);
  target_ = unknown ? path : real.string();
  interval_ = interval();
  written_ = std::chrono::steady_clock::now();
  // Also shows, better now than after the first hours, that the folder takes files.
  if (Status status = lock_.take(beside(kLock)); !status.ok()) {
    return status;
  }
  const auto kind = std::filesystem::status(path, unknown).type();
  const bool exists = kind != std::filesystem::file_type::not_found;
  if (exists && kind != std::filesystem::file_type::regular) {
    return Status::failure(path + ": no checkpoint of this program");
  }
  if (Status status = exists ? read() : Status(); !status.ok()) {
    return status;
  }
  if (!is_free_name(beside(kTemporary), kKind)) {
    return Status::failure(beside(kTemporary) + ": stands in the way of the checkpoint");
  }
  std::filesystem::remove(beside(kTemporary), unknown);
  return {};
}

Status Checkpoint::read() {
  std::error_code unknown;
  const uintmax_t size = std::filesystem::file_size(path_, unknown);
  std::ifstream file(path_, std::ios::binary);
  if (unknown || !file) {
    return Status::failure(path_ + ": cannot be read");
  }
  std::string start(kKind.size(), '\0');
  if (!file.read(start.data(), static_cast<std::streamsize>(start.size())) || start != kKind) {
    return Status::failure(path_ + ": no checkpoint of this program");
  }
  file.seekg(0);
  if (!is_whole(file, size)) {
    return damaged();
  }
  file.seekg(0);
  std::string text(static_cast<size_t>(size), '\0');
  if (!file.read(text.data(), static_cast<std::streamsize>(size))) {
    return Status::failure(path_ + ": cannot be read");
  }
  text.resize(text.size() - end_line(0).size());
  resumed_ = true;
  return parse(text);
}

Status Checkpoint::damaged() {
  refused_ = true;
  return Status::failure(path_ + ": a damaged checkpoint; without this file the run starts anew");
}

Status Checkpoint::parse(const std::string& text) {
  if (!text.starts_with(kFirstLine)) {
    return Status::failure(path_ +
                           ": a checkpoint of another version of this program; without this file the run "
                           "starts anew");
  }
  StateLines lines(std::string_view(text).substr(kFirstLine.size()));
  std::vector<std::string_view> fields;
  RunIdentity identity;
  while (lines.at("run")) {
    if (!lines.next("run", 2, &fields)) {
      return damaged();
    }
    identity.emplace_back(fields[0], fields[1]);
  }
  if (Status status = compare(identity); !status.ok()) {
    return status;
  }
  if (lines.at("seed")) {
    unsigned seed = 0;
    if (!lines.next_number("seed", &seed)) {
      return damaged();
    }
    seed_ = seed;
  }
  while (lines.at("rows")) {
    GrowingFile::Extent counts;
    if (!lines.next("rows", 3, &fields) || !read_number(fields[1], &counts.size) ||
        !read_checksum(fields[2], &counts.checksum) ||
        !counts_.try_emplace(std::string(fields[0]), counts).second) {
      return damaged();
    }
  }
  while (lines.at("section")) {
    size_t n_bytes = 0;
    std::string_view bytes;
    if (!lines.next("section", 2, &fields) || !read_number(fields[1], &n_bytes) ||
        !lines.take(n_bytes, &bytes) || !sections_.try_emplace(std::string(fields[0]), bytes).second) {
      return damaged();
    }
  }
  return lines.at_end() ? Status() : damaged();
}

Status Checkpoint::compare(const RunIdentity& other) const {
  const auto failure = [&](const std::string& name, const std::string& theirs, const std::string& ours) {
    return Status::failure(path_ + ": of another run: its " + escaped(name) + " is " + escaped(theirs) +
                           ", that of this run " + ours + "; give this run another checkpoint file");
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

Status Checkpoint::restore(const std::string& name, const std::function<bool(StateLines&)>& read,
                           bool* found) {
  const auto section = sections_.find(name);
  if (found != nullptr) {
    *found = section != sections_.end();
  }
  if (section == sections_.end()) {
    return {};
  }
  StateLines lines(section->second);
  return read(lines) && lines.at_end() ? Status() : damaged();
}

Status Checkpoint::rows(const std::string& name, GrowingFile** file) {
  auto rows = std::make_unique<GrowingFile>();
  const auto counts = counts_.find(name);
  if (resumed_ && counts == counts_.end()) {
    return damaged();
  }
  Status status =
      counts == counts_.end() ? rows->begin(beside(name)) : rows->go_on(beside(name), counts->second);
  refused_ = refused_ || !status.ok();
  *file = rows.get();
  rows_[name] = std::move(rows);
  return status;
}

bool Checkpoint::is_due() const {
  return is_open() &&
         std::chrono::duration<double>(std::chrono::steady_clock::now() - written_).count() >= interval_;
}

void Checkpoint::keep(const std::string& name, std::string lines) {
  if (!is_open()) {
    return;
  }
  sections_[name] = std::move(lines);
  const Status status = write();
  written_ = std::chrono::steady_clock::now();
  if (!status.ok() && !said_) {
    notice("the checkpoint is not up to date: %s", status.message().c_str());
    said_ = true;
  }
}

// The rows come first: the checkpoint must not count on what is not on disk.
Status Checkpoint::write() {
  for (const auto& [name, rows] : rows_) {
    if (Status status = rows->sync(&counts_[name]); !status.ok()) {
      return status;
    }
  }
  OutputFile file;
  Status status = file.open_with(path_, beside(kTemporary));
  const std::string bytes = text();
  if (status.ok()) {
    status = file.write(bytes.data(), bytes.size());
  }
  return status.ok() ? file.commit() : status;
}

std::string Checkpoint::text() const {
  std::string text(kFirstLine);
  for (const auto& [name, value] : identity_) {
    add_line(&text, {"run", name, value});
  }
  if (seed_) {
    add_line(&text, {"seed", std::to_string(*seed_)});
  }
  for (const auto& [name, counts] : counts_) {
    add_line(&text, {"rows", name, std::to_string(counts.size), checksum_text(counts.checksum)});
  }
  for (const auto& [name, lines] : sections_) {
    add_line(&text, {"section", name, std::to_string(lines.size())});
    text += lines;
  }
  return text + end_line(checksum(text.data(), text.size()));
}

void Checkpoint::remove() {
  if (!is_open()) {
    return;
  }
  std::error_code unknown;
  std::filesystem::remove(target_, unknown);
  for (const auto& [name, rows] : rows_) {
    rows->remove();
  }
  std::filesystem::remove(beside(kTemporary), unknown);
  lock_.release();
}
